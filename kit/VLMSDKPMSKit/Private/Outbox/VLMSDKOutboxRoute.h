#pragma once

#include <VLMSDKPMSKit/Public/Outbox/VLMSDKOutboxOptions.h>

#include <string>
#include <vector>

namespace vlmsdk::detail {

/// Where an outbox item goes and what its reply must hold: the same route, method and checks as the direct
/// operation of that kind (VLMSDKAPIManager+Reservation).
struct VLMSDKOutboxRoute {
    const char* operation;      ///< telemetry's name, e.g. "outbox.mobileCheckout"
    const char* method;         ///< "PATCH" or "POST"
    const char* pathFormat;     ///< "%@" stands for the reservation's identifier
    std::vector<std::string> requiredKeys;
    bool replyNamesReservation;  ///< whether `reservation.id` of the reply must be the item's reservation

    /// The route of `operation`.
    static const VLMSDKOutboxRoute& of(VLMSDKOutboxOperation operation);
    /// `pathFormat` with `identifier` in place of "%@".
    std::string path(const std::string& identifier) const;
};

}  // namespace vlmsdk::detail
