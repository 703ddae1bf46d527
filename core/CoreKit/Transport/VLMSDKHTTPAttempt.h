#pragma once

#include <VLMSDKCoreKit/VLMSDKHTTPExchange.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManagerOptions.h>
#include <VLMSDKCoreKit/VLMSDKRequestManager.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace vlmsdk::detail {

class VLMSDKJSONReader;
class VLMSDKTransportAdapter;

/// A request handed to the HTTP request manager, as it waits for a slot.
struct VLMSDKHTTPPendingRequest {
    std::shared_ptr<const VLMSDKRequest> request;
    VLMSDKDataTaskCompletion completion;
    std::uint64_t id = 0;  ///< a number unique in the process for a request that is cancellable or keyed; else 0
    std::uint32_t attempt = 1;
    bool authorizationRefreshed = false;  ///< sent again after a 401 with a token fetched anew: not again
    bool staleWhenGiven = false;  ///< its token was past its freshness when its fetch ended: sent as it is
    std::shared_ptr<const VLMSDKReplyExpectation> expectedReply{};
    std::shared_ptr<const std::string> authorization{};  ///< "Bearer ..." from the request's credentials
    std::shared_ptr<const VLMSDKOperationTelemetry> telemetry{};  ///< told of each attempt's end, when present
};

/// The three values a reply handler receives.
struct VLMSDKHTTPReply {
    std::shared_ptr<const VLMSDKJSONReply> body;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;
};

/// How an attempt ended, in the core's own terms, whichever adapter carried it: the retry rule decides from
/// it, and VLMSDKHTTPAttempt::finish makes the error from it.
enum class VLMSDKHTTPAttemptEnd {
    Answered,        ///< a whole reply came
    NotResolved,     ///< the host's (or the proxy's) name did not resolve: nothing left
    ConnectFailed,   ///< no connection could be made: nothing left
    SendFailed,      ///< the request could not be written
    ReceiveFailed,   ///< reading the reply failed (a reset, a stream the server refused)
    NoAnswer,        ///< the connection closed before any byte of an answer
    MayHaveActed,    ///< a kept connection died after the request went out, before any answer; not sent again
    MalformedReply,  ///< a reply the core refuses: one that could be read two ways, or over a limit of its own
    CutShort,        ///< the connection ended inside the reply
    TooLarge,        ///< the reply is over the size limit
    TimedOut,        ///< the connect or the request took longer than allowed
    TLSFailed,       ///< the handshake or the certificate check failed
    InvalidRequest,  ///< the transport could not take the request (a URL it cannot parse)
    OutOfMemory,
    Failed,          ///< anything else
};

/// One request on the wire: what was asked, the reply as an adapter fills it in, and the one place an end
/// becomes what the reply handler receives. Owned by the scheduler, lent to one adapter while it is live;
/// used by the driving thread only.
class VLMSDKHTTPAttempt {
public:
    explicit VLMSDKHTTPAttempt(const VLMSDKHTTPRequestManagerOptions& options) : options_(options) {}
    VLMSDKHTTPAttempt(const VLMSDKHTTPAttempt&) = delete;
    VLMSDKHTTPAttempt& operator=(const VLMSDKHTTPAttempt&) = delete;

    /// Takes a request that VLMSDKRequestCheck accepted; the attempt must answer by `deadline`, if any.
    void take(VLMSDKHTTPPendingRequest&& pending, std::optional<std::chrono::steady_clock::time_point> deadline);

    const VLMSDKRequest& request() const { return *request_; }
    const std::shared_ptr<const VLMSDKRequest>& sharedRequest() const { return request_; }
    std::uint64_t requestID() const { return requestID_; }
    unsigned attempt() const { return attempt_; }
    /// Whether it carries an idempotency key, the manager's or its own (then it may be repeated like a GET).
    bool isKeyed() const { return keyed_; }
    /// A GET, or keyed: sending it again cannot do anything twice.
    bool isRepeatable() const;
    /// Whether the method sends a body (POST, PUT, PATCH; DELETE with one).
    bool sendsBody() const;
    /// The Idempotency-Key value the manager adds, if any: the same on every attempt of one request (none when
    /// the request carries its own).
    std::optional<std::string> idempotencyKey() const;
    /// The Authorization value from the request's credentials ("Bearer ..."), or nullptr.
    const std::string* authorization() const { return authorization_.get(); }
    const std::shared_ptr<const std::string>& sharedAuthorization() const { return authorization_; }
    bool authorizationRefreshed() const { return authorizationRefreshed_; }
    /// The same request as a new attempt, to send again later (its completion still to be set).
    VLMSDKHTTPPendingRequest next(bool refreshingAuthorization) const;
    /// The reply's mismatch error when it names something other than what was asked (then the connection it
    /// came on must not carry another request); nullptr otherwise.
    VLMErrorPtr mismatchOf(const VLMSDKHTTPReply& reply) const;
    bool checksReply() const { return expectedReply_ != nullptr; }
    /// When the answer must have come, set when it was first sent (kept when an adapter sends it again).
    std::optional<std::chrono::steady_clock::time_point> deadline() const { return deadline_; }
    const VLMSDKHTTPRequestManagerOptions& options() const { return options_; }

    /// The reply as it arrives, for the adapter to fill in.
    long statusCode = 0;
    VLMSDKURLResponse::Headers headers;
    std::string body;

    /// The reply handler's three values once the attempt ended with `end`; `detail` is the adapter's own
    /// account (libcurl's words, or the connection's). Parses the body with `reader`. Never throws.
    VLMSDKHTTPReply finish(VLMSDKHTTPAttemptEnd end, std::string_view detail, VLMSDKJSONReader& reader);
    /// The finished attempt as the exchange observer sees it (between `finish` and `release`).
    VLMSDKHTTPExchange exchange(const VLMSDKHTTPReply& reply) const;
    /// The operation to tell of each attempt's end, or nullptr.
    const VLMSDKOperationTelemetry* telemetry() const { return telemetry_.get(); }
    /// The finished attempt as telemetry sees it: no URL, headers or bodies (between `finish` and `release`).
    VLMSDKAttemptEvent attemptEvent(const VLMSDKHTTPReply& reply) const;

    /// The error that answers it when the manager shuts down first.
    VLMErrorPtr cancellationError() const;
    /// The error for an attempt the host cancelled: it says whether a POST or PATCH may have reached the
    /// service, which it may once any byte of it was sent.
    VLMErrorPtr hostCancellationError(bool sentAnything) const;

    /// Hands back the completion and forgets the request, ready for the next one.
    VLMSDKDataTaskCompletion release();

    /// The adapter carrying it while it is live; nullptr otherwise.
    VLMSDKTransportAdapter* carrier = nullptr;

private:
    VLMSDKHTTPReply replyFor(VLMSDKHTTPAttemptEnd end, std::string_view detail, VLMSDKJSONReader& reader);
    VLMErrorPtr endError(VLMSDKHTTPAttemptEnd end, std::string_view detail) const;

    const VLMSDKHTTPRequestManagerOptions& options_;
    std::shared_ptr<const VLMSDKRequest> request_;
    VLMSDKDataTaskCompletion completion_;
    std::uint64_t requestID_ = 0;
    unsigned attempt_ = 1;
    bool keyed_ = false;
    bool ownKey_ = false;
    bool authorizationRefreshed_ = false;
    std::shared_ptr<const VLMSDKReplyExpectation> expectedReply_;
    std::shared_ptr<const std::string> authorization_;
    std::shared_ptr<const VLMSDKOperationTelemetry> telemetry_;
    std::optional<std::chrono::steady_clock::time_point> deadline_;
    std::chrono::steady_clock::time_point started_;
};

}  // namespace vlmsdk::detail
