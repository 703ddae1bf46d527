#include <VLMSDKCoreKit/Mapping/VLMSDKSerializer.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <optional>

namespace {

// Records that (directly or not) hold themselves are cut off here instead of recursing for ever.
constexpr int kMaxSerializedDepth = 100;

std::optional<VLMSDKJSON> jsonRecord(const VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, int depth);

std::optional<VLMSDKJSON> jsonNumber(double number) {
    // NaN and infinity stay what they are; the request builder refuses to send them.
    if (!std::isfinite(number)) return VLMSDKJSON(number);
    // Integral values are written as integers (12, not 12.0), as long as an int64 holds them exactly.
    if (number == std::trunc(number) && number >= -9223372036854775808.0 && number < 9223372036854775808.0) {
        return VLMSDKJSON(static_cast<std::int64_t>(number));
    }
    return VLMSDKJSON(number);
}

// Times beyond the calendar's years (-32767 to 32767) have no text form; they are left out.
constexpr VLMSDKDate kFirstDay = std::chrono::sys_days(std::chrono::year::min() / 1 / 1);
constexpr VLMSDKDate kEndDay = std::chrono::sys_days(std::chrono::year::max() / 12 / 31) + std::chrono::days(1);
constexpr VLMSDKTime kFirstTime = kFirstDay;
constexpr VLMSDKTime kEndTime = kEndDay;

std::optional<VLMSDKJSON> dateText(VLMSDKTime time, bool withClock) {
    if (time < kFirstTime || time >= kEndTime) return std::nullopt;
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(time - day);
    char text[48];
    if (withClock) {
        std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                      static_cast<int>(clock.seconds().count()));
    } else {
        std::snprintf(text, sizeof text, "%04d-%02u-%02u", static_cast<int>(date.year()),
                      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    }
    return VLMSDKJSON(text);
}

// The serialization mapping of a nested record's class, if it has one.
std::shared_ptr<const VLMSDKObjectMapping> serializationMappingOf(const VLMSDKClass* objectClass) {
    if (!objectClass || !objectClass->operations().serializationMapping) return nullptr;
    return objectClass->operations().serializationMapping();
}

VLMSDKJSON jsonRecords(const VLMSDKObjectArray& records, const VLMSDKObjectMapping& mapping, int depth) {
    VLMSDKJSON array = VLMSDKJSON::array();
    for (const auto& record : records) {
        if (!record) continue;
        if (auto json = jsonRecord(*record, mapping, depth)) array.push_back(std::move(*json));
    }
    return array;
}

std::optional<VLMSDKJSON> jsonValue(VLMSDKPropertyValue&& value, const VLMSDKClass* elementClass, int depth) {
    if (auto* text = std::get_if<std::string>(&value)) return VLMSDKJSON(std::move(*text));
    if (const auto* number = std::get_if<double>(&value)) return jsonNumber(*number);
    if (const auto* flag = std::get_if<bool>(&value)) return VLMSDKJSON(*flag);
    if (const auto* date = std::get_if<VLMSDKDate>(&value)) {
        if (*date < kFirstDay || *date >= kEndDay) return std::nullopt;
        return dateText(VLMSDKTime(*date), false);
    }
    if (const auto* time = std::get_if<VLMSDKTime>(&value)) return dateText(*time, true);
    if (const auto* record = std::get_if<std::shared_ptr<VLMSDKRootObject>>(&value)) {
        const auto mapping = serializationMappingOf(elementClass);
        if (!*record || !mapping) return std::nullopt;
        return jsonRecord(**record, *mapping, depth + 1);
    }
    if (const auto* records = std::get_if<VLMSDKObjectArray>(&value)) {
        const auto mapping = serializationMappingOf(elementClass);
        if (records->empty() || !mapping) return std::nullopt;  // an empty array is an absent one
        return jsonRecords(*records, *mapping, depth + 1);
    }
    return std::nullopt;
}

std::optional<VLMSDKJSON> jsonRecord(const VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, int depth) {
    if (depth > kMaxSerializedDepth || !record.objectClass().isSubclassOfClass(mapping.objectClass())) {
        return std::nullopt;
    }
    VLMSDKJSON json = VLMSDKJSON::object();
    for (const auto& entry : mapping.entries()) {
        // A transform has no inverse, so only plain and has-many entries are written.
        if (entry.kind == VLMSDKObjectMapping::EntryKind::Transformed) continue;
        const VLMSDKClass* elementClass =
            entry.kind == VLMSDKObjectMapping::EntryKind::HasMany ? entry.elementClass : entry.property->elementClass();
        if (auto value = jsonValue(entry.property->get(record), elementClass, depth)) {
            json[entry.jsonKey] = std::move(*value);
        }
    }
    return json;
}

}  // namespace

VLMSDKJSON VLMSDKSerializer::serializeCollection(const std::vector<std::shared_ptr<VLMSDKRootObject>>& collection,
                                                 const std::shared_ptr<const VLMSDKObjectMapping>& withMapping) {
    if (!withMapping) return VLMSDKJSON::array();
    try {
        return jsonRecords(collection, *withMapping, 0);
    } catch (const std::exception&) {
        // Only allocation can fail here; an empty array is the one answer left without an error channel.
        return VLMSDKJSON::array();
    }
}
