#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

VLMSDK_API_BEGIN

/// The currency-code transform provider.
class VLMSDKCurrencyMapping {
public:
    /// Text is trimmed of ASCII white space and its ASCII letters upper-cased (" usd " -> "USD"; "" stays "");
    /// anything but text fails the mapping.
    static VLMSDKAttributeMappingBlock currencyAttributeMappingBlock();
};

VLMSDK_API_END
