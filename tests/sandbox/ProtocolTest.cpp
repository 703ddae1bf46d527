#include "SandboxTestSupport.h"

namespace pmssandbox::testing {
namespace {

TEST_F(SandboxTest, EveryRequestNeedsTheBearerToken) {
    struct Case {
        std::optional<std::string> authorization;
        const char* path;
        const char* code;
    };
    const Case cases[] = {
        {std::nullopt, "guest/reservations/rsv_0003", "missing_token"},
        {"Bearer wrong-token", "guest/reservations/rsv_0003", "invalid_token"},
        {"Basic c2FuZGJveC10b2tlbg==", "guest/reservations/rsv_0003", "invalid_token"},
        {"Bearer", "guest/reservations/rsv_0003", "invalid_token"},
        {"sandbox-token", "guest/reservations/rsv_0003", "invalid_token"},
        {"Bearer sandbox-token-and-more", "guest/reservations/rsv_0003", "invalid_token"},
        {std::nullopt, "no/such/route", "missing_token"},  // the token is checked before routing
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.authorization.value_or("(none)") + " " + c.path);
        Reply reply = client->sendText("GET", c.path, "", c.authorization);
        EXPECT_EQ(reply.status, 401);
        EXPECT_EQ(reply.errorCode(), c.code);
    }
    EXPECT_EQ(client->sendText("GET", "guest/reservations/rsv_0003", "", "bearer  sandbox-token ").status, 200);
}

TEST_F(SandboxTest, UnknownRoutesAreJsonNotFound) {
    const char* paths[] = {"",
                           "guest",
                           "guest/reservation",
                           "guest/reservations/rsv_0003/unknown",
                           "guest/reservations//folio",
                           "guest/reservations/rsv_0003/folio/extra",
                           "guest/reservations/rsv_0003/"};
    for (const char* path : paths) {
        SCOPED_TRACE(path);
        Reply reply = client->send("GET", path);
        EXPECT_EQ(reply.status, 404);
        EXPECT_EQ(reply.errorCode(), "route_not_found");
    }
}

TEST_F(SandboxTest, WrongMethodOnAKnownRouteIsJsonNotAllowed) {
    struct Case {
        const char* method;
        const char* path;
        const char* allow;
    };
    const Case cases[] = {
        {"GET", "guest/reservations", "POST"},
        {"DELETE", "guest/reservations/rsv_0003", "GET, PATCH"},
        {"POST", "guest/reservations/rsv_0003/folio", "GET"},
        {"GET", "guest/reservations/rsv_0003/charge", "POST"},
        {"PUT", "guest/reservations/rsv_0003/mobile_checkin", "PATCH"},
        {"OPTIONS", "guest/reservations/rsv_0003/transactions", "POST"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.method) + " " + c.path);
        Reply reply = client->send(c.method, c.path, nlohmann::json::object());
        EXPECT_EQ(reply.status, 405);
        EXPECT_EQ(reply.errorCode(), "method_not_allowed");
        auto allow = reply.headers.find("Allow");
        ASSERT_NE(allow, reply.headers.end());
        EXPECT_EQ(allow->second, c.allow);
    }
}

TEST_F(SandboxTest, RequestWithoutLengthOrBodyIsAnsweredAtOnce) {
    // No Content-Length means no body; the reply must not wait for the client to close its side.
    const std::string reply = rawExchange(port,
                                          "PATCH /guest/reservations/rsv_0005/mobile_checkin HTTP/1.1\r\n"
                                          "Host: 127.0.0.1\r\n"
                                          "Authorization: Bearer sandbox-token\r\n"
                                          "Connection: close\r\n\r\n");
    EXPECT_EQ(reply.substr(0, 15), "HTTP/1.1 200 OK") << reply;
    EXPECT_NE(reply.find("\"in_house\""), std::string::npos);
}

TEST_F(SandboxTest, MalformedHttpStillGetsAJsonError) {
    const std::string reply = rawExchange(port, "BREW /pot HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(reply.substr(0, 12), "HTTP/1.1 400") << reply;
    const auto body = nlohmann::json::parse(reply.substr(reply.find("\r\n\r\n") + 4), nullptr, false);
    EXPECT_EQ(body["error"]["code"], "bad_request");
}

TEST(SandboxConfiguration, PrefixAndTokenAreConfigurable) {
    SandboxConfig config;
    config.pathPrefix = "/api/v1/";
    config.token = "t-123";
    SandboxServer sandbox(config);
    auto port = sandbox.start();
    ASSERT_TRUE(port) << sandbox.lastError();
    EXPECT_EQ(sandbox.baseUrl(), "http://127.0.0.1:" + std::to_string(*port) + "/api/v1/");

    EXPECT_EQ(SandboxClient(*port, "/api/v1/", "t-123").send("GET", "guest/reservations/rsv_0003").status, 200);
    EXPECT_EQ(SandboxClient(*port, "/", "t-123").send("GET", "guest/reservations/rsv_0003").status, 404);
    EXPECT_EQ(SandboxClient(*port, "/api/v1/").send("GET", "guest/reservations/rsv_0003").status, 401);

    config.token.clear();
    SandboxServer tokenless(config);
    EXPECT_FALSE(tokenless.start());
    EXPECT_NE(tokenless.lastError().find("token"), std::string::npos);
}

}  // namespace
}  // namespace pmssandbox::testing
