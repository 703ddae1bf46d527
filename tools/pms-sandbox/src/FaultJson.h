#pragma once

#include <pmssandbox/Fault.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace pmssandbox {

/// A fault as the admin API shows and takes it:
///     {"action": "status", "status": 503, "retry_after": 1, "method": "POST", "path": "guest/reservations",
///      "times": 2, "delay_ms": 0}
/// with action one of delay, drop_connection, drop_reply, status, not_json (then "body"). Only "action"
/// is required; "times" left out or null means until cleared.
class FaultJson {
public:
    /// `remaining`: hits left, -1 for until cleared.
    static nlohmann::json toJson(const Fault& fault, int remaining);
    /// nullopt, with the reason in `error`, when `value` is no fault.
    static std::optional<Fault> fromJson(const nlohmann::json& value, std::string& error);
};

}  // namespace pmssandbox
