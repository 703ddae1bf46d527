#include <VLMSDKCoreKit/Mapping/VLMSDKCurrencyMapping.h>

#include "VLMSDKTextTransforms.h"

#include <string>

namespace {

VLMSDKMappedValue currencyCodeOfText(std::string_view text) {
    std::string code(vlmsdk::detail::trimmedASCII(text));
    // ASCII only: a locale must not change what a currency code becomes.
    for (char& c : code) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return VLMSDKJSON(std::move(code));
}

VLMSDKMappedValue currencyCode(const VLMSDKJSON& value) {
    const auto* text = value.get_ptr<const VLMSDKJSON::string_t*>();
    if (!text) {
        return VLMError::errorWithCode(VLMErrorCode::Mapping, kVLMSDKMappingErrorDomain,
                                       std::string("a currency code must be text, not ") + value.type_name(),
                                       "currencyCode", __FILE__);
    }
    return currencyCodeOfText(*text);
}

}  // namespace

namespace vlmsdk::detail {

VLMSDKTextTransform currencyTextForm(const VLMSDKAttributeMappingBlock& block) {
    const auto* function = block.target<VLMSDKMappedValue (*)(const VLMSDKJSON&)>();
    return function && *function == &currencyCode ? &currencyCodeOfText : nullptr;
}

}  // namespace vlmsdk::detail

VLMSDKAttributeMappingBlock VLMSDKCurrencyMapping::currencyAttributeMappingBlock() { return &currencyCode; }
