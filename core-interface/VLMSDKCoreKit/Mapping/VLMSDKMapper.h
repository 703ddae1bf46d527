#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKMappingResult.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKObjectMapping.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>

#include <memory>

/// Turns JSON into records by a mapping description. Stateless; callable from any thread.
class VLMSDKMapper {
public:
    /// One record of the mapping's class from the JSON object `json`. Fails (no result, an error of
    /// kVLMSDKMappingErrorDomain naming the class and the JSON key at fault) when `json` is not an object,
    /// a value is of the wrong kind for its property, text for a number property is no number, or a
    /// transform fails. A missing key or a JSON null leaves the property as the class made it.
    static std::shared_ptr<const VLMSDKMappingResult> objectFromJSON(
        const VLMSDKJSON& json, const std::shared_ptr<const VLMSDKObjectMapping>& withMapping);
};
