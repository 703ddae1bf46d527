#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>
#include <chrono>
#include <cstddef>
#include <functional>

VLMSDK_API_BEGIN

/// The main thread and its task queue, where every completion of the SDK runs.
///
/// The main thread is the thread that started the process (the one that entered `main`); this holds for
/// the whole process and cannot be changed. Tasks posted from any thread run on it in FIFO order, either
/// when the host pumps the queue (`drain`, `runUntil`, `runFor`: console programs and tests) or, once the
/// host has installed an executor, wherever that executor sends them (a UI loop running on the main thread).
class VLMSDKMainQueue {
public:
    /// One piece of work for the main thread.
    using Task = std::function<void()>;
    /// Receives every task posted after it is installed; it must run each one, once, on the main thread.
    using Executor = std::function<void(Task)>;

    /// True on the thread that started the process.
    static bool isMainThread();

    /// Queues `task` to run on the main thread later; never runs it before returning. Callable from any thread.
    static void async(Task task);

    /// Hands future tasks to `executor` instead of the internal queue (an empty executor switches back).
    /// Tasks already queued stay queued until pumped.
    static void setExecutor(Executor executor);

    /// Runs every task queued so far, and those they queue, until the queue is empty. Main thread only;
    /// elsewhere it runs nothing and returns 0. Returns the number of tasks run.
    static std::size_t drain();

    /// Runs tasks as they come until `done()` answers true or `timeout` passes; answers `done()`'s last word.
    /// Main thread only (elsewhere it returns false at once).
    static bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

    /// Runs tasks as they come for `duration`. Main thread only.
    static void runFor(std::chrono::milliseconds duration);

    /// Tasks queued and not yet run.
    static std::size_t pendingCount();
};

VLMSDK_API_END
