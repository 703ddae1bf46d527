#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

VLMSDK_API_BEGIN

class VLMSDKCredentials;

/// One HTTP request, made by a request builder and handed to a request manager. Immutable once made.
///
/// A request the builder could not make properly (a path that cannot stand in a URL, say) still exists,
/// so that the failure reaches the caller through the normal reply path: it carries `buildError()`, and a
/// request manager answers it with that error without touching the network.
class VLMSDKRequest {
public:
    /// Header names and values, in the order they are sent.
    using Headers = std::vector<std::pair<std::string, std::string>>;

    /// What a request is made of; the builder fills it in.
    struct Parts {
        std::string method;                 ///< "GET", "POST", "PATCH", ...
        std::string path;                   ///< the path the operation asked for, relative to the base URL
        std::string url;                    ///< the absolute URL
        /// The headers to send: the builder's default headers, and Authorization for a fixed or provided token.
        Headers headers;
        std::optional<std::string> body;    ///< the serialized body (JSON text), when there is one
        /// Why the builder could not make the request properly, or nullptr.
        VLMErrorPtr buildError;
        /// Where its bearer token comes from, asked by the request manager before sending (nullptr: none).
        std::shared_ptr<VLMSDKCredentials> credentials{};
    };

    /// The request made of `parts`.
    explicit VLMSDKRequest(Parts parts) : parts_(std::move(parts)) {}

    /// The request's parts, as Parts describes them.
    ///@{
    const std::string& method() const { return parts_.method; }
    const std::string& path() const { return parts_.path; }
    const std::string& url() const { return parts_.url; }
    const Headers& headers() const { return parts_.headers; }
    const std::optional<std::string>& body() const { return parts_.body; }
    const VLMErrorPtr& buildError() const { return parts_.buildError; }
    const std::shared_ptr<VLMSDKCredentials>& credentials() const { return parts_.credentials; }
    ///@}

    /// The first header named `name` (ASCII case-insensitive), if any.
    std::optional<std::string> headerValue(std::string_view name) const;

    /// A copy with header `name` set to `value` (any header of that name, in any case, replaced).
    std::shared_ptr<const VLMSDKRequest> withHeader(std::string_view name, std::string value) const;

    /// `url()` with any password in it replaced by "***" and control bytes escaped ("\r\n"): the form every
    /// error and log line shows.
    std::string redactedURL() const;

private:
    Parts parts_;
};

VLMSDK_API_END
