#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

VLMSDKAPIManager::VLMSDKAPIManager(std::shared_ptr<VLMSDKRequestBuilder> requestBuilder,
                                   std::shared_ptr<VLMSDKRequestManager> requestManager)
    : requestBuilder_(std::move(requestBuilder)), requestManager_(std::move(requestManager)) {}
