#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKCreateReservationRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKPayForReservationRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Requests/VLMSDKUpdateReservationMasterBillRequestInfo.h>
#include <VLMSDKPMSKit/Public/API/Responses/VLMSDKPayForReservationResult.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKFolio.h>
#include <VLMSDKPMSKit/Public/Models/VLMSDKReservation.h>

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// \file
/// The reservation operations the kit adds to the core kit's API manager.
///
/// Every operation may be called from any thread and returns at once; its outcome comes through the
/// completion, which may be empty. A present completion is called exactly once, always on the main
/// thread (see VLMSDKMainQueue), with a result or an error, never both (the one exception is noted at
/// update master bill):
/// - an absent argument: the assertion handler is told first, then the error is a required-argument
///   error (VLMErrorCode::RequiredArgument) whose argumentName() names the argument; nothing is sent;
/// - an invalid request description: the description's own required-argument error; nothing is sent;
/// - an identifier holding '/', or an empty one: a required-argument error naming the identifier's argument,
///   whose message says so; nothing is sent (a '/' would turn the request into another operation's, such as
///   check-in, and an empty identifier into one on the collection's route);
/// - a transport failure: the request manager's error (VLMErrorCode::Transport, Timeout, Cancelled,
///   InvalidRequest for an identifier the request builder refuses: "." or "..", or a control character);
/// - an HTTP status outside 2xx: VLMErrorCode::HTTPStatus, with httpStatusCode() and the server's message;
/// - a reply that is not the expected JSON: VLMErrorCode::InvalidResponse or MissingRequiredKey;
/// - a reply that cannot be turned into records: VLMErrorCode::Mapping, naming the JSON key at fault.
/// Identifiers are put into paths as they are and the request builder percent-encodes whatever a path
/// segment cannot hold ('?', '#', '%', spaces, non-ASCII...), so an identifier never leaves its segment.
/// The operations keep no state between calls.

/// Completion of create, fetch, confirm and mobile check-in: the reservation, or nullptr and the error.
using VLMSDKReservationCompletion = std::function<void(std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error)>;
/// Completion of mobile check-out: true and no error on success, false and the error otherwise.
using VLMSDKSuccessCompletion = std::function<void(bool success, VLMErrorPtr error)>;
/// Completion of the master-bill operations: the folio, or nullptr and the error (one exception: see
/// updateReservationMasterBillWithRequest).
using VLMSDKFolioCompletion = std::function<void(std::shared_ptr<VLMSDKFolio> folio, VLMErrorPtr error)>;
/// Completion of paying for a reservation: the result, or nullptr and the error.
using VLMSDKPayForReservationCompletion =
    std::function<void(std::shared_ptr<VLMSDKPayForReservationResult> result, VLMErrorPtr error)>;

/// Creates the reservation on the platform from the hotel's booking reference: POST guest/reservations.
/// An absent request is reported as "requestInfo"; an invalid one is also logged (level 1, remote then
/// console logger) as "Can't create reservation. <developer message>".
void createReservationWithRequest(const VLMSDKAPIManager& manager,
                                  std::shared_ptr<const VLMSDKCreateReservationRequestInfo> requestInfo,
                                  VLMSDKReservationCompletion completion);

/// Fetches a reservation: GET `guest/reservations/<id>`. An absent identifier is reported as "reservationID".
void fetchReservationWithID(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                            VLMSDKReservationCompletion completion);

/// Confirms a reservation, asking to be told when mobile check-in opens or not: PATCH
/// `guest/reservations/<id>` with {"notify_me": flag}. An absent identifier is reported as "reservationVelmoraID".
void confirmReservationWithID(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                              bool notifyAboutMobileCheckinOpen, VLMSDKReservationCompletion completion);

/// Mobile check-in: PATCH `guest/reservations/<id>/mobile_checkin`; the completion gets the reservation as
/// it stands after. An absent identifier is reported as "reservationVelmoraID".
void performMobileCheckinForReservationWithID(const VLMSDKAPIManager& manager,
                                              const std::optional<std::string>& reservationID,
                                              VLMSDKReservationCompletion completion);

/// Mobile check-out: PATCH `guest/reservations/<id>/mobile_checkout`. The reply body is not read.
/// An absent identifier is reported as "reservationVelmoraID".
void performMobileCheckoutForReservationWithID(const VLMSDKAPIManager& manager,
                                               const std::optional<std::string>& reservationID,
                                               VLMSDKSuccessCompletion completion);

/// Pays for a reservation with a stored card: POST `guest/reservations/<id>/transactions`. The result holds
/// the transaction and the reservation after payment; a part the reply did not carry in a usable form is
/// nullptr rather than an error. An absent request is reported as "requestInfo"; an invalid one is also
/// logged as "Can't pay for reservation. <developer message>".
void payForReservationWithRequest(const VLMSDKAPIManager& manager,
                                  std::shared_ptr<const VLMSDKPayForReservationRequestInfo> requestInfo,
                                  VLMSDKPayForReservationCompletion completion);

/// Fetches the reservation's master bill: GET `guest/reservations/<id>/folio`. An absent identifier is
/// reported as "reservationID".
void fetchReservationMasterBill(const VLMSDKAPIManager& manager, const std::optional<std::string>& reservationID,
                                VLMSDKFolioCompletion completion);

/// Charges items to the reservation's master bill: POST `guest/reservations/<id>/charge`; the completion
/// gets the updated folio. An invalid request is reported to the assertion handler as
/// "[requestInfo isValid:&validationError]" and fails with its error; an absent request does the same
/// but the completion then receives neither a folio nor an error.
void updateReservationMasterBillWithRequest(
    const VLMSDKAPIManager& manager, std::shared_ptr<const VLMSDKUpdateReservationMasterBillRequestInfo> requestInfo,
    VLMSDKFolioCompletion completion);

VLMSDK_API_END
