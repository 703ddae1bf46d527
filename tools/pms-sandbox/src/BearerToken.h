#pragma once

#include "ApiReply.h"

#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

/// The one token the service accepts, checked the same way on the guest and the admin routes.
class BearerToken {
public:
    explicit BearerToken(std::string token) : token_(std::move(token)) {}

    /// nullopt when `authorization` (the header's value, nullopt when absent) carries the token; else the 401.
    std::optional<ApiReply> refusal(std::optional<std::string_view> authorization) const;
    const std::string& text() const { return token_; }

private:
    std::string token_;
};

}  // namespace pmssandbox
