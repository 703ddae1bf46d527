#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include "VLMSDKMainQueueSource.h"
#include "VLMSDKSystemCalls.h"
#include "VLMSDKWakeup.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include <unistd.h>

using vlmsdk::detail::VLMSDKMainQueueSource;

namespace {

// What one round of the pump works with; kept from round to round so that a round allocates nothing.
struct PumpBuffers {
    std::vector<std::shared_ptr<VLMSDKMainQueueSource>> sources;
    std::vector<pollfd> descriptors;
    std::vector<std::size_t> firsts;  // where each source's descriptors begin
    std::vector<VLMSDKMainQueue::Task> tasks;
};

struct Queue {
    std::mutex mutex;
    std::vector<VLMSDKMainQueue::Task> tasks;
    VLMSDKMainQueue::Executor executor;
    std::vector<std::shared_ptr<VLMSDKMainQueueSource>> sources;
    bool mainThreadWaiting = false;  // only then is a wake-up worth its system call
    std::atomic<bool> hasExecutor{false};
    // What ends the main thread's wait besides the sources' own descriptors.
    const vlmsdk::detail::VLMSDKWakeup wakeup;
    // The main thread's own: the outermost round's buffers, and how deep rounds are nested (a task that
    // pumps the queue itself gets buffers of its own).
    PumpBuffers buffers;
    int pumpDepth = 0;
};

Queue& queue() {
    // Never destroyed: threads may still post while static destructors run at exit.
    static Queue* instance = new Queue;
    return *instance;
}

// Runs one task outside the lock; a throwing task must not take the queue down with it.
void runTask(VLMSDKMainQueue::Task& task) {
    try {
        if (task) task();
    } catch (...) {
    }
}

void wake(Queue& q) {
    q.wakeup.signal();
}

std::size_t pumpRound(Queue& q, PumpBuffers& b, std::chrono::steady_clock::time_point deadline) {
    b.descriptors.assign(1, pollfd{q.wakeup.descriptor(), POLLIN, 0});
    b.firsts.clear();
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    long timeout = std::clamp<long long>(left.count(), 0, INT_MAX);
    {
        std::lock_guard lock(q.mutex);
        b.sources = q.sources;
        // Marked before the sources look at their work, so that work handed to one after its look is woken
        // for. Marked only after the looks, a wake-up given between was skipped and the wait slept through it.
        q.mainThreadWaiting = timeout > 0;
    }
    for (const auto& source : b.sources) {
        b.firsts.push_back(b.descriptors.size());
        const int limit = source->prepareWait(b.descriptors);
        if (limit >= 0) timeout = std::min<long>(timeout, limit);
    }
    b.firsts.push_back(b.descriptors.size());
    {
        std::lock_guard lock(q.mutex);
        if (!q.tasks.empty()) timeout = 0;
        q.mainThreadWaiting = timeout > 0;
    }
    ::poll(b.descriptors.data(), b.descriptors.size(), static_cast<int>(timeout));
    if (timeout > 0) {
        std::lock_guard lock(q.mutex);
        q.mainThreadWaiting = false;
    }
    if (b.descriptors[0].revents & POLLIN) q.wakeup.drain();
    for (std::size_t i = 0; i < b.sources.size(); ++i) {
        b.sources[i]->dispatch(
            std::span<const pollfd>(b.descriptors).subspan(b.firsts[i], b.firsts[i + 1] - b.firsts[i]));
    }
    b.sources.clear();
    {
        // Everything queued so far, in one locked step; the two vectors trade their storage back and forth.
        std::lock_guard lock(q.mutex);
        b.tasks.swap(q.tasks);
    }
    for (auto& task : b.tasks) {
        runTask(task);
        task = nullptr;  // what the task held goes before the next one runs
    }
    const std::size_t count = b.tasks.size();
    b.tasks.clear();
    if (b.tasks.capacity() > 4096) std::vector<VLMSDKMainQueue::Task>().swap(b.tasks);  // after a burst
    return count;
}

// One round of the pump: wait for the sources' descriptors, a posted task, a source's own time limit or
// `deadline` (no wait at all when a task is queued), then dispatch the sources and run the queued tasks.
// Answers the number of tasks run. Main thread only.
std::size_t pumpOnce(Queue& q, std::chrono::steady_clock::time_point deadline) {
    struct Depth {
        int& depth;
        explicit Depth(int& d) : depth(++d) {}
        ~Depth() { --depth; }
    } nested(q.pumpDepth);
    if (q.pumpDepth == 1) return pumpRound(q, q.buffers, deadline);
    PumpBuffers own;
    return pumpRound(q, own, deadline);
}

}  // namespace

namespace vlmsdk::detail {

void attachMainQueueSource(std::shared_ptr<VLMSDKMainQueueSource> source) {
    Queue& q = queue();
    {
        std::lock_guard lock(q.mutex);
        q.sources.push_back(std::move(source));
    }
    wakeMainQueue();
}

void detachMainQueueSource(const VLMSDKMainQueueSource* source) {
    Queue& q = queue();
    std::lock_guard lock(q.mutex);
    std::erase_if(q.sources, [&](const auto& attached) { return attached.get() == source; });
}

void wakeMainQueue() {
    Queue& q = queue();
    bool waiting = false;
    {
        std::lock_guard lock(q.mutex);
        waiting = q.mainThreadWaiting;
    }
    if (waiting) wake(q);
}

bool mainQueueHasExecutor() { return queue().hasExecutor.load(std::memory_order_acquire); }

}  // namespace vlmsdk::detail

bool VLMSDKMainQueue::isMainThread() {
    thread_local const bool isMain = vlmsdk::detail::isProcessMainThread();
    return isMain;
}

void VLMSDKMainQueue::async(Task task) {
    Queue& q = queue();
    std::unique_lock lock(q.mutex);
    if (q.executor) {
        Executor executor = q.executor;
        lock.unlock();
        executor(std::move(task));
        return;
    }
    q.tasks.push_back(std::move(task));
    const bool waiting = q.mainThreadWaiting;
    lock.unlock();
    if (waiting) wake(q);
}

void VLMSDKMainQueue::setExecutor(Executor executor) {
    Queue& q = queue();
    std::lock_guard lock(q.mutex);
    q.hasExecutor.store(static_cast<bool>(executor), std::memory_order_release);
    q.executor = std::move(executor);
}

std::size_t VLMSDKMainQueue::drain() {
    if (!isMainThread()) return 0;
    Queue& q = queue();
    std::size_t count = 0;
    // Rounds without waiting, until one runs no task: tasks queued by tasks run in the same drain.
    for (std::size_t ran = 1; ran > 0; count += ran) ran = pumpOnce(q, std::chrono::steady_clock::now());
    return count;
}

bool VLMSDKMainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    if (!isMainThread()) return false;
    Queue& q = queue();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    pumpOnce(q, std::chrono::steady_clock::now());
    for (;;) {
        if (done()) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        pumpOnce(q, deadline);
    }
}

void VLMSDKMainQueue::runFor(std::chrono::milliseconds duration) {
    runUntil([] { return false; }, duration);
}

std::size_t VLMSDKMainQueue::pendingCount() {
    Queue& q = queue();
    std::lock_guard lock(q.mutex);
    return q.tasks.size();
}
