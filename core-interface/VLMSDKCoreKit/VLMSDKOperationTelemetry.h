#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKTelemetryObserver.h>
#include <VLMSDKCoreKit/VLMSDKTraceContext.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

class VLMSDKURLResponse;

/// What telemetry knows of one operation: its name, its request's method and route template, its span, and
/// the observer to tell. Made by the kit's operations when the API manager has an observer or a trace context,
/// and handed to the request manager in `VLMSDKRequestControl::telemetry`. Immutable once made; the `report...`
/// members may be called from any thread, and never throw.
struct VLMSDKOperationTelemetry {
    std::string operation;  ///< the operation's name, e.g. "fetchReservation"
    std::string method;     ///< "GET", "POST", "PATCH"
    std::string route;      ///< the route template, e.g. "guest/reservations/{id}"
    /// The operation's own span: the host's trace with a new span identifier, sent as `traceparent`; nullopt
    /// when the API manager has no trace context (then nothing is sent).
    std::optional<VLMSDKTraceContext> span;
    std::string parentSpanID;  ///< the host's span the operation's span is under; empty without a trace context
    std::chrono::system_clock::time_point startedAt;  ///< wall clock, for spans
    std::chrono::steady_clock::time_point started;    ///< for durations
    std::shared_ptr<VLMSDKTelemetryObserver> observer;  ///< nullptr: events go nowhere

    /// Made now, under `trace` when there is one.
    static std::shared_ptr<const VLMSDKOperationTelemetry> start(std::string operation, std::string method,
                                                                 std::string route,
                                                                 const std::optional<VLMSDKTraceContext>& trace,
                                                                 std::shared_ptr<VLMSDKTelemetryObserver> observer);

    /// Tells the observer that the operation started.
    void reportStarted() const;
    /// Tells the observer of one attempt's end.
    void reportAttempt(const VLMSDKAttemptEvent& attempt) const;
    /// Tells the observer of the operation's end: `response` is the last reply (nullptr when none came) and
    /// `error` the outcome's (nullptr on success).
    void reportEnded(const VLMSDKURLResponse* response, const VLMErrorPtr& error) const;
};

VLMSDK_API_END
