// The state in SQLite: one transaction per request under concurrency, across restarts, and with
// Idempotency-Key replies stored alongside the changes they report.
#include "SandboxTestSupport.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

namespace pmssandbox {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

const std::string folio3 = "guest/reservations/rsv_0003/folio";
const std::string pay3 = "guest/reservations/rsv_0003/transactions";
const std::string charge3 = "guest/reservations/rsv_0003/charge";
const std::string water = R"({"deliverable_items": [{"item_id": "itm_sparkling_water", "quantity": 1}]})";

std::string pay(double amount) {
    return json{{"credit_card_id", "card_cassia_visa_0077"}, {"amount", amount}, {"currency", "USD"}}.dump();
}

httplib::Headers key(const std::string& value) { return {{"Idempotency-Key", value}}; }

std::int64_t cents(const json& amount) {
    return std::llround((amount.is_string() ? std::stod(amount.get<std::string>()) : amount.get<double>()) * 100);
}

// The folio's line count, and whether its outstanding amount is exactly the sum of its lines.
std::pair<std::size_t, bool> folioCheck(int port) {
    const json folio = request(port, "GET", folio3).body;
    std::int64_t sum = 0;
    for (const json& line : folio["transactions"]) sum += cents(line["amount"]);
    return {folio["transactions"].size(), sum == cents(folio["outstanding_amount"])};
}

TEST(SandboxState, ThirtyTwoConnectionsChargingAndPayingOnOneFolioLoseNoUpdate) {
    TemporaryStateFile file;
    SandboxConfig config;
    config.stateFile = file.path();
    SandboxServer sandbox(config);
    const int port = sandbox.start().value_or(0);
    ASSERT_NE(port, 0) << sandbox.lastError();
    // The HTTP client keeps function-local statics in an uninstrumented library; building them here,
    // before any thread starts, gives ThreadSanitizer an ordering it could not see otherwise.
    ASSERT_EQ(request(port, "GET", folio3).status, 200);

    constexpr int kConnections = 32;
    constexpr int kRequestsEach = 8;
    std::atomic<int> succeeded = 0;
    std::atomic<int> answered = 0;
    {
        std::vector<std::jthread> connections;
        for (int c = 0; c < kConnections; ++c) {
            connections.emplace_back([&, c] {
                httplib::Client client("127.0.0.1", port);
                client.set_keep_alive(true);
                client.set_read_timeout(30s);
                const httplib::Headers token{{"Authorization", "Bearer sandbox-token"}};
                for (int i = 0; i < kRequestsEach; ++i) {
                    const bool charging = (c + i) % 2 == 0;
                    const auto result = client.Post("/" + (charging ? charge3 : pay3), token,
                                                    charging ? water : pay(4.5), "application/json");
                    answered += result ? 1 : 0;
                    succeeded += result && result->status == 200 ? 1 : 0;
                }
            });
        }
    }
    EXPECT_EQ(answered, kConnections * kRequestsEach);
    const auto [lines, balanced] = folioCheck(port);
    EXPECT_EQ(lines, 4u + static_cast<std::size_t>(succeeded.load()));  // 4 seeded
    EXPECT_TRUE(balanced);
}

TEST(SandboxState, AStateFileKeepsChangesAndKeysAcrossRestartsUntilReset) {
    TemporaryStateFile file;
    SandboxConfig config;
    config.stateFile = file.path();
    Reply first;
    {
        SandboxServer sandbox(config);
        const int port = sandbox.start().value_or(0);
        ASSERT_NE(port, 0) << sandbox.lastError();
        ASSERT_EQ(request(port, "PATCH", "guest/reservations/rsv_0011/mobile_checkin").status, 200);
        first = request(port, "POST", pay3, pay(10), "Bearer sandbox-token", key("restart-1"));
        ASSERT_EQ(first.status, 200) << first.text;
    }
    SandboxServer again(config);
    const int port = again.start().value_or(0);
    ASSERT_NE(port, 0) << again.lastError();
    EXPECT_EQ(request(port, "GET", "guest/reservations/rsv_0011").body["reservation"]["status"], "in_house");
    const Reply replayed = request(port, "POST", pay3, pay(10), "Bearer sandbox-token", key("restart-1"));
    EXPECT_EQ(replayed.text, first.text);
    EXPECT_EQ(replayed.header("Idempotency-Replayed"), "true");
    EXPECT_EQ(folioCheck(port).first, 5u);

    again.resetData();
    EXPECT_EQ(request(port, "GET", "guest/reservations/rsv_0011").body["reservation"]["status"], "reserved");
    const Reply afresh = request(port, "POST", pay3, pay(10), "Bearer sandbox-token", key("restart-1"));
    EXPECT_EQ(afresh.header("Idempotency-Replayed"), "");
    EXPECT_NE(afresh.body["transaction"]["id"], first.body["transaction"]["id"]);  // numbers go on

    // The file keeps the seed it was made from; another explicit one is refused rather than mixed in.
    SandboxConfig other = config;
    other.seedJson = R"({"venues": [], "users": [], "bookings": []})";
    SandboxServer refused(other);
    EXPECT_FALSE(refused.start());
    EXPECT_NE(refused.lastError().find("another seed"), std::string::npos) << refused.lastError();
}

TEST(SandboxState, AnIdempotencyKeyActsOnceAndServesTheSameReplyAfterwards) {
    SandboxServer sandbox;
    const int port = sandbox.start().value_or(0);
    ASSERT_NE(port, 0) << sandbox.lastError();
    struct Row {
        std::optional<std::string> key;
        const char* method;
        std::string path;
        std::string body;
        int status;
        const char* code;
        bool replayed;
        std::size_t lines;  // on rsv_0003's folio afterwards
    };
    const Row rows[] = {
        {"pay-1", "POST", pay3, pay(10), 200, "", false, 5},
        {"pay-1", "POST", pay3, pay(10), 200, "", true, 5},
        {"pay-1", "POST", pay3, pay(11), 422, "idempotency_key_reused", false, 5},
        {"pay-1", "POST", charge3, pay(10), 422, "idempotency_key_reused", false, 5},
        {std::nullopt, "POST", pay3, pay(10), 200, "", false, 6},
        {std::nullopt, "POST", pay3, pay(10), 200, "", false, 7},
        {"charge-1", "POST", charge3, water, 200, "", false, 8},
        {"charge-1", "POST", charge3, water, 200, "", true, 8},
        // A refusal is a reply like any other: it is kept and served again.
        {"too-much", "POST", pay3, pay(1000), 409, "amount_exceeds_balance", false, 8},
        {"too-much", "POST", pay3, pay(1000), 409, "amount_exceeds_balance", true, 8},
        {"notify", "PATCH", "guest/reservations/rsv_0005", R"({"notify_me": true})", 200, "", false, 8},
        {"notify", "PATCH", "guest/reservations/rsv_0005", R"({"notify_me": true})", 200, "", true, 8},
        {"two words", "POST", pay3, pay(10), 422, "invalid_idempotency_key", false, 8},
        {std::string(256, 'k'), "POST", pay3, pay(10), 422, "invalid_idempotency_key", false, 8},
        {"read", "GET", folio3, "", 200, "", false, 8},
        {"read", "GET", folio3, "", 200, "", false, 8},  // reads never replay
    };
    std::string firstPayment;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key.value_or("(no key)") + " " + row.method + " " + row.path + " " + row.body);
        const Reply reply = request(port, row.method, row.path, row.body, "Bearer sandbox-token",
                                    row.key ? key(*row.key) : httplib::Headers{});
        EXPECT_EQ(reply.status, row.status) << reply.text;
        EXPECT_EQ(reply.errorCode(), row.code);
        EXPECT_EQ(reply.header("Idempotency-Replayed") == "true", row.replayed);
        EXPECT_EQ(folioCheck(port).first, row.lines);
        if (row.key == "pay-1" && row.status == 200) {
            if (firstPayment.empty()) firstPayment = reply.text;
            EXPECT_EQ(reply.text, firstPayment);
        }
    }
}

TEST(SandboxState, ADroppedReplyLeavesTheChangeMadeAndTheRetryGetsTheReply) {
    SandboxServer sandbox;
    const int port = sandbox.start().value_or(0);
    ASSERT_NE(port, 0) << sandbox.lastError();
    sandbox.setFault(Fault::dropReply().matching("POST", pay3).times(1));
    const Reply lost = request(port, "POST", pay3, pay(10), "Bearer sandbox-token", key("lost-1"));
    EXPECT_EQ(lost.status, 0);
    EXPECT_EQ(folioCheck(port).first, 5u);
    const Reply retried = request(port, "POST", pay3, pay(10), "Bearer sandbox-token", key("lost-1"));
    EXPECT_EQ(retried.status, 200) << retried.text;
    EXPECT_EQ(retried.header("Idempotency-Replayed"), "true");
    EXPECT_EQ(folioCheck(port).first, 5u);
    EXPECT_EQ(request(port, "GET", "guest/reservations/rsv_0003").body["reservation"]["outstanding_amount"], 119.68);
}

}  // namespace
}  // namespace pmssandbox
