#pragma once

#include "ApiReply.h"
#include "Router.h"

#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

class BearerToken;
class IdempotencyStore;
class ReservationStore;
class StateDatabase;

/// Turns one guest request into a reply: checks the token, routes, then in one transaction honours the
/// Idempotency-Key, validates the body and asks the store.
class ApiHandler {
public:
    /// The reply header that marks a reply served again for a repeated Idempotency-Key.
    static constexpr const char* kReplayedHeader = "Idempotency-Replayed";

    ApiHandler(StateDatabase& database, ReservationStore& store, IdempotencyStore& keys, const BearerToken& token,
               std::string_view pathPrefix);

    /// The path every route sits under: "/" or "/prefix/".
    const std::string& base() const { return base_; }
    /// `path` relative to the base URL (no leading slash), or nullopt when outside the prefix.
    std::optional<std::string_view> routePath(std::string_view path) const;
    /// `authorization` and `idempotencyKey` are those headers' values, nullopt when absent. The key counts
    /// only on POST and PATCH.
    ApiReply handle(std::string_view method, std::string_view path, std::optional<std::string_view> authorization,
                    std::string_view body, std::optional<std::string_view> idempotencyKey = std::nullopt) const;

private:
    ApiReply dispatch(const Router::Match& route, std::string_view body) const;
    ApiReply once(const Router::Match& route, std::string_view method, std::string_view routePath,
                  std::string_view body, const std::string& key) const;

    StateDatabase& database_;
    ReservationStore& store_;
    IdempotencyStore& keys_;
    const BearerToken& token_;
    std::string base_;  // "/" or "/prefix/"
};

}  // namespace pmssandbox
