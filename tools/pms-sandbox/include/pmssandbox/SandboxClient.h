#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace pmssandbox {

/// A plain HTTP client for a running sandbox: its admin routes, or guest requests sent as they are
/// (load programs, scripts). Not thread-safe: one per thread. Nothing throws.
class SandboxClient {
public:
    struct Reply {
        int status = 0;  ///< 0 when no reply arrived (see error)
        std::string body;
        std::vector<std::pair<std::string, std::string>> headers;
        std::string error;
    };

    /// A token the service issued, accepted like its main token until it expires.
    struct IssuedToken {
        std::string token;
        std::chrono::seconds expiresIn{0};
        std::string expiresAt;  ///< ISO-8601, UTC
    };

    /// `serviceUrl` is any URL of the service ("http://127.0.0.1:8787/api/v1/"): only its scheme, host
    /// and port count. Each request carries `Authorization: Bearer <token>`. With `keepAlive`, one
    /// connection serves request after request.
    SandboxClient(const std::string& serviceUrl, std::string token,
                  std::chrono::milliseconds timeout = std::chrono::seconds(5), bool keepAlive = false);
    ~SandboxClient();
    SandboxClient(const SandboxClient&) = delete;
    SandboxClient& operator=(const SandboxClient&) = delete;

    /// `target` is the path from the root, query included ("/_sandbox/requests?after=3").
    Reply send(const std::string& method, const std::string& target, const std::string& body = "",
               const std::vector<std::pair<std::string, std::string>>& headers = {});
    /// A new token from POST /_sandbox/tokens, good for `ttlSeconds` (1 to 86400). nullopt when none came;
    /// `error`, if given, then says why.
    std::optional<IssuedToken> issueToken(int ttlSeconds, std::string* error = nullptr);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace pmssandbox
