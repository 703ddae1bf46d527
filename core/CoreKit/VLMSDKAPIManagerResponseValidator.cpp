#include <VLMSDKCoreKit/VLMSDKAPIManagerResponseValidator.h>
#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>

#include <optional>
#include <string>

namespace {

// The server's own words, from {"error": {"message": ...}}, {"error": "..."} or {"message": ...}.
// The JSON value is built only here, for a failed reply.
std::optional<std::string> serverMessage(const std::shared_ptr<const VLMSDKJSONReply>& reply) {
    if (!reply || !reply->isObject()) return std::nullopt;
    const VLMSDKJSON* json = &reply->json();
    if (auto error = json->find("error"); error != json->end()) {
        if (error->is_string()) return error->get<std::string>();
        if (error->is_object()) {
            if (auto message = error->find("message"); message != error->end() && message->is_string()) {
                return message->get<std::string>();
            }
        }
    }
    if (auto message = json->find("message"); message != json->end() && message->is_string()) {
        return message->get<std::string>();
    }
    return std::nullopt;
}

}  // namespace

std::shared_ptr<VLMSDKAPIManagerResponseValidator> VLMSDKAPIManagerResponseValidator::validatorForResponse(
    std::shared_ptr<const VLMSDKURLResponse> response, std::shared_ptr<const VLMSDKJSONReply> reply,
    VLMErrorPtr responseError) {
    return std::make_shared<VLMSDKAPIManagerResponseValidator>(std::move(response), std::move(reply),
                                                               std::move(responseError));
}

VLMSDKAPIManagerResponseValidator::VLMSDKAPIManagerResponseValidator(std::shared_ptr<const VLMSDKURLResponse> response,
                                                                     std::shared_ptr<const VLMSDKJSONReply> reply,
                                                                     VLMErrorPtr responseError)
    : response_(std::move(response)), reply_(std::move(reply)), responseError_(std::move(responseError)) {}

bool VLMSDKAPIManagerResponseValidator::validate(VLMErrorPtr* error) {
    auto& logger = VLMSDKConsoleLogger::sharedLogger();
    VLMErrorPtr failed = failure();
    if (failed) {
        logger.logWithLevel(static_cast<int>(VLMSDKLogLevel::Error), __FILE__, __LINE__, __func__, "%s %s",
                            failsLogMessage_.c_str(), failed->developerMessage().c_str());
        if (error) *error = std::move(failed);
        return false;
    }
    logger.logWithLevel(static_cast<int>(VLMSDKLogLevel::Info), __FILE__, __LINE__, __func__, "%s",
                        passesLogMessage_.c_str());
    return true;
}

VLMErrorPtr VLMSDKAPIManagerResponseValidator::failure() const {
    if (responseError_) return responseError_;

    // The error's details are built only once something failed: a good reply allocates nothing here.
    auto make = [this](VLMErrorCode code, std::string message, std::optional<std::string> serverMessage = {}) {
        VLMError::Details details;
        details.domain = kVLMSDKResponseErrorDomain;
        details.functionName = "failure";
        details.fileName = __FILE__;
        details.code = code;
        details.developerMessage = std::move(message);
        if (response_) details.httpStatusCode = response_->statusCode();
        if (serverMessage) details.userMessage = *serverMessage;
        details.serverMessage = std::move(serverMessage);
        return std::make_shared<const VLMError>(std::move(details));
    };

    if (!response_) return make(VLMErrorCode::InvalidResponse, "No response came with the reply.");
    const long status = response_->statusCode();
    if (status < 200 || status > 299) {
        auto server = serverMessage(reply_);
        std::string message = "The service answered HTTP " + std::to_string(status);
        if (response_->attempts() > 1) message += " after " + std::to_string(response_->attempts()) + " attempts";
        message += server ? ": " + *server : std::string(".");
        return make(VLMErrorCode::HTTPStatus, std::move(message), std::move(server));
    }
    if (requiredJSONKeys_.empty()) return nullptr;
    if (!reply_ || !reply_->isObject()) {
        return make(VLMErrorCode::InvalidResponse, "The reply is not a JSON object.");
    }
    for (const auto& key : requiredJSONKeys_) {
        if (!reply_->hasMember(key)) {
            return make(VLMErrorCode::MissingRequiredKey, "The reply lacks the key '" + key + "'.");
        }
    }
    return nullptr;
}
