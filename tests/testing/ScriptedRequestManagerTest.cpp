// The scripted request manager: replies and faults as scripted, failures that say what was expected, and one
// answer per request whatever the threads and cancels do.
#include <VLMSDKPMSKitTesting/VLMSDKMockRequestManager.h>
#include <VLMSDKPMSKitTesting/VLMSDKScriptedRequestManager.h>

#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Fault = VLMSDKScriptedReply::Fault;

constexpr auto kLimit = 60s;  // only a manager that loses an answer waits this long

// What the handlers of one request received.
struct Answers {
    std::mutex mutex;
    int count = 0;
    std::shared_ptr<const VLMSDKJSONReply> json;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;
    bool onMainThread = false;
};

std::shared_ptr<Answers> send(VLMSDKRequestManager& manager, std::shared_ptr<const VLMSDKRequest> request,
                              const VLMSDKRequestControl& control = {}) {
    auto answers = std::make_shared<Answers>();
    manager.performControlledRequest(std::move(request), control, [answers](auto json, auto response, auto error) {
        std::lock_guard lock(answers->mutex);
        ++answers->count;
        answers->json = std::move(json);
        answers->response = std::move(response);
        answers->error = std::move(error);
        answers->onMainThread = VLMSDKMainQueue::isMainThread();
    });
    return answers;
}

VLMSDKRequestControl cancelledBy(std::shared_ptr<VLMSDKCancellation> cancellation) {
    VLMSDKRequestControl control;
    control.cancellation = std::move(cancellation);
    return control;
}

class ScriptedRequestManagerTest : public testing::Test {
protected:
    void SetUp() override { VLMSDKMainQueue::drain(); }
    void TearDown() override { VLMSDKMainQueue::drain(); }

    // A manager whose failures are kept here instead of going to standard error.
    std::shared_ptr<VLMSDKScriptedRequestManager> makeManager() {
        auto manager = std::make_shared<VLMSDKScriptedRequestManager>();
        manager->setFailureReporter([this](const std::string& message) {
            std::lock_guard lock(mutex_);
            reported_.push_back(message);
        });
        return manager;
    }
    std::vector<std::string> reported() {
        std::lock_guard lock(mutex_);
        return reported_;
    }

    std::shared_ptr<VLMSDKRequestBuilder> builder = std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1:9/api/");

private:
    std::mutex mutex_;
    std::vector<std::string> reported_;
};

const VLMSDKJSON kReservation = {{"reservation", {{"id", "rsv_1"}, {"status", "in_house"}, {"room_number", "412"}}}};

TEST_F(ScriptedRequestManagerTest, AMatchingRequestGetsItsReplyOrFaultAsTheTransportWouldHandItOver) {
    struct Row {
        const char* name;
        const char* method;
        VLMSDKScriptedReply reply;
        std::function<void(const Answers&)> check;
    };
    const Row rows[] = {
        {"JSON with headers", "GET", VLMSDKScriptedReply::json(200, kReservation, {{"X-Request-Id", "r-1"}}),
         [](const Answers& a) {
             EXPECT_EQ(a.error, nullptr);
             EXPECT_EQ(a.response->statusCode(), 200);
             EXPECT_EQ(a.response->url(), "http://127.0.0.1:9/api/guest/reservations/rsv_1");
             EXPECT_EQ(a.response->headerValue("x-request-id"), "r-1");
             EXPECT_EQ(a.json->nestedString("reservation", "room_number"), "412");
         }},
        {"error status", "GET", {.status = 404, .body = R"({"error": {"message": "No such reservation."}})"},
         [](const Answers& a) {
             EXPECT_EQ(a.error, nullptr);  // the status is the kit's to judge
             EXPECT_EQ(a.response->statusCode(), 404);
             EXPECT_TRUE(a.json->hasMember("error"));
         }},
        {"not JSON", "GET", {.status = 502, .body = "<html>Bad gateway</html>"},
         [](const Answers& a) {
             ASSERT_NE(a.error, nullptr);
             EXPECT_EQ(a.error->code(), VLMErrorCode::InvalidResponse);
             EXPECT_EQ(a.error->httpStatusCode(), 502);
             EXPECT_EQ(a.json, nullptr);
             EXPECT_EQ(a.response->statusCode(), 502);
         }},
        {"blank body", "GET", {.status = 204, .body = " \n"},
         [](const Answers& a) {
             EXPECT_EQ(a.error, nullptr);
             EXPECT_EQ(a.json, nullptr);
             EXPECT_EQ(a.response->statusCode(), 204);
         }},
        {"dropped GET", "GET", VLMSDKScriptedReply::failure(Fault::DroppedConnection),
         [](const Answers& a) {
             ASSERT_NE(a.error, nullptr);
             EXPECT_EQ(a.error->code(), VLMErrorCode::Transport);
             EXPECT_EQ(a.error->domain(), kVLMSDKNetworkErrorDomain);
             EXPECT_EQ(a.response, nullptr);
             EXPECT_EQ(a.error->developerMessage().find("may have acted"), std::string::npos);
         }},
        {"dropped POST", "POST", VLMSDKScriptedReply::failure(Fault::DroppedConnection, 1ms),
         [](const Answers& a) {
             ASSERT_NE(a.error, nullptr);
             EXPECT_EQ(a.error->code(), VLMErrorCode::Transport);
             EXPECT_NE(a.error->developerMessage().find("may have acted"), std::string::npos);
         }},
        {"timeout", "GET", VLMSDKScriptedReply::failure(Fault::Timeout, 1ms),
         [](const Answers& a) {
             ASSERT_NE(a.error, nullptr);
             EXPECT_EQ(a.error->code(), VLMErrorCode::Timeout);
             EXPECT_EQ(a.error->domain(), kVLMSDKNetworkErrorDomain);
             EXPECT_EQ(a.response, nullptr);
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        auto manager = makeManager();
        manager->expect({.method = row.method, .route = "guest/reservations/rsv_1"}, row.reply);
        const std::string method = row.method;
        auto answers = send(*manager, method == "GET" ? builder->GETWithPath("guest/reservations/rsv_1", std::nullopt)
                                                      : builder->POSTWithPath("guest/reservations/rsv_1", VLMSDKJSON{}));
        ASSERT_TRUE(manager->runUntilAnswered(kLimit));
        EXPECT_EQ(answers->count, 1);
        // Without a delay on the main thread (in a pump), with one on the manager's own thread.
        EXPECT_EQ(answers->onMainThread, row.reply.delay == 0ms);
        row.check(*answers);
        EXPECT_TRUE(manager->verify());
    }
    EXPECT_EQ(reported(), std::vector<std::string>{});
}

TEST_F(ScriptedRequestManagerTest, AnUnexpectedRequestGetsAnErrorAndAFailureListingEveryExpectationLeft) {
    auto manager = makeManager();
    manager->expect({.method = "GET", .route = "guest/reservations/rsv_1"}, VLMSDKScriptedReply::json(200, kReservation));
    manager->expect({.method = "POST",
                     .route = "guest/reservations/rsv_1/transactions",
                     .body = VLMSDKBodyMatcher::including({{"amount", "61.00"}})},
                    VLMSDKScriptedReply::json(201, VLMSDKJSON::object()));

    auto stray = send(*manager, builder->GETWithPath("guest/reservations/rsv_2", std::nullopt));
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    ASSERT_EQ(stray->count, 1);
    ASSERT_NE(stray->error, nullptr);
    EXPECT_EQ(stray->error->code(), VLMErrorCode::Transport);
    ASSERT_EQ(reported().size(), 1u);
    const std::string message = reported().front();
    for (const char* said : {"unexpected request GET guest/reservations/rsv_2, no body",
                             "differs: it is not GET guest/reservations/rsv_1", "1. GET guest/reservations/rsv_1",
                             "2. POST guest/reservations/rsv_1/transactions, body including {\"amount\":\"61.00\"}"}) {
        EXPECT_NE(message.find(said), std::string::npos) << said << "\n" << message;
    }

    // The expectations stay: the requests that were meant still get their replies, and nothing is left.
    auto fetched = send(*manager, builder->GETWithPath("guest/reservations/rsv_1", std::nullopt));
    auto wrongBody = send(*manager, builder->POSTWithPath("guest/reservations/rsv_1/transactions", VLMSDKJSON{{"amount", "5.00"}}));
    auto paid = send(*manager, builder->POSTWithPath("guest/reservations/rsv_1/transactions",
                                                     VLMSDKJSON{{"amount", "61.00"}, {"currency", "USD"}}));
    auto extra = send(*manager, builder->GETWithPath("guest/reservations/rsv_1", std::nullopt));
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    EXPECT_EQ(fetched->error, nullptr);
    EXPECT_EQ(wrongBody->error->code(), VLMErrorCode::Transport);
    EXPECT_EQ(paid->error, nullptr);
    EXPECT_EQ(paid->response->statusCode(), 201);
    EXPECT_EQ(extra->error->code(), VLMErrorCode::Transport);
    ASSERT_EQ(reported().size(), 3u);
    EXPECT_NE(reported()[1].find("differs: its body is not including {\"amount\":\"61.00\"}"), std::string::npos)
        << reported()[1];
    EXPECT_NE(reported()[2].find("expected: no more requests"), std::string::npos) << reported()[2];
    EXPECT_EQ(manager->failures(), reported());
    EXPECT_FALSE(manager->verify());
}

TEST_F(ScriptedRequestManagerTest, UnmetExpectationsAreReportedOnceByVerifyOrWhenTheManagerGoes) {
    for (const bool verifyFirst : {false, true}) {
        SCOPED_TRACE(verifyFirst ? "verify, then destroy" : "destroy");
        const std::size_t before = reported().size();
        {
            auto manager = makeManager();
            manager->expect({.method = "GET", .route = "guest/reservations/rsv_1"}, {});
            manager->expect({.method = "PATCH", .route = "guest/reservations/rsv_1/mobile_checkin"}, {});
            if (verifyFirst) {
                EXPECT_FALSE(manager->verify());
                EXPECT_EQ(manager->failures().size(), 1u);
            }
        }
        ASSERT_EQ(reported().size(), before + 1);
        const std::string message = reported().back();
        EXPECT_NE(message.find("1. GET guest/reservations/rsv_1\n  2. PATCH guest/reservations/rsv_1/mobile_checkin"),
                  std::string::npos)
            << message;
    }
}

TEST_F(ScriptedRequestManagerTest, BodyMatchersSayWhichBodiesAreMeantAndWhyOthersAreNot) {
    const auto post = [&](std::optional<VLMSDKJSON> body) { return builder->POSTWithPath("route", body); };
    const VLMSDKJSON paid = {{"amount", "61.00"}, {"currency", "USD"}};
    struct Row {
        const char* name;
        VLMSDKScriptedRequest expected;
        std::shared_ptr<const VLMSDKRequest> request;
        bool matches;
        const char* why;  // words of the reason, when it does not match
    };
    const Row rows[] = {
        {"any body", {.method = "POST", .route = "route"}, post(paid), true, ""},
        {"equal, members in another order", {"POST", "route", VLMSDKBodyMatcher::equalTo({{"currency", "USD"}, {"amount", "61.00"}})},
         post(paid), true, ""},
        {"not equal", {"POST", "route", VLMSDKBodyMatcher::equalTo({{"amount", "61.00"}})}, post(paid), false,
         "its body is not equal to {\"amount\":\"61.00\"}"},
        {"including", {"POST", "route", VLMSDKBodyMatcher::including({{"amount", "61.00"}})}, post(paid), true, ""},
        {"including a value that differs", {"POST", "route", VLMSDKBodyMatcher::including({{"amount", "6.00"}})},
         post(paid), false, "its body is not including"},
        {"including, no body", {"POST", "route", VLMSDKBodyMatcher::including({{"amount", "61.00"}})}, post(std::nullopt),
         false, "its body is not including"},
        {"no body is null", {"POST", "route", VLMSDKBodyMatcher::equalTo(nullptr)}, post(std::nullopt), true, ""},
        {"a predicate", {"POST", "route", VLMSDKBodyMatcher{"paying in USD", [](const VLMSDKJSON& body) {
                             return body.value("currency", "") == "USD";
                         }}},
         post(paid), true, ""},
        {"a predicate that throws", {"POST", "route", VLMSDKBodyMatcher{"amount as a number", [](const VLMSDKJSON& body) {
                                         return body.at("amount").get<double>() > 0;
                                     }}},
         post(paid), false, "the body matcher threw"},
        {"another method", {"GET", "route", std::nullopt}, post(paid), false, "it is not GET route"},
        {"another route", {"POST", "route/x", std::nullopt}, post(paid), false, "it is not POST route/x"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::string why;
        EXPECT_EQ(row.expected.matches(*row.request, &why), row.matches);
        EXPECT_NE(why.find(row.why), std::string::npos) << why;
    }
}

TEST_F(ScriptedRequestManagerTest, ACancelDuringTheDelayAnswersOnceWithTheCancelledError) {
    auto manager = makeManager();
    manager->expect({.method = "POST", .route = "guest/reservations/rsv_1/transactions"},
                    {.status = 201, .body = "{}", .delay = std::chrono::hours(1)});
    const auto cancellation = VLMSDKCancellation::make();
    auto answers = send(*manager, builder->POSTWithPath("guest/reservations/rsv_1/transactions", VLMSDKJSON{}),
                        cancelledBy(cancellation));
    std::thread([&] { cancellation->cancel(); }).join();
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    EXPECT_EQ(answers->count, 1);
    ASSERT_NE(answers->error, nullptr);
    EXPECT_EQ(answers->error->code(), VLMErrorCode::Cancelled);
    EXPECT_NE(answers->error->developerMessage().find("may have acted"), std::string::npos);  // it had been sent
    EXPECT_TRUE(manager->verify());

    // Cancelled before it was handed over: it matches nothing, and the expectation waits for the next one.
    manager->expect({.method = "GET", .route = "guest/reservations/rsv_1"}, VLMSDKScriptedReply::json(200, kReservation));
    auto early = send(*manager, builder->GETWithPath("guest/reservations/rsv_1", std::nullopt), cancelledBy(cancellation));
    auto next = send(*manager, builder->GETWithPath("guest/reservations/rsv_1", std::nullopt));
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    EXPECT_EQ(early->count, 1);
    EXPECT_EQ(early->error->code(), VLMErrorCode::Cancelled);
    EXPECT_EQ(next->error, nullptr);
    EXPECT_TRUE(manager->verify());
}

// The reply's delay ends while another thread cancels: whichever wins, the handler runs once.
TEST_F(ScriptedRequestManagerTest, AReplyAndACancelThatMeetAnswerOnce) {
    auto manager = makeManager();
    constexpr int kRequests = 200;
    for (int i = 0; i < kRequests; ++i) {
        manager->expect({.method = "GET", .route = "r"}, {.status = 200, .body = "{}", .delay = 1ms});
    }
    std::vector<std::shared_ptr<VLMSDKCancellation>> cancellations;
    std::vector<std::shared_ptr<Answers>> answers;
    for (int i = 0; i < kRequests; ++i) {
        cancellations.push_back(VLMSDKCancellation::make());
        answers.push_back(send(*manager, builder->GETWithPath("r", std::nullopt), cancelledBy(cancellations.back())));
    }
    std::thread canceller([&] {
        for (const auto& cancellation : cancellations) cancellation->cancel();
    });
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    canceller.join();
    for (const auto& answer : answers) {
        std::lock_guard lock(answer->mutex);
        EXPECT_EQ(answer->count, 1);
        if (answer->error) {
            EXPECT_EQ(answer->error->code(), VLMErrorCode::Cancelled);
        }
    }
    EXPECT_TRUE(manager->verify());
}

TEST_F(ScriptedRequestManagerTest, RequestsStillWaitingAreAnsweredOnceWhenTheManagerGoes) {
    auto manager = makeManager();
    manager->expect({.method = "GET", .route = "r"}, {.status = 200, .body = "{}", .delay = std::chrono::hours(1)});
    manager->expect({.method = "GET", .route = "r"}, VLMSDKScriptedReply::json(200, VLMSDKJSON::object()));
    auto delayed = send(*manager, builder->GETWithPath("r", std::nullopt));
    auto queued = send(*manager, builder->GETWithPath("r", std::nullopt));
    EXPECT_FALSE(manager->runUntilAnswered(30ms));  // the delayed one is still out
    EXPECT_EQ(manager->outstandingCount(), 1u);
    manager.reset();
    VLMSDKMainQueue::drain();
    EXPECT_EQ(delayed->count, 1);
    EXPECT_NE(delayed->error->developerMessage().find("the request manager shut down"), std::string::npos);
    EXPECT_EQ(queued->count, 1);
    EXPECT_EQ(queued->error, nullptr);
}

TEST_F(ScriptedRequestManagerTest, AHandlerThatMustNotNeedTheMainQueueIsAnsweredAtOnce) {
    auto manager = makeManager();
    manager->expect({.method = "GET", .route = "r"}, VLMSDKScriptedReply::json(200, VLMSDKJSON::object()));
    VLMSDKRequestControl offMainQueue;
    offMainQueue.handlerOffMainQueue = true;
    auto answers = send(*manager, builder->GETWithPath("r", std::nullopt), offMainQueue);
    EXPECT_EQ(answers->count, 1);  // no pump
    EXPECT_EQ(manager->outstandingCount(), 0u);
}

// Through the kit: the pump runs the completion the kit posts from the manager's thread, and the kit, not the
// manager, refuses a reply about another reservation.
TEST_F(ScriptedRequestManagerTest, RunUntilAnsweredReturnsOnceTheKitsCompletionsRan) {
    auto manager = makeManager();
    const VLMSDKAPIManager api(builder, manager);
    manager->expect({.method = "GET", .route = "guest/reservations/rsv_1"},
                    {.status = 200, .body = kReservation.dump(), .delay = 5ms});
    manager->expect({.method = "GET", .route = "guest/reservations/rsv_2"}, VLMSDKScriptedReply::json(200, kReservation));
    std::vector<std::pair<std::shared_ptr<VLMSDKReservation>, VLMErrorPtr>> outcomes;
    for (const char* id : {"rsv_1", "rsv_2"}) {
        fetchReservationWithID(api, std::string(id), [&](auto reservation, auto error) {
            outcomes.emplace_back(std::move(reservation), std::move(error));
        });
    }
    ASSERT_TRUE(manager->runUntilAnswered(kLimit));
    ASSERT_EQ(outcomes.size(), 2u);
    // The undelayed reply comes first.
    EXPECT_EQ(outcomes[0].second->code(), VLMErrorCode::ReplyMismatch);
    ASSERT_NE(outcomes[1].first, nullptr);
    EXPECT_EQ(outcomes[1].first->roomNumber(), "412");
    EXPECT_TRUE(manager->verify());
}

TEST_F(ScriptedRequestManagerTest, TheMockManagerAnswersWhatATestScriptsWithGMock) {
    auto mock = std::make_shared<testing::StrictMock<VLMSDKMockRequestManager>>();
    const VLMSDKAPIManager api(builder, mock);
    EXPECT_CALL(*mock, checksExpectedReplies()).Times(testing::AnyNumber());
    EXPECT_CALL(*mock, performControlledRequest(testing::_, testing::_, testing::_)).Times(testing::AnyNumber());
    EXPECT_CALL(*mock, performDataTaskRequest(testing::Pointee(testing::Property(&VLMSDKRequest::path, "guest/reservations/rsv_1")),
                                              testing::_))
        .WillOnce([](auto request, VLMSDKDataTaskCompletion completion) {
            completion(std::make_shared<VLMSDKJSONReply>(kReservation),
                       std::make_shared<VLMSDKURLResponse>(request->url(), 200), nullptr);
        });
    std::shared_ptr<VLMSDKReservation> fetched;
    fetchReservationWithID(api, std::string("rsv_1"), [&](auto reservation, auto) { fetched = reservation; });
    VLMSDKMainQueue::drain();
    ASSERT_NE(fetched, nullptr);
    EXPECT_EQ(fetched->roomNumber(), "412");
}

}  // namespace
