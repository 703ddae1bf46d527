#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <chrono>

VLMSDK_API_BEGIN

/// When `VLMSDKHTTPRequestManager` sends a failed request again. On by default: up to 3 attempts, only where
/// sending again cannot do anything twice (set `maximumAttempts` to 1 to turn retries off).
///
/// A request is sent again, up to `maximumAttempts` in all, only when that is safe: any method when it
/// provably never left (the name did not resolve, the connection was refused); a GET (and a request
/// carrying an idempotency key) also after a timeout, a connection lost, or an answer of 429, 502, 503 or
/// 504, or a reply about another request (one that named another reservation). A POST or PATCH whose bytes may
/// have reached the service is never sent again without a key. The wait
/// before attempt n+1 is drawn at random between zero and min(`maximumBackoff`, `initialBackoff` x 2^(n-1))
/// ("full jitter"); a `Retry-After` of a 429 or 503 answer is waited instead, and one longer than
/// `maximumBackoff` ends the retries. The request's handler still runs exactly once; the final error (or the
/// response's `attempts()`) says how many attempts were made; each attempt reaches the exchange observer.
struct VLMSDKRetryPolicy {
    /// Attempts in all, the first included; 0 or 1 turns retries off. Default 3.
    unsigned maximumAttempts = 3;
    /// The bound of the first wait, doubled for each attempt after it. Default 200 ms.
    std::chrono::milliseconds initialBackoff{200};
    /// The largest bound of a wait, and the longest `Retry-After` waited. Default 10 s.
    std::chrono::milliseconds maximumBackoff{std::chrono::seconds(10)};
    /// Every POST and PATCH carries an `Idempotency-Key` header, the same on each of its attempts, and is
    /// then retried like a GET: the service answers a repeated key with its first reply. Off by default: only a
    /// service that honours keys may be sent a POST twice. A request that carries its own `Idempotency-Key`
    /// header (an outbox item's) is retried like a GET either way, under its own key only.
    bool idempotencyKeys = false;
};

VLMSDK_API_END
