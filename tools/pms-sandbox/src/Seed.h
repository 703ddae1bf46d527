#pragma once

#include "Booking.h"
#include "StoredCard.h"
#include "Venue.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

/// The checked starting data of a sandbox: venues, users' cards and bookings.
struct Seed {
    std::vector<Venue> venues;
    std::vector<StoredCard> cards;
    std::vector<Booking> bookings;

    /// Parses and cross-checks seed JSON; on failure returns nullopt and says where in `error`.
    static std::optional<Seed> parse(std::string_view json, std::string& error);
};

}  // namespace pmssandbox
