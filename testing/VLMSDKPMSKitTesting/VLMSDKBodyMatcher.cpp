#include <VLMSDKPMSKitTesting/VLMSDKBodyMatcher.h>

#include <utility>

VLMSDKBodyMatcher VLMSDKBodyMatcher::equalTo(VLMSDKJSON expected) {
    std::string description = "equal to " + expected.dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
    return {std::move(description), [expected = std::move(expected)](const VLMSDKJSON& body) { return body == expected; }};
}

VLMSDKBodyMatcher VLMSDKBodyMatcher::including(VLMSDKJSON members) {
    std::string description = "including " + members.dump(-1, ' ', false, VLMSDKJSON::error_handler_t::replace);
    return {std::move(description), [members = std::move(members)](const VLMSDKJSON& body) {
                if (!body.is_object() || !members.is_object()) return false;
                for (const auto& [key, value] : members.items()) {
                    const auto found = body.find(key);
                    if (found == body.end() || *found != value) return false;
                }
                return true;
            }};
}
