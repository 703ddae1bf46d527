#pragma once

#include <nlohmann/json.hpp>

namespace pmssandbox {

struct Booking;
struct Payment;

/// The wire shapes of reservations, folios and payments.
class JsonView {
public:
    static nlohmann::json reservation(const Booking& booking);
    static nlohmann::json folio(const Booking& booking);
    static nlohmann::json transaction(const Payment& payment);
};

}  // namespace pmssandbox
