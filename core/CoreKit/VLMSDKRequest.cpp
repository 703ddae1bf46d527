#include "VLMSDKHeaderLookup.h"
#include "VLMSDKRequestCheck.h"
#include "VLMSDKURLRedaction.h"

#include <VLMSDKCoreKit/VLMSDKRequest.h>

#include <algorithm>

std::shared_ptr<const VLMSDKRequest> VLMSDKRequest::withHeader(std::string_view name, std::string value) const {
    Parts parts = parts_;
    std::erase_if(parts.headers, [&](const auto& header) {
        return vlmsdk::detail::equalsIgnoringASCIICase(header.first, name);
    });
    parts.headers.emplace_back(std::string(name), std::move(value));
    return std::make_shared<const VLMSDKRequest>(std::move(parts));
}

std::optional<std::string> VLMSDKRequest::headerValue(std::string_view name) const {
    return vlmsdk::detail::headerValue(parts_.headers, name);
}

std::string VLMSDKRequest::redactedURL() const {
    std::string redacted = vlmsdk::detail::redactedURL(parts_.url);
    // A URL the request check refuses may hold control bytes: they are never shown raw.
    const bool control = std::any_of(redacted.begin(), redacted.end(), vlmsdk::detail::isControlByte);
    return control ? vlmsdk::detail::VLMSDKRequestCheck::escaped(redacted) : redacted;
}
