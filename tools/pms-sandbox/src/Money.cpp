#include "Money.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace pmssandbox {

namespace {

// Keeps cents well inside int64 and doubles exact to the cent.
constexpr double kLargestAmount = 1e12;

}  // namespace

std::optional<std::int64_t> Money::centsFromJson(const nlohmann::json& value) {
    if (value.is_number()) return centsFromNumber(value.get<double>());
    if (value.is_string()) return centsFromText(value.get_ref<const std::string&>());
    return std::nullopt;
}

std::optional<std::int64_t> Money::centsFromNumber(double value) {
    if (!std::isfinite(value) || std::fabs(value) >= kLargestAmount) return std::nullopt;
    const double scaled = value * 100.0;
    const double rounded = std::round(scaled);
    // Binary floating point cannot hold 0.1 exactly; anything further off has sub-cent digits.
    if (std::fabs(scaled - rounded) > 1e-6) return std::nullopt;
    return static_cast<std::int64_t>(rounded);
}

std::optional<std::int64_t> Money::centsFromText(std::string_view text) {
    bool negative = false;
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    std::int64_t units = 0;
    std::size_t digits = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        if (++digits > 12) return std::nullopt;
        units = units * 10 + (text.front() - '0');
        text.remove_prefix(1);
    }
    if (digits == 0) return std::nullopt;
    std::int64_t fraction = 0;
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        if (text.empty() || text.size() > 2) return std::nullopt;
        for (char c : text) {
            if (c < '0' || c > '9') return std::nullopt;
        }
        fraction = (text[0] - '0') * 10 + (text.size() == 2 ? text[1] - '0' : 0);
        text = {};
    }
    if (!text.empty()) return std::nullopt;
    const std::int64_t cents = units * 100 + fraction;
    return negative ? -cents : cents;
}

double Money::toNumber(std::int64_t cents) { return static_cast<double>(cents) / 100.0; }

std::string Money::toText(std::int64_t cents) {
    const std::int64_t magnitude = std::llabs(cents);
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%s%lld.%02lld", cents < 0 ? "-" : "", static_cast<long long>(magnitude / 100),
                  static_cast<long long>(magnitude % 100));
    return buffer;
}

}  // namespace pmssandbox
