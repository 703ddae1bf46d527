#pragma once

#include "VLMSDKHTTPAttempt.h"

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vlmsdk::detail {

/// One way onto the wire under the request manager's scheduler (VLMSDKHTTPScheduler): it carries the
/// attempts the scheduler starts, waits in the scheduler's one poll, and reports each attempt's end, once,
/// in the core's own terms. Queueing, the connection cap, retries, cancellation, shutdown and completions
/// are the scheduler's; connections, their reuse and their protocol are the adapter's. A new adapter (a
/// phone platform's own HTTP stack, say) implements this and is added to the scheduler's list.
///
/// Every call comes from the thread driving the scheduler, one at a time.
class VLMSDKTransportAdapter {
public:
    /// What an adapter tells the scheduler.
    class Listener {
    public:
        /// `attempt` ended with `end`; `detail` is the adapter's own account of a failure. Called once per
        /// started attempt (never for one stopped with `stop`); the attempt is no longer the adapter's.
        /// Answers whether the connection it came on may carry another request: false when its reply
        /// answered another request (it named something else), and the adapter then closes that connection.
        virtual bool attemptEnded(VLMSDKHTTPAttempt& attempt, VLMSDKHTTPAttemptEnd end, std::string_view detail) = 0;
        /// Whether the manager is shutting down: an adapter ending several attempts in one go stops then.
        virtual bool stopRequested() = 0;
        /// `count` new connections were opened (statistics).
        virtual void connectionsOpened(std::size_t count) = 0;

    protected:
        ~Listener() = default;
    };

    virtual ~VLMSDKTransportAdapter() = default;

    /// Starts `attempt` if this adapter carries its request, and answers true; false (nothing done) when it
    /// does not. An attempt that fails at once is reported through the listener before this returns.
    virtual bool start(VLMSDKHTTPAttempt& attempt) = 0;

    /// Appends the descriptors to wait on, and lowers `wakeAt` to when the adapter must be advanced at the
    /// latest (its timers, its deadlines).
    virtual void prepareWait(std::vector<pollfd>& descriptors,
                             std::optional<std::chrono::steady_clock::time_point>& wakeAt) = 0;

    /// Moves its attempts on after a wait: `descriptors` are the ones it appended, with what was found.
    virtual void advance(std::span<const pollfd> descriptors) = 0;

    /// Takes `attempt` off the wire without reporting it (the host cancelled it, or the manager shuts down);
    /// answers whether any byte of it was sent.
    virtual bool stop(VLMSDKHTTPAttempt& attempt) = 0;
};

}  // namespace vlmsdk::detail
