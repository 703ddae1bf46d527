#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequest.h>

namespace {

// The body as a matcher sees it: null when there is none, nullopt when it is not JSON.
std::optional<VLMSDKJSON> parsedBody(const VLMSDKRequest& request) {
    if (!request.body()) return VLMSDKJSON();
    VLMSDKJSON parsed = VLMSDKJSON::parse(*request.body(), nullptr, false);
    if (parsed.is_discarded()) return std::nullopt;
    return parsed;
}

}  // namespace

std::string VLMSDKScriptedRequest::description() const {
    std::string text = method + " " + route;
    if (body) text += ", body " + body->description;
    return text;
}

bool VLMSDKScriptedRequest::matches(const VLMSDKRequest& request, std::string* why) const {
    const auto differs = [why](std::string text) {
        if (why) *why = std::move(text);
        return false;
    };
    if (request.method() != method || request.path() != route) return differs("it is not " + method + " " + route);
    if (!body) return true;
    const std::optional<VLMSDKJSON> parsed = parsedBody(request);
    if (!parsed) return differs("its body is not JSON");
    bool matched = false;
    try {
        matched = body->predicate && body->predicate(*parsed);
    } catch (const std::exception& exception) {
        return differs(std::string("the body matcher threw: ") + exception.what());
    }
    return matched ? true : differs("its body is not " + body->description);
}
