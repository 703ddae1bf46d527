#include "FuzzOperations.h"

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

namespace {

template <class Result>
std::function<void(Result, VLMErrorPtr)> into(FuzzOutcome& outcome) {
    return [&outcome](Result result, VLMErrorPtr error) {
        ++outcome.completions;
        outcome.offMainThread = outcome.offMainThread || !VLMSDKMainQueue::isMainThread();
        outcome.result = static_cast<bool>(result);
        outcome.error = std::move(error);
    };
}

void create(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
    request->setExternalReservationID(identifier);
    request->setVenueVelmoraID("ven_1");
    request->setReservationistLastName("Quillfeather");
    createReservationWithRequest(api, request, into<std::shared_ptr<VLMSDKReservation>>(outcome));
}

void fetch(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    fetchReservationWithID(api, identifier, into<std::shared_ptr<VLMSDKReservation>>(outcome));
}

void confirm(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    confirmReservationWithID(api, identifier, true, into<std::shared_ptr<VLMSDKReservation>>(outcome));
}

void checkin(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    performMobileCheckinForReservationWithID(api, identifier, into<std::shared_ptr<VLMSDKReservation>>(outcome));
}

void checkout(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    performMobileCheckoutForReservationWithID(api, identifier, into<bool>(outcome));
}

void pay(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
    request->setReservationID(identifier);
    request->setCreditCardID("card_1");
    request->setAmount(12.5);
    request->setCurrencyCode("USD");
    payForReservationWithRequest(api, request, into<std::shared_ptr<VLMSDKPayForReservationResult>>(outcome));
}

void folio(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    fetchReservationMasterBill(api, identifier, into<std::shared_ptr<VLMSDKFolio>>(outcome));
}

void charge(const VLMSDKAPIManager& api, const std::string& identifier, FuzzOutcome& outcome) {
    auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
    request->setReservationID(identifier);
    request->setVelmoraDeliverables({std::make_shared<VLMSDKDeliverableCountableItem>("itm_breakfast", 2)});
    updateReservationMasterBillWithRequest(api, request, into<std::shared_ptr<VLMSDKFolio>>(outcome));
}

}  // namespace

const std::array<FuzzOperation, 8>& fuzzOperations() {
    static const std::array<FuzzOperation, 8> operations = {{
        {"create", "POST", "guest/reservations", &create},
        {"fetch", "GET", "guest/reservations/%@", &fetch},
        {"confirm", "PATCH", "guest/reservations/%@", &confirm},
        {"checkin", "PATCH", "guest/reservations/%@/mobile_checkin", &checkin},
        {"checkout", "PATCH", "guest/reservations/%@/mobile_checkout", &checkout},
        {"pay", "POST", "guest/reservations/%@/transactions", &pay},
        {"folio", "GET", "guest/reservations/%@/folio", &folio},
        {"charge", "POST", "guest/reservations/%@/charge", &charge},
    }};
    return operations;
}
