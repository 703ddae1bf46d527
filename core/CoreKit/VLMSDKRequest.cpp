#include "VLMSDKHeaderLookup.h"

#include <VLMSDKCoreKit/VLMSDKRequest.h>

std::optional<std::string> VLMSDKRequest::headerValue(std::string_view name) const {
    return vlmsdk::detail::headerValue(parts_.headers, name);
}
