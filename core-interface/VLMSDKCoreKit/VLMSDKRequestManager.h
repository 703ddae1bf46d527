#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKCancellation.h>
#include <VLMSDKCoreKit/VLMSDKJSONReply.h>
#include <VLMSDKCoreKit/VLMSDKOperationTelemetry.h>
#include <VLMSDKCoreKit/VLMSDKReplyExpectation.h>
#include <VLMSDKCoreKit/VLMSDKRequest.h>
#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <functional>
#include <memory>
#include <string>

VLMSDK_API_BEGIN

/// \file
/// The request manager interface, which sends what the kits' operations build, and what a caller asks of it.

/// The reply handler of one request: the parsed reply body (nullptr when there was none, or it was not
/// JSON), the response (nullptr when no HTTP answer came) and the error (nullptr on an HTTP answer whose
/// body, if any, parsed).
using VLMSDKDataTaskCompletion = std::function<void(std::shared_ptr<const VLMSDKJSONReply> reply,
                                                    std::shared_ptr<const VLMSDKURLResponse> response,
                                                    VLMErrorPtr error)>;

/// What a caller asks of one request beyond the request itself.
struct VLMSDKRequestControl {
    /// Cancels the request (nullptr: nothing does): its handler then runs once with the cancelled error.
    std::shared_ptr<VLMSDKCancellation> cancellation;
    /// The caller may block the main thread until the handler ran (a future waited on there): the manager
    /// must not need the main queue to be pumped to move this request, and the kit's operations deliver its
    /// completion on the thread that handled the reply.
    bool handlerOffMainQueue = false;
    /// What the reply must name to be this request's (nullptr: nothing). A manager that checks it answers a
    /// reply naming something else with its `VLMErrorCode::ReplyMismatch` error instead, and does not use the
    /// connection it came on again; the kit's operations check it before they deliver when the manager does not
    /// (`checksExpectedReplies`).
    std::shared_ptr<const VLMSDKReplyExpectation> expectedReply;
    /// The operation the request belongs to, for telemetry (nullptr: no observer and no trace context). A
    /// manager that sees each attempt tells `telemetry->reportAttempt` as each one ends; the kit's operations
    /// report the operation's start and end themselves.
    std::shared_ptr<const VLMSDKOperationTelemetry> telemetry;
};

/// Sends requests. An interface, so that a host or a test can supply its own.
class VLMSDKRequestManager {
public:
    virtual ~VLMSDKRequestManager() = default;

    /// `performDataTaskRequest` under `control`. This default answers a request cancelled already with the
    /// cancelled error at once, on the calling thread, and otherwise sends it as the two-argument form does
    /// (a later cancel is then noticed only by the kit's operations, before they deliver); managers that can
    /// stop a transfer on the wire override it.
    virtual void performControlledRequest(std::shared_ptr<const VLMSDKRequest> request,
                                          const VLMSDKRequestControl& control, VLMSDKDataTaskCompletion completion);


    /// Opens a connection to `url`'s server ahead of the first request (name looked up, connection and TLS
    /// handshake made, HTTP/2 agreed where offered), so that the first request pays one round trip instead of
    /// three or four. Returns at once and reports nothing; a failure only means the first request connects as
    /// usual. This default does nothing (a manager with no connections of its own).
    virtual void prewarm(const std::string& url) { (void)url; }

    /// Whether this manager checks `VLMSDKRequestControl::expectedReply` itself, on every reply; then the kit's
    /// operations do not look again. Default: false (the kit checks).
    virtual bool checksExpectedReplies() const { return false; }

    /// Sends `request` without blocking the caller, parses the reply body as JSON and calls `completion`
    /// exactly once, on whichever thread the manager chooses (the calling thread included).
    virtual void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                        VLMSDKDataTaskCompletion completion) = 0;
};

VLMSDK_API_END
