#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

VLMSDK_API_BEGIN

/// One parsed reply body. Read-only once made: any number of threads may read it at once, and any thread
/// may release it.
///
/// The SDK's transport reads reply text into a form of its own and builds no JSON value for it:
/// VLMSDKMapper maps that form straight into records, and `json()` builds the value only when asked. A
/// request manager of a host's own (or a test) makes a reply from reply text with `parse`, or from a JSON value.
class VLMSDKJSONReply {
public:
    /// Why `parse` made no reply.
    enum class ParseFailure { None, NotJSON, TooDeep };

    /// Reads reply text as the SDK's transport does, into the form the mapper reads in place; nullptr when
    /// `text` is not JSON or is nested deeper than kVLMSDKMaximumJSONDepth levels (the reason in `failure`
    /// when given). Any thread; never throws but std::bad_alloc.
    static std::shared_ptr<const VLMSDKJSONReply> parse(std::string text, ParseFailure* failure = nullptr);

    /// A reply that is `json`.
    explicit VLMSDKJSONReply(VLMSDKJSON json);
    virtual ~VLMSDKJSONReply();
    VLMSDKJSONReply(const VLMSDKJSONReply&) = delete;
    VLMSDKJSONReply& operator=(const VLMSDKJSONReply&) = delete;

    /// The reply as the SDK's JSON value, built the first time any thread asks for it (the same value for
    /// every caller after that). May throw std::bad_alloc.
    const VLMSDKJSON& json() const;

    /// Whether the reply is a JSON object. Builds nothing.
    virtual bool isObject() const;

    /// Whether the reply is a JSON object holding the member `key`. Builds nothing.
    virtual bool hasMember(std::string_view key) const;
    /// The string `reply[object][member]`, when the reply has a string there (a repeated key: its last value);
    /// the view lives as long as the reply. Builds nothing.
    virtual std::optional<std::string_view> nestedString(std::string_view object, std::string_view member) const;

protected:
    /// For a form that builds its JSON value on demand, through `buildJSON`.
    VLMSDKJSONReply();

private:
    /// The JSON value of a reply made without one; called at most once.
    virtual VLMSDKJSON buildJSON() const;

    const bool built_;
    mutable std::once_flag building_;
    mutable VLMSDKJSON json_;
};

VLMSDK_API_END
