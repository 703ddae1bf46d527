// The admin routes under /_sandbox/: out of the guest API's reach, and a request log that shows what
// arrived without ever showing a secret.
#include "SandboxTestSupport.h"

#include <pmssandbox/SandboxClient.h>
#include <pmssandbox/SandboxServer.h>

#include <gtest/gtest.h>

#include <ctime>
#include <mutex>
#include <regex>
#include <thread>
#include <vector>

namespace pmssandbox {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

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
        {"POST", "tokens", R"({"ttl_seconds": 86400})", 200, {{"/expires_in", 86400}}},
        {"POST", "tokens", R"({"ttl_seconds": 0})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", R"({"ttl_seconds": -1})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", R"({"ttl_seconds": 86401})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", R"({"ttl_seconds": 4294967297})", 400, {{"/error/code", "invalid_ttl"}}},  // 2^32 + 1
        {"POST", "tokens", R"({"ttl_seconds": 1.5})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", R"({"ttl_seconds": "5"})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", R"({"ttl": 5})", 400, {{"/error/code", "invalid_ttl"}}},
        {"POST", "tokens", "", 400, {{"/error/code", "invalid_ttl"}}},
        {"GET", "tokens", "", 405, {{"/error/code", "method_not_allowed"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + row.route + " " + row.body);
        const Reply reply = request(port, row.method, "_sandbox/" + row.route, row.body);
        EXPECT_EQ(reply.status, row.status) << reply.text;
        for (const auto& [pointer, value] : row.expected.items())
            EXPECT_EQ(reply.body.value(json::json_pointer(pointer), json("(absent)")), value) << pointer;
        EXPECT_EQ(reply.errorCode().empty(), row.status < 400) << reply.text;
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
    const std::string issued = request(port, "POST", "_sandbox/tokens", R"({"ttl_seconds": 60})").body.value("token", "");
    ASSERT_FALSE(issued.empty());
    const std::string forgotten = "tok_0123456789abcdef0123456789abcdef";  // e.g. issued before a restart
    request(port, "POST", paid, pay("card_cassia_visa_0077"), token, key);
    request(port, "GET", "guest/reservations/card_cassia_amex_2002");
    request(port, "GET", "guest/reservations/sandbox-token/folio");
    request(port, "POST", paid, pay("card_nobody_knows_1"));
    request(port, "POST", paid, pay("card_cassia_visa_0077"), token, key);
    request(port, "POST", paid, R"({"amount": 1, "note": "card_ada_visa_4242"})", token);
    request(port, "GET", "guest/reservations/" + issued + "/folio", "", "Bearer " + issued);
    request(port, "POST", paid, json{{"amount", 1}, {"note", issued}}.dump(), "Bearer " + issued);
    request(port, "GET", "guest/reservations/" + forgotten);

    const Reply log = request(port, "GET", "_sandbox/requests");
    ASSERT_EQ(log.status, 200);
    sandbox.stop();  // every line written, and seen here: the server's threads are joined
    std::string everything = log.text;
    for (const std::string& line : lines) everything += "\n" + line;
    for (const std::string& secret : std::vector<std::string>{"sandbox-token", "card_cassia_visa_0077",
                                                              "card_cassia_amex_2002", "card_nobody_knows_1",
                                                              "card_ada_visa_4242", "key-7f3a", issued, forgotten}) {
        EXPECT_EQ(everything.find(secret), std::string::npos) << secret << " in:\n" << everything;
    }
    const json& entries = log.body["requests"];
    ASSERT_EQ(entries.size(), 9u);
    ASSERT_EQ(lines.size(), 9u);
    const int statuses[] = {200, 404, 404, 402, 200, 422, 404, 422, 404};
    for (std::size_t i = 0; i < entries.size(); ++i) EXPECT_EQ(entries[i]["status"], statuses[i]) << i;
    EXPECT_EQ(entries[0]["idempotency_key"], entries[4]["idempotency_key"]);
    EXPECT_TRUE(entries[0]["idempotency_key"].is_string());
    EXPECT_TRUE(entries[1]["idempotency_key"].is_null());
    EXPECT_EQ(entries[4]["note"], "replayed");
    EXPECT_EQ(lines[0].substr(0, paid.size() + 10), "POST /" + paid + " 200");
    EXPECT_EQ(entries[6]["path"], "/guest/reservations/[token]/folio");
}

// The suite's one wait: a token issued for a second, used before and after it runs out.
TEST(SandboxAdmin, AnIssuedTokenOpensEveryRouteUntilItExpires) {
    SandboxServer sandbox;
    SandboxServer other;
    ASSERT_TRUE(sandbox.start() && other.start()) << sandbox.lastError() << other.lastError();
    SandboxClient client(sandbox.baseUrl(), "sandbox-token");
    std::string why;
    EXPECT_FALSE(client.issueToken(0, &why));
    EXPECT_NE(why.find("HTTP 400: "), std::string::npos) << why;
    const auto elsewhere = SandboxClient(other.baseUrl(), "sandbox-token").issueToken(3600);
    const auto lasting = client.issueToken(3600);
    const auto brief = client.issueToken(1);
    ASSERT_TRUE(elsewhere && lasting && brief);

    EXPECT_TRUE(std::regex_match(brief->token, std::regex("tok_[0-9a-f]{32}"))) << brief->token;
    EXPECT_NE(brief->token, lasting->token);
    EXPECT_EQ(lasting->expiresIn, 3600s);
    std::tm parts{};
    const char* end = strptime(lasting->expiresAt.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    EXPECT_TRUE(end && std::regex_match(end, std::regex(R"((\.\d{3})?Z)"))) << lasting->expiresAt;
    const auto away = std::chrono::system_clock::from_time_t(timegm(&parts)) - std::chrono::system_clock::now();
    EXPECT_TRUE(away > 3590s && away < 3610s) << lasting->expiresAt;

    struct Row {
        bool expired;  // sent after the brief token's second
        std::string token;
        std::string path;
        int status;
        const char* code;
    };
    const std::string guest = "guest/reservations/rsv_0003";
    const Row rows[] = {
        {false, brief->token, guest, 200, ""},
        {false, brief->token, "_sandbox/reservations", 200, ""},
        {false, elsewhere->token, guest, 401, "invalid_token"},  // issued by another service
        {false, brief->token + "0", guest, 401, "invalid_token"},
        {true, brief->token, guest, 401, "token_expired"},
        {true, brief->token, "_sandbox/info", 401, "token_expired"},
        {true, lasting->token, guest, 200, ""},
        {true, "sandbox-token", guest, 200, ""},
    };
    for (const bool expired : {false, true}) {
        if (expired) {
            std::this_thread::sleep_for(1100ms);
            ASSERT_TRUE(client.issueToken(60));  // issuing another must not turn the expired one into an unknown
        }
        for (const Row& row : rows) {
            if (row.expired != expired) continue;
            SCOPED_TRACE(row.path + " " + row.token + (expired ? " after" : " before"));
            const Reply reply = request(sandbox.port(), "GET", row.path, "", "Bearer " + row.token);
            EXPECT_EQ(reply.status, row.status) << reply.text;
            EXPECT_EQ(reply.errorCode(), row.code) << reply.text;
        }
    }
}

}  // namespace
}  // namespace pmssandbox
