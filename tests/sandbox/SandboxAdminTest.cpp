// The admin routes under /_sandbox/: out of the guest API's reach, and a request log that shows what
// arrived without ever showing a secret.
#include "SandboxTestSupport.h"

#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

namespace pmssandbox {
namespace {

using nlohmann::json;

std::string rawGet(int port, const std::string& target) {
    return rawExchange(port, "GET " + target + " HTTP/1.1\r\nAuthorization: Bearer sandbox-token\r\n"
                                               "Connection: close\r\n\r\n");
}

TEST(SandboxAdmin, NoSpellingOfAGuestPathReachesTheAdminRoutes) {
    for (const std::string prefix : {"", "api/v1"}) {
        SCOPED_TRACE("prefix '" + prefix + "'");
        SandboxConfig config;
        config.pathPrefix = prefix;
        SandboxServer sandbox(config);
        const int port = sandbox.start().value_or(0);
        ASSERT_NE(port, 0) << sandbox.lastError();
        const std::string base = prefix.empty() ? "/" : "/" + prefix + "/";
        const std::string listed = R"("reservations":[)";
        ASSERT_NE(rawGet(port, "/_sandbox/reservations").find(listed), std::string::npos);
        std::vector<std::string> targets = {
            "/%5Fsandbox/reservations",
            "/%5fsandbox%2freservations",
            "//_sandbox/reservations",
            "/_sandbox%2Freservations",
            base + "guest/../_sandbox/reservations",
            base + "guest/reservations/..%2F..%2F_sandbox%2Freservations",
            base + "guest/reservations/%2e%2e/%2e%2e/_sandbox/reservations",
            base + "guest/reservations/../../_sandbox/reservations",
            base + "guest/reservations/..%2f..%2f..%2f_sandbox/reservations",
            base + "guest/..%252F_sandbox/reservations",
        };
        if (!prefix.empty()) targets.push_back(base + "_sandbox/reservations");
        for (const std::string& target : targets) {
            SCOPED_TRACE(target);
            const std::string reply = rawGet(port, target);
            EXPECT_EQ(reply.substr(0, 12), "HTTP/1.1 404") << reply;
            EXPECT_EQ(reply.find(listed), std::string::npos) << reply;
        }
    }
}

TEST(SandboxAdmin, RoutesShowAndSteerTheService) {
    SandboxServer sandbox;
    const int port = sandbox.start().value_or(0);
    ASSERT_NE(port, 0) << sandbox.lastError();
    const std::string fault =
        R"({"action": "status", "status": 503, "retry_after": 2, "method": "GET", "path": "guest", "times": 1})";
    struct Row {
        const char* method;
        std::string route;
        std::string body;
        int status;
        json expected;  // JSON pointers into the reply and their values
    };
    const Row rows[] = {
        {"GET", "info", "", 200, {{"/service", "pms-sandbox"}, {"/state_file", nullptr}}},
        {"POST", "faults", fault, 200, {{"/faults/0/retry_after", 2}, {"/faults/0/times", 1}}},
        {"POST", "faults", R"([{"action": "drop_reply"}, {"action": "delay", "delay_ms": 5}])", 200,
         {{"/faults/1/action", "drop_reply"}, {"/faults/2/delay_ms", 5}, {"/faults/2/times", nullptr}}},
        {"POST", "faults", R"({"action": "explode"})", 422, {{"/error/code", "invalid_fault"}}},
        {"POST", "faults", R"({"action": "status", "status": 200})", 422, {{"/error/code", "invalid_fault"}}},
        {"POST", "faults", R"({"action": "delay", "times": 0})", 422, {{"/error/code", "invalid_fault"}}},
        {"GET", "faults", "", 200, {{"/faults/0/status", 503}, {"/faults/2/action", "delay"}}},
        {"DELETE", "faults", "", 200, {{"/faults", json::array()}}},
        {"PUT", "faults", "", 405, {{"/error/code", "method_not_allowed"}}},
        {"GET", "reset", "", 405, {{"/error/code", "method_not_allowed"}}},
        {"GET", "nothing", "", 404, {{"/error/code", "route_not_found"}}},
        {"GET", "cards", "", 200, {{"/cards/0/id", "card_ada_visa_4242"}, {"/cards/2/declines", true}}},
        {"GET", "reservations", "", 200,
         {{"/reservations/2/id", "rsv_0003"}, {"/reservations/2/folio/outstanding", 129.68},
          {"/reservations/2/folio/paid", 100}, {"/reservations/2/folio/lines", 4}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.route + " " + row.body);
        const Reply reply = request(port, row.method, "_sandbox/" + row.route, row.body);
        EXPECT_EQ(reply.status, row.status) << reply.text;
        for (const auto& [pointer, value] : row.expected.items())
            EXPECT_EQ(reply.body.value(json::json_pointer(pointer), json("(absent)")), value) << pointer;
    }
    EXPECT_EQ(request(port, "GET", "_sandbox/info", "", std::nullopt).status, 401);
}

TEST(SandboxAdmin, TheRequestLogKeepsOutcomesButNeverATokenACardOrAKey) {
    std::mutex mutex;
    std::vector<std::string> lines;
    SandboxConfig config;
    config.requestLine = [&](const std::string& line) {
        std::lock_guard lock(mutex);
        lines.push_back(line);
    };
    SandboxServer sandbox(config);
    const int port = sandbox.start().value_or(0);
    ASSERT_NE(port, 0) << sandbox.lastError();
    const auto pay = [](const std::string& card) {
        return json{{"credit_card_id", card}, {"amount", 1}, {"currency", "USD"}}.dump();
    };
    const std::string paid = "guest/reservations/rsv_0003/transactions";
    const httplib::Headers key{{"Idempotency-Key", "key-7f3a"}};
    const std::string token = "Bearer sandbox-token";
    request(port, "POST", paid, pay("card_cassia_visa_0077"), token, key);
    request(port, "GET", "guest/reservations/card_cassia_amex_2002");
    request(port, "GET", "guest/reservations/sandbox-token/folio");
    request(port, "POST", paid, pay("card_nobody_knows_1"));
    request(port, "POST", paid, pay("card_cassia_visa_0077"), token, key);
    request(port, "POST", paid, R"({"amount": 1, "note": "card_ada_visa_4242"})", token);

    const Reply log = request(port, "GET", "_sandbox/requests");
    ASSERT_EQ(log.status, 200);
    sandbox.stop();  // every line written, and seen here: the server's threads are joined
    std::string everything = log.text;
    for (const std::string& line : lines) everything += "\n" + line;
    for (const char* secret : {"sandbox-token", "card_cassia_visa_0077", "card_cassia_amex_2002",
                               "card_nobody_knows_1", "card_ada_visa_4242", "key-7f3a"}) {
        EXPECT_EQ(everything.find(secret), std::string::npos) << secret << " in:\n" << everything;
    }
    const json& entries = log.body["requests"];
    ASSERT_EQ(entries.size(), 6u);
    ASSERT_EQ(lines.size(), 6u);
    const int statuses[] = {200, 404, 404, 402, 200, 422};
    for (std::size_t i = 0; i < entries.size(); ++i) EXPECT_EQ(entries[i]["status"], statuses[i]) << i;
    EXPECT_EQ(entries[0]["idempotency_key"], entries[4]["idempotency_key"]);
    EXPECT_TRUE(entries[0]["idempotency_key"].is_string());
    EXPECT_TRUE(entries[1]["idempotency_key"].is_null());
    EXPECT_EQ(entries[4]["note"], "replayed");
    EXPECT_EQ(lines[0].substr(0, paid.size() + 10), "POST /" + paid + " 200");
}

}  // namespace
}  // namespace pmssandbox
