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

bool popTask(Queue& q, VLMSDKMainQueue::Task& task) {
    std::lock_guard lock(q.mutex);
    if (q.tasks.empty()) return false;
    task = std::move(q.tasks.front());
    q.tasks.pop_front();
    return true;
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
    lock.unlock();
    q.ready.notify_one();
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
    Task task;
    while (popTask(q, task)) {
        runTask(task);
        task = nullptr;
        ++count;
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
        if (q.tasks.empty() && !q.ready.wait_until(lock, deadline, [&] { return !q.tasks.empty(); })) {
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
