#pragma once

#include "ApiReply.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace pmssandbox {

class BearerToken;
class FaultSwitch;
class IdempotencyStore;
class RequestLog;
class RequestLogRedactor;
class ReservationStore;
class StateDatabase;

/// The service's own routes under /_sandbox/, beside the guest API and never under its prefix: what the
/// service holds, what it received, its fault switches, a reset, and tokens that expire. Same tokens as
/// the guest API.
///
///     GET    /_sandbox/info            service, version, state file, base path
///     GET    /_sandbox/reservations    every booking with its state and folio sums
///     GET    /_sandbox/cards           cards on file
///     GET    /_sandbox/requests        ?after=SEQ&limit=N: the request log, redacted
///     GET    /_sandbox/faults          active faults
///     POST   /_sandbox/faults          adds one fault (or an array of them)
///     DELETE /_sandbox/faults          clears them
///     POST   /_sandbox/reset           back to the seed; forgets idempotency keys
///     POST   /_sandbox/tokens          {"ttl_seconds": N}: a new token that expires
class AdminApi {
public:
    /// What the info route reports besides the version.
    struct Info {
        std::optional<std::string> stateFile;
        std::string basePath;
    };

    AdminApi(StateDatabase& database, ReservationStore& store, IdempotencyStore& keys, FaultSwitch& faults,
             const RequestLog& log, const RequestLogRedactor& redactor, BearerToken& token, Info info);

    /// Whether `rawPath` (the request target's path, not decoded) is one of these routes. Decoding comes
    /// after this choice, so no spelling of a guest path can reach here.
    static bool owns(std::string_view rawPath);

    /// `query` holds the decoded query parameters.
    ApiReply handle(std::string_view method, std::string_view rawPath, const std::multimap<std::string, std::string>& query,
                    std::optional<std::string_view> authorization, std::string_view body) const;

private:
    ApiReply requests(const std::multimap<std::string, std::string>& query) const;
    ApiReply faultList() const;
    ApiReply addFaults(std::string_view body) const;
    ApiReply issueToken(std::string_view body) const;

    StateDatabase& database_;
    ReservationStore& store_;
    IdempotencyStore& keys_;
    FaultSwitch& faults_;
    const RequestLog& log_;
    const RequestLogRedactor& redactor_;
    BearerToken& token_;
    Info info_;
};

}  // namespace pmssandbox
