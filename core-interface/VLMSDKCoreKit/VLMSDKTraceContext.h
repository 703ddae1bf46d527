#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <optional>
#include <string>
#include <string_view>

VLMSDK_API_BEGIN

/// A W3C trace context: the trace a host's work belongs to and the span it runs under. Given to an API manager
/// copy (`VLMSDKAPIManager::withTraceContext`), it is sent as `traceparent` on every request of that copy's
/// operations, each operation under a span of its own, so that the service's logs join the host's traces.
/// A plain value: copy it freely between threads.
struct VLMSDKTraceContext {
    std::string traceID;  ///< 32 lowercase hex digits, not all zero
    std::string spanID;   ///< 16 lowercase hex digits, not all zero
    bool sampled = true;  ///< the host records this trace (the `traceparent` flags)

    /// "00-TRACEID-SPANID-01" ("-00" when not sampled).
    std::string traceparent() const;
    /// Whether both identifiers have the form above.
    bool isValid() const;
    /// The context of a `traceparent` value, or nullopt when it is malformed (a version other than "00" is
    /// read by its first four fields, as the format asks).
    static std::optional<VLMSDKTraceContext> fromTraceparent(std::string_view value);
    /// A new trace: random trace and span identifiers.
    static VLMSDKTraceContext newTrace();
    /// A span under this one: the same trace and flags, a new random span identifier.
    VLMSDKTraceContext child() const;
};

VLMSDK_API_END
