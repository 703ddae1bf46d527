#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pmssandbox {

/// What the service answers, independent of the HTTP library.
struct ApiReply {
    int status = 200;
    nlohmann::json body;
    std::vector<std::pair<std::string, std::string>> headers;

    static ApiReply ok(nlohmann::json body);
    /// {"error": {"code": code, "message": message}}
    static ApiReply error(int status, std::string_view code, std::string_view message);
    /// The error code used when only a status is known, e.g. 503 -> "service_unavailable".
    static std::string codeForStatus(int status);
};

}  // namespace pmssandbox
