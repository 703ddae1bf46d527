#pragma once

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>
#include <VLMSDKCoreKit/VLMSDKRequest.h>
#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <functional>
#include <memory>

/// The reply handler of one request: the parsed reply body (nullptr when there was none, or it was not
/// JSON), the response (nullptr when no HTTP answer came) and the error (nullptr on an HTTP answer whose
/// body, if any, parsed).
using VLMSDKDataTaskCompletion = std::function<void(std::shared_ptr<const VLMSDKJSON> responseJSON,
                                                    std::shared_ptr<const VLMSDKURLResponse> response,
                                                    VLMErrorPtr error)>;

/// Sends requests. An interface, so that a host or a test can supply its own.
class VLMSDKRequestManager {
public:
    virtual ~VLMSDKRequestManager() = default;

    /// Sends `request` without blocking the caller, parses the reply body as JSON and calls `completion`
    /// exactly once, on whichever thread the manager chooses (the calling thread included).
    virtual void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                        VLMSDKDataTaskCompletion completion) = 0;
};
