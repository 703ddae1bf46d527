#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <VLMSDKCoreKit/VLMSDKCredentials.h>
#include <VLMSDKCoreKit/VLMSDKJSON.h>
#include <VLMSDKCoreKit/VLMSDKRequest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

VLMSDK_API_BEGIN

/// Makes the requests of one service: base URL plus path, default headers, bearer token, JSON bodies.
///
/// Settings may be changed from any thread; a request takes the settings in force when it is made.
/// The three building operations are virtual so that a host or a test can record or adjust requests.
class VLMSDKRequestBuilder {
public:
    /// Answers the bearer token for the next request, or nothing for none. Called on the building thread.
    using TokenProvider = std::function<std::optional<std::string>()>;

    /// `baseURL` is an http or https URL; a missing trailing slash is added. A base URL that is not
    /// http(s) makes every request carry a build error.
    explicit VLMSDKRequestBuilder(std::string baseURL);
    virtual ~VLMSDKRequestBuilder() = default;

    /// A GET request for `path`; `parameters`, a JSON object, become the query string.
    virtual std::shared_ptr<const VLMSDKRequest> GETWithPath(const std::string& path,
                                                             const std::optional<VLMSDKJSON>& parameters);
    /// A POST request whose JSON body is `parameters` (no body when absent).
    virtual std::shared_ptr<const VLMSDKRequest> POSTWithPath(const std::string& path,
                                                              const std::optional<VLMSDKJSON>& parameters);
    /// A PATCH request whose JSON body is `parameters` (no body when absent).
    virtual std::shared_ptr<const VLMSDKRequest> PATCHWithPath(const std::string& path,
                                                               const std::optional<VLMSDKJSON>& parameters);

    /// The base URL, ending in a slash.
    std::string baseURL() const;
    /// A fixed bearer token (absent: none), sent as it is. A token provider, when set, wins over it.
    void setAccessToken(std::optional<std::string> token);
    /// A function answering the token of each request as it is built. A credentials provider wins over both.
    void setTokenProvider(TokenProvider provider);
    /// Tokens that refresh themselves: every request made from now on carries one `VLMSDKCredentials` over
    /// `provider` (nullptr: none), which the request manager asks for a token before sending, and again once
    /// after a 401 (see VLMSDKCredentials). Wins over the access token and the token provider.
    void setCredentialsProvider(std::shared_ptr<VLMSDKCredentialsProvider> provider,
                                VLMSDKCredentials::Options options = {});
    /// The credentials requests are given now (nullptr: none): their cache, for a look at its fetches.
    std::shared_ptr<VLMSDKCredentials> credentials() const;
    /// Sets (or, with an absent value, removes) a header sent with every request.
    void setDefaultHeader(const std::string& name, std::optional<std::string> value);
    /// The headers sent with every request: at first Accept and Content-Type `application/json`, and the
    /// User-Agent `defaultUserAgent()`.
    VLMSDKRequest::Headers defaultHeaders() const;

    /// "VLMSDKPMSKit/<version>": the User-Agent sent by default.
    static std::string defaultUserAgent();

protected:
    /// Builds a request of any method; the three operations above call it.
    std::shared_ptr<const VLMSDKRequest> requestWithMethod(const std::string& method, const std::string& path,
                                                           const std::optional<VLMSDKJSON>& parameters,
                                                           bool parametersInQuery);

private:
    mutable std::mutex mutex_;
    std::string baseURL_;
    std::optional<std::string> baseURLProblem_;  // why baseURL_ cannot be used; fixed at construction
    std::optional<std::string> accessToken_;
    TokenProvider tokenProvider_;
    std::shared_ptr<VLMSDKCredentials> credentials_;
    VLMSDKRequest::Headers defaultHeaders_;
};

VLMSDK_API_END
