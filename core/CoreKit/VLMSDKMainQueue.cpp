#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

struct Queue {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<VLMSDKMainQueue::Task> tasks;
    VLMSDKMainQueue::Executor executor;
    bool mainThreadWaiting = false;  // only then is a wake-up worth its system call
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

// Takes everything queued so far in one locked step.
std::deque<VLMSDKMainQueue::Task> takeAll(Queue& q) {
    std::deque<VLMSDKMainQueue::Task> batch;
    std::lock_guard lock(q.mutex);
    batch.swap(q.tasks);
    return batch;
}

}  // namespace

bool VLMSDKMainQueue::isMainThread() {
    // The thread whose id is the process id is the one that started the process.
    static const pid_t processID = ::getpid();
    thread_local const bool isMain = static_cast<pid_t>(::syscall(SYS_gettid)) == processID;
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
    const bool wake = q.mainThreadWaiting;
    lock.unlock();
    if (wake) q.ready.notify_one();
}

void VLMSDKMainQueue::setExecutor(Executor executor) {
    Queue& q = queue();
    std::lock_guard lock(q.mutex);
    q.executor = std::move(executor);
}

std::size_t VLMSDKMainQueue::drain() {
    if (!isMainThread()) return 0;
    Queue& q = queue();
    std::size_t count = 0;
    for (auto batch = takeAll(q); !batch.empty(); batch = takeAll(q)) {
        for (auto& task : batch) {
            runTask(task);
            task = nullptr;  // what the task held goes before the next one runs
            ++count;
        }
    }
    return count;
}

bool VLMSDKMainQueue::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    if (!isMainThread()) return false;
    Queue& q = queue();
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        drain();
        if (done()) return true;
        std::unique_lock lock(q.mutex);
        q.mainThreadWaiting = true;
        const bool woken = q.ready.wait_until(lock, deadline, [&] { return !q.tasks.empty(); });
        q.mainThreadWaiting = false;
        if (!woken) {
            lock.unlock();
            drain();
            return done();
        }
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
