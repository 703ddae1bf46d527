#pragma once

#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

namespace vlmsdk::detail {

/// Runs answers after their delays, on one thread of its own (started by the first `schedule`). Every
/// answer runs exactly once, on that thread: when its delay is over, as soon as its cancellation is given,
/// or when this is destroyed.
class VLMSDKDelayedReplies {
public:
    /// Why an answer runs.
    enum class Reason { Due, Cancelled, ShutDown };
    /// One answer; it must not throw.
    using Answer = std::function<void(Reason)>;

    VLMSDKDelayedReplies();
    /// Runs every answer still waiting (ShutDown, or Cancelled when its cancellation came), then joins the
    /// thread; on that thread itself (an answer dropped the last owner) it lets the thread finish alone.
    ~VLMSDKDelayedReplies();
    VLMSDKDelayedReplies(const VLMSDKDelayedReplies&) = delete;
    VLMSDKDelayedReplies& operator=(const VLMSDKDelayedReplies&) = delete;

    /// Runs `answer` after `delay`, or early once `cancellation` (nullptr: none) is given. Any thread.
    void schedule(std::chrono::milliseconds delay, std::shared_ptr<VLMSDKCancellation> cancellation, Answer answer);

private:
    struct State;
    // The thread's loop: it holds the state, never this object.
    static void run(const std::shared_ptr<State>& state);

    std::shared_ptr<State> state_;
    std::thread thread_;
};

}  // namespace vlmsdk::detail
