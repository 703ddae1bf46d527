#pragma once

#include "LoggedRequest.h"

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace pmssandbox {

/// Renders logged requests for eyes outside the process (the admin API, the dashboard, standard error):
/// never the Authorization header, a bearer token (the main one or an issued one), or a card id,
/// wherever it was sent; an
/// Idempotency-Key only as a short hash, which still shows which requests repeated one.
class RequestLogRedactor {
public:
    RequestLogRedactor(std::string token, std::vector<std::string> cardIds);

    /// {"sequence", "request_id", "time", "method", "path", "status" (null in flight or when nothing was sent),
    ///  "ms", "idempotency_key" (hash or null), "trace_id" (from a well-formed traceparent, or null), "note",
    ///  "body" (at most 2,000 characters)}
    nlohmann::json entry(const LoggedRequest& logged) const;
    /// The trace id of the request's `traceparent`, or empty when it sent none (or a malformed one).
    static std::string traceId(const RecordedRequest& request);
    /// "POST /guest/reservations 200 1.2 ms", then the note in brackets if there is one, then
    /// "trace TRACEID" when the request carried a trace context.
    std::string line(const LoggedRequest& logged) const;
    /// `text` with every secret replaced.
    std::string redacted(std::string_view text) const;

private:
    std::string body(const std::string& text) const;

    std::string token_;
    std::vector<std::string> cardIds_;  // longest first, so none is replaced inside another
};

}  // namespace pmssandbox
