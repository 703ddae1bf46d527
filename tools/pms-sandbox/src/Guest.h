#pragma once

#include <string>

namespace pmssandbox {

/// A person staying on a booking.
struct Guest {
    std::string firstName;
    std::string lastName;
    std::string profileCode;
};

}  // namespace pmssandbox
