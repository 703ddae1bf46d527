#include <VLMSDKCoreKit/VLMSDKJSONReply.h>

#include "VLMSDKJSONReader.h"

#include <utility>

std::shared_ptr<const VLMSDKJSONReply> VLMSDKJSONReply::parse(std::string text, ParseFailure* failure) {
    // One reader per thread, as the transport keeps: its buffers serve the next reply instead of being made anew.
    thread_local vlmsdk::detail::VLMSDKJSONReader reader;
    auto read = reader.read(text);
    if (failure) {
        using Failure = vlmsdk::detail::VLMSDKJSONReader::Failure;
        *failure = read.failure == Failure::TooDeep   ? ParseFailure::TooDeep
                   : read.failure == Failure::NotJSON ? ParseFailure::NotJSON
                                                      : ParseFailure::None;
    }
    return std::move(read.reply);
}

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

std::optional<std::string_view> VLMSDKJSONReply::nestedString(std::string_view object, std::string_view member) const {
    const VLMSDKJSON& value = json();
    if (!value.is_object()) return std::nullopt;
    const auto& outer = value.get_ref<const VLMSDKJSON::object_t&>();
    const auto inner = outer.find(object);
    if (inner == outer.end() || !inner->second.is_object()) return std::nullopt;
    const auto& members = inner->second.get_ref<const VLMSDKJSON::object_t&>();
    const auto found = members.find(member);
    if (found == members.end() || !found->second.is_string()) return std::nullopt;
    return std::string_view(found->second.get_ref<const std::string&>());
}

VLMSDKJSON VLMSDKJSONReply::buildJSON() const { return VLMSDKJSON(); }
