#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

VLMSDK_API_BEGIN

/// The platform-identifier transform provider.
class VLMSDKVelmoraIDMapping {
public:
    /// Text as it is; a JSON integer (signed or unsigned) as its decimal text; anything else, a fractional
    /// number included, fails the mapping.
    static VLMSDKAttributeMappingBlock velmoraIDAttributeMappingBlock();
};

VLMSDK_API_END
