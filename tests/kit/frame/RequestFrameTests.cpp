// The request frame, proven end to end through mobile check-out: argument check, request, reply
// validation and the main-thread delivery rule.
#include "FakeRequestManager.h"
#include "KitTestFixture.h"
#include "LogCapture.h"
#include "RecordingAssertionHandler.h"

#include <VLMSDKPMSKit/Public/API/VLMSDKAPIManager+Reservation.h>

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>

#include <gtest/gtest.h>

#include <thread>

using namespace std::chrono_literals;

namespace {

struct Delivery {
    bool success;
    VLMErrorPtr error;
    bool onMainThread;
};

class RequestFrame : public KitTestFixture {
protected:
    VLMSDKSuccessCompletion recorder() {
        return [this](bool success, VLMErrorPtr error) {
            deliveries.push_back({success, std::move(error), VLMSDKMainQueue::isMainThread()});
        };
    }

    void checkout(const std::optional<std::string>& id) {
        performMobileCheckoutForReservationWithID(*manager, id, recorder());
    }

    std::vector<Delivery> deliveries;
};

}  // namespace

TEST_F(RequestFrame, SendsPatchToTheCheckoutPathWithTheIdentifierAsItIsAndNeverAnEmptyOne) {
    checkout("abc");
    // "guest/reservations//mobile_checkout" is not this reservation's route: refused, nothing sent.
    checkout("");
    ASSERT_EQ(requests->requestCount(), 1u);
    EXPECT_EQ(requests->request(0)->method(), "PATCH");
    EXPECT_EQ(requests->request(0)->path(), "guest/reservations/abc/mobile_checkout");
    EXPECT_EQ(requests->request(0)->url(), "http://127.0.0.1:9/guest/reservations/abc/mobile_checkout");
    EXPECT_FALSE(requests->request(0)->body());
    ASSERT_EQ(deliveries.size(), 1u);
    ASSERT_NE(deliveries[0].error, nullptr);
    EXPECT_EQ(deliveries[0].error->code(), VLMErrorCode::RequiredArgument);
    EXPECT_NE(deliveries[0].error->developerMessage().find("is empty"), std::string::npos);
    EXPECT_TRUE(asserts->calls().empty());
}

TEST_F(RequestFrame, EveryReplyIsDeliveredOnceOnTheMainThreadWhereverItArrives) {
    const auto ok = FakeReply::http(200, VLMSDKJSON::object());
    // On the main thread, synchronously: delivered before the reply handler returns.
    checkout("a");
    requests->answer(0, ok);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_TRUE(deliveries[0].onMainThread);

    // From another thread: never on that thread, only once the main queue runs.
    checkout("b");
    requests->answerOnNewThread(1, ok);
    EXPECT_EQ(deliveries.size(), 1u);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
    ASSERT_EQ(deliveries.size(), 2u);
    EXPECT_TRUE(deliveries[1].onMainThread);

    // A request manager that answers inside performDataTaskRequest, on the calling (main) thread.
    requests->setAutoReply(ok);
    checkout("c");
    ASSERT_EQ(deliveries.size(), 3u);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 0u);
    for (const auto& d : deliveries) {
        EXPECT_TRUE(d.success);
        EXPECT_EQ(d.error, nullptr);
    }
}

TEST_F(RequestFrame, CheckoutSucceedsOnAnyBodyThatPassesAndFailsWithTheValidatorsError) {
    LogCapture logs;
    const auto transport = VLMError::errorWithCode(VLMErrorCode::Transport, kVLMSDKNetworkErrorDomain, "refused", "f", "x");
    struct Row { const char* name; FakeReply reply; bool success; std::optional<VLMErrorCode> code; };
    const Row rows[] = {
        {"empty body", FakeReply::http(204), true, {}},
        {"a body that is not an object", FakeReply::http(200, VLMSDKJSON::array()), true, {}},
        {"the reservation", FakeReply::http(200, VLMSDKJSON{{"reservation", {{"id", "r1"}}}}), true, {}},
        // Whatever request manager carried it, a reply about another reservation is not this one's success.
        {"another reservation", FakeReply::http(200, VLMSDKJSON{{"reservation", {{"id", "r2"}}}}), false,
         VLMErrorCode::ReplyMismatch},
        {"conflict", FakeReply::http(409, VLMSDKJSON{{"error", {{"message", "Not in house."}}}}), false,
         VLMErrorCode::HTTPStatus},
        {"transport", FakeReply::failure(transport), false, VLMErrorCode::Transport},
    };
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].name);
        checkout("r1");
        requests->answer(i, rows[i].reply);
        ASSERT_EQ(deliveries.size(), i + 1);
        EXPECT_EQ(deliveries[i].success, rows[i].success);
        if (rows[i].code) {
            ASSERT_NE(deliveries[i].error, nullptr);
            EXPECT_EQ(deliveries[i].error->code(), *rows[i].code);
        } else {
            EXPECT_EQ(deliveries[i].error, nullptr);
        }
    }
    EXPECT_EQ(deliveries[4].error->serverMessage(), "Not in house.");
    EXPECT_EQ(deliveries[5].error, transport);
    EXPECT_TRUE(logs.consoleHasMessage("Successfully did mobile checkout for reservation."));
    bool failLogged = false;
    for (const auto& r : logs.consoleRecords()) {
        failLogged |= r.message.rfind("Failed to make a mobile checkout for reservation.", 0) == 0;
    }
    EXPECT_TRUE(failLogged);
}

TEST_F(RequestFrame, AnAbsentIdentifierOnTheMainThreadAssertsThenFailsAtOnceIfItCanAndSendsNothing) {
    checkout(std::nullopt);
    ASSERT_EQ(asserts->calls().size(), 1u);
    EXPECT_TRUE(asserts->calls()[0].isParameterAssert);
    EXPECT_EQ(asserts->calls()[0].text, "reservationVelmoraID");
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_FALSE(deliveries[0].success);
    ASSERT_NE(deliveries[0].error, nullptr);
    EXPECT_EQ(deliveries[0].error->code(), VLMErrorCode::RequiredArgument);
    EXPECT_EQ(deliveries[0].error->argumentName(), "reservationVelmoraID");
    const std::string file = deliveries[0].error->fileName();
    EXPECT_TRUE(file.ends_with("VLMSDKAPIManager+Reservation.cpp")) << file;
    EXPECT_NE(deliveries[0].error->functionName().find("performMobileCheckoutForReservationWithID"), std::string::npos);
    // Without a completion it only asserts.
    performMobileCheckoutForReservationWithID(*manager, std::nullopt, nullptr);
    EXPECT_EQ(asserts->calls().size(), 2u);
    EXPECT_EQ(requests->requestCount(), 0u);
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 0u);
}

TEST_F(RequestFrame, OffTheMainThreadAnAbsentIdentifierIsAlwaysPostedEvenWithoutACompletion) {
    std::thread([&] { performMobileCheckoutForReservationWithID(*manager, std::nullopt, nullptr); }).join();
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 1u);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);

    std::thread([&] { checkout(std::nullopt); }).join();
    EXPECT_TRUE(deliveries.empty());  // never on the calling thread
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_TRUE(deliveries[0].onMainThread);
    EXPECT_FALSE(deliveries[0].success);
    EXPECT_EQ(deliveries[0].error->argumentName(), "reservationVelmoraID");
    EXPECT_EQ(asserts->calls().size(), 2u);
    EXPECT_EQ(requests->requestCount(), 0u);
}

TEST_F(RequestFrame, ARepliedValidationFailureWithoutACompletionIsStillPostedAndHarmless) {
    performMobileCheckoutForReservationWithID(*manager, "r", nullptr);
    requests->answerOnNewThread(0, FakeReply::http(500));
    EXPECT_EQ(VLMSDKMainQueue::pendingCount(), 1u);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
}

TEST_F(RequestFrame, TheReplyHandlerKeepsNeitherTheAPIManagerNorMoreThanTheCompletion) {
    std::weak_ptr<VLMSDKAPIManager> weakManager = manager;
    auto owner = std::make_shared<int>(0);
    std::weak_ptr<int> watched = owner;
    performMobileCheckoutForReservationWithID(*manager, "r", [owner](bool, VLMErrorPtr) {});
    owner.reset();
    manager.reset();
    EXPECT_TRUE(weakManager.expired());
    EXPECT_FALSE(watched.expired());  // the pending reply handler holds the completion
    requests->answer(0, FakeReply::http(200));
    EXPECT_TRUE(watched.expired());   // and lets go of it once delivered
}

TEST_F(RequestFrame, ManyConcurrentCallersEachGetExactlyOneDelivery) {
    constexpr int threads = 4, perThread = 25;
    std::vector<std::thread> callers;
    for (int t = 0; t < threads; ++t) {
        callers.emplace_back([&] {
            for (int i = 0; i < perThread; ++i) checkout("r");
        });
    }
    for (auto& c : callers) c.join();
    ASSERT_EQ(requests->requestCount(), static_cast<std::size_t>(threads * perThread));
    std::vector<std::thread> repliers;
    for (int t = 0; t < threads; ++t) {
        repliers.emplace_back([&, t] {
            for (int i = 0; i < perThread; ++i) requests->answer(static_cast<std::size_t>(t * perThread + i), FakeReply::http(200));
        });
    }
    for (auto& r : repliers) r.join();
    EXPECT_TRUE(VLMSDKMainQueue::runUntil([&] { return deliveries.size() == threads * perThread; }, 10s));
    EXPECT_EQ(deliveries.size(), static_cast<std::size_t>(threads * perThread));
    for (const auto& d : deliveries) EXPECT_TRUE(d.onMainThread && d.success);
}

TEST_F(RequestFrame, ACancelBeforeDeliveryTurnsTheOutcomeIntoTheCancelledErrorAndAfterItChangesNothing) {
    const auto ok = FakeReply::http(200, VLMSDKJSON::object());
    auto cancellation = VLMSDKCancellation::make();
    const VLMSDKAPIManager scoped = manager->withCancellation(cancellation);
    const auto expectCancelled = [&](std::size_t index, bool mayHaveActed) {
        ASSERT_GT(deliveries.size(), index);
        EXPECT_FALSE(deliveries[index].success);
        ASSERT_NE(deliveries[index].error, nullptr);
        EXPECT_EQ(deliveries[index].error->code(), VLMErrorCode::Cancelled);
        const auto& text = deliveries[index].error->developerMessage();
        EXPECT_EQ(text.find("may have acted") != std::string::npos, mayHaveActed) << text;
        EXPECT_TRUE(deliveries[index].onMainThread);
    };

    // Answered and delivered, then cancelled: the delivery stands.
    performMobileCheckoutForReservationWithID(scoped, "a", recorder());
    requests->answer(0, ok);
    cancellation->cancel();
    ASSERT_EQ(deliveries.size(), 1u);
    EXPECT_TRUE(deliveries[0].success);

    // The reply came on another thread; the cancel comes before the main queue delivers it. The service
    // answered a PATCH, so it may have acted.
    cancellation = VLMSDKCancellation::make();
    performMobileCheckoutForReservationWithID(manager->withCancellation(cancellation), "b", recorder());
    requests->answerOnNewThread(1, ok);
    cancellation->cancel();
    EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
    expectCancelled(1, true);

    // Cancelled before it was sent: nothing reaches the request manager, the outcome comes at once.
    performMobileCheckoutForReservationWithID(manager->withCancellation(cancellation), "c", recorder());
    EXPECT_EQ(requests->requestCount(), 2u);
    expectCancelled(2, false);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 0u);
    EXPECT_EQ(deliveries.size(), 3u);
}

TEST_F(RequestFrame, AHandlerOffTheMainQueueDeliversWhereTheReplyArrives) {
    performMobileCheckoutForReservationWithID(manager->withHandlerOffMainQueue(), "a", recorder());
    requests->answerOnNewThread(0, FakeReply::http(200, VLMSDKJSON::object()));
    ASSERT_EQ(deliveries.size(), 1u);  // before any pumping
    EXPECT_TRUE(deliveries[0].success);
    EXPECT_FALSE(deliveries[0].onMainThread);
    EXPECT_EQ(VLMSDKMainQueue::drain(), 0u);
}
