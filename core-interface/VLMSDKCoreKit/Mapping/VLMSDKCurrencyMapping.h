#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

/// The currency-code transform provider.
class VLMSDKCurrencyMapping {
public:
    /// Text is trimmed of ASCII white space and its ASCII letters upper-cased (" usd " -> "USD"; "" stays "");
    /// anything but text fails the mapping.
    static VLMSDKAttributeMappingBlock currencyAttributeMappingBlock();
};
