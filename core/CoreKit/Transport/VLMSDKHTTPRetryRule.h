#pragma once

#include "VLMSDKHTTPAttempt.h"

#include <VLMSDKCoreKit/VLMSDKRetryPolicy.h>

#include <chrono>
#include <optional>
#include <random>
#include <string_view>

namespace vlmsdk::detail {

/// How one attempt ended, as far as a retry decision needs to know.
struct VLMSDKHTTPAttemptOutcome {
    VLMSDKHTTPAttemptEnd end = VLMSDKHTTPAttemptEnd::Answered;
    long statusCode = 0;                              ///< 0 when no answer came
    std::optional<std::string_view> retryAfter;        ///< the answer's Retry-After header
    bool safeToRepeat = false;                         ///< a GET, or a request carrying an idempotency key
    unsigned attemptsMade = 1;
    bool replyMismatched = false;                      ///< the reply named something other than what was asked
};

/// The retry policy applied to one attempt: the wait before the next one, or nothing when there is none.
class VLMSDKHTTPRetryRule {
public:
    explicit VLMSDKHTTPRetryRule(const VLMSDKRetryPolicy& policy) : policy_(policy), random_(std::random_device{}()) {}

    std::optional<std::chrono::milliseconds> nextDelay(const VLMSDKHTTPAttemptOutcome& outcome);

private:
    VLMSDKRetryPolicy policy_;
    std::mt19937_64 random_;
};

}  // namespace vlmsdk::detail
