#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include "VLMSDKMainQueueSource.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

TEST(MainQueue, TheThreadThatStartedTheProcessIsTheMainOne) {
    EXPECT_TRUE(VLMSDKMainQueue::isMainThread());
    bool onOther = true;
    std::thread([&] { onOther = VLMSDKMainQueue::isMainThread(); }).join();
    EXPECT_FALSE(onOther);
}

TEST(MainQueue, TasksPostedFromManyThreadsRunOnTheMainThreadInEachThreadsOrder) {
    constexpr int threads = 4, perThread = 200;
    std::vector<std::vector<int>> seen(threads);
    std::atomic<int> offMain{0};
    std::vector<std::thread> posters;
    for (int t = 0; t < threads; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) {
                VLMSDKMainQueue::async([&, t, i] {
                    if (!VLMSDKMainQueue::isMainThread()) ++offMain;
                    seen[t].push_back(i);
                });
            }
        });
    }
    for (auto& p : posters) p.join();
    EXPECT_EQ(VLMSDKMainQueue::drain(), static_cast<std::size_t>(threads * perThread));
    EXPECT_EQ(offMain.load(), 0);
    for (int t = 0; t < threads; ++t) {
        ASSERT_EQ(seen[t].size(), static_cast<std::size_t>(perThread));
        for (int i = 0; i < perThread; ++i) EXPECT_EQ(seen[t][i], i);
    }
}

TEST(MainQueue, PostingNeverRunsTheTaskBeforeReturningAndPumpingOffTheMainThreadRunsNothing) {
    bool ran = false;
    VLMSDKMainQueue::async([&] { ran = true; });
    EXPECT_FALSE(ran);
    std::size_t ranElsewhere = 99;
    std::thread([&] { ranElsewhere = VLMSDKMainQueue::drain(); }).join();
    EXPECT_EQ(ranElsewhere, 0u);
    EXPECT_FALSE(ran);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
    EXPECT_TRUE(ran);
}

TEST(MainQueue, RunUntilWakesForATaskPostedLaterFromAnotherThread) {
    bool done = false;
    std::thread poster([&] { VLMSDKMainQueue::async([&] { done = true; }); });
    EXPECT_TRUE(VLMSDKMainQueue::runUntil([&] { return done; }, 10s));
    poster.join();
}

// Work that reaches a source just after it looked and found none comes with a wake-up (the request manager's
// pumped mode gets tokens and requests from other threads so): the wait that follows must end for it. Given
// before the queue marked itself waiting, the wake-up was skipped and the wait lasted the caller's whole limit.
TEST(MainQueue, AWakeUpGivenWhileTheSourcesLookAtTheirWorkEndsTheWaitThatFollows) {
    struct LateSource final : vlmsdk::detail::VLMSDKMainQueueSource {
        int looks = 0;
        std::atomic<bool> ready{false};
        bool done = false;
        int prepareWait(std::vector<pollfd>&) override {
            if (ready) return 0;
            // The second look is a waiting round's: another thread hands the work over just after it.
            if (++looks == 2) std::thread([this] { ready = true, vlmsdk::detail::wakeMainQueue(); }).join();
            return -1;
        }
        void dispatch(std::span<const pollfd>) override { done = done || ready; }
    };
    auto source = std::make_shared<LateSource>();
    vlmsdk::detail::attachMainQueueSource(source);
    // A hang guard, never a measure: had the wake-up been lost, only its task would end the wait.
    std::mutex mutex;
    std::condition_variable stop;
    bool stopped = false;
    std::atomic<bool> guardEndedTheWait{false};
    std::thread guard([&] {
        std::unique_lock lock(mutex);
        if (stop.wait_for(lock, 20s, [&] { return stopped; })) return;
        guardEndedTheWait = true;
        VLMSDKMainQueue::async([] {});
    });
    EXPECT_TRUE(VLMSDKMainQueue::runUntil([&] { return source->done; }, 60s));
    {
        std::lock_guard lock(mutex);
        stopped = true;
    }
    stop.notify_all();
    guard.join();
    vlmsdk::detail::detachMainQueueSource(source.get());
    EXPECT_GE(source->looks, 2);
    EXPECT_FALSE(guardEndedTheWait);
}

TEST(MainQueue, ADrainGoesOnPastAThrowingTaskAndRunsTasksQueuedByTasks) {
    int order = 0, first = 0, second = 0;
    VLMSDKMainQueue::async([] { throw 42; });
    VLMSDKMainQueue::async([&] {
        first = ++order;
        VLMSDKMainQueue::async([&] { second = ++order; });
    });
    EXPECT_EQ(VLMSDKMainQueue::drain(), 3u);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST(MainQueue, AnInstalledExecutorReceivesTasksInsteadOfTheQueue) {
    std::vector<VLMSDKMainQueue::Task> handedOver;
    VLMSDKMainQueue::setExecutor([&](VLMSDKMainQueue::Task task) { handedOver.push_back(std::move(task)); });
    int runs = 0;
    VLMSDKMainQueue::async([&] { ++runs; });
    VLMSDKMainQueue::setExecutor(nullptr);
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 0u);
    ASSERT_EQ(handedOver.size(), 1u);
    handedOver[0]();
    EXPECT_EQ(runs, 1);
}
