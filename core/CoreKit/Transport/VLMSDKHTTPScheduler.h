#pragma once

#include "../JSON/VLMSDKJSONReader.h"
#include "../VLMSDKMainQueueSource.h"
#include "VLMSDKHTTPRetryRule.h"
#include "VLMSDKTransportAdapter.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace vlmsdk::detail {

class VLMSDKWakeup;

/// The requests of one request manager in one mode, over its transport adapters: every request is checked
/// (VLMSDKRequestCheck), waits in line for one of at most `maximumLiveTransfers` slots, is given a deadline
/// and handed to the first adapter that carries it (the core's own HTTP/1.1 connections when the options
/// ask for them, libcurl for everything); its end, reported by the adapter in the core's terms, goes to
/// the exchange observer, then to the retry rule (back in line later, with the same number), or to the
/// reply handler, exactly once. Cancellation and shutdown reach a request wherever it is. The driver is
/// either the main thread as it pumps VLMSDKMainQueue (the scheduler is one of the queue's sources), or a
/// network thread of its own; either way the adapters and the reply handlers run on the driving thread.
///
/// `submit`, `cancelRequest`, `shutdown` and `statistics` may be called from any thread.
/// A token fetched for a request that waited for it.
struct VLMSDKHTTPTokenArrival {
    std::uint64_t id = 0;
    std::shared_ptr<const std::string> authorization;
    VLMErrorPtr error;
};

class VLMSDKHTTPScheduler final : public VLMSDKMainQueueSource,
                                  public VLMSDKTransportAdapter::Listener,
                                  public std::enable_shared_from_this<VLMSDKHTTPScheduler> {
public:
    enum class Driver { MainQueue, OwnThread };
    using Options = VLMSDKHTTPRequestManagerOptions;
    using Statistics = VLMSDKHTTPRequestManager::Statistics;

    /// A scheduler ready for requests, or nullptr with `error` set.
    static std::shared_ptr<VLMSDKHTTPScheduler> start(std::shared_ptr<const Options> options, Driver driver,
                                                      VLMErrorPtr* error);
    ~VLMSDKHTTPScheduler() override;

    VLMSDKHTTPScheduler(const VLMSDKHTTPScheduler&) = delete;
    VLMSDKHTTPScheduler& operator=(const VLMSDKHTTPScheduler&) = delete;

    /// Queues the request; answers it at once, on the calling thread, when the scheduler has shut down.
    void submit(VLMSDKHTTPPendingRequest&& pending);

    /// Completes every request exactly once with a `Cancelled` error; no reply handler runs once it
    /// returns. From one of the scheduler's own reply handlers it only starts the shutdown, which finishes
    /// when the handler returns. Idempotent.
    void shutdown();

    /// A number unique in the process for a request the host may cancel (put in its `id` before `submit`).
    static std::uint64_t newRequestID();
    /// Answers the request numbered `id` with the cancelled error if it is still queued, waiting for a retry
    /// or on the wire (its adapter takes it off), on the driving thread; nothing once it was answered.
    void cancelRequest(std::uint64_t id);

    Statistics statistics() const;

    /// The token asked for the request numbered `id` came (or its fetch failed, `error`): it joins the waiting
    /// line on the driving thread. Any thread.
    void tokenArrived(std::uint64_t id, std::shared_ptr<const std::string> authorization, VLMErrorPtr error);

    int prepareWait(std::vector<pollfd>& descriptors) override;
    void dispatch(std::span<const pollfd> descriptors) override;

    bool attemptEnded(VLMSDKHTTPAttempt& attempt, VLMSDKHTTPAttemptEnd end, std::string_view detail) override;
    bool stopRequested() override;
    void connectionsOpened(std::size_t count) override;

private:
    VLMSDKHTTPScheduler(std::shared_ptr<const Options> options, Driver driver);

    void runThread();
    void wakeDriver();
    bool isDrivingThread() const { return driving_.load(std::memory_order_acquire) == std::this_thread::get_id(); }
    int prepareLocked(std::vector<pollfd>& descriptors);
    void driveLocked(std::span<const pollfd> descriptors);
    void admit(std::vector<VLMSDKHTTPPendingRequest>& arrived);
    void startWaiting();
    void cancelAll();
    void cancelOne(std::uint64_t id);
    // Sends the ended attempt again later if the retry policy says so; false if not.
    bool retryLater(VLMSDKHTTPAttempt& attempt, VLMSDKHTTPAttemptEnd end, const VLMSDKHTTPReply& reply);
    // Gives the request, just before it is sent, the fresh token of its credentials; false when it must wait
    // for one (it is then kept in awaitingToken_ until the token comes).
    bool authorize(VLMSDKHTTPPendingRequest& pending);
    // Sends the request again, with a token fetched anew, after its first 401; false if not.
    bool refreshAfterRefusal(VLMSDKHTTPAttempt& attempt, const VLMSDKHTTPReply& reply);
    void takeTokens(std::vector<VLMSDKHTTPTokenArrival>& arrivals);
    void releaseDueRetries();
    VLMSDKHTTPAttempt* idleAttempt();
    void complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply);

    const std::shared_ptr<const Options> options_;
    const Driver driver_;
    const std::size_t liveLimit_;
    const VLMErrorPtr outOfMemory_;
    std::unique_ptr<VLMSDKWakeup> wakeup_;  // the network thread's, ending its wait

    // Shared with the calling threads.
    mutable std::mutex mutex_;
    std::vector<VLMSDKHTTPPendingRequest> incoming_;
    std::vector<VLMSDKHTTPPendingRequest> arrived_;  // the driving thread's: incoming_ as last taken
    std::vector<std::uint64_t> cancelled_;           // guarded by mutex_: requests the host cancelled
    std::vector<std::uint64_t> cancelledNow_;        // the driving thread's: cancelled_ as last taken
    std::vector<VLMSDKHTTPTokenArrival> tokens_;      // guarded by mutex_: tokens fetched for waiting requests
    std::vector<VLMSDKHTTPTokenArrival> tokensNow_;   // the driving thread's: tokens_ as last taken
    bool accepting_ = false;

    bool stopRequested_ = false;
    bool driverWaiting_ = false;  // the network thread waits, or is about to: only then is a wake-up needed

    // Held while the adapters, the attempts and the queue of waiting requests are used.
    std::mutex driveMutex_;
    std::atomic<std::thread::id> driving_{};  // the thread inside driveLocked or cancelAll
    bool stopped_ = false;
    // Requests waiting for a slot, first in first out; the vector keeps its storage from burst to burst.
    struct WaitingLine {
        std::vector<VLMSDKHTTPPendingRequest> items;
        std::size_t head = 0;
        bool empty() const { return head == items.size(); }
        void push(VLMSDKHTTPPendingRequest&& pending) { items.push_back(std::move(pending)); }
        // Ahead of every waiting request, in their order: `first` had reached the head before.
        void pushFront(std::vector<VLMSDKHTTPPendingRequest>& first) {
            items.insert(items.begin() + static_cast<std::ptrdiff_t>(head), std::make_move_iterator(first.begin()),
                         std::make_move_iterator(first.end()));
            first.clear();
        }
        VLMSDKHTTPPendingRequest pop() {
            VLMSDKHTTPPendingRequest first = std::move(items[head++]);
            if (head == items.size()) {
                items.clear();
                head = 0;
            }
            return first;
        }
    };
    WaitingLine waiting_;
    // Requests waiting to be sent again, soonest first.
    struct Delayed {
        std::chrono::steady_clock::time_point due;
        VLMSDKHTTPPendingRequest pending;
    };
    std::vector<Delayed> delayed_;
    // Requests waiting for their credentials' token (the driving thread's), in no order.
    std::vector<VLMSDKHTTPPendingRequest> awaitingToken_;
    std::vector<VLMSDKHTTPPendingRequest> tokenGiven_;  // those takeTokens gives back to the line, kept for its storage
    VLMSDKHTTPRetryRule retryRule_;
    // In the order they are offered a request: the first that carries it takes it.
    std::vector<std::unique_ptr<VLMSDKTransportAdapter>> adapters_;
    // Where each adapter's descriptors stand in what the last prepareLocked appended.
    std::vector<std::pair<std::size_t, std::size_t>> adapterDescriptors_;
    std::vector<std::unique_ptr<VLMSDKHTTPAttempt>> attempts_;
    std::vector<VLMSDKHTTPAttempt*> idle_;
    std::size_t live_ = 0;
    VLMSDKJSONReader reader_;

    std::mutex joinMutex_;
    std::thread thread_;

    std::atomic<std::size_t> connectionsOpened_{0};
    std::atomic<std::size_t> requestsSent_{0};
    std::atomic<std::size_t> requestsCompleted_{0};
};

}  // namespace vlmsdk::detail
