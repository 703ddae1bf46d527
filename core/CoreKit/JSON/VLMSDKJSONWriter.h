#pragma once

#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <optional>
#include <string>

namespace vlmsdk::detail {

/// Writes JSON text as the SDK sends it, refusing what JSON text cannot carry faithfully.
class VLMSDKJSONWriter {
public:
    /// The text of `json`; nullopt, with `problem` saying what and where, for a number that is not finite
    /// (JSON has no NaN or infinity, and writing null instead would send what the caller never gave),
    /// nesting deeper than kVLMSDKMaximumJSONDepth, or text that is not UTF-8. Walks without recursion.
    static std::optional<std::string> write(const VLMSDKJSON& json, std::string* problem);

    /// What `write` would refuse in `json` for its numbers or its depth, or nullopt.
    static std::optional<std::string> problemIn(const VLMSDKJSON& json);
};

}  // namespace vlmsdk::detail
