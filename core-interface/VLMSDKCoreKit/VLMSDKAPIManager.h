#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKTelemetryObserver.h>
#include <VLMSDKCoreKit/VLMSDKTraceContext.h>

#include <memory>

VLMSDK_API_BEGIN

/// The SDK's gateway to its service: the pair of request builder and request manager that the kits'
/// operations use. Kits add their operations to it (see each kit's `VLMSDKAPIManager+...` unit).
class VLMSDKAPIManager {
public:
    /// Operations build their requests with `requestBuilder` and send them through `requestManager`.
    VLMSDKAPIManager(std::shared_ptr<VLMSDKRequestBuilder> requestBuilder,
                     std::shared_ptr<VLMSDKRequestManager> requestManager);

    /// The builder of this API manager's requests.
    const std::shared_ptr<VLMSDKRequestBuilder>& requestBuilder() const { return requestBuilder_; }
    /// The manager that sends this API manager's requests.
    const std::shared_ptr<VLMSDKRequestManager>& requestManager() const { return requestManager_; }

    /// A copy whose operations run under `cancellation` (see VLMSDKCancellation for what a cancel does).
    /// Copies are cheap; the builder and the manager are shared.
    VLMSDKAPIManager withCancellation(std::shared_ptr<VLMSDKCancellation> cancellation) const;
    /// A copy whose operations are moved and delivered without the main queue: the completion runs on the
    /// thread that handled the reply. For callers that block the main thread until it ran.
    VLMSDKAPIManager withHandlerOffMainQueue() const;
    /// A copy whose operations tell `observer` when they start, when each attempt ends and when they end
    /// (see VLMSDKTelemetryObserver; nullptr: none, the default, which costs the operations nothing).
    VLMSDKAPIManager withTelemetryObserver(std::shared_ptr<VLMSDKTelemetryObserver> observer) const;
    /// A copy whose operations run under the host's trace `context`: each request carries `traceparent` with
    /// the context's trace and a span of the operation's own (nullopt, or an invalid context: none is sent).
    VLMSDKAPIManager withTraceContext(std::optional<VLMSDKTraceContext> context) const;
    /// Opens a connection to the service ahead of the first operation (the request manager's `prewarm` of the
    /// builder's base URL): a call for a host's start-up, so that a guest's first tap waits one round trip.
    void prewarmConnections() const;
    /// What this API manager's operations ask of each request.
    const VLMSDKRequestControl& requestControl() const { return control_; }
    /// The observer its operations tell (nullptr: none).
    const std::shared_ptr<VLMSDKTelemetryObserver>& telemetryObserver() const { return observer_; }
    /// The trace its operations run under (nullopt: none).
    const std::optional<VLMSDKTraceContext>& traceContext() const { return trace_; }

private:
    std::shared_ptr<VLMSDKRequestBuilder> requestBuilder_;
    std::shared_ptr<VLMSDKRequestManager> requestManager_;
    VLMSDKRequestControl control_;
    std::shared_ptr<VLMSDKTelemetryObserver> observer_;
    std::optional<VLMSDKTraceContext> trace_;
};

VLMSDK_API_END
