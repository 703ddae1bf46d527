#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKRequest.h>
#include <VLMSDKCoreKit/VLMSDKURLResponse.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// \file
/// What crossed the wire, for logs and verbose output: one exchange per attempt.

/// One attempt of a request as it crossed the wire: what was sent, what came back, how long it took.
/// Meant for logs and verbose output, so secrets the transport knows of are already redacted: a password in
/// the URL and the credentials of an Authorization header read "***". Bodies are as sent and received
/// (their content is the service's; redact what it holds before showing it).
struct VLMSDKHTTPExchange {
    /// The request's method.
    std::string method;
    /// The URL, a password in it redacted.
    std::string url;
    /// The headers sent, an Authorization header's credentials redacted.
    VLMSDKRequest::Headers requestHeaders;
    /// The body sent, when there was one.
    std::optional<std::string> requestBody;
    long statusCode = 0;  ///< 0: no HTTP answer came
    /// The headers received (none when no HTTP answer came).
    VLMSDKURLResponse::Headers responseHeaders;
    std::string responseBody;  ///< as received, up to the reply size limit
    /// How long the attempt took, from its start to its end.
    std::chrono::microseconds duration{0};
    unsigned attempt = 1;  ///< 1 for the first attempt of a request
    std::string failure;   ///< what went wrong with the attempt, as its error says; empty when nothing did
};

/// Receives every exchange of a request manager (see VLMSDKHTTPRequestManagerOptions::exchangeObserver).
using VLMSDKHTTPExchangeObserver = std::function<void(const VLMSDKHTTPExchange&)>;

VLMSDK_API_END
