#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>

#include "VLMSDKHTTPScheduler.h"

#include <atomic>
#include <string>
#include <mutex>
#include <utility>

using vlmsdk::detail::VLMSDKHTTPScheduler;

// A request waiting beyond the live-transfer limit holds no handle or buffer, only what the caller handed over.
// (112 bytes on 64-bit targets: the telemetry handle took it past 96.)
static_assert(sizeof(vlmsdk::detail::VLMSDKHTTPPendingRequest) <= 112);

namespace {

std::string describe(const std::shared_ptr<const VLMSDKRequest>& request) {
    return request ? request->method() + " " + request->redactedURL() : std::string("A request");
}

}  // namespace

/// The manager's two schedulers, each made when the first request for it comes.
class VLMSDKHTTPRequestManager::Impl {
public:
    explicit Impl(Options options) : options_(std::make_shared<const Options>(std::move(options))) {}

    // `control` may ask for the network thread whatever the mode, and for a cancellation hook.
    void perform(vlmsdk::detail::VLMSDKHTTPPendingRequest&& pending, const VLMSDKRequestControl* control = nullptr) {
        using Mode = Options::Mode;
        const bool threaded = (control && control->handlerOffMainQueue) || options_->mode == Mode::Threaded ||
                              (options_->mode == Mode::Automatic && vlmsdk::detail::mainQueueHasExecutor());
        VLMErrorPtr error;
        std::shared_ptr<VLMSDKHTTPScheduler> scheduler;
        {
            std::lock_guard lock(mutex_);
            auto& slot = threaded ? threaded_ : pumped_;
            if (!slot && !shutDown_) {
                slot = VLMSDKHTTPScheduler::start(options_,
                                               threaded ? VLMSDKHTTPScheduler::Driver::OwnThread
                                                        : VLMSDKHTTPScheduler::Driver::MainQueue,
                                               &error);
            }
            scheduler = slot;
        }
        if (scheduler && control && control->cancellation) hookCancellation(*scheduler, control->cancellation, pending);
        if (scheduler) return scheduler->submit(std::move(pending));

        // Shut down before this scheduler was ever needed, or it could not start: answered here and now.
        refused_.fetch_add(1, std::memory_order_relaxed);
        if (!pending.completion) return;
        try {
            if (!error) {
                const std::string what = pending.request ? pending.request->method() + " " +
                                                               pending.request->redactedURL()
                                                         : std::string("A request");
                error = VLMError::errorWithCode(VLMErrorCode::Cancelled, kVLMSDKNetworkErrorDomain,
                                                what + " was not sent: the request manager has shut down.",
                                                __func__, __FILE__);
            }
            pending.completion(nullptr, nullptr, std::move(error));
        } catch (...) {
            // Neither a throwing handler nor a failed allocation escapes into the caller.
        }
    }

    // Numbers the request, and has a cancel reach the scheduler; the hook goes when the request is answered.
    static void hookCancellation(VLMSDKHTTPScheduler& scheduler, const std::shared_ptr<VLMSDKCancellation>& cancellation,
                                 vlmsdk::detail::VLMSDKHTTPPendingRequest& pending) {
        pending.id = scheduler.newRequestID();
        const std::weak_ptr<VLMSDKHTTPScheduler> weak = scheduler.shared_from_this();
        // Registered before the request is handed over: a cancel that comes first is applied when it is
        // admitted.
        const std::uint64_t key = cancellation->addCallback([weak, id = pending.id] {
            if (const auto target = weak.lock()) target->cancelRequest(id);
        });
        pending.completion = [inner = std::move(pending.completion), cancellation,
                              key](std::shared_ptr<const VLMSDKJSONReply> json,
                                   std::shared_ptr<const VLMSDKURLResponse> response, VLMErrorPtr error) {
            cancellation->removeCallback(key);
            if (inner) inner(std::move(json), std::move(response), std::move(error));
        };
    }

    void shutdown() {
        std::shared_ptr<VLMSDKHTTPScheduler> schedulers[2];
        {
            std::lock_guard lock(mutex_);
            shutDown_ = true;
            schedulers[0] = threaded_;
            schedulers[1] = pumped_;
        }
        for (const auto& scheduler : schedulers) {
            if (scheduler) scheduler->shutdown();
        }
    }

    Statistics statistics() const {
        Statistics total;
        total.requestsCompleted = refused_.load(std::memory_order_relaxed);
        std::lock_guard lock(mutex_);
        for (const auto* scheduler : {&threaded_, &pumped_}) {
            if (!*scheduler) continue;
            const Statistics part = (*scheduler)->statistics();
            total.connectionsOpened += part.connectionsOpened;
            total.requestsSent += part.requestsSent;
            total.requestsCompleted += part.requestsCompleted;
        }
        return total;
    }

    const Options& options() const { return *options_; }

private:
    const std::shared_ptr<const Options> options_;
    mutable std::mutex mutex_;
    std::shared_ptr<VLMSDKHTTPScheduler> threaded_;
    std::shared_ptr<VLMSDKHTTPScheduler> pumped_;
    bool shutDown_ = false;
    std::atomic<std::size_t> refused_{0};
};

VLMSDKHTTPRequestManager::VLMSDKHTTPRequestManager() : VLMSDKHTTPRequestManager(Options()) {}

VLMSDKHTTPRequestManager::VLMSDKHTTPRequestManager(Options options)
    : impl_(std::make_shared<Impl>(std::move(options))) {}

VLMSDKHTTPRequestManager::~VLMSDKHTTPRequestManager() { shutdown(); }

void VLMSDKHTTPRequestManager::performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                      VLMSDKDataTaskCompletion completion) {
    impl_->perform({std::move(request), std::move(completion)});
}

void VLMSDKHTTPRequestManager::performControlledRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                        const VLMSDKRequestControl& control,
                                                        VLMSDKDataTaskCompletion completion) {
    if (control.cancellation && control.cancellation->isCancelled()) {
        if (completion) completion(nullptr, nullptr, VLMSDKCancellation::cancelledError(describe(request), false));
        return;
    }
    vlmsdk::detail::VLMSDKHTTPPendingRequest pending{std::move(request), std::move(completion)};
    pending.expectedReply = control.expectedReply;
    pending.telemetry = control.telemetry;
    impl_->perform(std::move(pending), &control);
}

void VLMSDKHTTPRequestManager::prewarm(const std::string& url) {
    // An ordinary request whose answer nobody reads: the same checks, adapters and connection pool as any other.
    VLMSDKRequest::Parts parts;
    parts.method = "GET";
    parts.url = url;
    impl_->perform({std::make_shared<const VLMSDKRequest>(std::move(parts)), nullptr});
}

void VLMSDKHTTPRequestManager::shutdown() { impl_->shutdown(); }

VLMSDKHTTPRequestManager::Statistics VLMSDKHTTPRequestManager::statistics() const { return impl_->statistics(); }

std::size_t VLMSDKHTTPRequestManager::connectionsOpened() const { return impl_->statistics().connectionsOpened; }

const VLMSDKHTTPRequestManager::Options& VLMSDKHTTPRequestManager::options() const { return impl_->options(); }
