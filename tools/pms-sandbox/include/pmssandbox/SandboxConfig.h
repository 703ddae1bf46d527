#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace pmssandbox {

/// How a SandboxServer listens and what it serves. The server always listens on 127.0.0.1.
struct SandboxConfig {
    /// TCP port; 0 picks a free one (SandboxServer::start() reports it).
    int port = 0;
    /// The only bearer token accepted in `Authorization: Bearer <token>`. Must not be empty.
    std::string token = "sandbox-token";
    /// Optional path prefix in front of every route, e.g. "api/v1" serves /api/v1/guest/reservations.
    /// Leading and trailing slashes are ignored; empty means routes sit at the root.
    std::string pathPrefix;
    /// A seed file to load instead of the bookings built into the library.
    std::optional<std::string> seedFile;
    /// Seed text to load instead of the built-in bookings; wins over seedFile.
    std::optional<std::string> seedJson;
    /// Worker threads answering requests; a delayed request holds one for the length of its delay.
    std::size_t workerThreads = 8;
};

}  // namespace pmssandbox
