#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKJSONReply.h>
#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <memory>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

/// Judges one reply: no transport error, a 2xx status and, when keys are required, a JSON object that
/// holds every one of them. Logs the pass message (level Info) or the fail message (level Error) through
/// the console logger. Usable on any thread; one validator serves one reply.
class VLMSDKAPIManagerResponseValidator {
public:
    /// A shared validator for one reply: what the request manager handed over, as it came.
    static std::shared_ptr<VLMSDKAPIManagerResponseValidator> validatorForResponse(
        std::shared_ptr<const VLMSDKURLResponse> response, std::shared_ptr<const VLMSDKJSONReply> reply,
        VLMErrorPtr responseError);

    /// The same, not shared.
    VLMSDKAPIManagerResponseValidator(std::shared_ptr<const VLMSDKURLResponse> response,
                                      std::shared_ptr<const VLMSDKJSONReply> reply, VLMErrorPtr responseError);

    /// The line logged when the reply passes.
    void setPassesLogMessage(std::string message) { passesLogMessage_ = std::move(message); }
    /// The line logged when it fails, followed by the error's developer message.
    void setFailsLogMessage(std::string message) { failsLogMessage_ = std::move(message); }
    /// Top-level keys the reply object must hold (none: any reply, JSON or not, passes on a 2xx).
    void setRequiredJSONKeys(std::vector<std::string> keys) { requiredJSONKeys_ = std::move(keys); }

    /// True when the reply may be mapped. On false, stores the reason through `error` (when given):
    /// the transport error as it came; otherwise an error of kVLMSDKResponseErrorDomain carrying the HTTP
    /// status and, when the reply body held one ("error": {"message": ...} or "message"), the server's
    /// message, which then is also the error's user message.
    bool validate(VLMErrorPtr* error);
    /// What `validate` would store (nullptr when the reply may be mapped), without its log line: for a caller
    /// to whom a failed attempt is routine (the outbox sends the item again).
    VLMErrorPtr failure() const;

private:

    std::shared_ptr<const VLMSDKURLResponse> response_;
    std::shared_ptr<const VLMSDKJSONReply> reply_;
    VLMErrorPtr responseError_;
    std::string passesLogMessage_;
    std::string failsLogMessage_;
    std::vector<std::string> requiredJSONKeys_;
};

VLMSDK_API_END
