#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

VLMSDKAPIManager::VLMSDKAPIManager(std::shared_ptr<VLMSDKRequestBuilder> requestBuilder,
                                   std::shared_ptr<VLMSDKRequestManager> requestManager)
    : requestBuilder_(std::move(requestBuilder)), requestManager_(std::move(requestManager)) {}

VLMSDKAPIManager VLMSDKAPIManager::withCancellation(std::shared_ptr<VLMSDKCancellation> cancellation) const {
    VLMSDKAPIManager copy = *this;
    copy.control_.cancellation = std::move(cancellation);
    return copy;
}

VLMSDKAPIManager VLMSDKAPIManager::withHandlerOffMainQueue() const {
    VLMSDKAPIManager copy = *this;
    copy.control_.handlerOffMainQueue = true;
    return copy;
}

void VLMSDKAPIManager::prewarmConnections() const {
    if (requestManager_ && requestBuilder_) requestManager_->prewarm(requestBuilder_->baseURL());
}

VLMSDKAPIManager VLMSDKAPIManager::withTelemetryObserver(std::shared_ptr<VLMSDKTelemetryObserver> observer) const {
    VLMSDKAPIManager copy = *this;
    copy.observer_ = std::move(observer);
    return copy;
}

VLMSDKAPIManager VLMSDKAPIManager::withTraceContext(std::optional<VLMSDKTraceContext> context) const {
    VLMSDKAPIManager copy = *this;
    copy.trace_ = context && context->isValid() ? std::move(context) : std::nullopt;
    return copy;
}

void VLMSDKRequestManager::performControlledRequest(std::shared_ptr<const VLMSDKRequest> request,
                                                    const VLMSDKRequestControl& control,
                                                    VLMSDKDataTaskCompletion completion) {
    if (control.cancellation && control.cancellation->isCancelled()) {
        const std::string what = request ? request->method() + " " + request->redactedURL() : std::string("A request");
        if (completion) completion(nullptr, nullptr, VLMSDKCancellation::cancelledError(what, false));
        return;
    }
    performDataTaskRequest(std::move(request), std::move(completion));
}
