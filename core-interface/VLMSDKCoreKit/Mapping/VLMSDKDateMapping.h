#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

VLMSDK_API_BEGIN

/// The calendar-date transform provider (the platform date class's mapping category).
class VLMSDKDateMapping {
public:
    /// "2026-11-21" (exactly four, two and two digits) becomes that calendar date; any other text, an
    /// impossible date (2026-02-30) or a value that is not text fails the mapping.
    static VLMSDKAttributeMappingBlock vlmsdk_YYYYMMDDMappingBlock();

    /// An ISO 8601 time "2026-11-21T10:04:05Z" becomes that time (UTC). Fractions of a second are dropped;
    /// an offset "+HH:MM" or "-HH:MM" in place of "Z" is taken off. Anything else fails the mapping.
    static VLMSDKAttributeMappingBlock vlmsdk_ISO8601MappingBlock();
};

VLMSDK_API_END
