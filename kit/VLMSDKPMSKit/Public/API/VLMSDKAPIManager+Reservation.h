#pragma once

#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKAPIManager.h>

#include <functional>
#include <optional>
#include <string>

/// The reservation operations the kit adds to the core kit's API manager.
///
/// Every operation may be called from any thread and returns at once; its outcome comes through the
/// completion, which may be empty. A present completion is called exactly once, always on the main
/// thread (see VLMSDKMainQueue), with either a result or an error, never both:
/// - an absent argument: the assertion handler is told first, then the error is a required-argument
///   error (VLMErrorCode::RequiredArgument) naming the argument; nothing is sent;
/// - an invalid request description: the description's own required-argument error; nothing is sent;
/// - a transport failure: the request manager's error (VLMErrorCode::Transport, Timeout, Cancelled, ...);
/// - an HTTP status outside 2xx: VLMErrorCode::HTTPStatus, with the status and the server's message;
/// - a reply that is not the expected JSON: VLMErrorCode::InvalidResponse or MissingRequiredKey;
/// - a reply that cannot be turned into records: VLMErrorCode::Mapping, naming the key at fault.

/// Completion of mobile check-out: true and no error on success, false and the error otherwise.
using VLMSDKSuccessCompletion = std::function<void(bool success, VLMErrorPtr error)>;

/// Mobile check-out of the reservation `reservationID`: PATCH guest/reservations/<id>/mobile_checkout.
/// The reply body is not read. An absent identifier is reported as "reservationVelmoraID".
void performMobileCheckoutForReservationWithID(const VLMSDKAPIManager& manager,
                                               const std::optional<std::string>& reservationID,
                                               VLMSDKSuccessCompletion completion);
