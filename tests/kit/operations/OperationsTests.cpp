// The eight reservation operations over one table, against a fake request manager.
#include "FakeRequestManager.h"
#include "KitTestFixture.h"
#include "LogCapture.h"
#include "RecordingAssertionHandler.h"

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <VLMSDKPaymentKit/VLMSDKPaymentTransaction.h>

#include <gtest/gtest.h>

#include <functional>
#include <thread>

namespace {

// What one completion call delivered, whatever the operation's result type.
struct Outcome {
    std::shared_ptr<VLMSDKRootObject> record;
    bool flag = false;
    VLMErrorPtr error;
    bool onMainThread = false;
};

using Outcomes = std::vector<Outcome>;
using Call = std::function<void(const VLMSDKAPIManager&, Outcomes&)>;

template <class Record>
std::function<void(std::shared_ptr<Record>, VLMErrorPtr)> recordInto(Outcomes& outcomes) {
    return [&outcomes](std::shared_ptr<Record> record, VLMErrorPtr error) {
        outcomes.push_back({std::move(record), false, std::move(error), VLMSDKMainQueue::isMainThread()});
    };
}

VLMSDKSuccessCompletion flagInto(Outcomes& outcomes) {
    return [&outcomes](bool flag, VLMErrorPtr error) {
        outcomes.push_back({nullptr, flag, std::move(error), VLMSDKMainQueue::isMainThread()});
    };
}

const VLMSDKJSON kReservation = {
    {"id", "res-1"},     {"status", "in_house"},      {"confirmation_id", "C-1"},
    {"venue_id", "v-1"}, {"checkin_date", "2026-11-20"}, {"guests", {{{"first_name", "Ana"}, {"last_name", "Moreau"}}}},
};
const VLMSDKJSON kTransaction = {{"id", "txn-1"}, {"amount", 40}, {"currency", "usd"}, {"status", "succeeded"},
                                 {"credit_card_id", "card-1"}, {"created_at", "2026-11-21T10:00:00Z"}};
const VLMSDKJSON kFolio = {{"folio_id", "F-1"}, {"outstanding_amount", 12.5}, {"currency", "usd"},
                           {"transactions", {{{"posting_name", "Water"}, {"posting_code", "MB"}, {"amount", "4.50"}}}}};

struct Row {
    const char* name;
    Call call;
    const char* method;
    const char* path;
    std::optional<VLMSDKJSON> body;
    const char* passes;
    const char* fails;
    std::vector<std::string> requiredKeys;
    VLMSDKJSON goodReply;
    std::optional<VLMSDKJSON> unmappableReply;  // passes validation but cannot be mapped
    std::function<void(const Outcome&)> checkGood;
};

std::shared_ptr<const VLMSDKCreateReservationRequestInfo> createRequest() {
    auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
    request->setReservationistLastName("Moreau");
    request->setVenueVelmoraID("v-1");
    request->setExternalReservationID("C-1");
    return request;
}

std::shared_ptr<VLMSDKPayForReservationRequestInfo> payRequest() {
    auto request = std::make_shared<VLMSDKPayForReservationRequestInfo>();
    request->setReservationID("res-1");
    request->setCreditCardID("card-1");
    request->setAmount(40);
    request->setCurrencyCode("USD");
    return request;
}

std::shared_ptr<VLMSDKUpdateReservationMasterBillRequestInfo> chargeRequest() {
    auto request = std::make_shared<VLMSDKUpdateReservationMasterBillRequestInfo>();
    request->setReservationID("res-1");
    request->setVelmoraDeliverables({std::make_shared<VLMSDKDeliverableCountableItem>("water", 2)});
    return request;
}

void expectReservation(const Outcome& outcome) {
    auto reservation = std::dynamic_pointer_cast<VLMSDKReservation>(outcome.record);
    ASSERT_NE(reservation, nullptr);
    EXPECT_EQ(reservation->velmoraID(), "res-1");
    EXPECT_EQ(reservation->status(), VLMSDKReservationStatusInHouse);
    ASSERT_EQ(reservation->guests().size(), 1u);
    EXPECT_EQ(reservation->guests()[0]->lastName(), "Moreau");
}

void expectFolio(const Outcome& outcome) {
    auto folio = std::dynamic_pointer_cast<VLMSDKFolio>(outcome.record);
    ASSERT_NE(folio, nullptr);
    EXPECT_EQ(folio->folioID(), "F-1");
    EXPECT_EQ(folio->paymentCurrency(), "USD");
    ASSERT_EQ(folio->deliverables().size(), 1u);
    EXPECT_EQ(folio->deliverables()[0]->price(), 4.5);
}

std::vector<Row> rows() {
    return {
        {"create", [](const auto& m, auto& o) { createReservationWithRequest(m, createRequest(), recordInto<VLMSDKReservation>(o)); },
         "POST", "guest/reservations", VLMSDKJSON{{"last_name", "Moreau"}, {"venue_id", "v-1"}, {"confirmation_id", "C-1"}},
         "Successfully created reservation.", "Failed to create reservation.", {"reservation"},
         VLMSDKJSON{{"reservation", kReservation}}, VLMSDKJSON{{"reservation", "not an object"}}, expectReservation},
        {"fetch", [](const auto& m, auto& o) { fetchReservationWithID(m, "res-1", recordInto<VLMSDKReservation>(o)); },
         "GET", "guest/reservations/res-1", std::nullopt, "Successfully fetch reservation.", "Failed to fetch reservation.",
         {"reservation"}, VLMSDKJSON{{"reservation", kReservation}},
         VLMSDKJSON{{"reservation", {{"checkin_date", "20/11/2026"}}}}, expectReservation},
        {"confirm", [](const auto& m, auto& o) { confirmReservationWithID(m, "res-1", false, recordInto<VLMSDKReservation>(o)); },
         "PATCH", "guest/reservations/res-1", VLMSDKJSON{{"notify_me", false}}, "Successfully confirm reservation.",
         "Failed to confirm a reservation.", {"reservation"}, VLMSDKJSON{{"reservation", kReservation}},
         VLMSDKJSON{{"reservation", {{"guests", {"Ana"}}}}}, expectReservation},
        {"mobile check-in",
         [](const auto& m, auto& o) { performMobileCheckinForReservationWithID(m, "res-1", recordInto<VLMSDKReservation>(o)); },
         "PATCH", "guest/reservations/res-1/mobile_checkin", std::nullopt, "Successfully did mobile checkin for reservation.",
         "Failed to make a mobile checkin for reservation.", {"reservation"}, VLMSDKJSON{{"reservation", kReservation}},
         VLMSDKJSON{{"reservation", {{"status", 2}}}}, expectReservation},
        {"mobile check-out", [](const auto& m, auto& o) { performMobileCheckoutForReservationWithID(m, "res-1", flagInto(o)); },
         "PATCH", "guest/reservations/res-1/mobile_checkout", std::nullopt, "Successfully did mobile checkout for reservation.",
         "Failed to make a mobile checkout for reservation.", {}, VLMSDKJSON::object(), std::nullopt,
         [](const Outcome& o) { EXPECT_TRUE(o.flag); }},
        {"pay", [](const auto& m, auto& o) { payForReservationWithRequest(m, payRequest(), recordInto<VLMSDKPayForReservationResult>(o)); },
         "POST", "guest/reservations/res-1/transactions",
         VLMSDKJSON{{"credit_card_id", "card-1"}, {"amount", 40}, {"currency", "USD"}}, "Successfully pay for reservation.",
         "Failed to pay for reservation.", {"reservation", "transaction"},
         VLMSDKJSON{{"reservation", kReservation}, {"transaction", kTransaction}}, std::nullopt,
         [](const Outcome& o) {
             auto result = std::dynamic_pointer_cast<VLMSDKPayForReservationResult>(o.record);
             ASSERT_NE(result, nullptr);
             ASSERT_NE(result->paymentTransaction(), nullptr);
             EXPECT_EQ(result->paymentTransaction()->velmoraID(), "txn-1");
             EXPECT_EQ(result->paymentTransaction()->currencyCode(), "USD");
             expectReservation({result->reservation(), false, nullptr, true});
         }},
        {"fetch master bill", [](const auto& m, auto& o) { fetchReservationMasterBill(m, "res-1", recordInto<VLMSDKFolio>(o)); },
         "GET", "guest/reservations/res-1/folio", std::nullopt, "Successfully fetch reservation's master bill.",
         "Failed to fetch reservation's master bill.", {}, kFolio, VLMSDKJSON{{"transactions", 5}}, expectFolio},
        {"update master bill",
         [](const auto& m, auto& o) { updateReservationMasterBillWithRequest(m, chargeRequest(), recordInto<VLMSDKFolio>(o)); },
         "POST", "guest/reservations/res-1/charge", VLMSDKJSON{{"deliverable_items", {{{"item_id", "water"}, {"quantity", 2}}}}},
         "Successfully updated reservation's master bill.", "Failed to update reservation's master bill.", {}, kFolio,
         VLMSDKJSON{{"folio_id", 17}}, expectFolio},
    };
}

class Operations : public KitTestFixture {
protected:
    // Runs the row's call, checks the one request it sent, answers it with `reply` and returns the one outcome.
    Outcome run(const Row& row, const FakeReply& reply) {
        Outcomes outcomes;
        const auto before = requests->requestCount();
        row.call(*manager, outcomes);
        EXPECT_TRUE(outcomes.empty());
        if (requests->requestCount() != before + 1) {
            ADD_FAILURE() << requests->requestCount() - before << " requests sent";
            return {};
        }
        const auto request = requests->request(before);
        EXPECT_EQ(request->method(), row.method);
        EXPECT_EQ(request->path(), row.path);
        EXPECT_EQ(request->body() ? std::optional(VLMSDKJSON::parse(*request->body())) : std::nullopt, row.body);
        requests->answer(before, reply);
        EXPECT_EQ(outcomes.size(), 1u);
        return outcomes.empty() ? Outcome{} : outcomes[0];
    }
};

}  // namespace

TEST_F(Operations, EachSendsItsRequestAndMapsAGoodReplyAndLogsThePassMessage) {
    for (const auto& row : rows()) {
        SCOPED_TRACE(row.name);
        LogCapture logs;
        const auto outcome = run(row, FakeReply::http(200, row.goodReply));
        EXPECT_EQ(outcome.error, nullptr);
        EXPECT_TRUE(outcome.onMainThread);
        row.checkGood(outcome);
        EXPECT_TRUE(logs.consoleHasMessage(row.passes));
    }
    EXPECT_TRUE(asserts->calls().empty());
}

TEST_F(Operations, AValidatorFailureGivesItsErrorAndTheFailMessage) {
    for (const auto& row : rows()) {
        SCOPED_TRACE(row.name);
        LogCapture logs;
        const auto outcome = run(row, FakeReply::http(404, VLMSDKJSON{{"error", {{"message", "No such reservation."}}}}));
        EXPECT_EQ(outcome.record, nullptr);
        EXPECT_FALSE(outcome.flag);
        ASSERT_NE(outcome.error, nullptr);
        EXPECT_EQ(outcome.error->code(), VLMErrorCode::HTTPStatus);
        EXPECT_EQ(outcome.error->serverMessage(), "No such reservation.");
        bool failLogged = false;
        for (const auto& record : logs.consoleRecords()) failLogged |= record.message.rfind(row.fails, 0) == 0;
        EXPECT_TRUE(failLogged);
    }
}

TEST_F(Operations, RequiredKeysAreCheckedInOrderAndOnlyWhereRequired) {
    for (const auto& row : rows()) {
        SCOPED_TRACE(row.name);
        const auto outcome = run(row, FakeReply::http(200, VLMSDKJSON{{"unrelated", true}}));
        if (row.requiredKeys.empty()) {
            // Nothing required: the reply reaches the mapping (or, for check-out, is not read at all).
            EXPECT_EQ(outcome.error, nullptr);
            continue;
        }
        ASSERT_NE(outcome.error, nullptr);
        EXPECT_EQ(outcome.error->code(), VLMErrorCode::MissingRequiredKey);
        EXPECT_NE(outcome.error->developerMessage().find("'" + row.requiredKeys.front() + "'"), std::string::npos);
        if (row.requiredKeys.size() > 1) {
            auto partial = row.goodReply;
            partial.erase(row.requiredKeys.back());
            const auto second = run(row, FakeReply::http(200, partial));
            ASSERT_NE(second.error, nullptr);
            EXPECT_NE(second.error->developerMessage().find("'" + row.requiredKeys.back() + "'"), std::string::npos);
        }
    }
}

TEST_F(Operations, AReplyThatCannotBeMappedGivesTheMappingError) {
    for (const auto& row : rows()) {
        if (!row.unmappableReply) continue;
        SCOPED_TRACE(row.name);
        const auto outcome = run(row, FakeReply::http(200, *row.unmappableReply));
        EXPECT_EQ(outcome.record, nullptr);
        ASSERT_NE(outcome.error, nullptr);
        EXPECT_EQ(outcome.error->code(), VLMErrorCode::Mapping);
    }
}

TEST_F(Operations, UnderATraceEachIsOneNamedSpanOverItsRouteTemplateAndAnErrorKeepsTheServiceRequestID) {
    // (name, route template) per row, in the rows' order.
    const std::pair<const char*, const char*> spans[] = {
        {"createReservation", "guest/reservations"},         {"fetchReservation", "guest/reservations/{id}"},
        {"confirmReservation", "guest/reservations/{id}"},   {"mobileCheckin", "guest/reservations/{id}/mobile_checkin"},
        {"mobileCheckout", "guest/reservations/{id}/mobile_checkout"},
        {"payForReservation", "guest/reservations/{id}/transactions"},
        {"fetchMasterBill", "guest/reservations/{id}/folio"}, {"chargeMasterBill", "guest/reservations/{id}/charge"},
    };
    struct Recorder : VLMSDKTelemetryObserver {
        std::vector<std::string> events;
        void operationStarted(const VLMSDKOperationTelemetry& o) override {
            events.push_back("start " + o.operation + " " + o.method + " " + o.route);
        }
        void operationEnded(const VLMSDKOperationTelemetry& o, const VLMSDKOperationEnd& end) override {
            events.push_back("end " + o.operation + " " + std::to_string(end.statusCode) + " " + end.requestID + " " +
                             (end.error ? end.error->requestID().value_or("-") : "ok"));
            throw std::runtime_error("an observer's failure costs the caller nothing");
        }
    };
    const auto host = VLMSDKTraceContext::newTrace();
    auto recorder = std::make_shared<Recorder>();
    const auto rowsList = rows();
    ASSERT_EQ(std::size(spans), rowsList.size());
    for (std::size_t i = 0; i < rowsList.size(); ++i) {
        const auto& [name, route] = spans[i];
        SCOPED_TRACE(name);
        const VLMSDKAPIManager real = *manager;
        *manager = real.withTelemetryObserver(recorder).withTraceContext(host);
        recorder->events.clear();
        const auto failed = run(rowsList[i], FakeReply::http(500, VLMSDKJSON::object(), {{"x-request-id", "req-7"}}));
        const auto sent = requests->request(requests->requestCount() - 1);
        *manager = real;
        ASSERT_NE(failed.error, nullptr);
        EXPECT_EQ(failed.error->requestID(), "req-7");
        const std::string method = sent->method();
        EXPECT_EQ(recorder->events, (std::vector<std::string>{"start " + std::string(name) + " " + method + " " + route,
                                                              "end " + std::string(name) + " 500 req-7 req-7"}));
        const auto traceparent = VLMSDKTraceContext::fromTraceparent(sent->headerValue("traceparent").value_or(""));
        ASSERT_TRUE(traceparent);
        EXPECT_EQ(traceparent->traceID, host.traceID);
        EXPECT_NE(traceparent->spanID, host.spanID);  // the operation's own span, under the host's
    }
    // Without an observer or a trace: nothing is sent or told.
    recorder->events.clear();
    run(rowsList[1], FakeReply::http(200, rowsList[1].goodReply));
    EXPECT_FALSE(requests->request(requests->requestCount() - 1)->headerValue("traceparent"));
    EXPECT_TRUE(recorder->events.empty());
}

TEST_F(Operations, APaymentWhosePartsDoNotMapStillGivesAResult) {
    const auto rowsList = rows();
    const auto& payRow = rowsList[5];
    ASSERT_STREQ(payRow.name, "pay");
    const auto outcome = run(payRow, FakeReply::http(200, VLMSDKJSON{{"reservation", kReservation}, {"transaction", "x"}}));
    EXPECT_EQ(outcome.error, nullptr);
    auto result = std::dynamic_pointer_cast<VLMSDKPayForReservationResult>(outcome.record);
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(result->paymentTransaction(), nullptr);
    EXPECT_NE(result->reservation(), nullptr);
}

TEST_F(Operations, RepliesFromAnotherThreadAreDeliveredOnTheMainThread) {
    for (const auto& row : rows()) {
        SCOPED_TRACE(row.name);
        Outcomes outcomes;
        const auto index = requests->requestCount();
        row.call(*manager, outcomes);
        requests->answerOnNewThread(index, FakeReply::http(200, row.goodReply));
        EXPECT_TRUE(outcomes.empty());
        EXPECT_EQ(VLMSDKMainQueue::drain(), 1u);
        ASSERT_EQ(outcomes.size(), 1u);
        EXPECT_TRUE(outcomes[0].onMainThread);
        EXPECT_EQ(outcomes[0].error, nullptr);
    }
}

TEST_F(Operations, AbsentArgumentsAreNamedPerOperationAndNothingIsSent) {
    struct Absent { const char* name; Call call; const char* argument; };
    const Absent absent[] = {
        {"create", [](const auto& m, auto& o) { createReservationWithRequest(m, nullptr, recordInto<VLMSDKReservation>(o)); }, "requestInfo"},
        {"fetch", [](const auto& m, auto& o) { fetchReservationWithID(m, std::nullopt, recordInto<VLMSDKReservation>(o)); }, "reservationID"},
        {"confirm", [](const auto& m, auto& o) { confirmReservationWithID(m, std::nullopt, true, recordInto<VLMSDKReservation>(o)); }, "reservationVelmoraID"},
        {"check-in", [](const auto& m, auto& o) { performMobileCheckinForReservationWithID(m, std::nullopt, recordInto<VLMSDKReservation>(o)); }, "reservationVelmoraID"},
        {"check-out", [](const auto& m, auto& o) { performMobileCheckoutForReservationWithID(m, std::nullopt, flagInto(o)); }, "reservationVelmoraID"},
        {"pay", [](const auto& m, auto& o) { payForReservationWithRequest(m, nullptr, recordInto<VLMSDKPayForReservationResult>(o)); }, "requestInfo"},
        {"fetch master bill", [](const auto& m, auto& o) { fetchReservationMasterBill(m, std::nullopt, recordInto<VLMSDKFolio>(o)); }, "reservationID"},
    };
    for (const auto& row : absent) {
        SCOPED_TRACE(row.name);
        Outcomes outcomes;
        const auto assertsBefore = asserts->calls().size();
        row.call(*manager, outcomes);
        ASSERT_EQ(asserts->calls().size(), assertsBefore + 1);
        EXPECT_EQ(asserts->calls().back().text, row.argument);
        ASSERT_EQ(outcomes.size(), 1u);
        ASSERT_NE(outcomes[0].error, nullptr);
        EXPECT_EQ(outcomes[0].error->argumentName(), row.argument);
        EXPECT_EQ(outcomes[0].record, nullptr);
    }
    EXPECT_EQ(requests->requestCount(), 0u);
}

TEST_F(Operations, AnInvalidCreateOrPayRequestIsLoggedRemoteFirstAndNothingIsSent) {
    struct Case { const char* name; Call call; const char* prefix; const char* argument; };
    const Case cases[] = {
        {"create",
         [](const auto& m, auto& o) {
             auto request = std::make_shared<VLMSDKCreateReservationRequestInfo>();
             request->setReservationistLastName("Moreau");
             createReservationWithRequest(m, request, recordInto<VLMSDKReservation>(o));
         },
         "Can't create reservation. ", "venueVelmoraID"},
        {"pay",
         [](const auto& m, auto& o) {
             auto request = payRequest();
             request->setCreditCardID(std::nullopt);
             payForReservationWithRequest(m, request, recordInto<VLMSDKPayForReservationResult>(o));
         },
         "Can't pay for reservation. ", "creditCardID"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture logs;
        Outcomes outcomes;
        c.call(*manager, outcomes);
        ASSERT_EQ(outcomes.size(), 1u);
        ASSERT_NE(outcomes[0].error, nullptr);
        EXPECT_EQ(outcomes[0].error->argumentName(), c.argument);
        const std::string expected = c.prefix + outcomes[0].error->developerMessage();
        const auto remote = logs.drainRemote();
        const auto console = logs.consoleRecords();
        ASSERT_EQ(remote.size(), 1u);
        ASSERT_EQ(console.size(), 1u);
        for (const auto* record : {&remote[0], &console[0]}) {
            EXPECT_EQ(record->message, expected);
            EXPECT_EQ(record->level, 1);
            EXPECT_TRUE(record->file.ends_with("VLMSDKAPIManager+Reservation.cpp")) << record->file;
            EXPECT_GT(record->line, 0);
        }
        EXPECT_LE(remote[0].time, console[0].time);
    }
    EXPECT_TRUE(asserts->calls().empty());
    EXPECT_EQ(requests->requestCount(), 0u);
}

TEST_F(Operations, UpdateMasterBillAssertsOnAnInvalidRequestAndGivesNothingForAnAbsentOne) {
    LogCapture logs;
    Outcomes outcomes;
    updateReservationMasterBillWithRequest(*manager, nullptr, recordInto<VLMSDKFolio>(outcomes));
    auto empty = chargeRequest();
    empty->setVelmoraDeliverables({});
    updateReservationMasterBillWithRequest(*manager, empty, recordInto<VLMSDKFolio>(outcomes));

    ASSERT_EQ(asserts->calls().size(), 2u);
    for (const auto& call : asserts->calls()) EXPECT_EQ(call.text, "[requestInfo isValid:&validationError]");
    ASSERT_EQ(outcomes.size(), 2u);
    EXPECT_EQ(outcomes[0].record, nullptr);
    EXPECT_EQ(outcomes[0].error, nullptr);  // an absent request: neither result nor error
    ASSERT_NE(outcomes[1].error, nullptr);
    EXPECT_EQ(outcomes[1].error->argumentName(), "velmoraDeliverables");
    EXPECT_TRUE(logs.consoleRecords().empty());
    EXPECT_TRUE(logs.drainRemote().empty());
    EXPECT_EQ(requests->requestCount(), 0u);
}

TEST_F(Operations, CalledOffTheMainThreadEveryFailureStillArrivesOnTheMainThread) {
    Outcomes outcomes;
    std::thread([&] {
        fetchReservationWithID(*manager, std::nullopt, recordInto<VLMSDKReservation>(outcomes));
        auto invalid = payRequest();
        invalid->setAmount(0);
        payForReservationWithRequest(*manager, invalid, recordInto<VLMSDKPayForReservationResult>(outcomes));
        updateReservationMasterBillWithRequest(*manager, nullptr, recordInto<VLMSDKFolio>(outcomes));
    }).join();
    EXPECT_TRUE(outcomes.empty());
    EXPECT_EQ(VLMSDKMainQueue::drain(), 3u);
    ASSERT_EQ(outcomes.size(), 3u);
    for (const auto& outcome : outcomes) EXPECT_TRUE(outcome.onMainThread);
    EXPECT_EQ(outcomes[0].error->argumentName(), "reservationID");
    EXPECT_EQ(outcomes[1].error->argumentName(), "amount");
    EXPECT_EQ(outcomes[2].error, nullptr);
}
