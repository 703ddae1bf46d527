#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>

namespace pmssandbox {

struct Booking;
struct Payment;
struct StoredCard;

/// The wire shapes of reservations, folios and payments.
class JsonView {
public:
    static nlohmann::json reservation(const Booking& booking);
    static nlohmann::json folio(const Booking& booking);
    static nlohmann::json transaction(const Payment& payment);
    /// A booking as the admin API lists it: where it stands and what its folio adds up to.
    static nlohmann::json overview(const Booking& booking, std::int64_t chargedCents, std::int64_t paidCents,
                                   std::int64_t lines);
    static nlohmann::json card(const StoredCard& card);
};

}  // namespace pmssandbox
