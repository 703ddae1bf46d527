#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

#include <memory>
#include <span>
#include <vector>

#include <poll.h>

namespace vlmsdk::detail {

/// Work the main thread does beside the tasks while the host pumps VLMSDKMainQueue: what it waits on
/// (descriptors, a time limit) and what it does after each wait. The HTTP request manager's pumped mode
/// is one. Both calls come on the main thread only, from inside drain, runUntil and runFor.
class VLMSDKMainQueueSource {
public:
    virtual ~VLMSDKMainQueueSource() = default;

    /// Appends the descriptors to wait on; answers the longest wait in milliseconds (negative: no limit of
    /// its own, zero: work is ready now).
    virtual int prepareWait(std::vector<pollfd>& descriptors) = 0;

    /// Does whatever became ready; `descriptors` are the ones it appended, with what the wait found. Called
    /// after every wait (a drain waits for no time).
    virtual void dispatch(std::span<const pollfd> descriptors) = 0;
};

/// Adds `source` to those the pumping main thread waits on and dispatches; any thread. The queue holds
/// it until `detachMainQueueSource`.
VLMSDK_INTERNAL void attachMainQueueSource(std::shared_ptr<VLMSDKMainQueueSource> source);

/// Removes `source`; any thread, idempotent. A dispatch already under way on the main thread finishes.
VLMSDK_INTERNAL void detachMainQueueSource(const VLMSDKMainQueueSource* source);

/// Ends a wait of the pumping main thread at once, or the one it is about to begin once its sources have
/// prepared; any thread, and costs nothing when it is not pumping.
VLMSDK_INTERNAL void wakeMainQueue();

/// Whether the host has installed an executor (VLMSDKMainQueue::setExecutor).
bool mainQueueHasExecutor();

}  // namespace vlmsdk::detail
