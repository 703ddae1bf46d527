#include <VLMSDKCoreKit/Mapping/VLMSDKMapper.h>

#include <VLMSDKCoreKit/VLMSDKSourceLocation.h>

#include "../JSON/VLMSDKParsedReply.h"
#include "VLMSDKTextTransforms.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace {

using MappingEntry = VLMSDKObjectMapping::Entry;

// Deeper JSON than this is refused rather than risk the stack on a self-nesting class.
constexpr int kMaxMappedDepth = 100;

// The number that the whole of `text` spells (white space around it allowed), in decimal or exponent form.
bool numberFromText(std::string_view text, double& number) {
    text = vlmsdk::detail::trimmedASCII(text);
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

// A node of the SDK's JSON value, as the mapping reads it.
class TreeNode {
public:
    explicit TreeNode(const VLMSDKJSON& value) : value_(&value) {}

    bool isNull() const { return value_->is_null(); }
    bool isObject() const { return value_->is_object(); }
    bool isNumber() const { return value_->is_number(); }
    bool isBoolean() const { return value_->is_boolean(); }
    bool isString() const { return value_->is_string(); }
    const char* typeName() const { return value_->type_name(); }
    bool text(std::string_view& text) const {
        const auto* string = value_->get_ptr<const VLMSDKJSON::string_t*>();
        if (string) text = *string;
        return string != nullptr;
    }
    double number() const { return value_->get<double>(); }
    bool boolean() const { return value_->get<bool>(); }
    /// The node as a JSON value, for a transform.
    const VLMSDKJSON& json(VLMSDKJSON&) const { return *value_; }

    /// Calls `visit(index, element)` for each element of an array, until it answers false; false when
    /// this is no array (nothing visited).
    template <class Visit>
    bool forEachElement(std::size_t& count, Visit&& visit) const {
        const auto* array = value_->get_ptr<const VLMSDKJSON::array_t*>();
        if (!array) return false;
        count = array->size();
        for (std::size_t index = 0; index < array->size(); ++index) {
            if (!visit(index, TreeNode((*array)[index]))) break;
        }
        return true;
    }

    /// Calls `visit(entry, value)` for each entry of `mapping` whose key this object holds with a value
    /// other than null, in the mapping's order, until it answers false. The node must be an object.
    template <class Visit>
    bool forEachEntry(const VLMSDKObjectMapping& mapping, Visit&& visit) const {
        const auto& object = value_->get_ref<const VLMSDKJSON::object_t&>();
        for (const MappingEntry& entry : mapping.entries()) {
            const auto found = object.find(entry.jsonKey);
            if (found == object.end() || found->second.is_null()) continue;
            if (!visit(entry, TreeNode(found->second))) return false;
        }
        return true;
    }

private:
    const VLMSDKJSON* value_;
};

// A node of a reply the transport parsed, read in place.
class ParsedNode {
public:
    using Element = simdjson::dom::element;
    using Type = simdjson::dom::element_type;

    explicit ParsedNode(Element value) : value_(value) {}

    bool isNull() const { return value_.type() == Type::NULL_VALUE; }
    bool isObject() const { return value_.type() == Type::OBJECT; }
    bool isNumber() const {
        const Type type = value_.type();
        return type == Type::INT64 || type == Type::UINT64 || type == Type::DOUBLE;
    }
    bool isBoolean() const { return value_.type() == Type::BOOL; }
    bool isString() const { return value_.type() == Type::STRING; }
    const char* typeName() const { return vlmsdk::detail::VLMSDKParsedReply::typeName(value_); }
    bool text(std::string_view& text) const { return value_.get_string().get(text) == simdjson::SUCCESS; }
    double number() const {
        switch (value_.type()) {
        case Type::INT64: return static_cast<double>(value_.get_int64().value_unsafe());
        case Type::UINT64: return static_cast<double>(value_.get_uint64().value_unsafe());
        default: return value_.get_double().value_unsafe();
        }
    }
    bool boolean() const { return value_.get_bool().value_unsafe(); }
    const VLMSDKJSON& json(VLMSDKJSON& built) const {
        built = vlmsdk::detail::VLMSDKParsedReply::valueOf(value_);
        return built;
    }

    template <class Visit>
    bool forEachElement(std::size_t& count, Visit&& visit) const {
        simdjson::dom::array array;
        if (value_.get_array().get(array) != simdjson::SUCCESS) return false;
        count = array.size();
        std::size_t index = 0;
        for (const Element element : array) {
            if (!visit(index++, ParsedNode(element))) break;
        }
        return true;
    }

    template <class Visit>
    bool forEachEntry(const VLMSDKObjectMapping& mapping, Visit&& visit) const {
        const auto& entries = mapping.entries();
        const auto& byKey = mapping.entriesByKey();
        // One pass over the members finds every entry's value (a repeated key keeps its last); the entries
        // are then taken in the mapping's order, as for the JSON value.
        using Slot = std::optional<Element>;  // empty until its key is met: nothing to construct up front
        constexpr std::size_t kInPlace = 32;
        Slot inPlace[kInPlace];
        std::vector<Slot> spilled;
        Slot* slots = inPlace;
        if (entries.size() > kInPlace) {
            spilled.resize(entries.size());
            slots = spilled.data();
        }
        const simdjson::dom::object object = value_.get_object().value_unsafe();
        for (const simdjson::dom::key_value_pair member : object) {
            auto at = std::lower_bound(byKey.begin(), byKey.end(), member.key, [&](std::size_t index, std::string_view key) {
                return vlmsdk::detail::shorterOrBefore(entries[index].jsonKey, key);
            });
            for (; at != byKey.end() && entries[*at].jsonKey == member.key; ++at) slots[*at] = member.value;
        }
        for (std::size_t index = 0; index < entries.size(); ++index) {
            const Slot& slot = slots[index];
            if (!slot || slot->type() == Type::NULL_VALUE) continue;
            if (!visit(entries[index], ParsedNode(*slot))) return false;
        }
        return true;
    }

private:
    Element value_;
};

// One mapping call over nodes of kind `Node`. Failures stop the walk at once and leave their error here;
// nothing on the success path builds text.
template <class Node>
class MappingRun {
public:
    VLMErrorPtr error;

    std::shared_ptr<VLMSDKRootObject> map(const Node& json, const VLMSDKObjectMapping& mapping, int depth) {
        if (!json.isObject()) {
            error = makeError(mapping.objectClass().name() + ": expected a JSON object, got " + json.typeName(),
                              nullptr);
            return nullptr;
        }
        if (depth > kMaxMappedDepth) {
            error = makeError(mapping.objectClass().name() + ": JSON nested more than " +
                                  std::to_string(kMaxMappedDepth) + " records deep",
                              nullptr);
            return nullptr;
        }
        std::shared_ptr<VLMSDKRootObject> record = mapping.objectClass().makeInstance();
        if (!record) {
            error = makeError(mapping.objectClass().name() + ": the class makes no instances", nullptr);
            return nullptr;
        }
        const bool stored = json.forEachEntry(mapping, [&](const MappingEntry& entry, const Node& value) {
            return storeEntry(*record, mapping, entry, value, depth);
        });
        return stored ? record : nullptr;
    }

private:
    bool fail(const VLMSDKObjectMapping& mapping, const MappingEntry& entry, const std::string& why,
              VLMErrorPtr underlying = nullptr) {
        error = makeError(mapping.objectClass().name() + ": key \"" + entry.jsonKey + "\" (property " +
                              entry.property->name() + "): " + why,
                          std::move(underlying));
        return false;
    }

    bool wrongKind(const VLMSDKObjectMapping& mapping, const MappingEntry& entry, const char* typeName) {
        return fail(mapping, entry, std::string("expected ") + kindName(entry.property->kind()) + ", got " + typeName);
    }

    bool put(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
             VLMSDKPropertyValue&& value) {
        if (entry.property->set(record, std::move(value))) return true;
        return fail(mapping, entry, std::string("the value does not fit the ") + kindName(entry.property->kind()) +
                                        " property");
    }

    bool storeEntry(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                    const Node& value, int depth) {
        switch (entry.kind) {
        case VLMSDKObjectMapping::EntryKind::Plain: return storeValue(record, mapping, entry, value, depth);
        case VLMSDKObjectMapping::EntryKind::Transformed: return storeTransformed(record, mapping, entry, value, depth);
        case VLMSDKObjectMapping::EntryKind::HasMany:
            return storeRecords(record, mapping, entry, *entry.elementClass, value, depth);
        }
        return true;
    }

    // `Value` is the reply's node kind, or TreeNode for what a transform gave.
    template <class Value>
    bool storeValue(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                    const Value& value, int depth) {
        std::string_view text;
        switch (entry.property->kind()) {
        case VLMSDKPropertyKind::String:
            if (value.text(text)) {
                return put(record, mapping, entry, VLMSDKPropertyValue(std::in_place_type<std::string>, text));
            }
            return wrongKind(mapping, entry, value.typeName());
        case VLMSDKPropertyKind::Number:
            if (value.isNumber()) return put(record, mapping, entry, value.number());
            if (value.text(text)) {
                double number = 0;
                if (numberFromText(text, number)) return put(record, mapping, entry, number);
                return fail(mapping, entry, "expected a number, got text that is no number");
            }
            return wrongKind(mapping, entry, value.typeName());
        case VLMSDKPropertyKind::Boolean:
            if (value.isBoolean()) return put(record, mapping, entry, value.boolean());
            if (value.isNumber()) return put(record, mapping, entry, value.number() != 0);
            return wrongKind(mapping, entry, value.typeName());
        case VLMSDKPropertyKind::Date:
        case VLMSDKPropertyKind::Time:
            return fail(mapping, entry, std::string("a ") + kindName(entry.property->kind()) +
                                            " comes only from a date transform, got " + value.typeName());
        case VLMSDKPropertyKind::Object: return storeRecord(record, mapping, entry, value, depth);
        case VLMSDKPropertyKind::ObjectArray:
            if (!entry.property->elementClass()) return wrongKind(mapping, entry, value.typeName());
            return storeRecords(record, mapping, entry, *entry.property->elementClass(), value, depth);
        }
        return true;
    }

    bool storeTransformed(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                          const Node& value, int depth) {
        if (value.isString() && entry.property->kind() == VLMSDKPropertyKind::String &&
            entry.keepsText) {
            return storeValue(record, mapping, entry, value, depth);
        }
        if (entry.textForm && value.isString()) {
            std::string_view text;
            value.text(text);
            return storeMapped(record, mapping, entry, entry.textForm(text), depth);
        }
        VLMSDKJSON built;
        return storeMapped(record, mapping, entry, entry.mappingBlock(value.json(built)), depth);
    }

    // Stores what a transform gave.
    bool storeMapped(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                     VLMSDKMappedValue&& mapped, int depth) {
        if (auto* json = std::get_if<VLMSDKJSON>(&mapped)) {
            if (json->is_null()) return true;
            if (entry.property->kind() == VLMSDKPropertyKind::String && json->is_string()) {
                return put(record, mapping, entry, std::move(json->get_ref<VLMSDKJSON::string_t&>()));
            }
            return storeValue(record, mapping, entry, TreeNode(*json), depth);
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
    std::shared_ptr<const VLMSDKObjectMapping> elementMapping(const VLMSDKObjectMapping& mapping,
                                                              const MappingEntry& entry,
                                                              const VLMSDKClass& elementClass) {
        std::shared_ptr<const VLMSDKObjectMapping> found;
        if (elementClass.operations().objectMapping) found = elementClass.operations().objectMapping();
        if (!found) fail(mapping, entry, elementClass.name() + " has no object mapping");
        return found;
    }

    template <class Value>
    bool storeRecord(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                     const Value& value, int depth) {
        if (!value.isObject() || !entry.property->elementClass()) return wrongKind(mapping, entry, value.typeName());
        const auto nested = elementMapping(mapping, entry, *entry.property->elementClass());
        if (!nested) return false;
        MappingRun<Value> inner;
        auto child = inner.map(value, *nested, depth + 1);
        if (!child) {
            const std::string reason = inner.error->developerMessage();
            return fail(mapping, entry, reason, std::move(inner.error));
        }
        return put(record, mapping, entry, std::move(child));
    }

    template <class Value>
    bool storeRecords(VLMSDKRootObject& record, const VLMSDKObjectMapping& mapping, const MappingEntry& entry,
                      const VLMSDKClass& elementClass, const Value& value, int depth) {
        std::shared_ptr<const VLMSDKObjectMapping> nested;
        VLMSDKObjectArray records;
        MappingRun<Value> inner;
        bool stored = true;
        std::size_t count = 0;
        const bool isArray = value.forEachElement(count, [&](std::size_t index, const Value& element) {
            if (index == 0) {
                nested = elementMapping(mapping, entry, elementClass);
                if (!nested) return stored = false;
                records.reserve(count);
            }
            if (!element.isObject()) {
                return stored = fail(mapping, entry, "element " + std::to_string(index) + " is not a JSON object but " +
                                                         element.typeName());
            }
            auto child = inner.map(element, *nested, depth + 1);
            if (!child) {
                const std::string reason = inner.error->developerMessage();
                return stored = fail(mapping, entry, "element " + std::to_string(index) + ": " + reason,
                                     std::move(inner.error));
            }
            records.push_back(std::move(child));
            return true;
        });
        if (!isArray) return fail(mapping, entry, std::string("expected an array of objects, got ") + value.typeName());
        if (!stored) return false;
        if (count == 0 && !elementMapping(mapping, entry, elementClass)) return false;
        return put(record, mapping, entry, std::move(records));
    }
};

// One mapping of `root`, exceptions (bad_alloc) turned into a failed result.
template <class Node>
std::shared_ptr<const VLMSDKMappingResult> mapRoot(const Node& root,
                                                   const std::shared_ptr<const VLMSDKObjectMapping>& withMapping) {
    if (!withMapping) {
        return std::make_shared<const VLMSDKMappingResult>(nullptr, makeError("no mapping was given", nullptr));
    }
    try {
        MappingRun<Node> run;
        auto record = run.map(root, *withMapping, 0);
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

}  // namespace

std::shared_ptr<const VLMSDKMappingResult> VLMSDKMapper::objectFromJSON(
    const VLMSDKJSON& json, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping) {
    return mapRoot(TreeNode(json), withMapping);
}

std::shared_ptr<const VLMSDKMappingResult> VLMSDKMapper::objectFromReply(
    const VLMSDKJSONReply& reply, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping,
    std::optional<std::string_view> member) {
    static const VLMSDKJSON absent;
    if (const auto* parsed = dynamic_cast<const vlmsdk::detail::VLMSDKParsedReply*>(&reply)) {
        simdjson::dom::element root = parsed->root();
        if (!member) return mapRoot(ParsedNode(root), withMapping);
        simdjson::dom::object object;
        simdjson::dom::element value;
        if (root.get_object().get(object) == simdjson::SUCCESS &&
            vlmsdk::detail::VLMSDKParsedReply::lastMember(object, *member, value)) {
            return mapRoot(ParsedNode(value), withMapping);
        }
        return mapRoot(TreeNode(absent), withMapping);
    }
    const VLMSDKJSON& json = reply.json();
    if (!member) return mapRoot(TreeNode(json), withMapping);
    if (const auto* object = json.get_ptr<const VLMSDKJSON::object_t*>()) {
        if (const auto found = object->find(*member); found != object->end()) {
            return mapRoot(TreeNode(found->second), withMapping);
        }
    }
    return mapRoot(TreeNode(absent), withMapping);
}
