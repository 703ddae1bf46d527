#pragma once

#include "ApiReply.h"
#include "Booking.h"
#include "BookingTable.h"
#include "Seed.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

/// The service's rules, over the seed's fixed data and the state kept in the booking table. Every
/// operation runs inside the caller's transaction (StateDatabase::read or write), which also serialises
/// them. Requests arrive here already validated for shape; the store checks them against the data.
class ReservationStore {
public:
    struct ChargeLine {
        std::string itemId;
        std::int64_t quantity = 1;
    };

    ReservationStore(BookingTable& table, const Seed& seed);
    /// Forgets every change since the seed.
    void reset();

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

    /// Every booking, on the platform or not, with its state and folio sums.
    ApiReply overview() const;
    /// The cards users keep on file.
    ApiReply cards() const;

private:
    std::optional<Booking> findOnPlatform(std::string_view id, bool withPostings = false) const;
    const Venue* findVenue(std::string_view id) const;
    std::optional<std::string> freeRoom(const Booking& booking) const;

    BookingTable& table_;
    const Seed& seed_;
};

}  // namespace pmssandbox
