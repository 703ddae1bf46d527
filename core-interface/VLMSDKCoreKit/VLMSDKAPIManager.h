#pragma once

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <memory>

/// The SDK's gateway to its service: the pair of request builder and request manager that the kits'
/// operations use. Kits add their operations to it (see each kit's `VLMSDKAPIManager+...` unit).
class VLMSDKAPIManager {
public:
    VLMSDKAPIManager(std::shared_ptr<VLMSDKRequestBuilder> requestBuilder,
                     std::shared_ptr<VLMSDKRequestManager> requestManager);

    /// The builder of this API manager's requests.
    const std::shared_ptr<VLMSDKRequestBuilder>& requestBuilder() const { return requestBuilder_; }
    /// The manager that sends this API manager's requests.
    const std::shared_ptr<VLMSDKRequestManager>& requestManager() const { return requestManager_; }

private:
    std::shared_ptr<VLMSDKRequestBuilder> requestBuilder_;
    std::shared_ptr<VLMSDKRequestManager> requestManager_;
};
