#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>
#include <VLMSDKCoreKit/VLMSDKCredentialsProvider.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

VLMSDK_API_BEGIN

/// The tokens of one provider, shared by every request that needs one. A request builder given a provider
/// makes one and attaches it to each request; the HTTP request manager asks it before sending (a cached
/// token costs a short lock) and, on a 401, marks the token refused, waits for a new one and sends the request
/// once more.
///
/// A token is cached until its expiry minus `refreshSkew` (at most a quarter of its lifetime, so that a
/// short-lived token is still used). However many requests wait, one fetch runs at a time (single flight); it
/// runs on a thread of its own, never the main thread, and never blocks the caller. The token's value is never
/// logged. Thread-safe: any thread may call any member at any time.
class VLMSDKCredentials final : public std::enable_shared_from_this<VLMSDKCredentials> {
public:
    /// How the credentials cache and fetch.
    struct Options {
        /// How long before its expiry a token is fetched anew. Default 60 s.
        std::chrono::seconds refreshSkew{60};
        /// How long a fetch may take before the requests waiting for it fail. Default 30 s.
        std::chrono::milliseconds fetchTimeout{std::chrono::seconds(30)};
    };
    /// "Bearer <token>", or nullptr with the error.
    using Handler = std::function<void(std::shared_ptr<const std::string> authorization, VLMErrorPtr error)>;

    /// New credentials over `provider`, with `options` or the default ones. They hold no token until asked.
    ///@{
    static std::shared_ptr<VLMSDKCredentials> make(std::shared_ptr<VLMSDKCredentialsProvider> provider,
                                                   Options options);
    static std::shared_ptr<VLMSDKCredentials> make(std::shared_ptr<VLMSDKCredentialsProvider> provider) {
        return make(std::move(provider), Options());
    }
    ///@}

    /// "Bearer <token>" while the cached token is fresh; nullptr when a fetch is needed.
    std::shared_ptr<const std::string> freshAuthorization() const;

    /// Calls `handler` exactly once: at once, on the calling thread, while the cached token is fresh; else when
    /// the fetch under way (or one started now) ends, on the thread the provider completed on (or the fetch's
    /// own thread after a timeout), with the new token, or with a `VLMErrorCode::Authentication` error naming
    /// the provider's failure. A handler must return quickly and must not throw.
    void authorize(Handler handler);

    /// The service refused `authorization`: it is not used again, and the next request waits for a new token.
    /// A newer token than the one refused is kept.
    void markRefused(const std::shared_ptr<const std::string>& authorization);

    /// How many fetches were started.
    std::size_t fetchCount() const;

    /// Use `make`.
    VLMSDKCredentials(std::shared_ptr<VLMSDKCredentialsProvider> provider, Options options);

private:
    void runFetch(std::uint64_t generation);
    void finishFetch(std::uint64_t generation, std::optional<VLMSDKAccessToken> token, VLMErrorPtr error);

    const std::shared_ptr<VLMSDKCredentialsProvider> provider_;
    const Options options_;
    mutable std::mutex mutex_;
    std::shared_ptr<const std::string> authorization_;
    std::chrono::steady_clock::time_point freshUntil_{};
    bool fetching_ = false;
    std::uint64_t generation_ = 0;
    std::size_t fetches_ = 0;
    std::vector<Handler> waiters_;
};

VLMSDK_API_END
