#include <VLMSDKCoreKit/VLMSDKDescription.h>

#include <charconv>
#include <cmath>
#include <cstdio>

namespace {

constexpr const char* kNull = "(null)";

// The calendar's years run from -32767 to 32767; times beyond them have no date to print.
constexpr VLMSDKDate kFirstDay = std::chrono::sys_days(std::chrono::year::min() / 1 / 1);
constexpr VLMSDKDate kEndDay = std::chrono::sys_days(std::chrono::year::max() / 12 / 31) + std::chrono::days(1);
constexpr VLMSDKTime kFirstTime = kFirstDay;
constexpr VLMSDKTime kEndTime = kEndDay;

std::string formatTime(VLMSDKTime time) {
    if (time < kFirstTime || time >= kEndTime) {
        return std::to_string(time.time_since_epoch().count()) + " s from 1970-01-01 00:00:00 +0000";
    }
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d +0000", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text;
}

}  // namespace

std::string VLMSDKDescription::string(const std::optional<std::string>& value) { return value ? *value : kNull; }

std::string VLMSDKDescription::number(const std::optional<double>& value) {
    if (!value) return kNull;
    const double number = *value;
    if (std::isnan(number)) return "nan";
    if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
    char text[64];
    const auto [end, error] = std::to_chars(text, text + sizeof text, number);
    if (error != std::errc()) return "nan";  // cannot happen: 64 bytes hold any double
    return std::string(text, end);
}

std::string VLMSDKDescription::date(const std::optional<VLMSDKDate>& value) {
    if (!value) return kNull;
    if (*value < kFirstDay || *value >= kEndDay) {
        return std::to_string(value->time_since_epoch().count()) + " days from 1970-01-01";
    }
    return formatTime(VLMSDKTime(*value));
}

std::string VLMSDKDescription::time(const std::optional<VLMSDKTime>& value) {
    if (!value) return kNull;
    return formatTime(*value);
}

std::string VLMSDKDescription::pointer(const void* value) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", value);
    return text;
}
