#include <VLMSDKCoreKit/VLMSDKCredentials.h>

#include "VLMSDKHeaderLookup.h"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <thread>
#include <utility>

namespace {

using SteadyClock = std::chrono::steady_clock;

VLMErrorPtr authenticationError(std::string message, VLMErrorPtr underlying, const char* function) {
    VLMError::Details details;
    details.domain = kVLMSDKNetworkErrorDomain;
    details.code = VLMErrorCode::Authentication;
    details.developerMessage = std::move(message);
    details.underlyingError = std::move(underlying);
    details.functionName = function;
    details.fileName = __FILE__;
    return std::make_shared<const VLMError>(std::move(details));
}

// What a header value can carry and a service can take as a bearer token.
bool sendable(const std::string& token) {
    return !token.empty() &&
           std::none_of(token.begin(), token.end(), [](char c) { return c == ' ' || vlmsdk::detail::isControlByte(c); });
}

// The end of a fetch: whichever of the completion and the timeout comes first.
struct FetchEnd {
    std::mutex mutex;
    std::condition_variable ended;
    bool done = false;

    bool claim() {
        std::lock_guard lock(mutex);
        return !std::exchange(done, true);
    }
};

}  // namespace

std::shared_ptr<VLMSDKCredentials> VLMSDKCredentials::make(std::shared_ptr<VLMSDKCredentialsProvider> provider,
                                                           Options options) {
    return std::make_shared<VLMSDKCredentials>(std::move(provider), options);
}

VLMSDKCredentials::VLMSDKCredentials(std::shared_ptr<VLMSDKCredentialsProvider> provider, Options options)
    : provider_(std::move(provider)), options_(options) {}

std::shared_ptr<const std::string> VLMSDKCredentials::freshAuthorization() const {
    const auto now = SteadyClock::now();
    std::lock_guard lock(mutex_);
    return now < freshUntil_ ? authorization_ : nullptr;
}

void VLMSDKCredentials::authorize(Handler handler) {
    std::uint64_t generation = 0;
    {
        const auto now = SteadyClock::now();
        std::unique_lock lock(mutex_);
        if (authorization_ && now < freshUntil_) {
            auto authorization = authorization_;
            lock.unlock();
            handler(std::move(authorization), nullptr);
            return;
        }
        waiters_.push_back(std::move(handler));
        if (fetching_) return;  // one fetch serves every waiter
        fetching_ = true;
        ++fetches_;
        generation = ++generation_;
    }
    try {
        std::thread([self = shared_from_this(), generation] { self->runFetch(generation); }).detach();
    } catch (const std::exception& exception) {
        finishFetch(generation, std::nullopt,
                    authenticationError(std::string("No token was fetched: its thread could not start: ") +
                                            exception.what(),
                                        nullptr, __func__));
    }
}

void VLMSDKCredentials::runFetch(std::uint64_t generation) {
    auto end = std::make_shared<FetchEnd>();
    if (!provider_) {
        finishFetch(generation, std::nullopt, authenticationError("No credentials provider is set.", nullptr, __func__));
        return;
    }
    try {
        // Weak: a provider may keep its completion, and this fetch's thread keeps the credentials alive.
        provider_->fetchToken([weak = weak_from_this(), generation, end](std::optional<VLMSDKAccessToken> token,
                                                                         VLMErrorPtr error) {
            if (!end->claim()) return;  // too late: the waiters were answered already
            if (const auto self = weak.lock()) self->finishFetch(generation, std::move(token), std::move(error));
            std::lock_guard lock(end->mutex);
            end->ended.notify_all();
        });
    } catch (...) {
        if (end->claim()) {
            finishFetch(generation, std::nullopt,
                        authenticationError("The credentials provider threw instead of fetching a token.", nullptr,
                                            __func__));
        }
        return;
    }
    std::unique_lock lock(end->mutex);
    if (end->ended.wait_for(lock, options_.fetchTimeout, [&] { return end->done; })) return;
    end->done = true;
    lock.unlock();
    finishFetch(generation, std::nullopt,
                authenticationError("The credentials provider did not give a token within " +
                                        std::to_string(options_.fetchTimeout.count()) + " ms.",
                                    nullptr, __func__));
}

void VLMSDKCredentials::finishFetch(std::uint64_t generation, std::optional<VLMSDKAccessToken> token,
                                    VLMErrorPtr error) {
    std::shared_ptr<const std::string> authorization;
    try {
        if (token && sendable(token->value)) {
            authorization = std::make_shared<const std::string>("Bearer " + token->value);
            error = nullptr;
        } else if (token) {
            // Its value is never repeated: it may be a secret that went wrong.
            error = authenticationError("The credentials provider gave a token that cannot be sent (empty, or "
                                        "holding a space or control byte).",
                                        nullptr, __func__);
        } else {
            error = authenticationError(
                "The credentials provider failed: " +
                    (error ? error->developerMessage() : std::string("it gave neither a token nor an error")) + ".",
                error, __func__);
        }
    } catch (const std::exception&) {
        authorization = nullptr;
        error = authenticationError("Out of memory while keeping a token.", nullptr, __func__);
    }
    std::vector<Handler> waiters;
    {
        const auto now = SteadyClock::now();
        std::lock_guard lock(mutex_);
        if (generation != generation_ || !fetching_) return;
        fetching_ = false;
        waiters.swap(waiters_);
        if (authorization) {
            authorization_ = authorization;
            // The waiters get the token whatever its age; the cache keeps it only while it is fresh.
            using Duration = SteadyClock::duration;
            const auto maximum = std::chrono::duration_cast<Duration>(std::chrono::hours(24 * 365));
            auto lifetime = maximum;
            const bool expires = token->expiresAt != std::chrono::system_clock::time_point::max();
            if (expires) {
                const auto wallNow = std::chrono::system_clock::now();
                lifetime = token->expiresAt <= wallNow
                               ? Duration::zero()
                               : std::min(std::chrono::duration_cast<Duration>(token->expiresAt - wallNow), maximum);
            }
            const auto skew = std::min<Duration>(std::chrono::duration_cast<Duration>(options_.refreshSkew), lifetime / 4);
            freshUntil_ = expires ? now + lifetime - skew : SteadyClock::time_point::max();
        }
    }
    for (auto& waiter : waiters) {
        try {
            waiter(authorization, error);
        } catch (...) {
            // A waiter's failure must not cost the others their answer.
        }
    }
}

void VLMSDKCredentials::markRefused(const std::shared_ptr<const std::string>& authorization) {
    std::lock_guard lock(mutex_);
    if (authorization && authorization_ == authorization) freshUntil_ = {};
}

std::size_t VLMSDKCredentials::fetchCount() const {
    std::lock_guard lock(mutex_);
    return fetches_;
}
