#pragma once

#include "ApiReply.h"
#include "Booking.h"
#include "Seed.h"
#include "StoredCard.h"
#include "Venue.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

/// The service's state and rules. Every operation takes the lock, so the HTTP threads may call freely.
/// Requests arrive here already validated for shape; the store checks them against the data.
class ReservationStore {
public:
    struct ChargeLine {
        std::string itemId;
        std::int64_t quantity = 1;
    };

    explicit ReservationStore(const Seed& seed);
    /// Forgets every change since the seed.
    void reset(const Seed& seed);

    /// Finds a booking by reference, venue and last name and puts it on the platform.
    ApiReply create(const std::string& confirmationId, const std::string& venueId, const std::string& lastName);
    ApiReply reservation(const std::string& id) const;
    ApiReply setNotifyMe(const std::string& id, bool notifyMe);
    ApiReply mobileCheckin(const std::string& id);
    ApiReply mobileCheckout(const std::string& id);
    ApiReply pay(const std::string& id, const std::string& cardId, std::int64_t cents, const std::string& currency);
    ApiReply folio(const std::string& id) const;
    ApiReply charge(const std::string& id, const std::vector<ChargeLine>& lines);

    std::optional<bool> notifyMe(std::string_view id) const;

private:
    Booking* findOnPlatform(std::string_view id);
    const Booking* findOnPlatform(std::string_view id) const;
    const Venue* findVenue(std::string_view id) const;
    std::optional<std::string> freeRoom(const Booking& booking) const;

    mutable std::mutex mutex_;
    std::vector<Venue> venues_;
    std::vector<StoredCard> cards_;
    std::vector<Booking> bookings_;
    std::uint64_t paymentsTaken_ = 0;
};

}  // namespace pmssandbox
