#pragma once

#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <memory>

/// The SDK's gateway to its service: the pair of request builder and request manager that the kits'
/// operations use. Kits add their operations to it (see each kit's `VLMSDKAPIManager+...` unit).
class VLMSDKAPIManager {
public:
    /// Operations build their requests with `requestBuilder` and send them through `requestManager`.
    VLMSDKAPIManager(std::shared_ptr<VLMSDKRequestBuilder> requestBuilder,
                     std::shared_ptr<VLMSDKRequestManager> requestManager);

    /// The builder of this API manager's requests.
    const std::shared_ptr<VLMSDKRequestBuilder>& requestBuilder() const { return requestBuilder_; }
    /// The manager that sends this API manager's requests.
    const std::shared_ptr<VLMSDKRequestManager>& requestManager() const { return requestManager_; }

    /// A copy whose operations run under `cancellation` (see VLMSDKCancellation for what a cancel does).
    /// Copies are cheap; the builder and the manager are shared.
    VLMSDKAPIManager withCancellation(std::shared_ptr<VLMSDKCancellation> cancellation) const;
    /// A copy whose operations are moved and delivered without the main queue: the completion runs on the
    /// thread that handled the reply. For callers that block the main thread until it ran.
    VLMSDKAPIManager withHandlerOffMainQueue() const;
    /// What this API manager's operations ask of each request.
    const VLMSDKRequestControl& requestControl() const { return control_; }

private:
    std::shared_ptr<VLMSDKRequestBuilder> requestBuilder_;
    std::shared_ptr<VLMSDKRequestManager> requestManager_;
    VLMSDKRequestControl control_;
};
