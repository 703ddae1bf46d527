#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

/// Amounts are kept in integer cents so that repeated postings add up exactly.
class Money {
public:
    /// A JSON number, or text such as "12.50" / "-3"; nullopt when not an amount in whole cents.
    static std::optional<std::int64_t> centsFromJson(const nlohmann::json& value);
    static std::optional<std::int64_t> centsFromNumber(double value);
    static std::optional<std::int64_t> centsFromText(std::string_view text);

    static double toNumber(std::int64_t cents);
    /// Two decimals, e.g. "12.50", "-0.05".
    static std::string toText(std::int64_t cents);
};

}  // namespace pmssandbox
