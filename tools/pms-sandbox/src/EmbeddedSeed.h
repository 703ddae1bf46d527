#pragma once

#include <string>

namespace pmssandbox {

/// data/bookings.json as it was when the library was built.
class EmbeddedSeed {
public:
    static const std::string& text();
};

}  // namespace pmssandbox
