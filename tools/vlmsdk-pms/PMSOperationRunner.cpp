#include "PMSOperationRunner.h"

#include <VLMSDKPMSKit/Public/API/VLMSDKAPIManager+Reservation.h>

#include <VLMSDKCoreKit/VLMSDKDeliverableCountableItem.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <optional>

namespace {

std::string seconds(std::chrono::milliseconds duration) {
    const auto count = duration.count();
    std::string text = std::to_string(count / 1000);
    if (count % 1000 != 0) {
        std::string fraction = std::to_string(count % 1000);
        fraction.insert(0, 3 - fraction.size(), '0');
        while (fraction.back() == '0') fraction.pop_back();
        text += "." + fraction;
    }
    return text + " s";
}

}  // namespace

PMSOperationRunner::PMSOperationRunner(const VLMSDKAPIManager& manager, std::chrono::milliseconds timeout)
    : manager_(manager), timeout_(timeout) {}

template <class Result, class Start>
PMSOutcome<Result> PMSOperationRunner::await(const char* operation, Start start) const {
    // Shared with the completion, which may still arrive (and be dropped) after a timeout.
    auto delivered = std::make_shared<std::optional<PMSOutcome<Result>>>();
    start([delivered](Result result, VLMErrorPtr error) {
        if (!*delivered) *delivered = PMSOutcome<Result>{std::move(result), std::move(error)};
    });
    const bool arrived =
        VLMSDKMainQueue::runUntil([&delivered] { return delivered->has_value(); }, timeout_ + kDeliveryGrace);
    if (!arrived) {
        return {Result{}, VLMError::errorWithCode(VLMErrorCode::Timeout, kErrorDomain,
                                                  std::string(operation) + ": no outcome within " +
                                                      seconds(timeout_ + kDeliveryGrace) + " (see --timeout).",
                                                  __func__, __FILE__)};
    }
    PMSOutcome<Result> outcome = std::move(**delivered);
    if (!outcome.error && !outcome.result) {
        outcome.error = VLMError::errorWithCode(VLMErrorCode::Unknown, kErrorDomain,
                                                std::string(operation) + ": the kit delivered neither a result nor an error.",
                                                __func__, __FILE__);
    }
    return outcome;
}

PMSOutcome<std::shared_ptr<VLMSDKReservation>> PMSOperationRunner::createReservation(
    const std::string& confirmationNumber, const std::string& venueID, const std::string& lastName) const {
    auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
    request->setExternalReservationID(confirmationNumber);
    request->setVenueVelmoraID(venueID);
    request->setReservationistLastName(lastName);
    return await<std::shared_ptr<VLMSDKReservation>>("create", [&](VLMSDKReservationCompletion completion) {
        createReservationWithRequest(manager_, request, std::move(completion));
    });
}

PMSOutcome<std::shared_ptr<VLMSDKReservation>> PMSOperationRunner::fetchReservation(
    const std::string& reservationID) const {
    return await<std::shared_ptr<VLMSDKReservation>>("fetch", [&](VLMSDKReservationCompletion completion) {
        fetchReservationWithID(manager_, reservationID, std::move(completion));
    });
}

PMSOutcome<std::shared_ptr<VLMSDKReservation>> PMSOperationRunner::confirmReservation(
    const std::string& reservationID, bool notifyAboutMobileCheckinOpen) const {
    return await<std::shared_ptr<VLMSDKReservation>>("confirm", [&](VLMSDKReservationCompletion completion) {
        confirmReservationWithID(manager_, reservationID, notifyAboutMobileCheckinOpen, std::move(completion));
    });
}

PMSOutcome<std::shared_ptr<VLMSDKReservation>> PMSOperationRunner::checkin(const std::string& reservationID) const {
    return await<std::shared_ptr<VLMSDKReservation>>("checkin", [&](VLMSDKReservationCompletion completion) {
        performMobileCheckinForReservationWithID(manager_, reservationID, std::move(completion));
    });
}

PMSOutcome<bool> PMSOperationRunner::checkout(const std::string& reservationID) const {
    return await<bool>("checkout", [&](VLMSDKSuccessCompletion completion) {
        performMobileCheckoutForReservationWithID(manager_, reservationID, std::move(completion));
    });
}

PMSOutcome<std::shared_ptr<VLMSDKPayForReservationResult>> PMSOperationRunner::pay(
    const std::string& reservationID, const std::string& creditCardID, double amount,
    const std::string& currencyCode) const {
    auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
    request->setReservationID(reservationID);
    request->setCreditCardID(creditCardID);
    request->setAmount(amount);
    request->setCurrencyCode(currencyCode);
    return await<std::shared_ptr<VLMSDKPayForReservationResult>>(
        "pay", [&](VLMSDKPayForReservationCompletion completion) {
            payForReservationWithRequest(manager_, request, std::move(completion));
        });
}

PMSOutcome<std::shared_ptr<VLMSDKFolio>> PMSOperationRunner::fetchFolio(const std::string& reservationID) const {
    return await<std::shared_ptr<VLMSDKFolio>>("folio", [&](VLMSDKFolioCompletion completion) {
        fetchReservationMasterBill(manager_, reservationID, std::move(completion));
    });
}

PMSOutcome<std::shared_ptr<VLMSDKFolio>> PMSOperationRunner::charge(const std::string& reservationID,
                                                                    const std::vector<PMSChargeItem>& items) const {
    auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
    request->setReservationID(reservationID);
    VLMSDKUpdateReservationMasterBillRequestInfo::Deliverables deliverables;
    for (const PMSChargeItem& item : items) {
        deliverables.push_back(std::make_shared<VLMSDKDeliverableCountableItem>(item.itemID, item.quantity));
    }
    request->setVelmoraDeliverables(std::move(deliverables));
    return await<std::shared_ptr<VLMSDKFolio>>("charge", [&](VLMSDKFolioCompletion completion) {
        updateReservationMasterBillWithRequest(manager_, request, std::move(completion));
    });
}
