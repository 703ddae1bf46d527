#pragma once

#include "../JSON/VLMSDKJSONReader.h"
#include "../VLMSDKMainQueueSource.h"
#include "VLMSDKHTTP1Connection.h"
#include "VLMSDKHTTPRetryRule.h"
#include "VLMSDKHTTPTransfer.h"

#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace vlmsdk::detail {

/// The transfers of one request manager in one mode: a libcurl multi handle, its easy handles and the
/// requests waiting for one, driven by one thread at a time through libcurl's socket interface; beside it,
/// the core's own HTTP/1.1 connections, for plain http to an IP address when no proxy applies (the options'
/// `transport`). The driver is either the main thread as it pumps VLMSDKMainQueue (the engine is one of the
/// queue's sources), or a network thread of the engine's own. Either way the reply handlers run on the
/// driving thread, and retries, cancellation and shutdown treat both kinds of transfer alike.
///
/// `submit`, `shutdown` and `statistics` may be called from any thread.
class VLMSDKHTTPEngine final : public VLMSDKMainQueueSource, public std::enable_shared_from_this<VLMSDKHTTPEngine> {
public:
    enum class Driver { MainQueue, OwnThread };
    using Options = VLMSDKHTTPRequestManagerOptions;
    using Statistics = VLMSDKHTTPRequestManager::Statistics;

    /// An engine ready for requests, or nullptr with `error` set.
    static std::shared_ptr<VLMSDKHTTPEngine> start(std::shared_ptr<const Options> options, Driver driver,
                                                   VLMErrorPtr* error);
    ~VLMSDKHTTPEngine() override;

    VLMSDKHTTPEngine(const VLMSDKHTTPEngine&) = delete;
    VLMSDKHTTPEngine& operator=(const VLMSDKHTTPEngine&) = delete;

    /// Queues the request; answers it at once, on the calling thread, when the engine has shut down.
    void submit(VLMSDKHTTPPendingRequest&& pending);

    /// Completes every request exactly once with a `Cancelled` error; no reply handler of the engine runs
    /// once it returns. From one of the engine's own reply handlers it only starts the shutdown, which
    /// finishes when the handler returns. Idempotent.
    void shutdown();

    /// A number unique in the process for a request the host may cancel (put in its `id` before `submit`).
    static std::uint64_t newRequestID();
    /// Answers the request numbered `id` with the cancelled error if it is still queued or on the wire
    /// (its transfer leaves libcurl), on the driving thread; nothing once it was answered. Any thread.
    void cancelRequest(std::uint64_t id);

    Statistics statistics() const;

    int prepareWait(std::vector<pollfd>& descriptors) override;
    void dispatch(std::span<const pollfd> descriptors) override;

private:
    VLMSDKHTTPEngine(std::shared_ptr<const Options> options, Driver driver);

    static int onSocket(CURL* handle, curl_socket_t socket, int what, void* engine, void* socketData);
    static int onTimer(CURLM* multi, long milliseconds, void* engine);

    void runThread();
    void wakeDriver();
    bool isDrivingThread() const { return driving_.load(std::memory_order_acquire) == std::this_thread::get_id(); }
    int prepareLocked(std::vector<pollfd>& descriptors);
    void driveLocked(std::span<const pollfd> descriptors);
    void admit(std::vector<VLMSDKHTTPPendingRequest>& arrived);
    void startWaiting();
    void collectFinished();
    void cancelAll();
    void cancelOne(std::uint64_t id);
    // Sends the finished attempt of `transfer` again later if the retry policy says so; false if not.
    bool retryLater(VLMSDKHTTPTransfer& transfer, CURLcode result, const VLMSDKHTTPReply& reply);
    void releaseDueRetries();
    // The end of an attempt, whoever carried it: the observer, a retry, or the reply handler.
    void finishAttempt(VLMSDKHTTPTransfer& transfer, CURLcode result, VLMSDKHTTPReply reply);
    bool stopRequestedNow();

    // The core's own HTTP/1.1 connections, and the transfer each one carries (nullptr: idle, kept alive).
    struct Wire {
        std::string authority;                              // where it goes: "127.0.0.1:8080"
        std::unique_ptr<VLMSDKHTTP1Connection> connection;  // nullptr: closed, gone at the end of the drive
        VLMSDKHTTPTransfer* transfer = nullptr;
        std::optional<std::chrono::steady_clock::time_point> connectBy, answerBy;
        std::chrono::steady_clock::time_point idleSince;  // when it last went idle
    };
    // Where `request` goes on a connection of the core's own; nothing when libcurl takes it.
    std::optional<VLMSDKHTTP1Connection::Target> wireTarget(const VLMSDKRequest& request) const;
    // Sends the taken request of a live transfer on a kept or new connection to `target`, to be answered by
    // `answerBy` (none: the request's time limit from now).
    void startOnWire(VLMSDKHTTPTransfer& transfer, const VLMSDKHTTP1Connection::Target& target, bool mayReuse,
                     std::optional<std::chrono::steady_clock::time_point> answerBy = std::nullopt);
    // A kept connection to `authority` fit to carry a request now; closes the ones that are not.
    Wire* keptWire(const std::string& authority, std::chrono::steady_clock::time_point now);
    void advanceWire(Wire& wire, short revents);
    // Ends the attempt on `wire` if `step` says it is over.
    void settleWire(Wire& wire, VLMSDKHTTP1Connection::Step step);
    void timeOutWires();
    // Ends the attempt the wire carries with `result` (CURLE_OK: answered), in libcurl's terms.
    void finishOnWire(Wire& wire, CURLcode result, std::string_view failure);
    Wire* wireOf(const VLMSDKHTTPTransfer& transfer);
    VLMSDKHTTPTransfer* idleTransfer(VLMErrorPtr* error);
    void complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply);

    const std::shared_ptr<const Options> options_;
    const Driver driver_;
    const std::size_t liveLimit_;
    const VLMErrorPtr outOfMemory_;
    CURLM* multi_ = nullptr;
    CURLSH* share_ = nullptr;
    int wakeDescriptor_ = -1;  // the network thread's, ending its wait

    // Shared with the calling threads.
    mutable std::mutex mutex_;
    std::vector<VLMSDKHTTPPendingRequest> incoming_;
    std::vector<VLMSDKHTTPPendingRequest> arrived_;  // the driving thread's: incoming_ as last taken
    std::vector<std::uint64_t> cancelled_;           // guarded by mutex_: requests the host cancelled
    std::vector<std::uint64_t> cancelledNow_;        // the driving thread's: cancelled_ as last taken
    // Requests waiting to be sent again, soonest first.
    struct Delayed {
        std::chrono::steady_clock::time_point due;
        VLMSDKHTTPPendingRequest pending;
    };
    std::vector<Delayed> delayed_;
    VLMSDKHTTPRetryRule retryRule_;
    bool accepting_ = false;
    bool stopRequested_ = false;
    bool driverWaiting_ = false;  // the network thread waits, or is about to: only then is a wake-up needed

    // Held while the multi handle, the transfers and the queue of waiting requests are used.
    std::mutex driveMutex_;
    std::atomic<std::thread::id> driving_{};  // the thread inside driveLocked or cancelAll
    bool stopped_ = false;
    // Requests waiting for a transfer, first in first out; the vector keeps its storage from burst to burst.
    struct WaitingLine {
        std::vector<VLMSDKHTTPPendingRequest> items;
        std::size_t head = 0;
        bool empty() const { return head == items.size(); }
        void push(VLMSDKHTTPPendingRequest&& pending) { items.push_back(std::move(pending)); }
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
    std::vector<std::unique_ptr<VLMSDKHTTPTransfer>> transfers_;
    std::vector<VLMSDKHTTPTransfer*> idle_;
    std::size_t live_ = 0;
    std::vector<pollfd> sockets_;  // what libcurl asked to wait for, per socket (a few: a flat list)
    std::vector<std::unique_ptr<Wire>> wires_;
    // What the last prepareLocked waits on: libcurl's sockets first, then these wires, in order.
    std::size_t curlDescriptors_ = 0;
    std::vector<Wire*> wiresWaitedOn_;
    bool proxyApplies_ = false;  // to plain http: then libcurl takes every request
    std::optional<std::chrono::steady_clock::time_point> timerDeadline_;
    VLMSDKJSONReader reader_;

    std::mutex joinMutex_;
    std::thread thread_;

    std::atomic<std::size_t> connectionsOpened_{0};
    std::atomic<std::size_t> requestsSent_{0};
    std::atomic<std::size_t> requestsCompleted_{0};
};

}  // namespace vlmsdk::detail
