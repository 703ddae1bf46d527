#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

struct VLMSDKOperationTelemetry;

/// How an operation ended, as its completion is about to receive it.
struct VLMSDKOperationEnd {
    std::chrono::microseconds duration{0};  ///< from the request being handed over to the outcome being made
    long statusCode = 0;                    ///< of the last reply; 0 when no HTTP answer came
    VLMErrorPtr error;                      ///< nullptr on success; carries `requestID()` when a reply had one
    std::string requestID;                  ///< the last reply's `X-Request-Id`; empty when there was none
};

/// One attempt of an operation's request, as it ended on the wire (sent by the HTTP request manager only).
struct VLMSDKAttemptEvent {
    unsigned attempt = 1;                   ///< 1 for the first; more under the retry policy or after a 401
    long statusCode = 0;                    ///< 0 when no HTTP answer came
    std::chrono::microseconds duration{0};  ///< on the wire, connecting included
    std::size_t bytesSent = 0;              ///< body bytes sent
    std::size_t bytesReceived = 0;          ///< body bytes received
    std::optional<VLMErrorCode> errorCode;  ///< what went wrong with this attempt; absent when it was answered
    std::string requestID;                  ///< the reply's `X-Request-Id`; empty when there was none
};

/// Told of each operation of the API managers it is given to (`VLMSDKAPIManager::withTelemetryObserver`): when
/// it starts, when each of its attempts ends, and when it ends. Events carry route templates
/// ("guest/reservations/{id}/folio"), never identifiers or bodies: a guest's data stays out of telemetry.
///
/// Threads: `operationStarted` runs on the thread that called the operation; the others on the thread that
/// handles the reply (the main thread or the request manager's network thread), so an observer shared by
/// several operations must be thread-safe. Each call must return quickly; a throw is caught and ignored.
/// Exactly once: one `operationStarted` and one `operationEnded` per operation that sent a request (input
/// refused before a request was made sends none), `operationEnded` before the completion runs.
class VLMSDKTelemetryObserver {
public:
    virtual ~VLMSDKTelemetryObserver() = default;

    /// The operation handed its request to the request manager.
    virtual void operationStarted(const VLMSDKOperationTelemetry& operation) { (void)operation; }
    /// One attempt ended (before the retry policy decided whether to send it again).
    virtual void attemptEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKAttemptEvent& attempt) {
        (void)operation;
        (void)attempt;
    }
    /// The operation's outcome is made: its completion runs next.
    virtual void operationEnded(const VLMSDKOperationTelemetry& operation, const VLMSDKOperationEnd& end) {
        (void)operation;
        (void)end;
    }
};

VLMSDK_API_END
