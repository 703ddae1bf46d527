#include "VLMSDKJSONReader.h"

#include <simdjson.h>

#include <cstdint>
#include <new>
#include <vector>

namespace vlmsdk::detail {

namespace {

// A parser that grew past this for one large reply is replaced, so that its buffers do not outlive it.
constexpr std::size_t kKeptCapacity = 1 << 20;

// simdjson counts a scalar inside the innermost container as one more level.
constexpr std::size_t kParserDepth = kVLMSDKMaximumJSONDepth + 1;

static_assert(VLMSDKJSONReader::kSpareCapacity >= simdjson::SIMDJSON_PADDING);

struct TooDeep {};

// Builds the value; `depth` counts the containers around it. simdjson has bounded the depth already
// (give or take one level), so the recursion is bounded too.
VLMSDKJSON convert(simdjson::dom::element element, std::size_t depth) {
    using Type = simdjson::dom::element_type;
    switch (element.type()) {
    case Type::ARRAY: {
        if (depth >= kVLMSDKMaximumJSONDepth) throw TooDeep{};
        const simdjson::dom::array array = element.get_array().value_unsafe();
        VLMSDKJSON json = VLMSDKJSON::array();
        auto& values = json.get_ref<VLMSDKJSON::array_t&>();
        values.reserve(array.size());
        for (const simdjson::dom::element child : array) values.push_back(convert(child, depth + 1));
        return json;
    }
    case Type::OBJECT: {
        if (depth >= kVLMSDKMaximumJSONDepth) throw TooDeep{};
        const simdjson::dom::object object = element.get_object().value_unsafe();
        VLMSDKJSON json = VLMSDKJSON::object();
        auto& members = json.get_ref<VLMSDKJSON::object_t&>();
        for (const simdjson::dom::key_value_pair member : object) {
            VLMSDKJSON value = convert(member.value, depth + 1);
            // A repeated key keeps its last value, as the SDK always read it.
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

// simdjson refuses integers beyond 64 bits, which the SDK has always read as floating point: such a
// reply takes the slower parser, still bounded in depth.
VLMSDKJSONReader::Result readWide(const std::string& text) {
    VLMSDKJSONReader::Result result;
    try {
        result.json = VLMSDKJSON::parse(
            text.begin(), text.end(),
            [](int depth, VLMSDKJSON::parse_event_t event, VLMSDKJSON&) {
                const bool opens =
                    event == VLMSDKJSON::parse_event_t::object_start || event == VLMSDKJSON::parse_event_t::array_start;
                if (opens && static_cast<std::size_t>(depth) >= kVLMSDKMaximumJSONDepth) throw TooDeep{};
                return true;
            },
            false);
        if (result.json.is_discarded()) result.failure = VLMSDKJSONReader::Failure::NotJSON;
    } catch (const TooDeep&) {
        result.failure = VLMSDKJSONReader::Failure::TooDeep;
    }
    if (result.failure != VLMSDKJSONReader::Failure::None) result.json = VLMSDKJSON();
    return result;
}

// Empties every container under `json` without recursion. The containers waiting their turn sit in a small
// stack in place, spilling over to the heap only for wide replies (a long list of postings, say).
void tearDown(VLMSDKJSON& json) {
    constexpr std::size_t kInPlace = 32;
    VLMSDKJSON inPlace[kInPlace];
    std::size_t held = 0;
    std::vector<VLMSDKJSON> spilled;
    const auto hold = [&](VLMSDKJSON& child) {
        if (!child.is_structured()) return;
        if (held < kInPlace) {
            inPlace[held++] = std::move(child);
        } else {
            spilled.push_back(std::move(child));
        }
    };
    const auto empty = [&](VLMSDKJSON& value) {
        if (auto* array = value.get_ptr<VLMSDKJSON::array_t*>()) {
            for (auto& child : *array) hold(child);
            array->clear();
        } else if (auto* object = value.get_ptr<VLMSDKJSON::object_t*>()) {
            for (auto& member : *object) hold(member.second);
            object->clear();
        }
    };
    empty(json);
    while (held > 0 || !spilled.empty()) {
        VLMSDKJSON current;
        if (!spilled.empty()) {
            current = std::move(spilled.back());
            spilled.pop_back();
        } else {
            current = std::move(inPlace[--held]);
        }
        empty(current);
    }
}

// A reply and its teardown, in the shared block make_shared makes.
struct SharedReply {
    explicit SharedReply(VLMSDKJSON&& value) : json(std::move(value)) {}
    ~SharedReply() { tearDown(json); }
    SharedReply(const SharedReply&) = delete;
    SharedReply& operator=(const SharedReply&) = delete;
    VLMSDKJSON json;
};

}  // namespace

std::shared_ptr<const VLMSDKJSON> VLMSDKJSONReader::share(VLMSDKJSON&& json) {
    auto reply = std::make_shared<SharedReply>(std::move(json));
    const VLMSDKJSON* value = &reply->json;
    return std::shared_ptr<const VLMSDKJSON>(std::move(reply), value);
}

class VLMSDKJSONReader::Impl {
public:
    Impl() { reset(); }

    void reset() {
        parser = simdjson::dom::parser();
        if (parser.allocate(0, kParserDepth) != simdjson::SUCCESS) throw std::bad_alloc();
    }

    simdjson::dom::parser parser;
};

VLMSDKJSONReader::VLMSDKJSONReader() : impl_(std::make_unique<Impl>()) {}

VLMSDKJSONReader::~VLMSDKJSONReader() = default;

VLMSDKJSONReader::Result VLMSDKJSONReader::read(std::string& text) {
    // simdjson reads a little past the end of the text; spare capacity saves it a copy.
    if (text.capacity() - text.size() < kSpareCapacity) text.reserve(text.size() + kSpareCapacity);

    Result result;
    simdjson::dom::element root;
    const simdjson::error_code error = impl_->parser.parse(text.data(), text.size(), false).get(root);
    switch (error) {
    case simdjson::SUCCESS:
        try {
            result.json = convert(root, 0);
        } catch (const TooDeep&) {
            result.failure = Failure::TooDeep;
        }
        break;
    case simdjson::DEPTH_ERROR: result.failure = Failure::TooDeep; break;
    case simdjson::MEMALLOC: throw std::bad_alloc();
    case simdjson::NUMBER_ERROR: result = readWide(text); break;
    default: result.failure = Failure::NotJSON; break;
    }
    if (impl_->parser.capacity() > kKeptCapacity) impl_->reset();
    return result;
}

}  // namespace vlmsdk::detail
