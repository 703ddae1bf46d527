#pragma once

#include <cstdint>
#include <string>

namespace pmssandbox {

/// A card payment taken against a reservation.
struct Payment {
    std::string id;
    std::string cardId;
    std::int64_t cents = 0;
    std::string currency;
    std::string createdAt;  // "YYYY-MM-DDTHH:MM:SSZ"
};

}  // namespace pmssandbox
