#include "VLMSDKHeaderLookup.h"
#include "VLMSDKURLRedaction.h"

#include <VLMSDKCoreKit/VLMSDKRequest.h>

std::optional<std::string> VLMSDKRequest::headerValue(std::string_view name) const {
    return vlmsdk::detail::headerValue(parts_.headers, name);
}

std::string VLMSDKRequest::redactedURL() const { return vlmsdk::detail::redactedURL(parts_.url); }
