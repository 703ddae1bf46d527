// The outbox over a fake request manager: order per reservation, keys, limits, cancellation, outcomes that
// survive the process, the file's lock, damaged files and a full disk.
#include "FakeRequestManager.h"

#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>

#include <sqlite3.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using Kind = VLMSDKOutboxOutcome::Kind;

namespace {

const VLMSDKJSON kFolio = {{"folio_id", "F-1"}, {"outstanding_amount", 4.5}, {"currency", "usd"}, {"transactions", VLMSDKJSON::array()}};

VLMSDKJSON reservationReply(const std::string& id) {
    return {{"reservation", {{"id", id}, {"status", "in_house"}}}, {"transaction", {{"id", "txn-1"}, {"amount", 1}}}};
}

FakeReply lostConnection() {
    return FakeReply::failure(VLMError::errorWithCode(VLMErrorCode::Transport, kVLMSDKNetworkErrorDomain,
                                                      "The connection was lost.", "test", "test"));
}

class Outbox : public testing::Test {
protected:
    void SetUp() override {
        VLMSDKMainQueue::drain();
        char pattern[] = "/tmp/vlmsdk-outbox-XXXXXX";
        directory = mkdtemp(pattern);
        path = directory + "/outbox.db";
        options.path = path;
        options.retry.initialBackoff = 1ms;
        options.retry.maximumBackoff = 2ms;
    }
    void TearDown() override {
        outbox.reset();
        VLMSDKMainQueue::drain();
        fs::remove_all(directory);
    }

    std::shared_ptr<VLMSDKOutbox> open(VLMErrorPtr* error = nullptr) {
        VLMErrorPtr ignored;
        auto opened = VLMSDKOutbox::open(VLMSDKAPIManager(builder, requests), options, error ? error : &ignored);
        if (opened) {
            opened->setAcknowledgesAfterHandler(acknowledgesAfterHandler);
            opened->setOutcomeHandler([this](const VLMSDKOutboxOutcome& outcome) {
                EXPECT_TRUE(VLMSDKMainQueue::isMainThread());
                outcomes.push_back(outcome);
            });
        }
        return opened;
    }
    // Waits for the sender to hand the fake `count` requests in all.
    bool sent(std::size_t count) {
        for (int i = 0; i < 500 && requests->requestCount() < count; ++i) std::this_thread::sleep_for(10ms);
        return requests->requestCount() == count;
    }
    bool delivered(std::size_t count) {
        return VLMSDKMainQueue::runUntil([&] { return outcomes.size() >= count; }, 5s) && outcomes.size() == count;
    }
    std::string pathOf(std::size_t request) const { return requests->request(request)->path(); }
    std::string keyOf(std::size_t request) const {
        return requests->request(request)->headerValue("Idempotency-Key").value_or("");
    }

    std::string directory, path;
    VLMSDKOutboxOptions options;
    std::shared_ptr<FakeRequestManager> requests = std::make_shared<FakeRequestManager>();
    std::shared_ptr<VLMSDKRequestBuilder> builder = std::make_shared<VLMSDKRequestBuilder>("http://127.0.0.1:9/");
    std::shared_ptr<VLMSDKOutbox> outbox;
    std::vector<VLMSDKOutboxOutcome> outcomes;
    bool acknowledgesAfterHandler = true;  // as each outbox opens, before its handler is set
};

}  // namespace

TEST_F(Outbox, ItemsOfAReservationGoInOrderOthersDoNotWaitAndEveryAttemptCarriesTheItemsKey) {
    outbox = open();
    ASSERT_TRUE(outbox);
    ASSERT_TRUE(outbox->enqueueCharge("rsv_a", {{"water", 2}}, nullptr));
    ASSERT_TRUE(outbox->enqueueMobileCheckout("rsv_a", nullptr));
    ASSERT_TRUE(outbox->enqueueMobileCheckin("rsv_b", nullptr));
    ASSERT_TRUE(sent(2));  // the check-out waits for the charge before it; rsv_b does not wait
    const std::set<std::string> first{pathOf(0), pathOf(1)};
    EXPECT_EQ(first, (std::set<std::string>{"guest/reservations/rsv_a/charge", "guest/reservations/rsv_b/mobile_checkin"}));
    const std::size_t charge = pathOf(0).ends_with("/charge") ? 0 : 1;
    EXPECT_NE(keyOf(0), keyOf(1));

    requests->answer(charge, lostConnection());  // backs off, then goes again under the same key
    ASSERT_TRUE(sent(3));
    EXPECT_EQ(pathOf(2), "guest/reservations/rsv_a/charge");
    EXPECT_EQ(keyOf(2), keyOf(charge));
    requests->answer(2, FakeReply::http(200, kFolio));
    ASSERT_TRUE(sent(4));
    EXPECT_EQ(pathOf(3), "guest/reservations/rsv_a/mobile_checkout");
    requests->answer(3, FakeReply::http(200, VLMSDKJSON::object()));
    requests->answer(1 - charge, FakeReply::http(200, reservationReply("rsv_b")));

    ASSERT_TRUE(delivered(3));
    std::map<VLMSDKOutboxOperation, const VLMSDKOutboxOutcome*> byOperation;
    for (const auto& outcome : outcomes) byOperation[outcome.item.operation] = &outcome;
    for (const auto& outcome : outcomes) EXPECT_EQ(outcome.kind, Kind::Succeeded) << outcome.item.id;
    ASSERT_TRUE(byOperation[VLMSDKOutboxOperation::Charge]->folio());
    EXPECT_EQ(byOperation[VLMSDKOutboxOperation::Charge]->item.attempts, 2u);
    ASSERT_TRUE(byOperation[VLMSDKOutboxOperation::MobileCheckin]->reservation());
    EXPECT_EQ(byOperation[VLMSDKOutboxOperation::MobileCheckin]->reservation()->velmoraID(), "rsv_b");
    // Acknowledged as each handler returned, even with the outbox gone at once: nothing comes again.
    outbox.reset();
    outbox = open();
    EXPECT_TRUE(outbox->pending().empty());
    EXPECT_TRUE(outbox->unacknowledged().empty());
}

TEST_F(Outbox, EachLimitRefusesOrEndsAnItemAndNothingOfARefusedOneIsKept) {
    options.pay.allowed = true;
    options.maximumPendingPayment = 50;
    options.mobileCheckout.maximumAge = 0s;
    options.confirm.maximumAttempts = 2;
    outbox = open();
    ASSERT_TRUE(outbox);
    struct Refused { const char* name; std::function<std::optional<std::int64_t>(VLMErrorPtr*)> enqueue; const char* said; };
    ASSERT_TRUE(outbox->enqueuePay("rsv_a", "card-1", 30, "USD", nullptr));
    const Refused refused[] = {
        {"over the pending payments", [&](VLMErrorPtr* e) { return outbox->enqueuePay("rsv_a", "card-1", 30, "USD", e); },
         "30.00 pending and 30.00 more would pass the limit of 50.00"},
        {"a zero payment", [&](VLMErrorPtr* e) { return outbox->enqueuePay("rsv_b", "card-1", 0, "USD", e); }, "amount"},
        {"no reservation", [&](VLMErrorPtr* e) { return outbox->enqueueMobileCheckin("", e); }, "is empty or holds '/'"},
        {"another route", [&](VLMErrorPtr* e) { return outbox->enqueueMobileCheckin("rsv_a/charge", e); }, "holds '/'"},
        {"no quantity", [&](VLMErrorPtr* e) { return outbox->enqueueCharge("rsv_a", {{"water", 0}}, e); }, "quantity"},
        {"nothing to charge", [&](VLMErrorPtr* e) { return outbox->enqueueCharge("rsv_a", {}, e); }, "velmoraDeliverables"},
    };
    for (const auto& row : refused) {
        SCOPED_TRACE(row.name);
        VLMErrorPtr error;
        EXPECT_FALSE(row.enqueue(&error));
        ASSERT_TRUE(error);
        EXPECT_NE(error->developerMessage().find(row.said), std::string::npos) << error->developerMessage();
    }
    ASSERT_TRUE(outbox->enqueuePay("rsv_b", "card-1", 30, "USD", nullptr));  // the limit is per reservation
    ASSERT_TRUE(sent(2));
    requests->answer(0, FakeReply::http(201, reservationReply("rsv_a")));
    requests->answer(1, FakeReply::http(201, reservationReply("rsv_b")));
    ASSERT_TRUE(delivered(2));

    ASSERT_TRUE(outbox->enqueueMobileCheckout("rsv_c", nullptr));  // too old as soon as its turn comes
    ASSERT_TRUE(outbox->enqueueConfirm("rsv_d", true, nullptr));    // two attempts at most
    ASSERT_TRUE(sent(3));
    EXPECT_EQ(pathOf(2), "guest/reservations/rsv_d");
    requests->answer(2, FakeReply::http(503, VLMSDKJSON::object()));
    ASSERT_TRUE(sent(4));
    requests->answer(3, lostConnection());
    ASSERT_TRUE(delivered(4));
    EXPECT_EQ(outcomes[2].kind, Kind::Expired);
    EXPECT_EQ(outcomes[2].item.attempts, 0u);
    EXPECT_EQ(outcomes[3].kind, Kind::Failed);
    EXPECT_EQ(outcomes[3].error->code(), VLMErrorCode::Transport);
    EXPECT_EQ(requests->requestCount(), 4u);  // the expired check-out was never sent

    // Payments are the host's choice: off unless asked for.
    outbox.reset();
    options = VLMSDKOutboxOptions();
    options.path = path;
    outbox = open();
    VLMErrorPtr error;
    EXPECT_FALSE(outbox->enqueuePay("rsv_a", "card-1", 1, "USD", &error));
    ASSERT_TRUE(error);
    EXPECT_NE(error->developerMessage().find("pay.allowed"), std::string::npos);
}

TEST_F(Outbox, AServiceRefusalEndsTheItemWhileABusyServiceIsAskedAgain) {
    outbox = open();
    ASSERT_TRUE(outbox->enqueueMobileCheckin("rsv_a", nullptr));
    ASSERT_TRUE(sent(1));
    requests->answer(0, FakeReply::http(429, VLMSDKJSON::object()));
    ASSERT_TRUE(sent(2));
    requests->answer(1, FakeReply::http(401, VLMSDKJSON::object()));  // the credentials may yet be refreshed
    ASSERT_TRUE(sent(3));
    requests->answer(2, FakeReply::http(409, VLMSDKJSON{{"error", {{"message", "Not confirmed."}}}},
                                        {{"X-Request-Id", "req-9"}}));
    ASSERT_TRUE(delivered(1));
    EXPECT_EQ(outcomes[0].kind, Kind::Failed);
    EXPECT_EQ(outcomes[0].error->httpStatusCode(), 409);
    EXPECT_EQ(outcomes[0].error->serverMessage(), "Not confirmed.");
    EXPECT_EQ(outcomes[0].error->requestID(), "req-9");
}

TEST_F(Outbox, OnlyAnItemNoAttemptBeganCanBeCancelledAndItEndsCancelled) {
    outbox = open();
    const auto first = outbox->enqueueCharge("rsv_a", {{"water", 1}}, nullptr);
    const auto second = outbox->enqueueCharge("rsv_a", {{"soda", 1}}, nullptr);
    ASSERT_TRUE(first && second);
    ASSERT_TRUE(sent(1));
    EXPECT_FALSE(outbox->cancel(*first));  // on the wire: the service may act on it
    EXPECT_EQ(outbox->pending().size(), 2u);
    EXPECT_TRUE(outbox->cancel(*second));
    EXPECT_FALSE(outbox->cancel(*second));
    EXPECT_FALSE(outbox->cancel(12345));
    ASSERT_TRUE(delivered(1));
    EXPECT_EQ(outcomes[0].item.id, *second);
    EXPECT_EQ(outcomes[0].kind, Kind::Cancelled);
    requests->answer(0, FakeReply::http(200, kFolio));
    ASSERT_TRUE(delivered(2));
    EXPECT_TRUE(outbox->waitUntilIdle(5s));
    EXPECT_EQ(requests->requestCount(), 1u);  // the cancelled charge never went
}

// Opened suspended, it sends nothing the file holds, though its sender ran a whole pass (the waiting outcome came),
// until resumed.
TEST_F(Outbox, OpenedSuspendedItSendsNothingUntilResumed) {
    auto earlier = VLMSDKOutbox::open(VLMSDKAPIManager(builder, requests), options, nullptr);
    ASSERT_TRUE(earlier);
    earlier->suspend();
    const auto cancelled = earlier->enqueueCharge("rsv_c", {{"water", 1}}, nullptr);
    const auto first = earlier->enqueueMobileCheckin("rsv_a", nullptr);
    const auto second = earlier->enqueueMobileCheckin("rsv_b", nullptr);
    ASSERT_TRUE(cancelled && first && second && earlier->cancel(*cancelled));
    earlier.reset();
    options.suspended = true;
    outbox = open();
    ASSERT_TRUE(delivered(1));
    EXPECT_TRUE(outbox->cancel(*first));  // no attempt began
    outbox->resume();
    ASSERT_TRUE(sent(1));
    EXPECT_EQ(pathOf(0), "guest/reservations/rsv_b/mobile_checkin");
}

TEST_F(Outbox, TheFileIsHeldByOneOutboxAndWhatItHeldOutlivesIt) {
    outbox = open();
    ASSERT_TRUE(outbox);
    VLMErrorPtr error;
    EXPECT_FALSE(open(&error));
    ASSERT_TRUE(error);
    EXPECT_NE(error->developerMessage().find("is locked"), std::string::npos) << error->developerMessage();

    // An item on the wire when its outbox goes is sent again by the next one, under the same key; an outcome
    // handed over and not acknowledged comes again, marked redelivered.
    outbox->setAcknowledgesAfterHandler(false);
    const auto handled = outbox->enqueueMobileCheckin("rsv_a", nullptr);
    ASSERT_TRUE(sent(1));
    requests->answer(0, FakeReply::http(200, reservationReply("rsv_a")));
    ASSERT_TRUE(delivered(1));
    EXPECT_FALSE(outcomes[0].redelivered);
    ASSERT_TRUE(outbox->enqueueMobileCheckout("rsv_b", nullptr));
    ASSERT_TRUE(sent(2));
    outbox.reset();
    outcomes.clear();

    // The next one hands the outcome over before a test could turn its own acknowledgements off.
    acknowledgesAfterHandler = false;
    outbox = open(&error);
    ASSERT_TRUE(outbox) << error->developerMessage();
    ASSERT_TRUE(sent(3));
    EXPECT_EQ(pathOf(2), "guest/reservations/rsv_b/mobile_checkout");
    EXPECT_EQ(keyOf(2), keyOf(1));
    ASSERT_TRUE(delivered(1));
    EXPECT_EQ(outcomes[0].item.id, *handled);
    EXPECT_TRUE(outcomes[0].redelivered);
    EXPECT_TRUE(outbox->acknowledge(*handled));
    EXPECT_FALSE(outbox->acknowledge(*handled));
}

TEST_F(Outbox, ADamagedOrForeignFileIsMovedAsideAndTheOutboxStartsEmpty) {
    const auto foreignDatabase = [&] {
        sqlite3* database = nullptr;
        sqlite3_open(path.c_str(), &database);
        sqlite3_exec(database, "CREATE TABLE songs(title TEXT); INSERT INTO songs VALUES ('x');", nullptr, nullptr, nullptr);
        sqlite3_close(database);
    };
    const auto write = [&](const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; };
    const auto truncatedOutbox = [&] {
        {
            auto filled = open();
            for (int i = 0; i < 200; ++i) filled->enqueueCharge("rsv_" + std::to_string(i), {{std::string(300, 'x'), 1}}, nullptr);
        }
        fs::remove(path + "-wal");
        fs::resize_file(path, fs::file_size(path) / 2 + 100);
    };
    struct Row { const char* name; std::function<void()> make; };
    const Row rows[] = {
        {"bytes that are no database", [&] { write(std::string(5000, '\x5a')); }},
        {"another program's database", foreignDatabase},
        {"an outbox cut short", truncatedOutbox},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(directory);
        fs::create_directory(directory);
        row.make();
        VLMErrorPtr error;
        outbox = open(&error);
        ASSERT_TRUE(outbox) << (error ? error->developerMessage() : "");
        EXPECT_NE(outbox->recovery().find("moved to '" + path + ".damaged-1'"), std::string::npos) << outbox->recovery();
        EXPECT_TRUE(fs::exists(path + ".damaged-1"));
        EXPECT_TRUE(outbox->pending().empty());
        EXPECT_TRUE(outbox->enqueueMobileCheckin("rsv_a", nullptr));
        outbox.reset();
    }
}

TEST_F(Outbox, AFullDiskFailsTheEnqueueAndLeavesNothingHalfWritten) {
    outbox = open();
    outbox->suspend();  // nothing sent: only the file is looked at
    ASSERT_TRUE(outbox->enqueueMobileCheckin("rsv_a", nullptr));
    // The file may grow only a little more: writes past the limit fail as on a full disk.
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto previous = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = before;
    limited.rlim_cur = static_cast<rlim_t>(fs::file_size(path) + fs::file_size(path + "-wal") + 64 * 1024);
    setrlimit(RLIMIT_FSIZE, &limited);
    VLMErrorPtr error;
    std::size_t stored = 1;
    for (int i = 0; i < 1000 && !error; ++i) {
        if (outbox->enqueueCharge("rsv_" + std::to_string(i), {{std::string(2000, 'x'), 1}}, &error)) ++stored;
    }
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, previous);
    ASSERT_TRUE(error);
    EXPECT_NE(error->developerMessage().find("could not be stored"), std::string::npos) << error->developerMessage();
    EXPECT_EQ(outbox->pending().size(), stored);
    outbox.reset();
    outbox = open();
    ASSERT_TRUE(outbox);
    EXPECT_TRUE(outbox->recovery().empty());
    EXPECT_EQ(outbox->pending().size(), stored);  // every acknowledged enqueue, and none of the failed one
}
