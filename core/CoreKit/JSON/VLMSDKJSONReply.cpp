#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include <utility>

VLMSDKJSONReply::VLMSDKJSONReply(VLMSDKJSON json) : built_(true), json_(std::move(json)) {}

VLMSDKJSONReply::VLMSDKJSONReply() : built_(false) {}

VLMSDKJSONReply::~VLMSDKJSONReply() = default;

const VLMSDKJSON& VLMSDKJSONReply::json() const {
    if (!built_) std::call_once(building_, [this] { json_ = buildJSON(); });
    return json_;
}

bool VLMSDKJSONReply::isObject() const { return json().is_object(); }

bool VLMSDKJSONReply::hasMember(std::string_view key) const {
    const VLMSDKJSON& value = json();
    return value.is_object() && value.get_ref<const VLMSDKJSON::object_t&>().contains(key);
}

VLMSDKJSON VLMSDKJSONReply::buildJSON() const { return VLMSDKJSON(); }
