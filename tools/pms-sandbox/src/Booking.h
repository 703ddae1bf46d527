#pragma once

#include "Guest.h"
#include "Posting.h"
#include "StayStatus.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace pmssandbox {

/// A hotel booking together with its platform reservation and folio.
struct Booking {
    std::string id;  // the platform reservation identifier
    std::string checkinId;
    std::string userId;
    std::string venueId;
    std::string confirmationId;
    std::string reservationNumber;
    std::string clientNumber;
    std::string bookerFirstName;
    std::string bookerLastName;
    std::string currency;
    std::string checkinDate;
    std::string checkoutDate;
    std::int64_t totalStayCents = 0;
    std::string roomNumber;
    std::vector<Guest> guests;
    std::int64_t notSyncedCents = 0;
    bool checkinAvailable = false;
    std::string info;
    StayStatus status = StayStatus::Reserved;
    /// Reachable by id; otherwise it first has to be created through the API.
    bool onPlatform = false;
    std::optional<bool> notifyMe;
    std::string folioId;
    std::vector<Posting> postings;
    /// Always the sum of `postings`.
    std::int64_t outstandingCents = 0;
};

}  // namespace pmssandbox
