#include "VLMSDKParsedReply.h"

#include <cstdint>
#include <cstring>
#include <memory>

namespace vlmsdk::detail {

namespace {

// The tape's layout: a type character in the top byte of each word; a string word points into the string
// buffer, where a 32-bit length, the bytes and a NUL stand; a number takes a second word for its value.
constexpr std::uint64_t kPayloadMask = (std::uint64_t{1} << 56) - 1;

char tapeType(std::uint64_t word) { return static_cast<char>(word >> 56); }

}  // namespace

VLMSDKParsedReply::Extent VLMSDKParsedReply::extentOf(const simdjson::dom::document& parsed) {
    const std::uint64_t* tape = parsed.tape.get();
    Extent extent;
    extent.tapeWords = static_cast<std::size_t>(tape[0] & kPayloadMask) + 1;
    std::size_t depth = 0;
    for (std::size_t at = 1; at + 1 < extent.tapeWords; ++at) {
        switch (tapeType(tape[at])) {
        case '"': {
            // Strings are written in tape order: the last one ends the part of the buffer in use.
            const auto offset = static_cast<std::size_t>(tape[at] & kPayloadMask);
            std::uint32_t length = 0;
            std::memcpy(&length, parsed.string_buf.get() + offset, sizeof length);
            extent.stringBytes = offset + sizeof length + length + 1;
            break;
        }
        case '[':
        case '{':
            if (++depth > extent.depth) extent.depth = depth;
            break;
        case ']':
        case '}': --depth; break;
        case 'l':
        case 'u':
        case 'd': ++at; break;
        default: break;
        }
    }
    return extent;
}

VLMSDKParsedReply::VLMSDKParsedReply(const simdjson::dom::document& parsed, const Extent& used) {
    document_.tape = std::make_unique_for_overwrite<std::uint64_t[]>(used.tapeWords);
    std::memcpy(document_.tape.get(), parsed.tape.get(), used.tapeWords * sizeof(std::uint64_t));
    if (used.stringBytes > 0) {
        document_.string_buf = std::make_unique_for_overwrite<std::uint8_t[]>(used.stringBytes);
        std::memcpy(document_.string_buf.get(), parsed.string_buf.get(), used.stringBytes);
    }
}

bool VLMSDKParsedReply::isObject() const { return root().type() == simdjson::dom::element_type::OBJECT; }

bool VLMSDKParsedReply::hasMember(std::string_view key) const {
    simdjson::dom::object object;
    if (root().get_object().get(object) != simdjson::SUCCESS) return false;
    simdjson::dom::element value;
    return lastMember(object, key, value);
}

std::optional<std::string_view> VLMSDKParsedReply::nestedString(std::string_view object,
                                                               std::string_view member) const {
    simdjson::dom::object outer;
    simdjson::dom::element inner;
    if (root().get_object().get(outer) != simdjson::SUCCESS || !lastMember(outer, object, inner)) return std::nullopt;
    simdjson::dom::object members;
    simdjson::dom::element value;
    if (inner.get_object().get(members) != simdjson::SUCCESS || !lastMember(members, member, value)) return std::nullopt;
    std::string_view text;
    if (value.get_string().get(text) != simdjson::SUCCESS) return std::nullopt;
    return text;
}

bool VLMSDKParsedReply::lastMember(simdjson::dom::object object, std::string_view key, simdjson::dom::element& value) {
    bool found = false;
    for (const simdjson::dom::key_value_pair member : object) {
        if (member.key == key) {
            value = member.value;
            found = true;
        }
    }
    return found;
}

const char* VLMSDKParsedReply::typeName(simdjson::dom::element element) {
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::ARRAY: return "array";
    case Type::OBJECT: return "object";
    case Type::STRING: return "string";
    case Type::INT64:
    case Type::UINT64:
    case Type::DOUBLE: return "number";
    case Type::BOOL: return "boolean";
    case Type::NULL_VALUE: return "null";
    }
    return "null";
}

VLMSDKJSON VLMSDKParsedReply::valueOf(simdjson::dom::element element) {
    // The reader has bounded the nesting, so the recursion is bounded too.
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::ARRAY: {
        const simdjson::dom::array array = element.get_array().value_unsafe();
        VLMSDKJSON json = VLMSDKJSON::array();
        auto& values = json.get_ref<VLMSDKJSON::array_t&>();
        values.reserve(array.size());
        for (const simdjson::dom::element child : array) values.push_back(valueOf(child));
        return json;
    }
    case Type::OBJECT: {
        VLMSDKJSON json = VLMSDKJSON::object();
        auto& members = json.get_ref<VLMSDKJSON::object_t&>();
        const simdjson::dom::object object = element.get_object().value_unsafe();
        for (const simdjson::dom::key_value_pair member : object) {
            VLMSDKJSON value = valueOf(member.value);
            auto [slot, inserted] = members.try_emplace(std::string(member.key), std::move(value));
            if (!inserted) slot->second = std::move(value);
        }
        return json;
    }
    case Type::STRING: return VLMSDKJSON(std::string(element.get_string().value_unsafe()));
    case Type::INT64: {
        // Non-negative integers are unsigned in the JSON value, wherever they came from.
        const std::int64_t number = element.get_int64().value_unsafe();
        if (number >= 0) return VLMSDKJSON(static_cast<std::uint64_t>(number));
        return VLMSDKJSON(number);
    }
    case Type::UINT64: return VLMSDKJSON(element.get_uint64().value_unsafe());
    case Type::DOUBLE: return VLMSDKJSON(element.get_double().value_unsafe());
    case Type::BOOL: return VLMSDKJSON(element.get_bool().value_unsafe());
    case Type::NULL_VALUE: return VLMSDKJSON(nullptr);
    }
    return VLMSDKJSON();
}

VLMSDKJSON VLMSDKParsedReply::buildJSON() const { return valueOf(root()); }

}  // namespace vlmsdk::detail
