#include "BearerToken.h"

#include "AsciiText.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace pmssandbox {

namespace {

ApiReply invalid(std::string_view code, std::string_view message) {
    ApiReply reply = ApiReply::error(401, code, message);
    reply.headers.emplace_back("WWW-Authenticate", "Bearer error=\"invalid_token\"");
    return reply;
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
    if (scheme == "bearer") {
        std::lock_guard lock(mutex_);
        const auto found = issued_.find(std::string(token));
        if (found != issued_.end() && Clock::now() < found->second) return std::nullopt;
        if (found != issued_.end()) return invalid("token_expired", "The access token has expired.");
    }
    return invalid("invalid_token", "The bearer token is not valid for this service.");
}

BearerToken::Issued BearerToken::issue(std::chrono::seconds ttl) {
    std::lock_guard lock(mutex_);
    if (issued_.size() >= kMostIssued) {
        issued_.erase(std::min_element(issued_.begin(), issued_.end(),
                                       [](const auto& a, const auto& b) { return a.second < b.second; }));
    }
    std::string token(kIssuedPrefix);
    for (std::size_t digits = 0; digits < kIssuedDigits; digits += 8) {
        char word[9];
        std::snprintf(word, sizeof word, "%08x", static_cast<unsigned>(random_()));
        token += word;
    }
    issued_[token] = Clock::now() + ttl;
    return {std::move(token), std::chrono::system_clock::now() + ttl};
}

}  // namespace pmssandbox
