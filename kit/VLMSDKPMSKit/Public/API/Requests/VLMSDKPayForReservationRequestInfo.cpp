#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKPayForReservationRequestInfo.h>

#include <Velmora_Meta/VLMUtilities.h>

#include <cmath>
#include <limits>

namespace {

bool isEmpty(const std::optional<std::string>& text) { return !text || text->empty(); }

}  // namespace

VLMSDKJSON VLMSDKPayForReservationRequestInfo::JSONRepresentation() const {
    VLMSDKJSON body = VLMSDKJSON::object();
    VLMUtilities::dictionary(body, creditCardID_, "credit_card_id");
    VLMUtilities::dictionary(body, amount_, "amount");
    VLMUtilities::dictionary(body, currencyCode_, "currency");
    return body;
}

bool VLMSDKPayForReservationRequestInfo::isValid(VLMErrorPtr* error) const {
    const char* failed = nullptr;
    std::optional<std::string> why;
    if (isEmpty(creditCardID_)) {
        failed = "creditCardID";
    } else if (isEmpty(reservationID_)) {
        failed = "reservationID";
    } else if (amount_ && !std::isfinite(*amount_)) {
        failed = "amount";
        why = "the amount is not a finite number";
    } else if (std::fabs(amount_.value_or(0.0)) < std::numeric_limits<double>::epsilon()) {
        failed = "amount";
    } else if (isEmpty(currencyCode_)) {
        failed = "currencyCode";
    }
    if (!failed) return true;
    VLMUtilities::error(error, VLMError::requiredArgumentErrorWithName(failed, why, __func__, __FILE__));
    return false;
}
