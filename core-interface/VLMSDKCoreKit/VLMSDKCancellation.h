#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <Velmora_Errors/VLMError.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

VLMSDK_API_BEGIN

/// A cancellation signal shared by every request started under it (see `VLMSDKAPIManager::withCancellation`).
/// Thread-safe: `cancel` may be called any number of times, from any thread; each registered callback runs
/// exactly once, on the thread whose `cancel` came first, or at once on the registering thread when the
/// signal was already given. Callbacks must be quick and must not throw.
///
/// An operation cancelled before its completion ran completes exactly once, on the main thread, with an
/// error whose code is `VLMErrorCode::Cancelled` in `kVLMSDKNetworkErrorDomain` and whose message says
/// "... was cancelled." — or, for a POST or PATCH whose bytes may already have reached the service,
/// "... was cancelled after it was sent: the service may have acted on it." A cancel after the completion
/// ran does nothing.
class VLMSDKCancellation {
public:
    /// What runs when the signal is given.
    using Callback = std::function<void()>;

    /// A new signal, not given yet.
    static std::shared_ptr<VLMSDKCancellation> make();

    /// Gives the signal; the first call runs the callbacks, later ones do nothing.
    void cancel();
    /// Whether the signal was given.
    bool isCancelled() const;

    /// Registers `callback` and answers a key for `removeCallback`; answers 0 when the signal was given
    /// already, after running `callback` at once.
    std::uint64_t addCallback(Callback callback);
    /// Forgets a callback that has not run (no effect once it ran or for key 0).
    void removeCallback(std::uint64_t key);

    /// The cancelled error for the request described by `what` (e.g. "GET https://host/path").
    static VLMErrorPtr cancelledError(const std::string& what, bool serviceMayHaveActed);

    VLMSDKCancellation() = default;
    VLMSDKCancellation(const VLMSDKCancellation&) = delete;
    VLMSDKCancellation& operator=(const VLMSDKCancellation&) = delete;

private:
    mutable std::mutex mutex_;
    bool cancelled_ = false;
    std::uint64_t nextKey_ = 1;
    std::map<std::uint64_t, Callback> callbacks_;
};

/// Owns a VLMSDKCancellation and gives its signal when it goes out of scope: hold one per screen (or any
/// group of work) and start its operations through `VLMSDKAPIManager::withCancellation(scope.cancellation())`.
/// Not copyable; its methods are thread-safe.
class VLMSDKCancellationScope {
public:
    VLMSDKCancellationScope() : cancellation_(VLMSDKCancellation::make()) {}
    ~VLMSDKCancellationScope() { cancellation_->cancel(); }
    VLMSDKCancellationScope(const VLMSDKCancellationScope&) = delete;
    VLMSDKCancellationScope& operator=(const VLMSDKCancellationScope&) = delete;

    /// Gives the signal now, before the scope ends.
    void cancel() { cancellation_->cancel(); }
    /// The signal, for `VLMSDKAPIManager::withCancellation`.
    const std::shared_ptr<VLMSDKCancellation>& cancellation() const { return cancellation_; }

private:
    std::shared_ptr<VLMSDKCancellation> cancellation_;
};

VLMSDK_API_END
