#pragma once

#include <optional>
#include <string_view>

namespace pmssandbox {

/// Where a booking stands in the stay: before arrival, during, after departure.
enum class StayStatus { Reserved, InHouse, CheckedOut };

/// The wire names: "reserved", "in_house", "checked_out".
std::string_view toString(StayStatus status);
std::optional<StayStatus> stayStatusFromString(std::string_view text);

}  // namespace pmssandbox
