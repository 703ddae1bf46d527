#include "PMSFailure.h"

#include "PMSShownText.h"

#include <utility>

PMSFailure::PMSFailure(std::string operation, VLMErrorPtr error, std::string hint,
                       std::optional<std::string> reservationID, std::optional<std::string> reservationStatus)
    : operation_(std::move(operation)), error_(std::move(error)), hint_(std::move(hint)),
      reservationID_(std::move(reservationID)), reservationStatus_(std::move(reservationStatus)) {}

std::string PMSFailure::cause() const {
    std::string cause;
    if (error_->code() == VLMErrorCode::HTTPStatus && error_->httpStatusCode()) {
        cause = "HTTP " + std::to_string(*error_->httpStatusCode());
        if (error_->serverMessage() && !error_->serverMessage()->empty()) {
            cause += ": " + PMSShownText::line(*error_->serverMessage());
        }
    } else {
        cause = PMSShownText::line(error_->developerMessage());
    }
    if (cause.empty() || cause.back() != '.') cause += '.';
    return cause;
}

std::string PMSFailure::line() const {
    std::string text = "vlmsdk-pms: " + operation_ + " failed: " + cause() + (hint_.empty() ? "" : " " + hint_);
    // What the service's team asks for first; its text is the service's, so shown escaped and cut.
    if (error_->requestID()) text += " (request id " + PMSShownText::line(*error_->requestID()) + ")";
    return text;
}

PMSJSON PMSFailure::document() const {
    std::optional<std::string> serverMessage;
    if (error_->serverMessage()) serverMessage = PMSShownText::cut(*error_->serverMessage());
    return {{"error",
             {
                 {"operation", operation_},
                 {"code", PMSRecordJSON::codeName(error_->code())},
                 {"message", PMSShownText::cut(error_->developerMessage())},
                 {"httpStatus", PMSRecordJSON::orNull(error_->httpStatusCode())},
                 {"serverMessage", PMSRecordJSON::orNull(serverMessage)},
                 {"requestID", error_->requestID() ? PMSJSON(PMSShownText::cut(*error_->requestID())) : PMSJSON(nullptr)},
                 {"hint", hint_.empty() ? PMSJSON(nullptr) : PMSJSON(hint_)},
                 {"reservationID", PMSRecordJSON::orNull(reservationID_)},
                 {"reservationStatus", PMSRecordJSON::orNull(reservationStatus_)},
             }}};
}
