#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

VLMSDK_API_BEGIN

/// What the server answered, besides the body: the URL, the HTTP status and the headers.
class VLMSDKURLResponse {
public:
    /// Header names and values, in the order they came.
    using Headers = std::vector<std::pair<std::string, std::string>>;

    /// The answer of `url` with `statusCode` and `headers`, after `attempts` sends.
    VLMSDKURLResponse(std::string url, long statusCode, Headers headers = {}, unsigned attempts = 1)
        : url_(std::move(url)), statusCode_(statusCode), headers_(std::move(headers)), attempts_(attempts) {}

    /// The URL the request went to; the SDK's transport redacts a password in it.
    const std::string& url() const { return url_; }
    /// The HTTP status.
    long statusCode() const { return statusCode_; }
    /// The response's headers.
    const Headers& headers() const { return headers_; }
    /// How many times the request was sent before this answer (more than 1 under a retry policy).
    unsigned attempts() const { return attempts_; }

    /// The first header named `name` (ASCII case-insensitive), if any.
    std::optional<std::string> headerValue(std::string_view name) const;
    /// The service's own id of this request (its X-Request-Id header), the first thing its team asks for in a
    /// support ticket; absent if it sent none.
    std::optional<std::string> requestID() const { return headerValue("X-Request-Id"); }

private:
    std::string url_;
    long statusCode_;
    Headers headers_;
    unsigned attempts_;
};

VLMSDK_API_END
