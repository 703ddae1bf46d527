#include <VLMSDKCoreKit/Mapping/VLMSDKDateMapping.h>

#include "VLMSDKTextTransforms.h"

#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace std::chrono;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The value of `count` digits at `at`, or -1 when any of them is not a digit.
int digits(std::string_view text, std::size_t at, std::size_t count) {
    if (at + count > text.size()) return -1;
    int value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (!isDigit(text[i])) return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

// "YYYY-MM-DD" at the start of `text`, a real calendar date.
std::optional<sys_days> calendarDate(std::string_view text) {
    if (text.size() < 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
    const int y = digits(text, 0, 4);
    const int m = digits(text, 5, 2);
    const int d = digits(text, 8, 2);
    if (y < 0 || m < 0 || d < 0) return std::nullopt;
    const year_month_day date{year(y), month(static_cast<unsigned>(m)), day(static_cast<unsigned>(d))};
    if (!date.ok()) return std::nullopt;
    return sys_days(date);
}

// "YYYY-MM-DDTHH:MM:SS[.fraction](Z|+HH:MM|-HH:MM)"; the fraction is dropped, an offset is taken off.
std::optional<sys_seconds> isoTime(std::string_view text) {
    const auto date = calendarDate(text);
    if (!date || text.size() < 20 || text[10] != 'T' || text[13] != ':' || text[16] != ':') return std::nullopt;
    const int h = digits(text, 11, 2);
    const int m = digits(text, 14, 2);
    const int s = digits(text, 17, 2);
    if (h < 0 || h > 23 || m < 0 || m > 59 || s < 0 || s > 59) return std::nullopt;
    std::size_t at = 19;
    if (text[at] == '.') {
        const std::size_t first = ++at;
        while (at < text.size() && isDigit(text[at])) ++at;
        if (at == first) return std::nullopt;
    }
    sys_seconds time = *date + hours(h) + minutes(m) + seconds(s);
    const std::string_view zone = text.substr(at);
    if (zone == "Z") return time;
    if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || zone[3] != ':') return std::nullopt;
    const int offsetHours = digits(zone, 1, 2);
    const int offsetMinutes = digits(zone, 4, 2);
    if (offsetHours < 0 || offsetHours > 23 || offsetMinutes < 0 || offsetMinutes > 59) return std::nullopt;
    const seconds offset = hours(offsetHours) + minutes(offsetMinutes);
    return zone[0] == '+' ? time - offset : time + offset;
}

VLMErrorPtr failure(std::string message, const char* function) {
    return VLMError::errorWithCode(VLMErrorCode::Mapping, kVLMSDKMappingErrorDomain, std::move(message), function,
                                   __FILE__);
}

// The text forms name themselves as the JSON forms do: an error reads the same whichever form ran.
VLMSDKMappedValue yearMonthDayOfText(std::string_view text) {
    const auto date = calendarDate(text);
    if (!date || text.size() != 10) return failure("a date must be a real calendar date \"YYYY-MM-DD\"", "yearMonthDay");
    return *date;
}

VLMSDKMappedValue iso8601OfText(std::string_view text) {
    const auto time = isoTime(text);
    if (!time) return failure("a time must be ISO 8601 text \"YYYY-MM-DDTHH:MM:SSZ\"", "iso8601");
    return *time;
}

VLMSDKMappedValue yearMonthDay(const VLMSDKJSON& value) {
    const auto* text = value.get_ptr<const VLMSDKJSON::string_t*>();
    if (!text) return failure(std::string("a date must be text \"YYYY-MM-DD\", not ") + value.type_name(), __func__);
    return yearMonthDayOfText(*text);
}

VLMSDKMappedValue iso8601(const VLMSDKJSON& value) {
    const auto* text = value.get_ptr<const VLMSDKJSON::string_t*>();
    if (!text) return failure(std::string("a time must be ISO 8601 text, not ") + value.type_name(), __func__);
    return iso8601OfText(*text);
}

}  // namespace

namespace vlmsdk::detail {

VLMSDKTextTransform dateTextForm(const VLMSDKAttributeMappingBlock& block) {
    const auto* function = block.target<VLMSDKMappedValue (*)(const VLMSDKJSON&)>();
    if (!function) return nullptr;
    if (*function == &yearMonthDay) return &yearMonthDayOfText;
    if (*function == &iso8601) return &iso8601OfText;
    return nullptr;
}

}  // namespace vlmsdk::detail

VLMSDKAttributeMappingBlock VLMSDKDateMapping::vlmsdk_YYYYMMDDMappingBlock() { return &yearMonthDay; }

VLMSDKAttributeMappingBlock VLMSDKDateMapping::vlmsdk_ISO8601MappingBlock() { return &iso8601; }
