#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>

#include "../JSON/VLMSDKJSONReader.h"
#include "VLMSDKHTTPTransfer.h"

#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <deque>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

using vlmsdk::detail::VLMSDKHTTPPendingRequest;
using vlmsdk::detail::VLMSDKHTTPReply;
using vlmsdk::detail::VLMSDKHTTPTransfer;

// A request waiting beyond the live-transfer limit holds no handle or buffer, only what the caller handed over.
static_assert(sizeof(VLMSDKHTTPPendingRequest) <= 64);

namespace {

// Only a wake-up or libcurl's own timers end a wait; this bounds it in case both stay silent.
constexpr int kLongestPollMilliseconds = 10000;

void initializeLibcurlOnce() {
    // Process-wide and never undone: cleaning up while another manager (or the host) still uses libcurl
    // would break it.
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

VLMErrorPtr managerError(VLMErrorCode code, std::string message, const char* function) {
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

// The manager whose network thread this is, so that a shutdown from a reply handler does not join itself.
thread_local const void* tCurrentNetworkThreadOwner = nullptr;

}  // namespace

class VLMSDKHTTPRequestManager::Impl : public std::enable_shared_from_this<Impl> {
public:
    explicit Impl(Options options);
    ~Impl();

    void start();
    void enqueue(VLMSDKHTTPPendingRequest&& pending);
    void requestStop();
    void join();

    const Options& options() const { return options_; }
    Statistics statistics() const;

private:
    void run();
    void admit(std::vector<VLMSDKHTTPPendingRequest>& arrived);
    void startWaiting();
    void collectFinished();
    void cancelAll();
    VLMSDKHTTPTransfer* idleTransfer(VLMErrorPtr* error);
    void retire(VLMSDKHTTPTransfer* transfer);
    void complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply);

    const Options options_;
    const std::size_t liveLimit_;
    const VLMErrorPtr outOfMemory_;
    CURLM* multi_ = nullptr;

    // Shared with the calling threads, under mutex_.
    std::mutex mutex_;
    std::vector<VLMSDKHTTPPendingRequest> incoming_;
    bool sleeping_ = false;  // the network thread waits, or is about to, in curl_multi_poll
    bool wakeRequested_ = false;
    bool running_ = false;
    VLMErrorPtr startError_;
    std::atomic<bool> stopping_{false};  // written under mutex_, also read by the network thread alone

    std::mutex joinMutex_;
    std::thread thread_;

    // The network thread's own.
    std::deque<VLMSDKHTTPPendingRequest> waiting_;
    std::vector<std::unique_ptr<VLMSDKHTTPTransfer>> transfers_;
    std::vector<VLMSDKHTTPTransfer*> idle_;
    std::size_t live_ = 0;
    vlmsdk::detail::VLMSDKJSONReader reader_;

    std::atomic<std::size_t> connectionsOpened_{0};
    std::atomic<std::size_t> requestsSent_{0};
    std::atomic<std::size_t> requestsCompleted_{0};
};

VLMSDKHTTPRequestManager::Impl::Impl(Options options)
    : options_(std::move(options)),
      liveLimit_(std::max<std::size_t>(options_.maximumLiveTransfers, 1)),
      outOfMemory_(managerError(VLMErrorCode::Transport, "Out of memory while handling a request.", __func__)) {}

VLMSDKHTTPRequestManager::Impl::~Impl() {
    transfers_.clear();
    if (multi_) curl_multi_cleanup(multi_);
}

void VLMSDKHTTPRequestManager::Impl::start() {
    initializeLibcurlOnce();
    multi_ = curl_multi_init();
    if (!multi_) {
        startError_ = managerError(VLMErrorCode::Transport, "libcurl could not make a multi handle.", __func__);
        return;
    }
    curl_multi_setopt(multi_, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_MULTIPLEX));
    // libcurl's default cache size follows the number of live transfers and shrinks as they finish,
    // closing idle keep-alive connections that the next burst would reuse.
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, static_cast<long>(std::min<std::size_t>(liveLimit_, LONG_MAX)));
    try {
        thread_ = std::thread([self = shared_from_this()] { self->run(); });
        running_ = true;
    } catch (const std::exception& exception) {
        startError_ = managerError(VLMErrorCode::Transport,
                                   std::string("The network thread could not start: ") + exception.what(), __func__);
    }
}

void VLMSDKHTTPRequestManager::Impl::enqueue(VLMSDKHTTPPendingRequest&& pending) {
    enum class Refusal { ShutDown, NotStarted, OutOfMemory } refusal = Refusal::ShutDown;
    {
        std::lock_guard lock(mutex_);
        if (stopping_.load(std::memory_order_relaxed)) {
            refusal = Refusal::ShutDown;
        } else if (!running_) {
            refusal = Refusal::NotStarted;
        } else {
            try {
                // Strong guarantee: on failure `pending` is left as it was.
                incoming_.push_back(std::move(pending));
                // Only a waiting network thread needs a wake-up (a busy one looks again before it waits), and
                // one wake-up covers every request queued before it looks.
                if (sleeping_ && !wakeRequested_) {
                    wakeRequested_ = true;
                    curl_multi_wakeup(multi_);
                }
                return;
            } catch (const std::exception&) {
                refusal = Refusal::OutOfMemory;
            }
        }
    }
    // Answered at once, on the calling thread, outside the lock.
    requestsCompleted_.fetch_add(1, std::memory_order_relaxed);
    if (!pending.completion) return;
    try {
        const std::string what =
            pending.request ? pending.request->method() + " " + pending.request->redactedURL() : std::string("A request");
        VLMErrorPtr error;
        switch (refusal) {
        case Refusal::ShutDown:
            error = managerError(VLMErrorCode::Cancelled, what + " was not sent: the request manager has shut down.",
                                 __func__);
            break;
        case Refusal::NotStarted: error = startError_; break;
        case Refusal::OutOfMemory:
            error = managerError(VLMErrorCode::Transport, what + " was not sent: out of memory.", __func__);
            break;
        }
        pending.completion(nullptr, nullptr, std::move(error));
    } catch (...) {
        // Neither a throwing handler nor a failed allocation escapes into the caller.
    }
}

void VLMSDKHTTPRequestManager::Impl::requestStop() {
    std::lock_guard lock(mutex_);
    if (stopping_.load(std::memory_order_relaxed)) return;
    stopping_.store(true, std::memory_order_relaxed);
    if (running_) curl_multi_wakeup(multi_);
}

void VLMSDKHTTPRequestManager::Impl::join() {
    if (tCurrentNetworkThreadOwner == this) {
        // Called from a reply handler: the thread cannot wait for itself. Unless someone else is joining it
        // already, let it finish on its own; it keeps this object alive until then.
        std::unique_lock joinLock(joinMutex_, std::try_to_lock);
        if (joinLock.owns_lock() && thread_.joinable()) thread_.detach();
        return;
    }
    std::lock_guard joinLock(joinMutex_);
    if (thread_.joinable()) thread_.join();
}

VLMSDKHTTPRequestManager::Statistics VLMSDKHTTPRequestManager::Impl::statistics() const {
    Statistics statistics;
    statistics.connectionsOpened = connectionsOpened_.load(std::memory_order_relaxed);
    statistics.requestsSent = requestsSent_.load(std::memory_order_relaxed);
    statistics.requestsCompleted = requestsCompleted_.load(std::memory_order_relaxed);
    return statistics;
}

void VLMSDKHTTPRequestManager::Impl::run() {
    tCurrentNetworkThreadOwner = this;
    std::vector<VLMSDKHTTPPendingRequest> arrived;
    for (;;) {
        bool stop = false;
        {
            std::lock_guard lock(mutex_);
            arrived.swap(incoming_);
            sleeping_ = false;
            wakeRequested_ = false;
            stop = stopping_.load(std::memory_order_relaxed);
        }
        admit(arrived);
        if (stop) break;

        startWaiting();
        int running = 0;
        curl_multi_perform(multi_, &running);
        collectFinished();

        if (stopping_.load(std::memory_order_relaxed)) continue;
        if (!waiting_.empty() && live_ < liveLimit_) continue;
        {
            std::lock_guard lock(mutex_);
            if (!incoming_.empty() || stopping_.load(std::memory_order_relaxed)) continue;
            sleeping_ = true;
        }
        curl_multi_poll(multi_, nullptr, 0, kLongestPollMilliseconds, nullptr);
    }
    cancelAll();
    tCurrentNetworkThreadOwner = nullptr;
}

void VLMSDKHTTPRequestManager::Impl::admit(std::vector<VLMSDKHTTPPendingRequest>& arrived) {
    for (auto& pending : arrived) {
        if (auto rejection =
                errorOr(outOfMemory_, [&] { return VLMSDKHTTPTransfer::rejectionOf(pending.request.get()); })) {
            complete(pending.completion, {nullptr, nullptr, std::move(rejection)});
            continue;
        }
        try {
            waiting_.push_back(std::move(pending));
        } catch (const std::exception&) {
            complete(pending.completion, {nullptr, nullptr, outOfMemory_});
        }
    }
    arrived.clear();
}

void VLMSDKHTTPRequestManager::Impl::startWaiting() {
    while (live_ < liveLimit_ && !waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = std::move(waiting_.front());
        waiting_.pop_front();

        VLMErrorPtr error;
        VLMSDKHTTPTransfer* transfer = idleTransfer(&error);
        if (!transfer) {
            complete(pending.completion, {nullptr, nullptr, std::move(error)});
            continue;
        }
        error = errorOr(outOfMemory_, [&] { return transfer->load(std::move(pending)); });
        if (!error && curl_multi_add_handle(multi_, transfer->handle()) != CURLM_OK) {
            error = errorOr(outOfMemory_, [function = __func__] {
                return managerError(VLMErrorCode::Transport, "libcurl could not start a transfer.", function);
            });
        }
        if (error) {
            auto completion = transfer->release();
            retire(transfer);
            complete(completion, {nullptr, nullptr, std::move(error)});
            continue;
        }
        transfer->setLive(true);
        ++live_;
        requestsSent_.fetch_add(1, std::memory_order_relaxed);
    }
}

void VLMSDKHTTPRequestManager::Impl::collectFinished() {
    int left = 0;
    while (!stopping_.load(std::memory_order_relaxed)) {
        CURLMsg* message = curl_multi_info_read(multi_, &left);
        if (!message) break;
        if (message->msg != CURLMSG_DONE) continue;
        CURL* handle = message->easy_handle;
        const CURLcode result = message->data.result;
        VLMSDKHTTPTransfer* transfer = VLMSDKHTTPTransfer::from(handle);

        connectionsOpened_.fetch_add(transfer->connectionsOpened(), std::memory_order_relaxed);
        curl_multi_remove_handle(multi_, handle);
        transfer->setLive(false);
        --live_;
        VLMSDKHTTPReply reply = transfer->finish(result, reader_);
        if (options_.exchangeObserver) {
            try {
                options_.exchangeObserver(transfer->exchange(reply));
            } catch (...) {
                // An observer's failure must not cost the request its reply.
            }
        }
        auto completion = transfer->release();
        retire(transfer);
        complete(completion, std::move(reply));
    }
}

void VLMSDKHTTPRequestManager::Impl::cancelAll() {
    for (const auto& transfer : transfers_) {
        if (!transfer->isLive()) continue;
        curl_multi_remove_handle(multi_, transfer->handle());
        transfer->setLive(false);
        --live_;
        VLMErrorPtr error = errorOr(outOfMemory_, [&] { return transfer->cancellationError(); });
        auto completion = transfer->release();
        complete(completion, {nullptr, nullptr, std::move(error)});
    }
    while (!waiting_.empty()) {
        VLMSDKHTTPPendingRequest pending = std::move(waiting_.front());
        waiting_.pop_front();
        VLMErrorPtr error = errorOr(outOfMemory_, [&, function = __func__] {
            return managerError(VLMErrorCode::Cancelled,
                                pending.request->method() + " " + pending.request->redactedURL() +
                                    " was cancelled before it was sent: the request manager shut down.",
                                function);
        });
        complete(pending.completion, {nullptr, nullptr, std::move(error)});
    }
}

VLMSDKHTTPTransfer* VLMSDKHTTPRequestManager::Impl::idleTransfer(VLMErrorPtr* error) {
    if (!idle_.empty()) {
        VLMSDKHTTPTransfer* transfer = idle_.back();
        idle_.pop_back();
        return transfer;
    }
    try {
        auto transfer = VLMSDKHTTPTransfer::make(options_, error);
        if (!transfer) return nullptr;
        // Room for the transfer's return to the idle list is made now, so that retire cannot fail.
        idle_.reserve(transfers_.size() + 1);
        transfers_.push_back(std::move(transfer));
        return transfers_.back().get();
    } catch (const std::exception&) {
        *error = outOfMemory_;
        return nullptr;
    }
}

void VLMSDKHTTPRequestManager::Impl::retire(VLMSDKHTTPTransfer* transfer) { idle_.push_back(transfer); }

void VLMSDKHTTPRequestManager::Impl::complete(VLMSDKDataTaskCompletion& completion, VLMSDKHTTPReply reply) {
    requestsCompleted_.fetch_add(1, std::memory_order_relaxed);
    if (!completion) return;
    try {
        completion(std::move(reply.responseJSON), std::move(reply.response), std::move(reply.error));
    } catch (...) {
        // A handler's exception must not end the network thread, and has no one else to go to.
    }
}

VLMSDKHTTPRequestManager::VLMSDKHTTPRequestManager() : VLMSDKHTTPRequestManager(Options()) {}

VLMSDKHTTPRequestManager::VLMSDKHTTPRequestManager(Options options)
    : impl_(std::make_shared<Impl>(std::move(options))) {
    impl_->start();
}

VLMSDKHTTPRequestManager::~VLMSDKHTTPRequestManager() { shutdown(); }

void VLMSDKHTTPRequestManager::performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                      VLMSDKDataTaskCompletion completion) {
    impl_->enqueue({std::move(request), std::move(completion)});
}

void VLMSDKHTTPRequestManager::shutdown() {
    impl_->requestStop();
    impl_->join();
}

VLMSDKHTTPRequestManager::Statistics VLMSDKHTTPRequestManager::statistics() const { return impl_->statistics(); }

std::size_t VLMSDKHTTPRequestManager::connectionsOpened() const { return impl_->statistics().connectionsOpened; }

const VLMSDKHTTPRequestManager::Options& VLMSDKHTTPRequestManager::options() const { return impl_->options(); }
