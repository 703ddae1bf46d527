// The future and coroutine forms against a fake request manager: where each delivers, exactly once,
// and what a cancel gives an awaiting coroutine.
#include "KitTestFixture.h"
#include "LogCapture.h"

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <thread>

using namespace std::chrono_literals;

namespace {

const FakeReply kReservation = FakeReply::http(
    200, VLMSDKJSON{{"reservation", {{"id", "res-1"}, {"status", "in_house"}, {"venue_id", "v-1"}}}});
const FakeReply kNotFound = FakeReply::http(404, VLMSDKJSON{{"message", "no such reservation"}});

using Fake = FakeRequestManager;

// The error's code, or the reservation's id: what a form delivered, as one comparable value.
template <class Result>
std::string outcome(const Result& result) {
    if (result.error()) return "error " + std::to_string(static_cast<int>(result.error()->code()));
    return result.value() ? result.value()->velmoraID().value_or("no id") : "no reservation";
}

struct Resumed {
    int count = 0;
    bool onMainThread = false;
    std::string outcome;
};

VLMSDKTask fetchInto(VLMSDKAPIManager api, std::optional<std::string> id, Resumed* into) {
    const auto result = co_await VLMSDKAwait(fetchReservationWithID, api, id);
    ++into->count;
    into->onMainThread = VLMSDKMainQueue::isMainThread();
    into->outcome = outcome(result);
}

using AsyncForms = KitTestFixture;

TEST_F(AsyncForms, AFutureWaitedOnTheMainThreadIsSetWithoutTheMainQueue) {
    LogCapture quiet;
    struct Row {
        const char* name;
        std::optional<std::string> id;
        bool cancelled;
        std::optional<FakeReply> reply;  // given from another thread while the main thread waits
        std::string expected;
    } rows[] = {
        {"a record", "res-1", false, kReservation, "res-1"},
        {"an HTTP error", "res-1", false, kNotFound, "error 200"},
        {"refused before sending", std::nullopt, false, std::nullopt, "error 1"},
        {"cancelled before sending", "res-1", true, std::nullopt, "error 102"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto fake = std::make_shared<Fake>();
        auto cancellation = VLMSDKCancellation::make();
        if (row.cancelled) cancellation->cancel();
        const auto api = VLMSDKAPIManager(manager->requestBuilder(), fake).withCancellation(cancellation);
        auto future = VLMSDKFuture(fetchReservationWithID, api, row.id);
        std::thread replier([&] {
            if (row.reply) fake->answer(0, *row.reply);
        });
        // Blocks the main thread without pumping: a result sent through the main queue would never come.
        const bool ready = future.wait_for(30s) == std::future_status::ready;
        replier.join();
        ASSERT_TRUE(ready);
        EXPECT_EQ(outcome(future.get()), row.expected);
        EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 0u);
    }
}

TEST_F(AsyncForms, AnAwaitingCoroutineResumesOnceOnTheMainThreadAlsoWhenCancelled) {
    LogCapture quiet;
    const auto answer = [](const FakeReply& reply) {
        return [reply](Fake& fake, VLMSDKCancellation&) { fake.answer(0, reply); };
    };
    const auto answerElsewhere = [](Fake& fake, VLMSDKCancellation&) { fake.answerOnNewThread(0, kReservation); };
    struct Row {
        const char* name;
        std::optional<std::string> id;
        bool cancelFirst;
        bool awaitOnAnotherThread;
        bool handlerOffMainQueue;  // the completion then runs where the reply is handled
        std::function<void(Fake&, VLMSDKCancellation&)> then;  // once the coroutine awaits
        std::string expected;
    } rows[] = {
        {"reply on the main thread", "res-1", false, false, false, answer(kReservation), "res-1"},
        {"HTTP error", "res-1", false, false, false, answer(kNotFound), "error 200"},
        {"reply from another thread", "res-1", false, false, false, answerElsewhere, "res-1"},
        {"awaited on another thread", "res-1", false, true, false, answerElsewhere, "res-1"},
        {"completion off the main queue", "res-1", false, false, true, answerElsewhere, "res-1"},
        {"refused before it suspends", std::nullopt, false, false, false, nullptr, "error 1"},
        {"cancelled before it starts", "res-1", true, false, false, nullptr, "error 102"},
        {"cancelled before it starts on another thread, off the main queue", "res-1", true, true, true, nullptr,
         "error 102"},
        {"cancelled on the wire", "res-1", false, false, false,
         [](Fake& fake, VLMSDKCancellation& cancellation) {
             cancellation.cancel();
             fake.answer(0, kReservation);
         },
         "error 102"},
        {"cancelled with the reply on its way to the main thread", "res-1", false, false, false,
         [&](Fake& fake, VLMSDKCancellation& cancellation) {
             answerElsewhere(fake, cancellation);
             cancellation.cancel();
         },
         "error 102"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto fake = std::make_shared<Fake>();
        auto cancellation = VLMSDKCancellation::make();
        if (row.cancelFirst) cancellation->cancel();
        Resumed resumed;
        auto api = VLMSDKAPIManager(manager->requestBuilder(), fake).withCancellation(cancellation);
        if (row.handlerOffMainQueue) api = api.withHandlerOffMainQueue();
        if (row.awaitOnAnotherThread) {
            std::thread([&] { fetchInto(api, row.id, &resumed); }).join();
        } else {
            fetchInto(api, row.id, &resumed);
        }
        if (row.then) row.then(*fake, *cancellation);
        VLMSDKMainQueue::drain();
        cancellation->cancel();  // after the resume: changes nothing
        VLMSDKMainQueue::drain();
        EXPECT_EQ(resumed.count, 1);
        EXPECT_TRUE(resumed.onMainThread);
        EXPECT_EQ(resumed.outcome, row.expected);
    }
}

}  // namespace
