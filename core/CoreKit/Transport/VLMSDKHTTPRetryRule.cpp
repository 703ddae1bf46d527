#include "VLMSDKHTTPRetryRule.h"

#include <algorithm>
#include <charconv>

namespace vlmsdk::detail {

namespace {

// The request never reached the network: sending it again cannot repeat anything.
bool neverLeft(VLMSDKHTTPAttemptEnd end) {
    return end == VLMSDKHTTPAttemptEnd::NotResolved || end == VLMSDKHTTPAttemptEnd::ConnectFailed;
}

// Failures that may pass: worth another attempt when repeating the request is safe.
bool transient(const VLMSDKHTTPAttemptOutcome& outcome) {
    using End = VLMSDKHTTPAttemptEnd;
    switch (outcome.end) {
    case End::Answered:
        // A reply that answered another request: a new connection gets this one's.
        return outcome.replyMismatched || outcome.statusCode == 429 || outcome.statusCode == 502 || outcome.statusCode == 503 ||
               outcome.statusCode == 504;
    case End::TimedOut:
    case End::SendFailed:
    case End::ReceiveFailed:
    case End::NoAnswer:
    case End::CutShort: return true;
    default: return false;
    }
}

// Retry-After as delay-seconds; the date form is not trusted across clocks and is left to the backoff.
std::optional<std::chrono::milliseconds> retryAfterOf(const VLMSDKHTTPAttemptOutcome& outcome) {
    if (!outcome.retryAfter || (outcome.statusCode != 429 && outcome.statusCode != 503)) return std::nullopt;
    const std::string_view text = *outcome.retryAfter;
    unsigned long seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || seconds > 86400) return std::nullopt;
    return std::chrono::seconds(seconds);
}

}  // namespace

std::optional<std::chrono::milliseconds> VLMSDKHTTPRetryRule::nextDelay(const VLMSDKHTTPAttemptOutcome& outcome) {
    if (outcome.attemptsMade >= policy_.maximumAttempts) return std::nullopt;
    if (!neverLeft(outcome.end) && !(outcome.safeToRepeat && transient(outcome))) return std::nullopt;
    if (const auto asked = retryAfterOf(outcome)) {
        if (*asked > policy_.maximumBackoff) return std::nullopt;
        return *asked;
    }
    // Full jitter: anywhere between no wait and the exponential ceiling.
    long long ceiling = std::max<long long>(policy_.initialBackoff.count(), 0);
    for (unsigned n = 1; n < outcome.attemptsMade && ceiling < policy_.maximumBackoff.count(); ++n) ceiling *= 2;
    ceiling = std::min<long long>(ceiling, policy_.maximumBackoff.count());
    if (ceiling <= 0) return std::chrono::milliseconds(0);
    std::uniform_int_distribution<long long> wait(0, ceiling);
    return std::chrono::milliseconds(wait(random_));
}

}  // namespace vlmsdk::detail
