#include <VLMSDKCoreKit/VLMSDKCancellation.h>

#include <utility>
#include <vector>

std::shared_ptr<VLMSDKCancellation> VLMSDKCancellation::make() { return std::make_shared<VLMSDKCancellation>(); }

void VLMSDKCancellation::cancel() {
    std::map<std::uint64_t, Callback> callbacks;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        callbacks.swap(callbacks_);
    }
    // Outside the lock: a callback may register, remove or cancel again.
    for (auto& [key, callback] : callbacks) {
        if (callback) callback();
    }
}

bool VLMSDKCancellation::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

std::uint64_t VLMSDKCancellation::addCallback(Callback callback) {
    {
        std::lock_guard lock(mutex_);
        if (!cancelled_) {
            const std::uint64_t key = nextKey_++;
            callbacks_.emplace(key, std::move(callback));
            return key;
        }
    }
    if (callback) callback();
    return 0;
}

void VLMSDKCancellation::removeCallback(std::uint64_t key) {
    std::lock_guard lock(mutex_);
    callbacks_.erase(key);
}

VLMErrorPtr VLMSDKCancellation::cancelledError(const std::string& what, bool serviceMayHaveActed) {
    return VLMError::errorWithCode(VLMErrorCode::Cancelled, kVLMSDKNetworkErrorDomain,
                                   serviceMayHaveActed
                                       ? what + " was cancelled after it was sent: the service may have acted on it."
                                       : what + " was cancelled.",
                                   __func__, __FILE__);
}
