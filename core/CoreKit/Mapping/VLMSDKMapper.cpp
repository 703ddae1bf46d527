#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>

#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include "VLMSDKTextTransforms.h"

#include <charconv>
#include <exception>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

using Entry = VLMSDKObjectMapping::Entry;

// Deeper JSON than this is refused rather than risk the stack on a self-nesting class.
constexpr int kMaxDepth = 100;

bool isASCIISpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; }

// The number that the whole of `text` spells (white space around it allowed), in decimal or exponent form.
bool numberFromText(std::string_view text, double& number) {
    while (!text.empty() && isASCIISpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && isASCIISpace(text.back())) text.remove_suffix(1);
    const bool negative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
    // Only digits or a point may follow the sign: "inf", "nan" and a second sign are no amounts.
    if (text.empty() || !((text.front() >= '0' && text.front() <= '9') || text.front() == '.')) return false;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return false;
    if (negative) number = -number;
    return true;
}

const char* kindName(VLMSDKPropertyKind kind) {
    switch (kind) {
    case VLMSDKPropertyKind::String: return "text";
    case VLMSDKPropertyKind::Number: return "number";
    case VLMSDKPropertyKind::Boolean: return "boolean";
    case VLMSDKPropertyKind::Date: return "date";
    case VLMSDKPropertyKind::Time: return "time";
    case VLMSDKPropertyKind::Object: return "record";
    case VLMSDKPropertyKind::ObjectArray: return "array of records";
    }
    return "value";
}

VLMErrorPtr makeError(std::string message, VLMErrorPtr underlying,
                      VLMSDKSourceLocation location = VLMSDKSourceLocation::current()) {
    VLMError::Details details;
    details.domain = kVLMSDKMappingErrorDomain;
    details.code = VLMErrorCode::Mapping;
    details.developerMessage = std::move(message);
    details.functionName = location.function;
    details.fileName = location.file;
    details.underlyingError = std::move(underlying);
    return std::make_shared<const VLMError>(std::move(details));
}

// One mapping call. Failures stop the walk at once and leave their error here; nothing on the success
// path builds text.
class MappingRun {
public:
    VLMErrorPtr error;

    std::shared_ptr<VLMSDKRootObject> map(const VLMSDKJSON& json, const VLMSDKObjectMapping& mapping, int depth) {
        const auto* object = json.get_ptr<const VLMSDKJSON::object_t*>();
        if (!object) {
            error =
                makeError(mapping.objectClass().name() + ": expected a JSON object, got " + json.type_name(), nullptr);
            return nullptr;
        }
        if (depth > kMaxDepth) {
            error = makeError(mapping.objectClass().name() + ": JSON nested more than " + std::to_string(kMaxDepth) +
                                  " records deep",
                              nullptr);
            return nullptr;
        }
        std::shared_ptr<VLMSDKRootObject> record = mapping.objectClass().makeInstance();
        if (!record) {
            error = makeError(mapping.objectClass().name() + ": the class makes no instances", nullptr);
            return nullptr;
        }
        for (const Entry& entry : mapping.entries()) {
            const auto found = object->find(entry.jsonKey);
            if (found == object->end() || found->second.is_null()) continue;
            if (!storeEntry(*record, mapping, entry, found->second, depth)) return nullptr;
        }
        return record;
    }

private:
    bool fail(const VLMSDKObjectMapping& mapping, const Entry& entry, const std::string& why,
              VLMErrorPtr underlying = nullptr) {
        error = makeError(mapping.objectClass().name() + ": key \"" + entry.jsonKey + "\" (property " +
                              entry.property->name() + "): " + why,
                          std::move(underlying));
        return false;
    }

    bool wrongKind(const VLMSDKObjectMapping& mapping, const Entry& entry, const VLMSDKJSON& value) {
        return fail(mapping, entry,
                    std::string("expected ") + kindName(entry.property->kind()) + ", got " + value.type_name());
    }

    bool put(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
             VLMSDKPropertyValue&& value) {
        if (entry.property->set(record, std::move(value))) return true;
        return fail(mapping, entry, std::string("the value does not fit the ") + kindName(entry.property->kind()) +
                                        " property");
    }

    bool storeEntry(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
                    const VLMSDKJSON& value, int depth) {
        switch (entry.kind) {
        case VLMSDKObjectMapping::EntryKind::Plain: return storeJSON(record, mapping, entry, value, depth);
        case VLMSDKObjectMapping::EntryKind::Transformed: return storeTransformed(record, mapping, entry, value, depth);
        case VLMSDKObjectMapping::EntryKind::HasMany:
            return storeRecords(record, mapping, entry, *entry.elementClass, value, depth);
        }
        return true;
    }

    bool storeJSON(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
                   const VLMSDKJSON& value, int depth) {
        switch (entry.property->kind()) {
        case VLMSDKPropertyKind::String:
            if (const auto* text = value.get_ptr<const VLMSDKJSON::string_t*>()) {
                return put(record, mapping, entry, VLMSDKPropertyValue(std::in_place_type<std::string>, *text));
            }
            return wrongKind(mapping, entry, value);
        case VLMSDKPropertyKind::Number:
            if (value.is_number()) return put(record, mapping, entry, value.get<double>());
            if (const auto* text = value.get_ptr<const VLMSDKJSON::string_t*>()) {
                double number = 0;
                if (numberFromText(*text, number)) return put(record, mapping, entry, number);
                return fail(mapping, entry, "expected a number, got text that is no number");
            }
            return wrongKind(mapping, entry, value);
        case VLMSDKPropertyKind::Boolean:
            if (value.is_boolean()) return put(record, mapping, entry, value.get<bool>());
            if (value.is_number()) return put(record, mapping, entry, value.get<double>() != 0);
            return wrongKind(mapping, entry, value);
        case VLMSDKPropertyKind::Date:
        case VLMSDKPropertyKind::Time:
            return fail(mapping, entry, std::string("a ") + kindName(entry.property->kind()) +
                                            " comes only from a date transform, got " + value.type_name());
        case VLMSDKPropertyKind::Object: return storeRecord(record, mapping, entry, value, depth);
        case VLMSDKPropertyKind::ObjectArray:
            if (!entry.property->elementClass()) return wrongKind(mapping, entry, value);
            return storeRecords(record, mapping, entry, *entry.property->elementClass(), value, depth);
        }
        return true;
    }

    bool storeTransformed(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
                          const VLMSDKJSON& value, int depth) {
        if (value.is_string() && entry.property->kind() == VLMSDKPropertyKind::String &&
            vlmsdk::detail::keepsTextAsItIs(entry.mappingBlock)) {
            return storeJSON(record, mapping, entry, value, depth);
        }
        VLMSDKMappedValue mapped = entry.mappingBlock(value);
        if (auto* json = std::get_if<VLMSDKJSON>(&mapped)) {
            if (json->is_null()) return true;
            if (entry.property->kind() == VLMSDKPropertyKind::String && json->is_string()) {
                return put(record, mapping, entry, std::move(json->get_ref<VLMSDKJSON::string_t&>()));
            }
            return storeJSON(record, mapping, entry, *json, depth);
        }
        if (const auto* date = std::get_if<VLMSDKDate>(&mapped)) {
            if (entry.property->kind() == VLMSDKPropertyKind::Date) return put(record, mapping, entry, *date);
            if (entry.property->kind() == VLMSDKPropertyKind::Time)
                return put(record, mapping, entry, VLMSDKTime(*date));
            return fail(mapping, entry, std::string("the transform gave a date for a ") +
                                            kindName(entry.property->kind()) + " property");
        }
        if (const auto* time = std::get_if<VLMSDKTime>(&mapped)) {
            if (entry.property->kind() == VLMSDKPropertyKind::Time) return put(record, mapping, entry, *time);
            return fail(mapping, entry, std::string("the transform gave a time for a ") +
                                            kindName(entry.property->kind()) + " property");
        }
        VLMErrorPtr& failure = std::get<VLMErrorPtr>(mapped);
        const std::string reason = failure ? failure->developerMessage() : std::string("no reason given");
        return fail(mapping, entry, "the transform failed: " + reason, std::move(failure));
    }

    // The element class's own object mapping, or a failure naming the class.
    std::shared_ptr<const VLMSDKObjectMapping> elementMapping(const VLMSDKObjectMapping& mapping, const Entry& entry,
                                                              const VLMSDKClass& elementClass) {
        std::shared_ptr<const VLMSDKObjectMapping> found;
        if (elementClass.operations().objectMapping) found = elementClass.operations().objectMapping();
        if (!found) fail(mapping, entry, elementClass.name() + " has no object mapping");
        return found;
    }

    bool storeRecord(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
                     const VLMSDKJSON& value, int depth) {
        if (!value.is_object() || !entry.property->elementClass()) return wrongKind(mapping, entry, value);
        const auto nested = elementMapping(mapping, entry, *entry.property->elementClass());
        if (!nested) return false;
        MappingRun inner;
        auto child = inner.map(value, *nested, depth + 1);
        if (!child) {
            const std::string reason = inner.error->developerMessage();
            return fail(mapping, entry, reason, std::move(inner.error));
        }
        return put(record, mapping, entry, std::move(child));
    }

    bool storeRecords(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const Entry& entry,
                      const VLMSDKClass& elementClass, const VLMSDKJSON& value, int depth) {
        const auto* array = value.get_ptr<const VLMSDKJSON::array_t*>();
        if (!array) return fail(mapping, entry, std::string("expected an array of objects, got ") + value.type_name());
        const auto nested = elementMapping(mapping, entry, elementClass);
        if (!nested) return false;
        VLMSDKObjectArray records;
        records.reserve(array->size());
        MappingRun inner;
        for (std::size_t index = 0; index < array->size(); ++index) {
            const VLMSDKJSON& element = (*array)[index];
            if (!element.is_object()) {
                return fail(mapping, entry, "element " + std::to_string(index) + " is not a JSON object but " +
                                                element.type_name());
            }
            auto child = inner.map(element, *nested, depth + 1);
            if (!child) {
                const std::string reason = inner.error->developerMessage();
                return fail(mapping, entry, "element " + std::to_string(index) + ": " + reason, std::move(inner.error));
            }
            records.push_back(std::move(child));
        }
        return put(record, mapping, entry, std::move(records));
    }
};

}  // namespace

std::shared_ptr<const VLMSDKMappingResult> VLMSDKMapper::objectFromJSON(
    const VLMSDKJSON& json, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping) {
    if (!withMapping) {
        return std::make_shared<const VLMSDKMappingResult>(nullptr, makeError("no mapping was given", nullptr));
    }
    try {
        MappingRun run;
        auto record = run.map(json, *withMapping, 0);
        VLMErrorPtr error = record ? nullptr : std::move(run.error);
        return std::make_shared<const VLMSDKMappingResult>(std::move(record), std::move(error));
    } catch (const std::exception& exception) {
        return std::make_shared<const VLMSDKMappingResult>(
            nullptr, makeError(withMapping->objectClass().name() + ": mapping stopped: " + exception.what(), nullptr));
    } catch (...) {
        return std::make_shared<const VLMSDKMappingResult>(
            nullptr,
            makeError(withMapping->objectClass().name() + ": mapping stopped by an unknown exception", nullptr));
    }
}
