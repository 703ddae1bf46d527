#include "FaultJson.h"

#include <array>
#include <utility>

namespace pmssandbox {

namespace {

using nlohmann::json;

constexpr std::array<std::pair<Fault::Action, const char*>, 5> kActions{{
    {Fault::Action::None, "delay"},
    {Fault::Action::DropConnection, "drop_connection"},
    {Fault::Action::DropReply, "drop_reply"},
    {Fault::Action::ForceStatus, "status"},
    {Fault::Action::NotJson, "not_json"},
}};

// A whole number in [low, high] under `key`, `fallback` when absent or null; nullopt when anything else.
std::optional<std::int64_t> wholeNumber(const json& object, const char* key, std::int64_t low, std::int64_t high,
                                        std::int64_t fallback) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return fallback;
    if (!it->is_number_integer()) return std::nullopt;
    const auto value = it->get<std::int64_t>();
    if (value < low || value > high) return std::nullopt;
    return value;
}

std::optional<std::string> text(const json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::string();
    if (!it->is_string()) return std::nullopt;
    return it->get<std::string>();
}

}  // namespace

json FaultJson::toJson(const Fault& fault, int remaining) {
    json value = json::object();
    for (const auto& [action, name] : kActions) {
        if (action == fault.action()) value["action"] = name;
    }
    if (fault.action() == Fault::Action::ForceStatus) {
        value["status"] = fault.status();
        if (fault.retryAfter().count() > 0) value["retry_after"] = fault.retryAfter().count();
    }
    if (fault.action() == Fault::Action::NotJson) value["body"] = fault.body();
    value["delay_ms"] = fault.delayDuration().count();
    value["method"] = fault.method();
    value["path"] = fault.pathPrefix();
    value["times"] = remaining > 0 ? json(remaining) : json();
    return value;
}

std::optional<Fault> FaultJson::fromJson(const json& value, std::string& error) {
    if (!value.is_object() || !value.contains("action") || !value["action"].is_string()) {
        error = "A fault is an object with an \"action\": delay, drop_connection, drop_reply, status or not_json.";
        return std::nullopt;
    }
    const std::string& name = value["action"].get_ref<const std::string&>();
    std::optional<Fault> fault;
    if (name == "delay") fault = Fault::delay(std::chrono::milliseconds(0));
    if (name == "drop_connection") fault = Fault::dropConnection();
    if (name == "drop_reply") fault = Fault::dropReply();
    if (name == "status") {
        const auto status = wholeNumber(value, "status", 400, 599, 503);
        const auto retryAfter = wholeNumber(value, "retry_after", 0, 86400, 0);
        if (!status || !retryAfter) {
            error = "\"status\" must be 400 to 599 and \"retry_after\" 0 to 86400 seconds.";
            return std::nullopt;
        }
        fault = Fault::forceStatus(static_cast<int>(*status)).withRetryAfter(std::chrono::seconds(*retryAfter));
    }
    if (name == "not_json") {
        const auto body = text(value, "body");
        if (!body) {
            error = "\"body\" must be text.";
            return std::nullopt;
        }
        fault = body->empty() ? Fault::notJson() : Fault::notJson(*body);
    }
    if (!fault) {
        error = "Unknown fault action '" + name + "'; use delay, drop_connection, drop_reply, status or not_json.";
        return std::nullopt;
    }
    const auto delay = wholeNumber(value, "delay_ms", 0, 600000, 0);
    const auto times = wholeNumber(value, "times", 1, 1000000, -1);
    const auto method = text(value, "method");
    const auto path = text(value, "path");
    if (!delay || !times || !method || !path) {
        error = "\"delay_ms\" must be 0 to 600000, \"times\" 1 to 1000000 or null, \"method\" and \"path\" text.";
        return std::nullopt;
    }
    return fault->withDelay(std::chrono::milliseconds(*delay)).matching(*method, *path).times(static_cast<int>(*times));
}

}  // namespace pmssandbox
