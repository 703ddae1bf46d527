#pragma once

#include "ApiReply.h"

#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>

namespace pmssandbox {

/// The tokens the service accepts, checked the same way on the guest and the admin routes: its main
/// token, which never expires, and the ones it issued, each until its expiry. Issued tokens live in
/// memory only. Thread-safe.
class BearerToken {
public:
    /// An issued token is this prefix and as many lowercase hex digits; the request log hides that shape.
    static constexpr std::string_view kIssuedPrefix = "tok_";
    static constexpr std::size_t kIssuedDigits = 32;
    /// Issued tokens remembered at once; when full, the one that expires first is forgotten.
    static constexpr std::size_t kMostIssued = 10000;

    struct Issued {
        std::string token;
        std::chrono::system_clock::time_point expiresAt;
    };

    explicit BearerToken(std::string token) : token_(std::move(token)) {}

    /// nullopt when `authorization` (the header's value, nullopt when absent) carries an accepted token;
    /// else the 401.
    std::optional<ApiReply> refusal(std::optional<std::string_view> authorization) const;
    /// A new token, accepted for `ttl` from now.
    Issued issue(std::chrono::seconds ttl);

private:
    using Clock = std::chrono::steady_clock;

    std::string token_;
    mutable std::mutex mutex_;  // guards the members below
    // Expired tokens stay until room is needed, so that they keep being answered as expired, not unknown.
    std::unordered_map<std::string, Clock::time_point> issued_;  // token -> expiry
    std::random_device random_;
};

}  // namespace pmssandbox
