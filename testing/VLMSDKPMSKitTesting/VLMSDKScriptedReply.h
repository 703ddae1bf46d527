#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>
#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <chrono>
#include <string>

VLMSDK_API_BEGIN

/// What the scripted request manager answers one expected request with: an HTTP reply, or a fault, after
/// an optional delay. Set the members by name: `{.status = 404, .body = R"({"error":{}})"}`.
///
/// The body is text, read the way the HTTP request manager reads a real reply: a blank body gives no JSON
/// and no error, a body that is not JSON gives the `VLMErrorCode::InvalidResponse` error a real one would.
struct VLMSDKScriptedReply {
    /// A reply that never came.
    enum class Fault {
        None,               ///< an HTTP reply: `status`, `headers`, `body`
        DroppedConnection,  ///< the connection closed before an answer: a `VLMErrorCode::Transport` error
        Timeout,            ///< no answer in time: a `VLMErrorCode::Timeout` error
    };

    /// The HTTP status (ignored for a fault).
    long status = 200;
    /// The body's text as the service sends it, normally JSON; blank: no body.
    std::string body{};
    /// The reply's headers, in order.
    VLMSDKURLResponse::Headers headers{};
    /// How long the reply takes. Zero: it is answered in the next pump of the main queue.
    std::chrono::milliseconds delay{0};
    /// A fault instead of an HTTP reply.
    Fault fault = Fault::None;

    /// An HTTP reply with `status` and `body` as its JSON text.
    static VLMSDKScriptedReply json(long status, const VLMSDKJSON& body, VLMSDKURLResponse::Headers headers = {});
    /// `fault` after `delay`.
    static VLMSDKScriptedReply failure(Fault fault, std::chrono::milliseconds delay = std::chrono::milliseconds(0));
};

VLMSDK_API_END
