#include "VLMSDKHTTPAttempt.h"

#include "../JSON/VLMSDKJSONReader.h"
#include "../VLMSDKHeaderLookup.h"

#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <algorithm>
#include <cstdio>
#include <random>

namespace vlmsdk::detail {

namespace {

// Reply buffers up to this size stay with the attempt for the next request; larger ones are given back.
constexpr std::size_t kKeptBodyCapacity = 64 * 1024;
constexpr std::size_t kExcerptLength = 80;

// Errors name the request without any password its URL carries.
std::string describe(const VLMSDKRequest& request) { return request.method() + " " + request.redactedURL(); }

// A short, printable piece of a reply body for an error message.
std::string excerptOf(const std::string& body) {
    std::string excerpt = body.substr(0, kExcerptLength);
    std::replace_if(excerpt.begin(), excerpt.end(), isControlByte, ' ');
    if (body.size() > kExcerptLength) excerpt += "...";
    return excerpt;
}

// Random once per process, so that keys of different runs and managers never meet at the service.
const std::string& idempotencyPrefix() {
    static const std::string prefix = [] {
        std::random_device random;
        char text[40];
        std::snprintf(text, sizeof text, "%08x%08x%08x%08x-", random(), random(), random(), random());
        return std::string(text);
    }();
    return prefix;
}

VLMErrorPtr networkError(VLMErrorCode code, std::string message, const char* function) {
    return VLMError::errorWithCode(code, kVLMSDKNetworkErrorDomain, std::move(message), function, __FILE__);
}

// What went wrong, as the error says it; the adapter's own account follows.
const char* phraseOf(VLMSDKHTTPAttemptEnd end) {
    using End = VLMSDKHTTPAttemptEnd;
    switch (end) {
        case End::NotResolved: return "the name could not be resolved";
        case End::ConnectFailed: return "could not connect";
        case End::SendFailed: return "the request could not be sent";
        case End::ReceiveFailed: return "the reply could not be read";
        case End::NoAnswer: return "the server closed the connection without answering";
        case End::MalformedReply: return "the reply is malformed";
        case End::CutShort: return "the reply was cut short";
        case End::TimedOut: return "timed out";
        case End::TLSFailed: return "the secure connection could not be made";
        case End::InvalidRequest: return "the transport could not take the request";
        default: return "the transfer failed";
    }
}

}  // namespace

void VLMSDKHTTPAttempt::take(VLMSDKHTTPPendingRequest&& pending,
                             std::optional<std::chrono::steady_clock::time_point> deadline) {
    requestID_ = pending.id;
    attempt_ = pending.attempt;
    request_ = std::move(pending.request);
    completion_ = std::move(pending.completion);
    // A request that carries its own key (an outbox item's, made when it was stored) is keyed too.
    ownKey_ = request_->headerValue("Idempotency-Key").has_value();
    keyed_ = ownKey_ || (options_.retry.idempotencyKeys && request_->method() != "GET" && requestID_ != 0);
    authorizationRefreshed_ = pending.authorizationRefreshed;
    expectedReply_ = std::move(pending.expectedReply);
    authorization_ = std::move(pending.authorization);
    telemetry_ = std::move(pending.telemetry);
    deadline_ = deadline;
    started_ = std::chrono::steady_clock::now();
    statusCode = 0;
}

VLMSDKHTTPPendingRequest VLMSDKHTTPAttempt::next(bool refreshingAuthorization) const {
    VLMSDKHTTPPendingRequest pending{request_, nullptr, requestID_, attempt_ + 1};
    pending.authorizationRefreshed = authorizationRefreshed_ || refreshingAuthorization;
    pending.expectedReply = expectedReply_;
    pending.telemetry = telemetry_;
    return pending;
}

VLMErrorPtr VLMSDKHTTPAttempt::mismatchOf(const VLMSDKHTTPReply& reply) const {
    if (!expectedReply_ || !reply.body || reply.error || !expectedReply_->isContradictedBy(*reply.body)) return nullptr;
    try {
        return expectedReply_->mismatchError(*reply.body, describe(*request_), true);
    } catch (const std::exception&) {
        return nullptr;  // out of memory: the kit's own check still stands before delivery
    }
}

bool VLMSDKHTTPAttempt::isRepeatable() const { return keyed_ || request_->method() == "GET"; }

bool VLMSDKHTTPAttempt::sendsBody() const {
    const std::string& method = request_->method();
    return method == "POST" || method == "PUT" || method == "PATCH" || (method == "DELETE" && request_->body());
}

std::optional<std::string> VLMSDKHTTPAttempt::idempotencyKey() const {
    // The process's random prefix and the request's number.
    if (!keyed_ || ownKey_) return std::nullopt;
    return idempotencyPrefix() + std::to_string(requestID_);
}

VLMSDKHTTPReply VLMSDKHTTPAttempt::finish(VLMSDKHTTPAttemptEnd end, std::string_view detail,
                                          VLMSDKJSONReader& reader) {
    try {
        VLMSDKHTTPReply reply = replyFor(end, detail, reader);
        if (end == VLMSDKHTTPAttemptEnd::Answered && statusCode == 401 && authorizationRefreshed_ && !reply.error) {
            // A token fetched anew was refused too: the host must sign the guest in again.
            auto error = networkError(VLMErrorCode::Authentication,
                                      describe(*request_) +
                                          " was refused (HTTP 401) with a token fetched anew after a first refusal.",
                                      __func__);
            auto details = error->details();
            details.httpStatusCode = 401;
            reply.error = std::make_shared<const VLMError>(std::move(details));
        }
        return reply;
    } catch (const std::exception& exception) {
        try {
            return {nullptr, nullptr,
                    networkError(VLMErrorCode::Unknown,
                                 "The reply to " + describe(*request_) + " could not be read: " + exception.what(),
                                 __func__)};
        } catch (const std::exception&) {
            return {};
        }
    }
}

VLMSDKHTTPReply VLMSDKHTTPAttempt::replyFor(VLMSDKHTTPAttemptEnd end, std::string_view detail,
                                            VLMSDKJSONReader& reader) {
    VLMSDKHTTPReply reply;
    if (statusCode > 0) {
        // The request's own URL, redacted: redirects are not followed, so it is the one that answered.
        reply.response = std::make_shared<const VLMSDKURLResponse>(request_->redactedURL(), statusCode,
                                                                   std::move(headers), attempt_);
    }
    if (end != VLMSDKHTTPAttemptEnd::Answered) {
        reply.error = endError(end, detail);
        return reply;
    }
    if (body.find_first_not_of(" \t\r\n") == std::string::npos) return reply;  // blank: no JSON, no error

    auto read = reader.read(body);
    if (read.failure != VLMSDKJSONReader::Failure::None) {
        const std::string what = "The reply to " + describe(*request_) + " (HTTP " + std::to_string(statusCode) + ")";
        auto error = VLMError::errorWithCode(
            VLMErrorCode::InvalidResponse, kVLMSDKResponseErrorDomain,
            read.failure == VLMSDKJSONReader::Failure::TooDeep
                ? what + " is nested deeper than " + std::to_string(kVLMSDKMaximumJSONDepth) + " levels."
                : what + " is not JSON: " + excerptOf(body),
            __func__, __FILE__);
        auto details = error->details();
        details.httpStatusCode = statusCode;
        reply.error = std::make_shared<const VLMError>(std::move(details));
        return reply;
    }
    reply.body = std::move(read.reply);
    return reply;
}

VLMErrorPtr VLMSDKHTTPAttempt::endError(VLMSDKHTTPAttemptEnd end, std::string_view detail) const {
    using End = VLMSDKHTTPAttemptEnd;
    const std::string what = describe(*request_);
    switch (end) {
        case End::TooLarge:
            return networkError(VLMErrorCode::ReplyTooLarge,
                                "The reply to " + what + " (HTTP " + std::to_string(statusCode) +
                                    ") is larger than the limit of " + std::to_string(options_.maximumReplySize) +
                                    " bytes.",
                                __func__);
        case End::OutOfMemory:
            return networkError(VLMErrorCode::Transport, "Out of memory while receiving the reply to " + what + ".",
                                __func__);
        case End::MayHaveActed:
            // Not sent again, by the adapter or the retry rule: only the service knows whether it acted.
            return networkError(VLMErrorCode::Transport,
                                what + " got no answer: the connection closed after the request went out, so the "
                                       "service may have acted on it. It was not sent again.",
                                __func__);
        default: break;
    }
    std::string message = what + " failed: " + phraseOf(end);
    if (!detail.empty()) message.append(" (").append(detail).append(")");
    if (attempt_ > 1) message.append(" after ").append(std::to_string(attempt_)).append(" attempts");
    // The request went out, or part of it did: a POST or PATCH may have been acted on all the same.
    const bool mayHaveReached = end == End::SendFailed || end == End::ReceiveFailed || end == End::NoAnswer ||
                                end == End::CutShort || end == End::MalformedReply;
    if (mayHaveReached && request_->method() != "GET") {
        // A keyed request may go again (the retry rule decides after this): its key keeps it to one effect.
        message.append(keyed_ ? ". The service may have acted on it, once: every attempt carries the same "
                                "idempotency key"
                              : ". The service may have acted on it; it was not sent again");
    }
    switch (end) {
        case End::TimedOut: return networkError(VLMErrorCode::Timeout, std::move(message), __func__);
        case End::InvalidRequest: return networkError(VLMErrorCode::InvalidRequest, std::move(message), __func__);
        default: return networkError(VLMErrorCode::Transport, std::move(message), __func__);
    }
}

VLMSDKHTTPExchange VLMSDKHTTPAttempt::exchange(const VLMSDKHTTPReply& reply) const {
    VLMSDKHTTPExchange exchange;
    exchange.method = request_->method();
    exchange.url = request_->redactedURL();
    exchange.attempt = attempt_;
    exchange.requestHeaders = request_->headers();
    for (auto& [name, value] : exchange.requestHeaders) {
        // The scheme stays readable ("Bearer ***"); the credentials never leave.
        if (equalsIgnoringASCIICase(name, "Authorization")) value = value.substr(0, value.find(' ')) + " ***";
    }
    if (authorization_) exchange.requestHeaders.emplace_back("Authorization", "Bearer ***");
    exchange.requestBody = request_->body();
    if (reply.response) {
        exchange.statusCode = reply.response->statusCode();
        exchange.responseHeaders = reply.response->headers();
    }
    exchange.responseBody = body;
    exchange.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started_);
    if (reply.error) exchange.failure = reply.error->developerMessage();
    return exchange;
}

VLMSDKAttemptEvent VLMSDKHTTPAttempt::attemptEvent(const VLMSDKHTTPReply& reply) const {
    VLMSDKAttemptEvent event;
    event.attempt = attempt_;
    event.duration =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - started_);
    event.bytesSent = request_->body() ? request_->body()->size() : 0;
    event.bytesReceived = body.size();
    if (reply.response) {
        event.statusCode = reply.response->statusCode();
        if (auto id = reply.response->requestID()) event.requestID = std::move(*id);
    }
    if (reply.error) event.errorCode = reply.error->code();
    return event;
}

VLMErrorPtr VLMSDKHTTPAttempt::cancellationError() const {
    return networkError(VLMErrorCode::Cancelled,
                        describe(*request_) + " was cancelled: the request manager shut down.", __func__);
}

VLMErrorPtr VLMSDKHTTPAttempt::hostCancellationError(bool sentAnything) const {
    // Once bytes of the request have left, a POST or PATCH may have been acted on.
    return VLMSDKCancellation::cancelledError(describe(*request_), request_->method() != "GET" && sentAnything);
}

VLMSDKDataTaskCompletion VLMSDKHTTPAttempt::release() {
    VLMSDKDataTaskCompletion completion = std::move(completion_);
    completion_ = nullptr;
    expectedReply_.reset();
    authorization_.reset();
    telemetry_.reset();
    request_.reset();
    requestID_ = 0;
    attempt_ = 1;
    keyed_ = false;
    ownKey_ = false;
    carrier = nullptr;
    statusCode = 0;
    headers.clear();
    if (body.capacity() > kKeptBodyCapacity) {
        std::string().swap(body);
    } else {
        body.clear();
    }
    return completion;
}

}  // namespace vlmsdk::detail
