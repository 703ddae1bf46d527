#include "SandboxTestSupport.h"

namespace pmssandbox::testing {
namespace {

using namespace std::chrono_literals;

TEST_F(SandboxTest, ForcedStatusHitsOnlyMatchingRequestsAndRunsOut) {
    sandbox->setFault(Fault::forceStatus(503).matching("GET", "guest/reservations/rsv_0003").times(2));
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0005").status, 200);  // not matching
    for (int i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        Reply reply = client->send("GET", "guest/reservations/rsv_0003/folio");
        EXPECT_EQ(reply.status, 503);
        EXPECT_EQ(reply.errorCode(), "service_unavailable");
    }
    EXPECT_EQ(sandbox->activeFaultCount(), 0u);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0003/folio").status, 200);
}

TEST_F(SandboxTest, FaultRulesMatchMethodAndPathPrefix) {
    struct Case {
        Fault fault;
        const char* method;
        const char* path;
        bool hit;
    };
    const Case cases[] = {
        {Fault::forceStatus(500), "GET", "guest/reservations/rsv_0003", true},
        {Fault::forceStatus(500).matching("post", "/guest/reservations"), "POST", "guest/reservations", true},
        {Fault::forceStatus(500).matching("", "guest/reservations/rsv_0003/folio"), "GET",
         "guest/reservations/rsv_0003", false},
        {Fault::forceStatus(500).matching("PATCH", ""), "GET", "guest/reservations/rsv_0003", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.method) + " " + c.path);
        sandbox->setFault(c.fault);
        Reply reply = client->send(c.method, c.path, nlohmann::json::object());
        EXPECT_EQ(reply.status == 500, c.hit) << reply.status;
    }
}

TEST_F(SandboxTest, FaultsApplyBeforeTheTokenCheck) {
    sandbox->setFault(Fault::forceStatus(502));
    EXPECT_EQ(client->sendText("GET", "guest/reservations/rsv_0003", "", std::nullopt).status, 502);
    sandbox->clearFaults();
    EXPECT_EQ(client->sendText("GET", "guest/reservations/rsv_0003", "", std::nullopt).status, 401);
}

TEST_F(SandboxTest, NotJsonFaultServesHtmlWithStatus200) {
    sandbox->setFault(Fault::notJson());
    Reply reply = client->send("GET", "guest/reservations/rsv_0003");
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.text, "<html>oops</html>");
    EXPECT_TRUE(reply.json.is_discarded());
    sandbox->clearFaults();
    EXPECT_TRUE(client->send("GET", "guest/reservations/rsv_0003").json.is_object());
}

TEST_F(SandboxTest, DroppedConnectionGivesTheClientNoReply) {
    sandbox->setFault(Fault::dropConnection().matching("POST", "guest/reservations").times(1));
    Reply dropped = client->send("POST", "guest/reservations/rsv_0003/charge",
                                 nlohmann::json{{"deliverable_items", {{{"item_id", "itm_parking"}, {"quantity", 1}}}}});
    EXPECT_EQ(dropped.status, 0);
    EXPECT_NE(dropped.error, httplib::Error::Success);
    // The request was seen but never acted on.
    EXPECT_EQ(sandbox->requestCount("POST", "guest/reservations/rsv_0003/charge"), 1u);
    EXPECT_DOUBLE_EQ(client->outstanding("rsv_0003"), 129.68);

    // Not even a status line goes out.
    sandbox->setFault(Fault::dropConnection());
    EXPECT_EQ(rawExchange(port, "GET /guest/reservations/rsv_0003 HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"), "");
}

TEST_F(SandboxTest, DelayOutlastsAShorterClientTimeout) {
    sandbox->setFault(Fault::delay(30s).times(1));
    client->setReadTimeout(200ms);
    Reply late = client->send("GET", "guest/reservations/rsv_0003");
    EXPECT_EQ(late.status, 0);
    EXPECT_EQ(late.error, httplib::Error::Read);

    // A delay combined with an action still acts; stop() cuts the 30 s wait above short.
    sandbox->setFault(Fault::forceStatus(504).withDelay(1ms));
    client->setReadTimeout(5s);
    EXPECT_EQ(client->send("GET", "guest/reservations/rsv_0003").status, 504);
    sandbox->stop();
    EXPECT_FALSE(sandbox->isRunning());
}

TEST_F(SandboxTest, RequestLogKeepsWhatArrived) {
    client->sendText("POST", "guest/reservations", R"({"confirmation_id": "x"})", "Bearer sandbox-token");
    client->send("GET", "guest/reservations/rsv_0003");
    client->send("GET", "guest/reservations/rsv_0003/folio");

    EXPECT_EQ(sandbox->requestCount(), 3u);
    EXPECT_EQ(sandbox->requestCount("GET", "guest/reservations/rsv_0003"), 2u);
    EXPECT_EQ(sandbox->requestCount("post", ""), 1u);
    const auto all = sandbox->requests();
    ASSERT_EQ(all.size(), 3u);
    const RecordedRequest& post = all.front();
    EXPECT_EQ(post.method, "POST");
    EXPECT_EQ(post.path, "/guest/reservations");
    EXPECT_EQ(post.body, R"({"confirmation_id": "x"})");
    EXPECT_EQ(post.header("AUTHORIZATION"), "Bearer sandbox-token");
    EXPECT_EQ(post.header("content-type"), "application/json");
    EXPECT_EQ(post.headers.count("remote_addr"), 0u);
    EXPECT_EQ(sandbox->lastRequest()->path, "/guest/reservations/rsv_0003/folio");

    sandbox->clearRequests();
    EXPECT_EQ(sandbox->requestCount(), 0u);
    EXPECT_FALSE(sandbox->lastRequest());
}

}  // namespace
}  // namespace pmssandbox::testing
