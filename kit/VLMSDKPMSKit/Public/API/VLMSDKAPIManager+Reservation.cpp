#include <VLMSDKPMSKit/Public/API/VLMSDKAPIManager+Reservation.h>

#include <VLMSDKPMSKit/Private/API/VLMSDKRequestFrame.h>

#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>
#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

namespace {

using ReservationFrame = VLMSDKRequestFrame<std::shared_ptr<VLMSDKReservation>>;
using SuccessFrame = VLMSDKRequestFrame<bool>;
using FolioFrame = VLMSDKRequestFrame<std::shared_ptr<VLMSDKFolio>>;
using PayFrame = VLMSDKRequestFrame<std::shared_ptr<VLMSDKPayForReservationResult>>;

// The reply, or its member `member`, mapped into a Record.
template <class Record>
std::pair<std::shared_ptr<Record>, VLMErrorPtr> mapRecord(const VLMSDKJSONReply& reply,
                                                          std::optional<std::string_view> member = std::nullopt) {
    const auto mapped = VLMSDKMapper::objectFromReply(reply, Record::objectMapping(), member);
    if (auto record = mapped->template resultAs<Record>()) return {std::move(record), nullptr};
    return {nullptr, mapped->error()};
}

ReservationFrame::Outcome reservationFromReply(const VLMSDKJSONReply& reply) {
    return mapRecord<VLMSDKReservation>(reply, "reservation");
}

FolioFrame::Outcome folioFromReply(const VLMSDKJSONReply& reply) { return mapRecord<VLMSDKFolio>(reply); }

SuccessFrame::Outcome succeed(const VLMSDKJSONReply&) { return {true, nullptr}; }

// The parts are taken as they map; a part that does not map is left out rather than failing the payment.
PayFrame::Outcome paymentFromReply(const VLMSDKJSONReply& reply) {
    auto reservation = mapRecord<VLMSDKReservation>(reply, "reservation").first;
    auto transaction = mapRecord<VLMSDKPaymentTransaction>(reply, "transaction").first;
    return {VLMSDKPayForReservationResult::initWithTransaction(std::move(transaction), std::move(reservation)), nullptr};
}

const ReservationFrame::Operation createOperation{"createReservation", ReservationFrame::Method::POST,
                                                  "Successfully created reservation.",
                                                  "Failed to create reservation.",
                                                  {"reservation"},
                                                  &reservationFromReply};
const ReservationFrame::Operation fetchOperation{"fetchReservation", ReservationFrame::Method::GET,
                                                 "Successfully fetch reservation.",
                                                 "Failed to fetch reservation.",
                                                 {"reservation"},
                                                 &reservationFromReply,
                                                 /*replyNamesReservation=*/true};
const ReservationFrame::Operation confirmOperation{"confirmReservation", ReservationFrame::Method::PATCH,
                                                   "Successfully confirm reservation.",
                                                   "Failed to confirm a reservation.",
                                                   {"reservation"},
                                                   &reservationFromReply,
                                                   /*replyNamesReservation=*/true};
const ReservationFrame::Operation checkinOperation{"mobileCheckin", ReservationFrame::Method::PATCH,
                                                   "Successfully did mobile checkin for reservation.",
                                                   "Failed to make a mobile checkin for reservation.",
                                                   {"reservation"},
                                                   &reservationFromReply,
                                                   /*replyNamesReservation=*/true};
const SuccessFrame::Operation checkoutOperation{"mobileCheckout", SuccessFrame::Method::PATCH,
                                                "Successfully did mobile checkout for reservation.",
                                                "Failed to make a mobile checkout for reservation.",
                                                {},
                                                &succeed,
                                                /*replyNamesReservation=*/true};
const PayFrame::Operation payOperation{"payForReservation", PayFrame::Method::POST,
                                       "Successfully pay for reservation.",
                                       "Failed to pay for reservation.",
                                       {"reservation", "transaction"},
                                       &paymentFromReply,
                                       /*replyNamesReservation=*/true};
const FolioFrame::Operation fetchMasterBillOperation{"fetchMasterBill", FolioFrame::Method::GET,
                                                     "Successfully fetch reservation's master bill.",
                                                     "Failed to fetch reservation's master bill.",
                                                     {},
                                                     &folioFromReply};
const FolioFrame::Operation updateMasterBillOperation{"chargeMasterBill", FolioFrame::Method::POST,
                                                      "Successfully updated reservation's master bill.",
                                                      "Failed to update reservation's master bill.",
                                                      {},
                                                      &folioFromReply};

}  // namespace

void createReservationWithRequest(const VLMSDKAPIManager& manager,
                                  std::shared_ptr<const VLMSDKCreateReservationRequestInfo> requestInfo,
                                  VLMSDKReservationCompletion completion) {
    if (!requestInfo) return ReservationFrame::failAbsentArgument(manager, "requestInfo", completion);
    if (!ReservationFrame::validateLogging(manager, *requestInfo, "Can't create reservation. %s", completion)) return;
    ReservationFrame::send(manager, createOperation, "guest/reservations", requestInfo->JSONRepresentation(),
                           std::move(completion));
}

void fetchReservationWithID(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                            VLMSDKReservationCompletion completion) {
    if (!reservationID) return ReservationFrame::failAbsentArgument(manager, "reservationID", completion);
    ReservationFrame::sendForIdentifier(manager, fetchOperation, "guest/reservations/%@", *reservationID,
                                        "reservationID", std::nullopt, std::move(completion));
}

void confirmReservationWithID(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                              bool notifyAboutMobileCheckinOpen, VLMSDKReservationCompletion completion) {
    if (!reservationID) return ReservationFrame::failAbsentArgument(manager, "reservationVelmoraID", completion);
    ReservationFrame::sendForIdentifier(manager, confirmOperation, "guest/reservations/%@", *reservationID,
                                        "reservationVelmoraID", VLMSDKJSON{{"notify_me", notifyAboutMobileCheckinOpen}},
                                        std::move(completion));
}

void performMobileCheckinForReservationWithID(const VLMSDKAPIManager& manager,
                                              const std::optional<std::string>& reservationID,
                                              VLMSDKReservationCompletion completion) {
    if (!reservationID) return ReservationFrame::failAbsentArgument(manager, "reservationVelmoraID", completion);
    ReservationFrame::sendForIdentifier(manager, checkinOperation, "guest/reservations/%@/mobile_checkin",
                                        *reservationID, "reservationVelmoraID", std::nullopt, std::move(completion));
}

void performMobileCheckoutForReservationWithID(const VLMSDKAPIManager& manager,
                                               const std::optional<std::string>& reservationID,
                                               VLMSDKSuccessCompletion completion) {
    if (!reservationID) return SuccessFrame::failAbsentArgument(manager, "reservationVelmoraID", completion);
    SuccessFrame::sendForIdentifier(manager, checkoutOperation, "guest/reservations/%@/mobile_checkout", *reservationID,
                                    "reservationVelmoraID", std::nullopt, std::move(completion));
}

void payForReservationWithRequest(const VLMSDKAPIManager& manager,
                                  std::shared_ptr<const VLMSDKPayForReservationRequestInfo> requestInfo,
                                  VLMSDKPayForReservationCompletion completion) {
    if (!requestInfo) return PayFrame::failAbsentArgument(manager, "requestInfo", completion);
    if (!PayFrame::validateLogging(manager, *requestInfo, "Can't pay for reservation. %s", completion)) return;
    PayFrame::sendForIdentifier(manager, payOperation, "guest/reservations/%@/transactions",
                                *requestInfo->reservationID(), "reservationID", requestInfo->JSONRepresentation(),
                                std::move(completion));
}

void fetchReservationMasterBill(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                                VLMSDKFolioCompletion completion) {
    if (!reservationID) return FolioFrame::failAbsentArgument(manager, "reservationID", completion);
    FolioFrame::sendForIdentifier(manager, fetchMasterBillOperation, "guest/reservations/%@/folio", *reservationID,
                                  "reservationID", std::nullopt, std::move(completion));
}

void updateReservationMasterBillWithRequest(
    const VLMSDKAPIManager& manager, std::shared_ptr<const VLMSDKUpdateReservationMasterBillRequestInfo> requestInfo,
    VLMSDKFolioCompletion completion) {
    if (!FolioFrame::validateAsserting(manager, requestInfo.get(), "[requestInfo isValid:&validationError]", completion)) return;
    FolioFrame::sendForIdentifier(manager, updateMasterBillOperation, "guest/reservations/%@/charge",
                                  *requestInfo->reservationID(), "reservationID", requestInfo->JSONRepresentation(),
                                  std::move(completion));
}
