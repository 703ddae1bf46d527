#pragma once

#include "ApiReply.h"

#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

class ReservationStore;

/// Turns one request into a reply: checks the token, routes, validates the body, asks the store.
class ApiHandler {
public:
    ApiHandler(ReservationStore& store, std::string token, std::string_view pathPrefix);

    /// The path every route sits under: "/" or "/prefix/".
    const std::string& base() const { return base_; }
    /// `path` relative to the base URL (no leading slash), or nullopt when outside the prefix.
    std::optional<std::string_view> routePath(std::string_view path) const;
    /// `authorization` is the Authorization header's value, nullopt when absent.
    ApiReply handle(std::string_view method, std::string_view path, std::optional<std::string_view> authorization,
                    std::string_view body) const;

private:
    std::optional<ApiReply> checkToken(std::optional<std::string_view> authorization) const;

    ReservationStore& store_;
    std::string token_;
    std::string base_;  // "/" or "/prefix/"
};

}  // namespace pmssandbox
