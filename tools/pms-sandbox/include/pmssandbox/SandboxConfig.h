#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace pmssandbox {

/// How a SandboxServer listens and what it serves. The server always listens on 127.0.0.1.
struct SandboxConfig {
    /// TCP port; 0 picks a free one (SandboxServer::start() reports it).
    int port = 0;
    /// The main bearer token, accepted in `Authorization: Bearer <token>` and never expiring; the admin
    /// route POST /_sandbox/tokens issues others that expire. Must not be empty.
    std::string token = "sandbox-token";
    /// Optional path prefix in front of every route, e.g. "api/v1" serves /api/v1/guest/reservations.
    /// Leading and trailing slashes are ignored; empty means routes sit at the root.
    std::string pathPrefix;
    /// A seed file to load instead of the bookings built into the library.
    std::optional<std::string> seedFile;
    /// Seed text to load instead of the built-in bookings; wins over seedFile.
    std::optional<std::string> seedJson;
    /// The SQLite file that keeps the bookings' state across runs. A new file is filled from the seed once,
    /// and keeps that seed for resets; an explicit seed that differs from it is refused. Absent: a private
    /// in-memory database, gone with the server.
    std::optional<std::string> stateFile;
    /// Given one line per guest request ("PATCH /guest/reservations/rsv_0003/mobile_checkin 200 0.4 ms"),
    /// without tokens or card ids, on the server's threads. Empty: no lines.
    std::function<void(const std::string&)> requestLine;
    /// Worker threads answering requests. Each open keep-alive connection holds one, and a delayed request
    /// holds one for the length of its delay; the listen queue is sized to match.
    std::size_t workerThreads = 64;
};

}  // namespace pmssandbox
