#pragma once

#include <VLMSDKCoreKit/Mapping/VLMSDKAttributeMappingBlock.h>

#include <string_view>

namespace vlmsdk::detail {

/// `text` without the white space at either end, as the C locale has it, whatever the process's locale is.
inline std::string_view trimmedASCII(std::string_view text) {
    const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v'; };
    while (!text.empty() && space(text.front())) text.remove_prefix(1);
    while (!text.empty() && space(text.back())) text.remove_suffix(1);
    return text;
}

/// The order of the mapping's key index: by length first, so that most comparisons end without reading
/// the text.
inline bool shorterOrBefore(std::string_view a, std::string_view b) {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

/// A transform of the core's own that reads only text, in its text form.
using VLMSDKTextTransform = VLMSDKMappedValue (*)(std::string_view text);

/// The text form of `block` when it is the currency transform, or one of the date transforms; else nullptr.
VLMSDKTextTransform currencyTextForm(const VLMSDKAttributeMappingBlock& block);
VLMSDKTextTransform dateTextForm(const VLMSDKAttributeMappingBlock& block);

/// The text form of `block` when it is a text-only transform of the core, else nullptr: the mapper then
/// applies it to text in a reply without building a JSON value.
inline VLMSDKTextTransform textFormOf(const VLMSDKAttributeMappingBlock& block) {
    if (const auto form = currencyTextForm(block)) return form;
    return dateTextForm(block);
}

/// Whether `block` hands text back as it is (the platform-identifier transform does): the mapper then
/// stores the text straight from the reply, sparing the copy the transform would return.
bool keepsTextAsItIs(const VLMSDKAttributeMappingBlock& block);

}  // namespace vlmsdk::detail
