#include <VLMSDKPMSKit/Private/Outbox/VLMSDKOutboxRoute.h>

namespace vlmsdk::detail {

const VLMSDKOutboxRoute& VLMSDKOutboxRoute::of(VLMSDKOutboxOperation operation) {
    static const VLMSDKOutboxRoute confirm{"outbox.confirmReservation", "PATCH", "guest/reservations/%@", {"reservation"}, true};
    static const VLMSDKOutboxRoute checkin{
        "outbox.mobileCheckin", "PATCH", "guest/reservations/%@/mobile_checkin", {"reservation"}, true};
    static const VLMSDKOutboxRoute checkout{"outbox.mobileCheckout", "PATCH", "guest/reservations/%@/mobile_checkout", {}, true};
    static const VLMSDKOutboxRoute pay{
        "outbox.payForReservation", "POST", "guest/reservations/%@/transactions", {"reservation", "transaction"}, true};
    static const VLMSDKOutboxRoute charge{"outbox.chargeMasterBill", "POST", "guest/reservations/%@/charge", {}, false};
    switch (operation) {
    case VLMSDKOutboxOperation::Confirm: return confirm;
    case VLMSDKOutboxOperation::MobileCheckin: return checkin;
    case VLMSDKOutboxOperation::MobileCheckout: return checkout;
    case VLMSDKOutboxOperation::Pay: return pay;
    case VLMSDKOutboxOperation::Charge: return charge;
    }
    return charge;
}

std::string VLMSDKOutboxRoute::path(const std::string& identifier) const {
    std::string text(pathFormat);
    const auto at = text.find("%@");
    if (at != std::string::npos) text.replace(at, 2, identifier);
    return text;
}

}  // namespace vlmsdk::detail
