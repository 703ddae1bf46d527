#pragma once

#include <cstdint>
#include <string>

namespace pmssandbox {

/// One line of a folio: a charge (positive) or a payment (negative).
struct Posting {
    std::string name;
    std::string code;
    std::int64_t cents = 0;
    /// Some hotel systems send amounts as text; such seeded lines are served the same way.
    bool amountAsText = false;
    std::string currency;
};

}  // namespace pmssandbox
