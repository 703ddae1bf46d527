#pragma once

#include <string>

namespace pmssandbox {

/// A credit card a guest user keeps on file.
struct StoredCard {
    std::string id;
    std::string userId;
    std::string brand;
    std::string last4;
    /// The issuer refuses every payment on this card.
    bool declines = false;
};

}  // namespace pmssandbox
