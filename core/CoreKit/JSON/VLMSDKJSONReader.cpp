#include "VLMSDKJSONReader.h"

#include "VLMSDKParsedReply.h"

#include <simdjson.h>

#include <new>

namespace vlmsdk::detail {

namespace {

// A parser that grew past this serves while large replies keep coming; the first reply that fits under it
// renews the parser, so that large buffers do not outlive the large replies.
constexpr std::size_t kKeptCapacity = 1 << 20;

// simdjson counts a scalar inside the innermost container as one more level: it lets one container too
// many through when the innermost is empty, which the reader's own count then refuses.
constexpr std::size_t kParserDepth = kVLMSDKMaximumJSONDepth + 1;

static_assert(VLMSDKJSONReader::kSpareCapacity >= simdjson::SIMDJSON_PADDING);

struct TooDeep {};

// simdjson refuses integers beyond 64 bits, which the SDK has always read as floating point: such a
// reply takes the slower parser, still bounded in depth.
VLMSDKJSONReader::Result readWide(const std::string& text) {
    VLMSDKJSONReader::Result result;
    try {
        VLMSDKJSON json = VLMSDKJSON::parse(
            text.begin(), text.end(),
            [](int depth, VLMSDKJSON::parse_event_t event, VLMSDKJSON&) {
                const bool opens =
                    event == VLMSDKJSON::parse_event_t::object_start || event == VLMSDKJSON::parse_event_t::array_start;
                if (opens && static_cast<std::size_t>(depth) >= kVLMSDKMaximumJSONDepth) throw TooDeep{};
                return true;
            },
            false);
        if (json.is_discarded()) {
            result.failure = VLMSDKJSONReader::Failure::NotJSON;
        } else {
            result.reply = std::make_shared<const VLMSDKJSONReply>(std::move(json));
        }
    } catch (const TooDeep&) {
        result.failure = VLMSDKJSONReader::Failure::TooDeep;
    }
    return result;
}

}  // namespace

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

    if (impl_->parser.capacity() > kKeptCapacity && text.size() <= kKeptCapacity) impl_->reset();

    Result result;
    simdjson::dom::element root;
    const simdjson::error_code error = impl_->parser.parse(text.data(), text.size(), false).get(root);
    switch (error) {
    case simdjson::SUCCESS: {
        const auto extent = VLMSDKParsedReply::extentOf(impl_->parser.doc);
        if (extent.depth > kVLMSDKMaximumJSONDepth) {
            result.failure = Failure::TooDeep;
        } else {
            result.reply = std::make_shared<const VLMSDKParsedReply>(impl_->parser.doc, extent);
        }
        break;
    }
    case simdjson::DEPTH_ERROR: result.failure = Failure::TooDeep; break;
    case simdjson::MEMALLOC: throw std::bad_alloc();
    case simdjson::NUMBER_ERROR: result = readWide(text); break;
    default: result.failure = Failure::NotJSON; break;
    }
    return result;
}

}  // namespace vlmsdk::detail
