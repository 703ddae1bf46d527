#include "VLMSDKHeaderLookup.h"
#include "VLMSDKRequestCheck.h"
#include "VLMSDKURLRedaction.h"

#include <VLMSDKCoreKit/VLMSDKRequest.h>

std::optional<std::string> VLMSDKRequest::headerValue(std::string_view name) const {
    return vlmsdk::detail::headerValue(parts_.headers, name);
}

std::string VLMSDKRequest::redactedURL() const {
    return vlmsdk::detail::VLMSDKRequestCheck::escaped(vlmsdk::detail::redactedURL(parts_.url));
}
