#include "VLMSDKHTTPEngine.h"

#include "../VLMSDKRequestCheck.h"

#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

namespace vlmsdk::detail {

namespace {

// Only a wake-up or libcurl's own timers end the network thread's wait; this bounds it in case both stay silent.
constexpr int kLongestWaitMilliseconds = 10000;

void initializeLibcurlOnce() {
    // Process-wide and never undone: cleaning up while another manager (or the host) still uses libcurl
    // would break it.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

VLMErrorPtr engineError(VLMErrorCode code, std::string message, const char* function) {
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

short pollEvents(int what) {
    short events = 0;
    if (what == CURL_POLL_IN || what == CURL_POLL_INOUT) events |= POLLIN;
    if (what == CURL_POLL_OUT || what == CURL_POLL_INOUT) events |= POLLOUT;
    return events;
}

int socketActions(short revents) {
    int actions = 0;
    if (revents & (POLLIN | POLLHUP)) actions |= CURL_CSELECT_IN;
    if (revents & POLLOUT) actions |= CURL_CSELECT_OUT;
    if (revents & (POLLERR | POLLNVAL)) actions |= CURL_CSELECT_ERR;
    return actions;
}

}  // namespace

std::shared_ptr<VLMSDKHTTPEngine> VLMSDKHTTPEngine::start(std::shared_ptr<const Options> options, Driver driver,
                                                          VLMErrorPtr* error) {
    initializeLibcurlOnce();
    std::shared_ptr<VLMSDKHTTPEngine> engine(new VLMSDKHTTPEngine(std::move(options), driver));
    engine->multi_ = curl_multi_init();
    if (!engine->multi_) {
        *error = engineError(VLMErrorCode::Transport, "libcurl could not make a multi handle.", __func__);
        return nullptr;
    }
    // The multi handle shares connections and names looked up; TLS sessions are shared here, so that every
    // new connection of the manager after the first resumes one instead of a full handshake. One thread
    // drives the engine at a time: no lock functions.
    engine->share_ = curl_share_init();
    if (!engine->share_ ||
        curl_share_setopt(engine->share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION) != CURLSHE_OK) {
        *error = engineError(VLMErrorCode::Transport, "libcurl could not share TLS sessions.", __func__);
        return nullptr;
    }
    CURLM* multi = engine->multi_;
    curl_multi_setopt(multi, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
    // libcurl's default cache size follows the number of live transfers and shrinks as they finish,
    // closing idle keep-alive connections that the next burst would reuse.
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(std::min<std::size_t>(engine->liveLimit_, LONG_MAX)));
    curl_multi_setopt(multi, CURLMOPT_SOCKETFUNCTION, &VLMSDKHTTPEngine::onSocket);
    curl_multi_setopt(multi, CURLMOPT_SOCKETDATA, static_cast<void*>(engine.get()));
    curl_multi_setopt(multi, CURLMOPT_TIMERFUNCTION, &VLMSDKHTTPEngine::onTimer);
    curl_multi_setopt(multi, CURLMOPT_TIMERDATA, static_cast<void*>(engine.get()));
    engine->accepting_ = true;

    if (driver == Driver::MainQueue) {
        attachMainQueueSource(engine);
        return engine;
    }
    engine->wakeDescriptor_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (engine->wakeDescriptor_ < 0) {
        *error = engineError(VLMErrorCode::Transport, "The network thread's wake-up descriptor could not be made.",
                             __func__);
        return nullptr;
    }
    try {
        engine->thread_ = std::thread([engine] { engine->runThread(); });
    } catch (const std::exception& exception) {
        *error = engineError(VLMErrorCode::Transport,
                             std::string("The network thread could not start: ") + exception.what(), __func__);
        return nullptr;
    }
    return engine;
}

VLMSDKHTTPEngine::VLMSDKHTTPEngine(std::shared_ptr<const Options> options, Driver driver)
    : options_(std::move(options)),
      driver_(driver),
      liveLimit_(std::max<std::size_t>(options_->maximumLiveTransfers, 1)),
      outOfMemory_(engineError(VLMErrorCode::Transport, "Out of memory while handling a request.", __func__)),
      retryRule_(options_->retry) {
    // libcurl reads the lower-case http_proxy only, for plain http (the upper-case one could come from a
    // request header in a CGI environment); a request a proxy would carry stays with libcurl.
    if (options_->proxy) {
        proxyApplies_ = !options_->proxy->empty();
    } else {
        for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
            const char* value = std::getenv(name);
            proxyApplies_ = proxyApplies_ || (value && *value);
        }
    }
}

VLMSDKHTTPEngine::~VLMSDKHTTPEngine() {
    if (thread_.joinable()) {
        // The thread may hold the last reference and end here itself.
        if (thread_.get_id() == std::this_thread::get_id()) {
            thread_.detach();
        } else {
            thread_.join();
        }
    }
    transfers_.clear();
    if (multi_) curl_multi_cleanup(multi_);
    if (share_) curl_share_cleanup(share_);  // after every handle that used it
    if (wakeDescriptor_ >= 0) ::close(wakeDescriptor_);
}

void VLMSDKHTTPEngine::submit(VLMSDKHTTPPendingRequest&& pending) {
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
            outOfMemory ? engineError(VLMErrorCode::Transport, what + " was not sent: out of memory.", __func__)
                        : engineError(VLMErrorCode::Cancelled,
                                      what + " was not sent: the request manager has shut down.", __func__);
        pending.completion(nullptr, nullptr, std::move(error));
    } catch (...) {
        // Neither a throwing handler nor a failed allocation escapes into the caller.
    }
}

std::uint64_t VLMSDKHTTPEngine::newRequestID() {
    static std::atomic<std::uint64_t> next{1};
    return next.fetch_add(1, std::memory_order_relaxed);
}

void VLMSDKHTTPEngine::cancelRequest(std::uint64_t id) {
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

void VLMSDKHTTPEngine::wakeDriver() {
    if (driver_ == Driver::MainQueue) {
        wakeMainQueue();
        return;
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeDescriptor_, &one, sizeof one);
}

void VLMSDKHTTPEngine::shutdown() {
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

VLMSDKHTTPEngine::Statistics VLMSDKHTTPEngine::statistics() const {
    Statistics statistics;
    statistics.connectionsOpened = connectionsOpened_.load(std::memory_order_relaxed);
    statistics.requestsSent = requestsSent_.load(std::memory_order_relaxed);
    statistics.requestsCompleted = requestsCompleted_.load(std::memory_order_relaxed);
    return statistics;
}

int VLMSDKHTTPEngine::prepareWait(std::vector<pollfd>& descriptors) {
    // A reply handler pumping the main queue again does not drive the engine it was called from.
    if (isDrivingThread()) return -1;
    std::lock_guard drive(driveMutex_);
    return prepareLocked(descriptors);
}

void VLMSDKHTTPEngine::dispatch(std::span<const pollfd> descriptors) {
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

int VLMSDKHTTPEngine::prepareLocked(std::vector<pollfd>& descriptors) {
    curlDescriptors_ = 0;
    wiresWaitedOn_.clear();
    if (stopped_) return -1;
    {
        std::lock_guard lock(mutex_);
        if (!incoming_.empty() || !cancelled_.empty() || stopRequested_) return 0;
    }
    if (!waiting_.empty() && live_ < liveLimit_) return 0;
    descriptors.insert(descriptors.end(), sockets_.begin(), sockets_.end());
    curlDescriptors_ = sockets_.size();
    std::optional<std::chrono::steady_clock::time_point> wakeAt = timerDeadline_;
    const auto wakeBy = [&wakeAt](const std::optional<std::chrono::steady_clock::time_point>& due) {
        if (due && (!wakeAt || *due < *wakeAt)) wakeAt = due;
    };
    if (!delayed_.empty()) wakeBy(delayed_.front().due);
    // Idle connections are waited on too: input on one means the server closed it.
    for (const auto& wire : wires_) {
        if (!wire->connection) continue;
        descriptors.push_back({wire->connection->descriptor(), wire->connection->events(), 0});
        wiresWaitedOn_.push_back(wire.get());
        wakeBy(wire->connectBy);
        wakeBy(wire->answerBy);
    }
    if (!wakeAt) return -1;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*wakeAt - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, INT_MAX));
}

void VLMSDKHTTPEngine::driveLocked(std::span<const pollfd> descriptors) {
    driving_.store(std::this_thread::get_id(), std::memory_order_release);
    bool stop = false;
    {
        // The two vectors trade their storage back and forth: taking the new requests allocates nothing.
        std::lock_guard lock(mutex_);
        arrived_.swap(incoming_);
        cancelledNow_.swap(cancelled_);
        stop = stopRequested_;
    }
    admit(arrived_);
    // After admission: a request cancelled as it was handed over is found in the waiting line.
    for (const std::uint64_t id : cancelledNow_) cancelOne(id);
    cancelledNow_.clear();
    if (!stop) {
        releaseDueRetries();
        startWaiting();
        int running = 0;
        const std::size_t curlCount = std::min(curlDescriptors_, descriptors.size());
        for (const pollfd& descriptor : descriptors.first(curlCount)) {
            if (descriptor.revents == 0) continue;
            curl_multi_socket_action(multi_, descriptor.fd, socketActions(descriptor.revents), &running);
        }
        if (timerDeadline_ && std::chrono::steady_clock::now() >= *timerDeadline_) {
            timerDeadline_.reset();
            curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
        }
        collectFinished();
        // The wires waited on stay in wires_ until the end of this drive, closed or not.
        const auto wireDescriptors = descriptors.subspan(curlCount);
        for (std::size_t i = 0; i < wireDescriptors.size() && i < wiresWaitedOn_.size(); ++i) {
            if (wireDescriptors[i].revents == 0 || !wiresWaitedOn_[i]->connection) continue;
            if (stopRequestedNow()) break;
            advanceWire(*wiresWaitedOn_[i], wireDescriptors[i].revents);
        }
        wiresWaitedOn_.clear();
        if (!stopRequestedNow()) timeOutWires();
        std::erase_if(wires_, [](const auto& wire) { return !wire->connection; });
        std::lock_guard lock(mutex_);
        stop = stopRequested_;
    }
    // A handler may have shut the engine down while it ran.
    if (stop) cancelAll();
    driving_.store({}, std::memory_order_release);
}

void VLMSDKHTTPEngine::runThread() {
    std::vector<pollfd> descriptors;
    for (;;) {
        descriptors.assign({{wakeDescriptor_, POLLIN, 0}});
        int timeout = 0;
        {
            std::lock_guard drive(driveMutex_);
            if (stopped_) break;
            timeout = prepareLocked(descriptors);
        }
        if (timeout != 0) {
            std::lock_guard lock(mutex_);
            if (incoming_.empty() && cancelled_.empty() && !stopRequested_) {
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
        if (descriptors[0].revents & POLLIN) {
            std::uint64_t count = 0;
            [[maybe_unused]] const auto read = ::read(wakeDescriptor_, &count, sizeof count);
        }
        std::lock_guard drive(driveMutex_);
        driveLocked(std::span<const pollfd>(descriptors).subspan(1));
    }
}

int VLMSDKHTTPEngine::onSocket(CURL*, curl_socket_t socket, int what, void* engine, void*) {
    auto& self = *static_cast<VLMSDKHTTPEngine*>(engine);
    try {
        auto& sockets = self.sockets_;
        const auto found = std::find_if(sockets.begin(), sockets.end(), [&](const pollfd& p) { return p.fd == socket; });
        if (what == CURL_POLL_REMOVE) {
            if (found != sockets.end()) {
                *found = sockets.back();
                sockets.pop_back();
            }
        } else if (found != sockets.end()) {
            found->events = pollEvents(what);
        } else {
            sockets.push_back({socket, pollEvents(what), 0});
        }
    } catch (...) {
        return -1;  // libcurl fails the transfers on this socket
    }
    return 0;
}

int VLMSDKHTTPEngine::onTimer(CURLM*, long milliseconds, void* engine) {
    auto& self = *static_cast<VLMSDKHTTPEngine*>(engine);
    if (milliseconds < 0) {
        self.timerDeadline_.reset();
    } else {
        self.timerDeadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    }
    return 0;
}

void VLMSDKHTTPEngine::admit(std::vector<VLMSDKHTTPPendingRequest>& arrived) {
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

void VLMSDKHTTPEngine::startWaiting() {
    while (live_ < liveLimit_ && !waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = waiting_.pop();
        if (!pending.request && pending.id != 0) continue;  // cancelled while it waited: answered already

        VLMErrorPtr error;
        VLMSDKHTTPTransfer* transfer = idleTransfer(&error);
        if (!transfer) {
            complete(pending.completion, {nullptr, nullptr, std::move(error)});
            continue;
        }
        std::optional<VLMSDKHTTP1Connection::Target> target;
        try {
            target = wireTarget(*pending.request);
        } catch (const std::exception&) {
            // Out of memory: libcurl may still manage.
        }
        if (target) {
            transfer->take(std::move(pending));
            transfer->setLive(true);
            ++live_;
            requestsSent_.fetch_add(1, std::memory_order_relaxed);
            startOnWire(*transfer, *target, true);
            continue;
        }
        error = errorOr(outOfMemory_, [&] { return transfer->load(std::move(pending)); });
        if (!error && curl_multi_add_handle(multi_, transfer->handle()) != CURLM_OK) {
            error = errorOr(outOfMemory_, [function = __func__] {
                return engineError(VLMErrorCode::Transport, "libcurl could not start a transfer.", function);
            });
        }
        if (error) {
            auto completion = transfer->release();
            idle_.push_back(transfer);
            complete(completion, {nullptr, nullptr, std::move(error)});
            continue;
        }
        transfer->setLive(true);
        ++live_;
        requestsSent_.fetch_add(1, std::memory_order_relaxed);
    }
}

void VLMSDKHTTPEngine::collectFinished() {
    int left = 0;
    for (;;) {
        if (stopRequestedNow()) return;
        CURLMsg* message = curl_multi_info_read(multi_, &left);
        if (!message) return;
        if (message->msg != CURLMSG_DONE) continue;
        CURL* handle = message->easy_handle;
        const CURLcode result = message->data.result;
        VLMSDKHTTPTransfer* transfer = VLMSDKHTTPTransfer::from(handle);

        connectionsOpened_.fetch_add(transfer->connectionsOpened(), std::memory_order_relaxed);
        curl_multi_remove_handle(multi_, handle);
        transfer->setLive(false);
        --live_;
        finishAttempt(*transfer, result, transfer->finish(result, reader_));
    }
}

void VLMSDKHTTPEngine::finishAttempt(VLMSDKHTTPTransfer& transfer, CURLcode result, VLMSDKHTTPReply reply) {
    if (options_->exchangeObserver) {
        try {
            options_->exchangeObserver(transfer.exchange(reply));
        } catch (...) {
            // An observer's failure must not cost the request its reply.
        }
    }
    if (retryLater(transfer, result, reply)) {
        idle_.push_back(&transfer);
        return;
    }
    auto completion = transfer.release();
    idle_.push_back(&transfer);
    complete(completion, std::move(reply));
}

bool VLMSDKHTTPEngine::stopRequestedNow() {
    std::lock_guard lock(mutex_);
    return stopRequested_;
}

bool VLMSDKHTTPEngine::retryLater(VLMSDKHTTPTransfer& transfer, CURLcode result, const VLMSDKHTTPReply& reply) {
    if (options_->retry.maximumAttempts <= 1) return false;
    VLMSDKHTTPAttemptOutcome outcome;
    outcome.result = result;
    outcome.statusCode = reply.response ? reply.response->statusCode() : 0;
    std::optional<std::string> retryAfter;
    if (reply.response) retryAfter = reply.response->headerValue("Retry-After");
    if (retryAfter) outcome.retryAfter = *retryAfter;
    outcome.safeToRepeat = transfer.request()->method() == "GET" || transfer.isKeyed();
    outcome.attemptsMade = transfer.attempt();
    const auto delay = retryRule_.nextDelay(outcome);
    if (!delay) return false;
    try {
        Delayed later{std::chrono::steady_clock::now() + *delay,
                      {transfer.request(), nullptr, transfer.requestID(), transfer.attempt() + 1}};
        const auto at = std::upper_bound(delayed_.begin(), delayed_.end(), later.due,
                                         [](auto due, const Delayed& d) { return due < d.due; });
        const auto inserted = delayed_.insert(at, std::move(later));
        inserted->pending.completion = transfer.release();
    } catch (const std::exception&) {
        return false;  // no room to keep it: this attempt's outcome stands
    }
    return true;
}

void VLMSDKHTTPEngine::releaseDueRetries() {
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

void VLMSDKHTTPEngine::cancelOne(std::uint64_t id) {
    for (const auto& transfer : transfers_) {
        if (!transfer->isLive() || transfer->requestID() != id) continue;
        bool sentAnything = false;
        if (Wire* wire = wireOf(*transfer)) {
            // Half an exchange leaves the connection unusable.
            sentAnything = wire->connection->bytesSent() > 0;
            wire->connection.reset();
            wire->transfer = nullptr;
        } else {
            sentAnything = transfer->handleSentAnything();
            curl_multi_remove_handle(multi_, transfer->handle());
        }
        transfer->setLive(false);
        --live_;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] { return transfer->hostCancellationError(sentAnything); });
        auto completion = transfer->release();
        idle_.push_back(transfer.get());
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

void VLMSDKHTTPEngine::cancelAll() {
    stopped_ = true;
    std::vector<VLMSDKHTTPPendingRequest> arrived;
    {
        std::lock_guard lock(mutex_);
        arrived.swap(incoming_);
    }
    for (auto& pending : arrived) waiting_.push(std::move(pending));
    for (auto& later : delayed_) waiting_.push(std::move(later.pending));
    delayed_.clear();
    for (const auto& transfer : transfers_) {
        if (!transfer->isLive()) continue;
        if (!wireOf(*transfer)) curl_multi_remove_handle(multi_, transfer->handle());
        transfer->setLive(false);
        --live_;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] { return transfer->cancellationError(); });
        auto completion = transfer->release();
        complete(completion, {nullptr, nullptr, std::move(error)});
    }
    wires_.clear();
    while (!waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = waiting_.pop();
        if (!pending.request && pending.id != 0) continue;  // cancelled while it waited: answered already
        VLMErrorPtr error = errorOr(outOfMemory_, [&, function = __func__] {
            const std::string what =
                pending.request ? pending.request->method() + " " + pending.request->redactedURL() : "A request";
            return engineError(VLMErrorCode::Cancelled,
                               what + " was cancelled before it was sent: the request manager shut down.", function);
        });
        complete(pending.completion, {nullptr, nullptr, std::move(error)});
    }
}

std::optional<VLMSDKHTTP1Connection::Target> VLMSDKHTTPEngine::wireTarget(const VLMSDKRequest& request) const {
    if (options_->transport != Options::Transport::HTTP1 || proxyApplies_) return std::nullopt;
    return VLMSDKHTTP1Connection::Target::of(request.url());
}

VLMSDKHTTPEngine::Wire* VLMSDKHTTPEngine::wireOf(const VLMSDKHTTPTransfer& transfer) {
    for (const auto& wire : wires_) {
        if (wire->transfer == &transfer) return wire.get();
    }
    return nullptr;
}

VLMSDKHTTPEngine::Wire* VLMSDKHTTPEngine::keptWire(const std::string& authority,
                                                  std::chrono::steady_clock::time_point now) {
    for (const auto& kept : wires_) {
        if (!kept->connection || kept->transfer || kept->authority != authority) continue;
        // As libcurl does before it reuses one: too old, or written to or closed while idle, it goes.
        const bool tooOld =
            options_->maximumIdleTime.count() > 0 && now - kept->idleSince > options_->maximumIdleTime;
        if (tooOld || !kept->connection->stillUsable()) {
            kept->connection.reset();
            continue;
        }
        return kept.get();
    }
    return nullptr;
}

void VLMSDKHTTPEngine::startOnWire(VLMSDKHTTPTransfer& transfer, const VLMSDKHTTP1Connection::Target& target,
                                   bool mayReuse, std::optional<std::chrono::steady_clock::time_point> answerBy) {
    const auto now = std::chrono::steady_clock::now();
    Wire* wire = nullptr;
    try {
        if (mayReuse) wire = keptWire(target.authority, now);
        if (!wire) {
            std::string failure;
            auto connection = VLMSDKHTTP1Connection::open(target, &failure);
            if (!connection) {
                // Refused at once: the attempt ends as a connect that failed, and may be retried.
                transfer.setLive(false);
                --live_;
                return finishAttempt(transfer, CURLE_COULDNT_CONNECT,
                                     transfer.finishFromWire(CURLE_COULDNT_CONNECT, nullptr, failure, reader_));
            }
            wires_.push_back(std::make_unique<Wire>(
                Wire{target.authority, std::move(connection), nullptr, std::nullopt, std::nullopt, now}));
            wire = wires_.back().get();
            connectionsOpened_.fetch_add(1, std::memory_order_relaxed);
            if (options_->connectTimeout.count() > 0) wire->connectBy = now + options_->connectTimeout;
        }
        wire->transfer = &transfer;
        wire->answerBy = answerBy;
        if (!answerBy && options_->requestTimeout.count() > 0) wire->answerBy = now + options_->requestTimeout;
        VLMSDKHTTP1ReplyParser::Limits limits;
        limits.bodyBytes = options_->maximumReplySize;
        std::string text = VLMSDKHTTP1Connection::requestText(*transfer.request(), target, transfer.idempotencyKey());
        settleWire(*wire, wire->connection->start(std::move(text), limits));
    } catch (const std::exception&) {
        if (wire) {
            wire->connection.reset();
            wire->transfer = nullptr;
        }
        transfer.setLive(false);
        --live_;
        auto completion = transfer.release();
        idle_.push_back(&transfer);
        complete(completion, {nullptr, nullptr, outOfMemory_});
    }
}

void VLMSDKHTTPEngine::advanceWire(Wire& wire, short revents) {
    if (!wire.transfer) {
        wire.connection.reset();  // input on an idle connection: the server closed it
        return;
    }
    settleWire(wire, wire.connection->advance(revents));
}

void VLMSDKHTTPEngine::settleWire(Wire& wire, VLMSDKHTTP1Connection::Step step) {
    using Step = VLMSDKHTTP1Connection::Step;
    using Failure = VLMSDKHTTP1Connection::Failure;
    VLMSDKHTTP1Connection& connection = *wire.connection;
    if (step == Step::Waiting) {
        if (!connection.connecting()) wire.connectBy.reset();
        return;
    }
    if (step == Step::Answered) return finishOnWire(wire, CURLE_OK, {});
    VLMSDKHTTPTransfer& transfer = *wire.transfer;
    // A kept connection the server closed while it was idle fails before any byte of an answer (closed,
    // reset, or refusing the request): what may be repeated goes on a new connection, once, within the
    // first deadline. What may not is not sent again: the service may have acted on it.
    const bool repeatable = transfer.request()->method() == "GET" || transfer.isKeyed();
    const bool died = connection.failure() == Failure::NoAnswer || connection.failure() == Failure::Send ||
                      connection.failure() == Failure::Receive;
    const bool diedBeforeAnswer = died && connection.reused() && !connection.reply().receivedAnything();
    if (diedBeforeAnswer && repeatable) {
        if (const auto target = VLMSDKHTTP1Connection::Target::of(transfer.request()->url())) {
            const auto answerBy = wire.answerBy;
            wire.connection.reset();
            wire.transfer = nullptr;
            return startOnWire(transfer, *target, false, answerBy);
        }
    }
    if (diedBeforeAnswer) return finishOnWire(wire, CURLE_SEND_FAIL_REWIND, connection.failureMessage());
    CURLcode result = CURLE_RECV_ERROR;
    switch (connection.failure()) {
        case Failure::Connect: result = CURLE_COULDNT_CONNECT; break;
        case Failure::Send: result = CURLE_SEND_ERROR; break;
        case Failure::NoAnswer: result = CURLE_GOT_NOTHING; break;
        case Failure::Reply:
            switch (connection.reply().failure()) {
                case VLMSDKHTTP1ReplyParser::Failure::BodyTooLarge: result = CURLE_FILESIZE_EXCEEDED; break;
                case VLMSDKHTTP1ReplyParser::Failure::Truncated: result = CURLE_PARTIAL_FILE; break;
                default: result = CURLE_WEIRD_SERVER_REPLY; break;
            }
            break;
        default: break;
    }
    finishOnWire(wire, result, connection.failureMessage());
}

void VLMSDKHTTPEngine::timeOutWires() {
    const auto now = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < wires_.size(); ++i) {
        Wire& wire = *wires_[i];
        if (!wire.transfer || !wire.connection) continue;
        const bool connecting = wire.connectBy && now >= *wire.connectBy;
        if (!connecting && !(wire.answerBy && now >= *wire.answerBy)) continue;
        const auto limit = connecting ? options_->connectTimeout : options_->requestTimeout;
        finishOnWire(wire, CURLE_OPERATION_TIMEDOUT,
                     std::string(connecting ? "Connection" : "Operation") + " timed out after " +
                         std::to_string(limit.count()) + " milliseconds");
        if (stopRequestedNow()) return;
    }
}

void VLMSDKHTTPEngine::finishOnWire(Wire& wire, CURLcode result, std::string_view failure) {
    VLMSDKHTTPTransfer& transfer = *wire.transfer;
    VLMSDKHTTP1Connection& connection = *wire.connection;
    wire.transfer = nullptr;
    wire.connectBy.reset();
    wire.answerBy.reset();
    transfer.setLive(false);
    --live_;
    VLMSDKHTTPReply reply = transfer.finishFromWire(result, &connection.reply(), failure, reader_);
    // Kept for the next request while the server allows, as many as may be live at once.
    const auto kept =
        std::count_if(wires_.begin(), wires_.end(), [](const auto& w) { return w->connection && !w->transfer; });
    if (result != CURLE_OK || !connection.reusable() || static_cast<std::size_t>(kept) > liveLimit_) {
        wire.connection.reset();
    } else {
        wire.idleSince = std::chrono::steady_clock::now();
    }
    finishAttempt(transfer, result, std::move(reply));
}

VLMSDKHTTPTransfer* VLMSDKHTTPEngine::idleTransfer(VLMErrorPtr* error) {
    if (!idle_.empty()) {
        VLMSDKHTTPTransfer* transfer = idle_.back();
        idle_.pop_back();
        return transfer;
    }
    try {
        auto transfer = VLMSDKHTTPTransfer::make(*options_, share_, error);
        if (!transfer) return nullptr;
        // Room for the transfer's return to the idle list is made now, so that its return cannot fail.
        idle_.reserve(transfers_.size() + 1);
        transfers_.push_back(std::move(transfer));
        return transfers_.back().get();
    } catch (const std::exception&) {
        *error = outOfMemory_;
        return nullptr;
    }
}

void VLMSDKHTTPEngine::complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply) {
    requestsCompleted_.fetch_add(1, std::memory_order_relaxed);
    if (!completion) return;
    try {
        completion(std::move(reply.body), std::move(reply.response), std::move(reply.error));
    } catch (...) {
        // A handler's exception must not end the driving thread, and has no one else to go to.
    }
}

}  // namespace vlmsdk::detail
