#include <Velmora_Errors/VLMError.h>

#include <utility>

namespace {

std::string genericUserMessage(VLMErrorCode code) {
    switch (code) {
    case VLMErrorCode::RequiredArgument: return "Some required information is missing.";
    case VLMErrorCode::Transport: return "The service could not be reached. Check your connection and try again.";
    case VLMErrorCode::Timeout: return "The service took too long to answer. Please try again.";
    case VLMErrorCode::Cancelled: return "The request was cancelled.";
    case VLMErrorCode::InvalidRequest: return "The request could not be made.";
    case VLMErrorCode::Authentication: return "You could not be signed in to the service. Please try again.";
    case VLMErrorCode::ReplyTooLarge:
    case VLMErrorCode::HTTPStatus:
    case VLMErrorCode::InvalidResponse:
    case VLMErrorCode::MissingRequiredKey:
    case VLMErrorCode::ReplyMismatch:
    case VLMErrorCode::Mapping: return "The service answered in a way this app does not understand.";
    case VLMErrorCode::Archive: return "Saved data could not be read.";
    case VLMErrorCode::Unknown: break;
    }
    return "Something went wrong.";
}

std::string orEmpty(const char* text) { return text ? std::string(text) : std::string(); }

}  // namespace

VLMError::VLMError(Details details) : details_(std::move(details)) {
    if (details_.userMessage.empty()) details_.userMessage = genericUserMessage(details_.code);
}

VLMErrorPtr VLMError::requiredArgumentErrorWithName(const std::string& name,
                                                    const std::optional<std::string>& message,
                                                    const char* functionName, const char* fileName) {
    Details details;
    details.domain = kVLMErrorDomain;
    details.code = VLMErrorCode::RequiredArgument;
    details.developerMessage = "Required argument '" + name + "' is missing or invalid";
    if (message && !message->empty()) details.developerMessage += ": " + *message;
    details.developerMessage += ".";
    details.argumentName = name;
    details.functionName = orEmpty(functionName);
    details.fileName = orEmpty(fileName);
    return std::make_shared<const VLMError>(std::move(details));
}

VLMErrorPtr VLMError::errorWithCode(VLMErrorCode code, std::string domain, std::string developerMessage,
                                    const char* functionName, const char* fileName,
                                    std::optional<std::string> userMessage) {
    Details details;
    details.domain = std::move(domain);
    details.code = code;
    details.developerMessage = std::move(developerMessage);
    if (userMessage) details.userMessage = std::move(*userMessage);
    details.functionName = orEmpty(functionName);
    details.fileName = orEmpty(fileName);
    return std::make_shared<const VLMError>(std::move(details));
}

VLMErrorPtr VLMError::withRequestID(const VLMErrorPtr& error, std::string requestID) {
    if (!error || error->requestID()) return error;
    Details details = error->details();
    details.requestID = std::move(requestID);
    return std::make_shared<const VLMError>(std::move(details));
}

std::string VLMError::description() const {
    return details_.domain + " " + std::to_string(static_cast<int>(details_.code)) + ": " + details_.developerMessage;
}
