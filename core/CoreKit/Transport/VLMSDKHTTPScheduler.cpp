#include "VLMSDKHTTPScheduler.h"

#include "../VLMSDKRequestCheck.h"
#include "../VLMSDKWakeup.h"
#include "VLMSDKCurlAdapter.h"
#include "VLMSDKHTTP1Adapter.h"

#include <VLMSDKCoreKit/VLMSDKCancellation.h>
#include <VLMSDKCoreKit/VLMSDKCredentials.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace vlmsdk::detail {

namespace {

// Only a wake-up, an adapter's timers or a deadline end the network thread's wait; this bounds it in case
// all stay silent.
constexpr int kLongestWaitMilliseconds = 10000;

VLMErrorPtr schedulerError(VLMErrorCode code, std::string message, const char* function) {
    return VLMError::errorWithCode(code, kVLMSDKNetworkErrorDomain, std::move(message), function, __FILE__);
}

// Builds an error with `make`; should that run out of memory, `fallback`, made in advance, stands in, so that
// every request is still answered.
template <typename Make>
VLMErrorPtr errorOr(const VLMErrorPtr& fallback, Make make) noexcept {
    try {
        return make();
    } catch (...) {
        return fallback;
    }
}

}  // namespace

std::shared_ptr<VLMSDKHTTPScheduler> VLMSDKHTTPScheduler::start(std::shared_ptr<const Options> options, Driver driver,
                                                                VLMErrorPtr* error) {
    std::shared_ptr<VLMSDKHTTPScheduler> scheduler(new VLMSDKHTTPScheduler(std::move(options), driver));
    const Options& settings = *scheduler->options_;
    // The core's own connections first, when asked for: they take what they carry, libcurl the rest.
    if (settings.transport == Options::Transport::HTTP1) {
        scheduler->adapters_.push_back(
            std::make_unique<VLMSDKHTTP1Adapter>(settings, scheduler->liveLimit_, *scheduler));
    }
    auto curl = VLMSDKCurlAdapter::make(settings, scheduler->liveLimit_, *scheduler, error);
    if (!curl) return nullptr;
    scheduler->adapters_.push_back(std::move(curl));
    scheduler->accepting_ = true;

    if (driver == Driver::MainQueue) {
        attachMainQueueSource(scheduler);
        return scheduler;
    }
    scheduler->wakeup_ = std::make_unique<VLMSDKWakeup>();
    if (!scheduler->wakeup_->valid()) {
        *error = schedulerError(VLMErrorCode::Transport, "The network thread's wake-up descriptor could not be made.",
                                __func__);
        return nullptr;
    }
    try {
        scheduler->thread_ = std::thread([scheduler] { scheduler->runThread(); });
    } catch (const std::exception& exception) {
        *error = schedulerError(VLMErrorCode::Transport,
                                std::string("The network thread could not start: ") + exception.what(), __func__);
        return nullptr;
    }
    return scheduler;
}

VLMSDKHTTPScheduler::VLMSDKHTTPScheduler(std::shared_ptr<const Options> options, Driver driver)
    : options_(std::move(options)),
      driver_(driver),
      liveLimit_(std::max<std::size_t>(options_->maximumLiveTransfers, 1)),
      outOfMemory_(schedulerError(VLMErrorCode::Transport, "Out of memory while handling a request.", __func__)),
      retryRule_(options_->retry) {}

VLMSDKHTTPScheduler::~VLMSDKHTTPScheduler() {
    if (thread_.joinable()) {
        // The thread may hold the last reference and end here itself.
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }
    adapters_.clear();
}

void VLMSDKHTTPScheduler::submit(VLMSDKHTTPPendingRequest&& pending) {
    bool refused = true;
    bool outOfMemory = false;
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        if (accepting_) {
            try {
                // Strong guarantee: on failure `pending` is left as it was.
                incoming_.push_back(std::move(pending));
                refused = false;
                // A busy driver looks at the queue again before it waits; one wake-up covers every request
                // queued before it looks.
                wake = driver_ == Driver::MainQueue || std::exchange(driverWaiting_, false);
            } catch (const std::exception&) {
                outOfMemory = true;
            }
        }
    }
    if (wake) wakeDriver();
    if (!refused) return;

    // Answered at once, on the calling thread, outside the lock.
    requestsCompleted_.fetch_add(1, std::memory_order_relaxed);
    if (!pending.completion) return;
    try {
        const std::string what = pending.request ? pending.request->method() + " " + pending.request->redactedURL()
                                                 : std::string("A request");
        VLMErrorPtr error =
            outOfMemory ? schedulerError(VLMErrorCode::Transport, what + " was not sent: out of memory.", __func__)
                        : schedulerError(VLMErrorCode::Cancelled,
                                      what + " was not sent: the request manager has shut down.", __func__);
        pending.completion(nullptr, nullptr, std::move(error));
    } catch (...) {
        // Neither a throwing handler nor a failed allocation escapes into the caller.
    }
}

std::uint64_t VLMSDKHTTPScheduler::newRequestID() {
    static std::atomic<std::uint64_t> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

void VLMSDKHTTPScheduler::cancelRequest(std::uint64_t id) {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        if (!accepting_) return;  // the shutdown answers everything
        try {
            cancelled_.push_back(id);
        } catch (const std::exception&) {
            return;  // out of memory: the request completes as it would have
        }
        wake = driver_ == Driver::MainQueue || std::exchange(driverWaiting_, false);
    }
    if (wake) wakeDriver();
}

void VLMSDKHTTPScheduler::tokenArrived(std::uint64_t id, std::shared_ptr<const std::string> authorization,
                                       VLMErrorPtr error) {
    bool wake = false;
    {
        std::lock_guard lock(mutex_);
        if (!accepting_) return;  // the shutdown answered the request
        try {
            tokens_.push_back({id, std::move(authorization), std::move(error)});
        } catch (const std::exception&) {
            return;  // out of memory: the request waits for a cancel or the shutdown
        }
        wake = driver_ == Driver::MainQueue || std::exchange(driverWaiting_, false);
    }
    if (wake) wakeDriver();
}

void VLMSDKHTTPScheduler::wakeDriver() {
    if (driver_ == Driver::MainQueue) {
        wakeMainQueue();
        return;
    }
    wakeup_->signal();
}

void VLMSDKHTTPScheduler::shutdown() {
    {
        std::lock_guard lock(mutex_);
        accepting_ = false;
        stopRequested_ = true;
        driverWaiting_ = false;
    }
    // From a reply handler: the driving thread finishes the shutdown once the handler returns.
    if (isDrivingThread()) return;
    if (driver_ == Driver::OwnThread) {
        wakeDriver();
        std::lock_guard joinLock(joinMutex_);
        if (thread_.joinable()) thread_.join();
        return;
    }
    // The main thread touches the transfers only under the drive lock, and never while it waits, so the
    // shutdown can be done here, once a dispatch under way has ended.
    {
        std::lock_guard drive(driveMutex_);
        if (!stopped_) {
            driving_.store(std::this_thread::get_id(), std::memory_order_release);
            cancelAll();
            driving_.store({}, std::memory_order_release);
        }
    }
    detachMainQueueSource(this);
}

VLMSDKHTTPScheduler::Statistics VLMSDKHTTPScheduler::statistics() const {
    Statistics statistics;
    statistics.connectionsOpened = connectionsOpened_.load(std::memory_order_relaxed);
    statistics.requestsSent = requestsSent_.load(std::memory_order_relaxed);
    statistics.requestsCompleted = requestsCompleted_.load(std::memory_order_relaxed);
    return statistics;
}

int VLMSDKHTTPScheduler::prepareWait(std::vector<pollfd>& descriptors) {
    // A reply handler pumping the main queue again does not drive the scheduler it was called from.
    if (isDrivingThread()) return -1;
    std::lock_guard drive(driveMutex_);
    return prepareLocked(descriptors);
}

void VLMSDKHTTPScheduler::dispatch(std::span<const pollfd> descriptors) {
    if (isDrivingThread()) return;
    bool stopped = false;
    {
        std::lock_guard drive(driveMutex_);
        if (stopped_) return;
        driveLocked(descriptors);
        stopped = stopped_;
    }
    if (stopped && driver_ == Driver::MainQueue) detachMainQueueSource(this);
}

void VLMSDKHTTPScheduler::connectionsOpened(std::size_t count) {
    connectionsOpened_.fetch_add(count, std::memory_order_relaxed);
}

int VLMSDKHTTPScheduler::prepareLocked(std::vector<pollfd>& descriptors) {
    adapterDescriptors_.clear();
    if (stopped_) return -1;
    bool ready = false;
    {
        std::lock_guard lock(mutex_);
        ready = !incoming_.empty() || !cancelled_.empty() || !tokens_.empty() || stopRequested_;
    }
    ready = ready || (!waiting_.empty() && live_ < liveLimit_);
    // The adapters' descriptors go into a wait of no time too: it costs no call of its own, and tells an
    // adapter, before requests are started, whether its idle connections are still quiet.
    std::optional<std::chrono::steady_clock::time_point> wakeAt;
    if (!delayed_.empty()) wakeAt = delayed_.front().due;
    // Positions are counted from what this source appends: the span dispatch gets back starts there.
    const std::size_t base = descriptors.size();
    for (const auto& adapter : adapters_) {
        const std::size_t first = descriptors.size();
        adapter->prepareWait(descriptors, wakeAt);
        adapterDescriptors_.emplace_back(first - base, descriptors.size() - first);
    }
    if (ready) return 0;
    if (!wakeAt) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*wakeAt - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

void VLMSDKHTTPScheduler::driveLocked(std::span<const pollfd> descriptors) {
    driving_.store(std::this_thread::get_id(), std::memory_order_release);
    bool stop = false;
    {
        // The two vectors trade their storage back and forth: taking the new requests allocates nothing.
        std::lock_guard lock(mutex_);
        arrived_.swap(incoming_);
        cancelledNow_.swap(cancelled_);
        tokensNow_.swap(tokens_);
        stop = stopRequested_;
    }
    admit(arrived_);
    takeTokens(tokensNow_);
    // After admission: a request cancelled as it was handed over is found in the waiting line.
    for (const std::uint64_t id : cancelledNow_) cancelOne(id);
    cancelledNow_.clear();
    if (!stop) {
        // Every adapter is advanced, with or without news on its descriptors: its timers may be due. First,
        // so that what the wait found (a reply, a connection closed while idle) is known before requests
        // are started on kept connections.
        for (std::size_t i = 0; i < adapters_.size(); ++i) {
            if (stopRequested()) break;
            std::span<const pollfd> own;
            if (i < adapterDescriptors_.size()) {
                const auto [first, count] = adapterDescriptors_[i];
                if (first + count <= descriptors.size()) own = descriptors.subspan(first, count);
            }
            adapters_[i]->advance(own);
        }
        adapterDescriptors_.clear();
        if (!stopRequested()) {
            releaseDueRetries();
            startWaiting();
        }
        std::lock_guard lock(mutex_);
        stop = stopRequested_;
    }
    // A handler may have shut the scheduler down while it ran.
    if (stop) cancelAll();
    driving_.store({}, std::memory_order_release);
}

void VLMSDKHTTPScheduler::runThread() {
    std::vector<pollfd> descriptors;
    for (;;) {
        descriptors.assign({{wakeup_->descriptor(), POLLIN, 0}});
        int timeout = 0;
        {
            std::lock_guard drive(driveMutex_);
            if (stopped_) break;
            timeout = prepareLocked(descriptors);
        }
        if (timeout != 0) {
            std::lock_guard lock(mutex_);
            if (incoming_.empty() && cancelled_.empty() && tokens_.empty() && !stopRequested_) {
                driverWaiting_ = true;
            } else {
                timeout = 0;
            }
        }
        ::poll(descriptors.data(), descriptors.size(),
               timeout < 0 ? kLongestWaitMilliseconds : std::min(timeout, kLongestWaitMilliseconds));
        {
            std::lock_guard lock(mutex_);
            driverWaiting_ = false;
        }
        if (descriptors[0].revents & POLLIN) wakeup_->drain();
        std::lock_guard drive(driveMutex_);
        driveLocked(std::span<const pollfd>(descriptors).subspan(1));
    }
}

void VLMSDKHTTPScheduler::admit(std::vector<VLMSDKHTTPPendingRequest>& arrived) {
    for (auto& pending : arrived) {
        // Checked here, before either transport sees it, whatever made the request.
        if (auto rejection =
                errorOr(outOfMemory_, [&] { return VLMSDKRequestCheck::rejectionOf(pending.request.get()); })) {
            complete(pending.completion, {nullptr, nullptr, std::move(rejection)});
            continue;
        }
        // A POST or PATCH that will carry an idempotency key needs a number to make it from.
        if (options_->retry.idempotencyKeys && pending.id == 0 && pending.request->method() != "GET") {
            pending.id = newRequestID();
        }
        try {
            waiting_.push(std::move(pending));
        } catch (const std::exception&) {
            complete(pending.completion, {nullptr, nullptr, outOfMemory_});
        }
    }
    arrived.clear();
}

void VLMSDKHTTPScheduler::startWaiting() {
    while (live_ < liveLimit_ && !waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = waiting_.pop();
        if (!pending.request && pending.id != 0) continue;  // cancelled while it waited: answered already
        if (!authorize(pending)) continue;

        VLMSDKHTTPAttempt* attempt = idleAttempt();
        if (!attempt) {
            complete(pending.completion, {nullptr, nullptr, outOfMemory_});
            continue;
        }
        // The deadline runs from the first send; an adapter that sends it again keeps it.
        std::optional<std::chrono::steady_clock::time_point> deadline;
        if (options_->requestTimeout.count() > 0) deadline = std::chrono::steady_clock::now() + options_->requestTimeout;
        attempt->take(std::move(pending), deadline);
        ++live_;
        requestsSent_.fetch_add(1, std::memory_order_relaxed);
        for (const auto& adapter : adapters_) {
            attempt->carrier = adapter.get();
            if (adapter->start(*attempt)) break;
            attempt->carrier = nullptr;
        }
    }
}

bool VLMSDKHTTPScheduler::attemptEnded(VLMSDKHTTPAttempt& attempt, VLMSDKHTTPAttemptEnd end, std::string_view detail) {
    attempt.carrier = nullptr;
    --live_;
    VLMSDKHTTPReply reply = attempt.finish(end, detail, reader_);
    // A reply about something else answers another request: never delivered as this one's, and what follows
    // on its connection would be out of step too.
    const bool connectionUsable = !attempt.checksReply() || [&] {
        auto mismatch = attempt.mismatchOf(reply);
        if (!mismatch) return true;
        reply.body = nullptr;
        reply.error = std::move(mismatch);
        return false;
    }();
    if (options_->exchangeObserver) {
        try {
            options_->exchangeObserver(attempt.exchange(reply));
        } catch (...) {
            // An observer's failure must not cost the request its reply.
        }
    }
    if (const auto* telemetry = attempt.telemetry()) telemetry->reportAttempt(attempt.attemptEvent(reply));
    if (refreshAfterRefusal(attempt, reply) || retryLater(attempt, end, reply)) {
        idle_.push_back(&attempt);
        return connectionUsable;
    }
    auto completion = attempt.release();
    idle_.push_back(&attempt);
    complete(completion, std::move(reply));
    return connectionUsable;
}

bool VLMSDKHTTPScheduler::authorize(VLMSDKHTTPPendingRequest& pending) {
    const auto& credentials = pending.request->credentials();
    if (!credentials) return true;
    // A token given by a fetch may have gone stale while its request waited for a slot: sent, it would be
    // refused, and a line longer than a token's life would end requests in errors.
    if (auto fresh = credentials->freshAuthorization()) {
        pending.authorization = std::move(fresh);
        return true;
    }
    // One already stale as its fetch ended is the best there is: asking again would only loop.
    if (pending.authorization && pending.staleWhenGiven) return true;
    pending.authorization = nullptr;
    try {
        if (pending.id == 0) pending.id = newRequestID();
        awaitingToken_.push_back(std::move(pending));
    } catch (const std::exception&) {
        complete(pending.completion, {nullptr, nullptr, outOfMemory_});
        return false;
    }
    // Asked outside any wait: the answer comes through tokenArrived, on whatever thread ends the fetch.
    const std::weak_ptr<VLMSDKHTTPScheduler> weak = weak_from_this();
    credentials->authorize([weak, id = awaitingToken_.back().id](std::shared_ptr<const std::string> authorization,
                                                                 VLMErrorPtr error) {
        if (const auto scheduler = weak.lock()) scheduler->tokenArrived(id, std::move(authorization), std::move(error));
    });
    return false;
}

void VLMSDKHTTPScheduler::takeTokens(std::vector<VLMSDKHTTPTokenArrival>& arrivals) {
    for (auto& arrival : arrivals) {
        const auto waiting = std::find_if(awaitingToken_.begin(), awaitingToken_.end(),
                                          [&](const VLMSDKHTTPPendingRequest& p) { return p.id == arrival.id; });
        if (waiting == awaitingToken_.end()) continue;  // cancelled while it waited
        VLMSDKHTTPPendingRequest pending = std::move(*waiting);
        *waiting = std::move(awaitingToken_.back());
        awaitingToken_.pop_back();
        if (!arrival.authorization) {
            VLMErrorPtr error = errorOr(outOfMemory_, [&] {
                return VLMError::errorWithCode(
                    VLMErrorCode::Authentication, kVLMSDKNetworkErrorDomain,
                    pending.request->method() + " " + pending.request->redactedURL() + " was not sent: " +
                        (arrival.error ? arrival.error->developerMessage() : std::string("no token came.")),
                    __func__, __FILE__);
            });
            complete(pending.completion, {nullptr, nullptr, std::move(error)});
            continue;
        }
        pending.staleWhenGiven = pending.request->credentials()->freshAuthorization() != arrival.authorization;
        pending.authorization = std::move(arrival.authorization);
        try {
            tokenGiven_.push_back(std::move(pending));
        } catch (const std::exception&) {
            complete(pending.completion, {nullptr, nullptr, outOfMemory_});
        }
    }
    arrivals.clear();
    // They had reached the head of the line before they waited, so they go first: behind a long line their
    // token would go stale again.
    try {
        waiting_.pushFront(tokenGiven_);
    } catch (const std::exception&) {
        for (auto& pending : tokenGiven_) complete(pending.completion, {nullptr, nullptr, outOfMemory_});
        tokenGiven_.clear();
    }
}

bool VLMSDKHTTPScheduler::refreshAfterRefusal(VLMSDKHTTPAttempt& attempt, const VLMSDKHTTPReply& reply) {
    // A 401 means the service did not act: any method may go again, once, with a token fetched anew.
    if (!attempt.authorization() || attempt.authorizationRefreshed() || !reply.response ||
        reply.response->statusCode() != 401) {
        return false;
    }
    attempt.request().credentials()->markRefused(attempt.sharedAuthorization());
    try {
        VLMSDKHTTPPendingRequest again = attempt.next(true);
        waiting_.push(std::move(again));
    } catch (const std::exception&) {
        return false;  // no room to keep it: the 401 stands
    }
    waiting_.items.back().completion = attempt.release();
    return true;
}

bool VLMSDKHTTPScheduler::stopRequested() {
    std::lock_guard lock(mutex_);
    return stopRequested_;
}

bool VLMSDKHTTPScheduler::retryLater(VLMSDKHTTPAttempt& attempt, VLMSDKHTTPAttemptEnd end,
                                     const VLMSDKHTTPReply& reply) {
    if (options_->retry.maximumAttempts <= 1) return false;
    VLMSDKHTTPAttemptOutcome outcome;
    outcome.end = end;
    outcome.statusCode = reply.response ? reply.response->statusCode() : 0;
    std::optional<std::string> retryAfter;
    if (reply.response) retryAfter = reply.response->headerValue("Retry-After");
    if (retryAfter) outcome.retryAfter = *retryAfter;
    outcome.safeToRepeat = attempt.isRepeatable();
    outcome.replyMismatched = reply.error && reply.error->code() == VLMErrorCode::ReplyMismatch;
    outcome.attemptsMade = attempt.attempt();
    const auto delay = retryRule_.nextDelay(outcome);
    if (!delay) return false;
    try {
        Delayed later{std::chrono::steady_clock::now() + *delay, attempt.next(false)};
        const auto at = std::upper_bound(delayed_.begin(), delayed_.end(), later.due,
                                         [](auto due, const Delayed& d) { return due < d.due; });
        const auto inserted = delayed_.insert(at, std::move(later));
        inserted->pending.completion = attempt.release();
    } catch (const std::exception&) {
        return false;  // no room to keep it: this attempt's outcome stands
    }
    return true;
}

void VLMSDKHTTPScheduler::releaseDueRetries() {
    const auto now = std::chrono::steady_clock::now();
    std::size_t due = 0;
    while (due < delayed_.size() && delayed_[due].due <= now) ++due;
    for (std::size_t i = 0; i < due; ++i) {
        try {
            waiting_.push(std::move(delayed_[i].pending));
        } catch (const std::exception&) {
            complete(delayed_[i].pending.completion, {nullptr, nullptr, outOfMemory_});
        }
    }
    delayed_.erase(delayed_.begin(), delayed_.begin() + static_cast<std::ptrdiff_t>(due));
}

void VLMSDKHTTPScheduler::cancelOne(std::uint64_t id) {
    for (const auto& attempt : attempts_) {
        if (!attempt->carrier || attempt->requestID() != id) continue;
        const bool sentAnything = attempt->carrier->stop(*attempt);
        attempt->carrier = nullptr;
        --live_;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] { return attempt->hostCancellationError(sentAnything); });
        auto completion = attempt->release();
        idle_.push_back(attempt.get());
        complete(completion, {nullptr, nullptr, std::move(error)});
        startWaiting();  // its slot is free
        return;
    }
    for (auto later = delayed_.begin(); later != delayed_.end(); ++later) {
        if (later->pending.id != id) continue;
        VLMSDKHTTPPendingRequest pending = std::move(later->pending);
        delayed_.erase(later);
        VLMErrorPtr error = errorOr(outOfMemory_, [&] {
            // An earlier attempt went out: a POST or PATCH may have been acted on.
            return VLMSDKCancellation::cancelledError(pending.request->method() + " " + pending.request->redactedURL(),
                                                      pending.request->method() != "GET");
        });
        complete(pending.completion, {nullptr, nullptr, std::move(error)});
        return;
    }
    for (auto waiting = awaitingToken_.begin(); waiting != awaitingToken_.end(); ++waiting) {
        if (waiting->id != id) continue;
        VLMSDKHTTPPendingRequest pending = std::move(*waiting);
        awaitingToken_.erase(waiting);
        VLMErrorPtr error = errorOr(outOfMemory_, [&] {
            // An earlier attempt may have gone out (a 401, a retry): a POST or PATCH may have been acted on.
            return VLMSDKCancellation::cancelledError(pending.request->method() + " " + pending.request->redactedURL(),
                                                      pending.attempt > 1 && pending.request->method() != "GET");
        });
        complete(pending.completion, {nullptr, nullptr, std::move(error)});
        return;
    }
    for (std::size_t i = waiting_.head; i < waiting_.items.size(); ++i) {
        VLMSDKHTTPPendingRequest& pending = waiting_.items[i];
        if (pending.id != id || !pending.request) continue;
        // Left in the line with no request: startWaiting and cancelAll pass over it.
        const auto request = std::move(pending.request);
        auto completion = std::move(pending.completion);
        pending.completion = nullptr;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] {
            return VLMSDKCancellation::cancelledError(request->method() + " " + request->redactedURL(), false);
        });
        complete(completion, {nullptr, nullptr, std::move(error)});
        return;
    }
}

void VLMSDKHTTPScheduler::cancelAll() {
    stopped_ = true;
    std::vector<VLMSDKHTTPPendingRequest> arrived;
    {
        std::lock_guard lock(mutex_);
        arrived.swap(incoming_);
    }
    for (auto& pending : arrived) waiting_.push(std::move(pending));
    for (auto& later : delayed_) waiting_.push(std::move(later.pending));
    delayed_.clear();
    for (auto& awaiting : awaitingToken_) waiting_.push(std::move(awaiting));
    awaitingToken_.clear();
    for (const auto& attempt : attempts_) {
        if (!attempt->carrier) continue;
        attempt->carrier->stop(*attempt);
        attempt->carrier = nullptr;
        --live_;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] { return attempt->cancellationError(); });
        auto completion = attempt->release();
        complete(completion, {nullptr, nullptr, std::move(error)});
    }
    // Their connections close with them; nothing is carried once stopped.
    adapters_.clear();
    while (!waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = waiting_.pop();
        if (!pending.request && pending.id != 0) continue;  // cancelled while it waited: answered already
        VLMErrorPtr error = errorOr(outOfMemory_, [&, function = __func__] {
            const std::string what =
                pending.request ? pending.request->method() + " " + pending.request->redactedURL() : "A request";
            return schedulerError(VLMErrorCode::Cancelled,
                                  what + " was cancelled before it was sent: the request manager shut down.", function);
        });
        complete(pending.completion, {nullptr, nullptr, std::move(error)});
    }
}

VLMSDKHTTPAttempt* VLMSDKHTTPScheduler::idleAttempt() {
    if (!idle_.empty()) {
        VLMSDKHTTPAttempt* attempt = idle_.back();
        idle_.pop_back();
        return attempt;
    }
    try {
        // Room for the attempt's return to the idle list is made now, so that its return cannot fail.
        idle_.reserve(attempts_.size() + 1);
        attempts_.push_back(std::make_unique<VLMSDKHTTPAttempt>(*options_));
        return attempts_.back().get();
    } catch (const std::exception&) {
        return nullptr;
    }
}

void VLMSDKHTTPScheduler::complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply) {
    requestsCompleted_.fetch_add(1, std::memory_order_relaxed);
    if (!completion) return;
    try {
        completion(std::move(reply.body), std::move(reply.response), std::move(reply.error));
    } catch (...) {
        // A handler's exception must not end the driving thread, and has no one else to go to.
    }
}

}  // namespace vlmsdk::detail
