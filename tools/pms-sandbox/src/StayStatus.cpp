#include "StayStatus.h"

namespace pmssandbox {

std::string_view toString(StayStatus status) {
    switch (status) {
    case StayStatus::Reserved: return "reserved";
    case StayStatus::InHouse: return "in_house";
    case StayStatus::CheckedOut: return "checked_out";
    }
    return "reserved";
}

std::optional<StayStatus> stayStatusFromString(std::string_view text) {
    for (StayStatus status : {StayStatus::Reserved, StayStatus::InHouse, StayStatus::CheckedOut}) {
        if (toString(status) == text) return status;
    }
    return std::nullopt;
}

}  // namespace pmssandbox
