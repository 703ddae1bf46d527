#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKMappingResult.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>
#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <memory>
#include <optional>
#include <string_view>

VLMSDK_API_BEGIN

/// Turns JSON into records by a mapping description. Stateless; callable from any thread.
class VLMSDKMapper {
public:
    /// One record of the mapping's class from the JSON object `json`. Fails (no result, an error of
    /// kVLMSDKMappingErrorDomain, code VLMErrorCode::Mapping, naming the class and the JSON key at fault)
    /// when `json` is not an object, a value is of the wrong kind for its property, text for a number
    /// property is no number, or a transform fails. A missing key or a JSON null leaves the property as the
    /// class made it, and a transform is not called for it; a transform that gives JSON null does the same.
    ///
    /// What each property kind accepts (from the JSON value, or from what a transform gives):
    /// - String: JSON text only.
    /// - Number: a JSON number; or text whose whole, white space around it aside, is a decimal number
    ///   ("9.90", "-5", "1e3"; not "", "abc", "12abc", "inf", "nan").
    /// - Boolean: JSON true/false, or a JSON number (non-zero is true).
    /// - Date: a date from a transform. Time: a time from a transform, or a date (its midnight, UTC).
    ///   Plain JSON never fills a date or time: its text form is the transform's affair.
    /// - Object: a JSON object, mapped with the property's element class's object mapping.
    /// - ObjectArray (has-many entries, and plain entries of array properties): a JSON array (anything else
    ///   fails) whose elements are all JSON objects, each mapped with the element class's
    ///   `operations().objectMapping()`, in order; a failing element fails the mapping, naming its index.
    ///   An element class without an object mapping fails the mapping.
    /// JSON nested more than 100 records deep fails the mapping.
    static std::shared_ptr<const VLMSDKMappingResult> objectFromJSON(
        const VLMSDKJSON& json, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping);

    /// `objectFromJSON` of `reply`, or of its top-level member `member` when one is named (a reply that is no
    /// object, or lacks the member, maps as JSON null). A reply the SDK's transport read is mapped in place,
    /// without building its JSON value; the outcome, error texts included, is the same either way.
    static std::shared_ptr<const VLMSDKMappingResult> objectFromReply(
        const VLMSDKJSONReply& reply, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping,
        std::optional<std::string_view> member = std::nullopt);
};

VLMSDK_API_END
