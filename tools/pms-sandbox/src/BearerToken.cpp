#include "BearerToken.h"

#include <algorithm>
#include <cctype>

namespace pmssandbox {

namespace {

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

}  // namespace

std::optional<ApiReply> BearerToken::refusal(std::optional<std::string_view> authorization) const {
    if (!authorization) {
        ApiReply reply = ApiReply::error(401, "missing_token", "This request needs an Authorization: Bearer token.");
        reply.headers.emplace_back("WWW-Authenticate", "Bearer");
        return reply;
    }
    const std::string_view value = trimmed(*authorization);
    const auto space = value.find(' ');
    std::string scheme(value.substr(0, space));
    std::transform(scheme.begin(), scheme.end(), scheme.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const std::string_view token = space == std::string_view::npos ? std::string_view() : trimmed(value.substr(space));
    if (scheme == "bearer" && token == token_) return std::nullopt;
    ApiReply reply = ApiReply::error(401, "invalid_token", "The bearer token is not valid for this service.");
    reply.headers.emplace_back("WWW-Authenticate", "Bearer error=\"invalid_token\"");
    return reply;
}

}  // namespace pmssandbox
