#include <VLMSDKPMSKit/Public/API/VLMSDKAPIManager+Reservation.h>

#include <VLMSDKPMSKit/Private/API/VLMSDKRequestFrame.h>

namespace {

using SuccessFrame = VLMSDKRequestFrame<bool>;

SuccessFrame::Outcome succeed(const VLMSDKJSON&) { return {true, nullptr}; }

const SuccessFrame::Operation mobileCheckout{
    SuccessFrame::Method::PATCH,
    "Successfully did mobile checkout for reservation.",
    "Failed to make a mobile checkout for reservation.",
    {},
    &succeed,
};

}  // namespace

void performMobileCheckoutForReservationWithID(const VLMSDKAPIManager& manager,
                                               const std::optional<std::string>& reservationID,
                                               VLMSDKSuccessCompletion completion) {
    if (!reservationID) return SuccessFrame::failAbsentArgument("reservationVelmoraID", completion);
    SuccessFrame::send(manager, mobileCheckout,
                       SuccessFrame::pathWithIdentifier("guest/reservations/%@/mobile_checkout", *reservationID),
                       std::nullopt, std::move(completion));
}
