#pragma once

#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <simdjson.h>

#include <string_view>
#include <utility>

namespace vlmsdk::detail {

/// The transport's form of a reply: the parser's tape and strings, copied at their used size, read in place.
/// Its JSON value is built only when asked for.
class VLMSDKParsedReply final : public VLMSDKJSONReply {
public:
    /// What of a parsed document is in use, and how deep its containers nest.
    struct Extent {
        std::size_t tapeWords = 0;
        std::size_t stringBytes = 0;
        std::size_t depth = 0;
    };

    /// The extent of `parsed`, in one pass over its tape.
    static Extent extentOf(const simdjson::dom::document& parsed);

    /// Copies the used part (`extent`) of `parsed`, which the parser keeps for the next reply.
    VLMSDKParsedReply(const simdjson::dom::document& parsed, const Extent& extent);

    simdjson::dom::element root() const { return document_.root(); }

    bool isObject() const override;
    bool hasMember(std::string_view key) const override;
    std::optional<std::string_view> nestedString(std::string_view object, std::string_view member) const override;

    /// `element` as the SDK's JSON value, with the types and the repeated-key rule of the SDK's
    /// reader (the last value of a repeated key is kept).
    static VLMSDKJSON valueOf(simdjson::dom::element element);

    /// The member `key` of `object`; a repeated key yields its last value. False when there is none.
    static bool lastMember(simdjson::dom::object object, std::string_view key, simdjson::dom::element& value);

    /// The name the SDK's JSON value gives the type of `element` ("object", "string", "number", ...).
    static const char* typeName(simdjson::dom::element element);

private:
    VLMSDKJSON buildJSON() const override;

    simdjson::dom::document document_;
};

}  // namespace vlmsdk::detail
