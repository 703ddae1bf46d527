#include "VLMSDKHeaderLookup.h"

#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

std::optional<std::string> VLMSDKURLResponse::headerValue(std::string_view name) const {
    return vlmsdk::detail::headerValue(headers_, name);
}
