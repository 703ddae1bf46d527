#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>

#include "RawSocketServer.h"
#include "TestHTTPServer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <latch>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

// Only guards against a hang: a reply that never comes fails the test instead of stalling the suite.
constexpr auto kHangGuard = 60s;

struct Reply {
    std::shared_ptr<const VLMSDKJSON> json;
    std::shared_ptr<const VLMSDKURLResponse> response;
    VLMErrorPtr error;
    std::thread::id thread;
};

/// Records every reply handler call of a fixed number of requests, one slot per request. Made before the
/// manager, so that it outlives any handler the manager's shutdown still calls.
class ReplyRecorder {
public:
    explicit ReplyRecorder(std::size_t requests) : calls_(requests), replies_(requests) {}

    VLMSDKDataTaskCompletion completion(std::size_t index) {
        return [this, index](std::shared_ptr<const VLMSDKJSON> json, std::shared_ptr<const VLMSDKURLResponse> response,
                             VLMErrorPtr error) {
            std::lock_guard lock(mutex_);
            if (++calls_.at(index) == 1) {
                replies_[index] = {std::move(json), std::move(response), std::move(error), std::this_thread::get_id()};
            }
            ++total_;
            changed_.notify_all();
        };
    }

    /// Waits until `count` calls were recorded in all.
    [[nodiscard]] bool waitForCalls(std::size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kHangGuard, [&] { return total_ >= count; });
    }
    [[nodiscard]] bool waitForAll() { return waitForCalls(calls_.size()); }

    std::size_t total() const {
        std::lock_guard lock(mutex_);
        return total_;
    }
    Reply reply(std::size_t index) const {
        std::lock_guard lock(mutex_);
        return replies_.at(index);
    }
    void expectEachCalledOnce() const {
        std::lock_guard lock(mutex_);
        for (std::size_t i = 0; i < calls_.size(); ++i) EXPECT_EQ(calls_[i], 1) << "request " << i;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<int> calls_;
    std::vector<Reply> replies_;
    std::size_t total_ = 0;
};

std::shared_ptr<const VLMSDKRequest> makeRequest(std::string method, std::string url, VLMSDKRequest::Headers headers = {},
                                                 std::optional<std::string> body = std::nullopt,
                                                 VLMErrorPtr buildError = nullptr) {
    VLMSDKRequest::Parts parts;
    parts.method = std::move(method);
    parts.url = std::move(url);
    parts.headers = std::move(headers);
    parts.body = std::move(body);
    parts.buildError = std::move(buildError);
    return std::make_shared<const VLMSDKRequest>(std::move(parts));
}

VLMSDKHTTPRequestManager::Options quickOptions() {
    VLMSDKHTTPRequestManager::Options options;
    options.connectTimeout = 5s;
    options.requestTimeout = 20s;
    return options;
}

// A JSON string reply of exactly `size` bytes.
std::string jsonTextOfSize(std::size_t size) { return "\"" + std::string(size - 2, 'x') + "\""; }

class HTTPRequestManagerTest : public ::testing::Test {
protected:
    // Server workers still holding requests would keep the server from stopping.
    void TearDown() override { releaseHeldRequests(1000000); }

    /// Waits until "/hold" has received `count` requests in all.
    [[nodiscard]] bool waitForHeldArrivals(std::size_t count) {
        std::unique_lock lock(holdMutex_);
        return holdChanged_.wait_for(lock, kHangGuard, [&] { return heldArrivals_ >= count; });
    }
    /// Lets `count` of the requests that "/hold" keeps waiting be answered.
    void releaseHeldRequests(std::size_t count) {
        std::lock_guard lock(holdMutex_);
        holdTokens_ += count;
        holdChanged_.notify_all();
    }

    /// Sends requests that the server holds, more than may be live at once, then shuts the manager down
    /// (or destroys it).
    void expectShutdownCancelsEverything(bool destroy);

    std::atomic<int> serverHits_{0};
    std::mutex holdMutex_;
    std::condition_variable holdChanged_;
    std::size_t heldArrivals_ = 0;
    std::size_t holdTokens_ = 0;

    TestHTTPServer server_{[this](httplib::Server& server) { addRoutes(server); }};

private:
    void addRoutes(httplib::Server& server) {
        server.set_pre_routing_handler([this](const httplib::Request&, httplib::Response&) {
            ++serverHits_;
            return httplib::Server::HandlerResponse::Unhandled;
        });
        server.Get("/json", [](const httplib::Request& request, httplib::Response& response) {
            VLMSDKJSON body = {{"ok", true}};
            if (request.has_param("i")) body["i"] = std::stoi(request.get_param_value("i"));
            response.set_header("X-Echo", "yes");
            response.set_content(body.dump(), "application/json");
        });
        server.Get(R"(/status/(\d+)/(json|text|empty))", [](const httplib::Request& request, httplib::Response& response) {
            response.status = std::stoi(request.matches[1]);
            const std::string kind = request.matches[2];
            if (kind == "json") {
                response.set_content(VLMSDKJSON{{"error", "status " + std::string(request.matches[1])}}.dump(),
                                     "application/json");
            } else if (kind == "text") {
                response.set_content("<html>Oops\r\n</html>", "text/html");
            }
        });
        server.Get("/blank", [](const httplib::Request&, httplib::Response& response) {
            response.set_content(" \r\n\t ", "application/json");
        });
        server.Get(R"(/sized/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(jsonTextOfSize(std::stoul(request.matches[1])), "application/json");
        });
        server.Get(R"(/chunked/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
            auto text = std::make_shared<std::string>(jsonTextOfSize(std::stoul(request.matches[1])));
            response.set_chunked_content_provider("application/json", [text](std::size_t offset, httplib::DataSink& sink) {
                if (offset >= text->size()) {
                    sink.done();
                    return true;
                }
                return sink.write(text->data() + offset, std::min<std::size_t>(512, text->size() - offset));
            });
        });
        const auto echo = [](const httplib::Request& request, httplib::Response& response) {
            const auto header = [&](const char* name) {
                return request.has_header(name) ? VLMSDKJSON(request.get_header_value(name)) : VLMSDKJSON(nullptr);
            };
            const VLMSDKJSON body = {{"method", request.method},
                                     {"body", request.body},
                                     {"contentLength", header("Content-Length")},
                                     {"contentType", header("Content-Type")},
                                     {"expect", header("Expect")},
                                     {"trace", header("X-Trace")},
                                     {"authorization", header("Authorization")},
                                     {"userAgent", header("User-Agent")}};
            response.set_header("X-Echo", "yes");
            response.set_content(body.dump(), "application/json");
        };
        server.Get("/echo", echo);
        server.Post("/echo", echo);
        server.Put("/echo", echo);
        server.Patch("/echo", echo);
        server.Delete("/echo", echo);
        server.Get("/connection", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(VLMSDKJSON{{"port", request.remote_port}}.dump(), "application/json");
        });
        server.Get("/hold", [this](const httplib::Request& request, httplib::Response& response) {
            {
                std::unique_lock lock(holdMutex_);
                ++heldArrivals_;
                holdChanged_.notify_all();
                if (!holdChanged_.wait_for(lock, kHangGuard, [&] { return holdTokens_ > 0; })) {
                    response.status = 504;
                    return;
                }
                --holdTokens_;
            }
            response.set_content(VLMSDKJSON{{"port", request.remote_port}}.dump(), "application/json");
        });
    }
};

TEST_F(HTTPRequestManagerTest, DeliversParsedJSONAndLeavesStatusesToTheValidator) {
    struct Row {
        std::string path;
        long status;
        std::optional<VLMSDKJSON> json;
    };
    const std::vector<Row> rows = {
        {"/json", 200, VLMSDKJSON{{"ok", true}}},
        {"/status/404/json", 404, VLMSDKJSON{{"error", "status 404"}}},
        {"/status/500/json", 500, VLMSDKJSON{{"error", "status 500"}}},
        {"/status/404/empty", 404, std::nullopt},
        {"/status/503/empty", 503, std::nullopt},
        {"/status/204/empty", 204, std::nullopt},
        {"/status/200/empty", 200, std::nullopt},
        {"/blank", 200, std::nullopt},
    };
    ReplyRecorder recorder(rows.size());
    VLMSDKHTTPRequestManager manager(quickOptions());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        manager.performDataTaskRequest(makeRequest("GET", server_.url(rows[i].path)), recorder.completion(i));
    }
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].path);
        const Reply reply = recorder.reply(i);
        EXPECT_EQ(reply.error, nullptr) << (reply.error ? reply.error->description() : "");
        ASSERT_NE(reply.response, nullptr);
        EXPECT_EQ(reply.response->statusCode(), rows[i].status);
        EXPECT_EQ(reply.response->url(), server_.url(rows[i].path));
        if (rows[i].json) {
            ASSERT_NE(reply.json, nullptr);
            EXPECT_EQ(*reply.json, *rows[i].json);
        } else {
            EXPECT_EQ(reply.json, nullptr);
        }
    }
    EXPECT_EQ(recorder.reply(0).response->headerValue("x-echo"), "yes");
    EXPECT_EQ(recorder.reply(0).response->headerValue("Content-Type"), "application/json");
    manager.shutdown();
    recorder.expectEachCalledOnce();
}

TEST_F(HTTPRequestManagerTest, ABodyThatIsNotJSONIsAnInvalidResponseThatKeepsTheStatus) {
    const std::vector<long> statuses = {200, 502};
    ReplyRecorder recorder(statuses.size());
    VLMSDKHTTPRequestManager manager(quickOptions());
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        manager.performDataTaskRequest(
            makeRequest("GET", server_.url("/status/" + std::to_string(statuses[i]) + "/text")), recorder.completion(i));
    }
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        SCOPED_TRACE(statuses[i]);
        const Reply reply = recorder.reply(i);
        EXPECT_EQ(reply.json, nullptr);
        ASSERT_NE(reply.response, nullptr);
        EXPECT_EQ(reply.response->statusCode(), statuses[i]);
        ASSERT_NE(reply.error, nullptr);
        EXPECT_EQ(reply.error->code(), VLMErrorCode::InvalidResponse);
        EXPECT_EQ(reply.error->domain(), kVLMSDKResponseErrorDomain);
        EXPECT_EQ(reply.error->httpStatusCode(), statuses[i]);
        EXPECT_NE(reply.error->developerMessage().find("not JSON"), std::string::npos) << reply.error->developerMessage();
        EXPECT_NE(reply.error->developerMessage().find("<html>Oops"), std::string::npos) << reply.error->developerMessage();
    }
}

TEST_F(HTTPRequestManagerTest, RepliesOverTheSizeLimitFailWithReplyTooLarge) {
    constexpr std::size_t kLimit = 1024;
    // Without Content-Length or chunking: the body runs until the server closes the connection.
    RawSocketServer untilClose([](int socket) {
        if (RawSocketServer::readRequestHead(socket).empty()) return;
        RawSocketServer::sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n" +
                                             jsonTextOfSize(40000));
    });
    struct Row {
        std::string url;
        bool tooLarge;
    };
    const std::vector<Row> rows = {
        {server_.url("/sized/1024"), false},   {server_.url("/sized/1025"), true},
        {server_.url("/chunked/1024"), false}, {server_.url("/chunked/1025"), true},
        {server_.url("/chunked/300000"), true}, {untilClose.url("/"), true},
    };
    auto options = quickOptions();
    options.maximumReplySize = kLimit;
    ReplyRecorder recorder(rows.size());
    VLMSDKHTTPRequestManager manager(options);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        manager.performDataTaskRequest(makeRequest("GET", rows[i].url), recorder.completion(i));
    }
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].url);
        const Reply reply = recorder.reply(i);
        if (rows[i].tooLarge) {
            ASSERT_NE(reply.error, nullptr);
            EXPECT_EQ(reply.error->code(), VLMErrorCode::ReplyTooLarge) << reply.error->description();
            EXPECT_EQ(reply.json, nullptr);
            ASSERT_NE(reply.response, nullptr);
            EXPECT_EQ(reply.response->statusCode(), 200);
        } else {
            EXPECT_EQ(reply.error, nullptr) << reply.error->description();
            ASSERT_NE(reply.json, nullptr);
            EXPECT_EQ(reply.json->get<std::string>().size(), kLimit - 2);
        }
    }
}

TEST_F(HTTPRequestManagerTest, AServerThatNeverAnswersTimesOut) {
    RawSocketServer silent([](int socket) {
        RawSocketServer::readRequestHead(socket);
        RawSocketServer::waitForPeerToLeave(socket);
    });
    auto options = quickOptions();
    options.requestTimeout = 200ms;
    ReplyRecorder recorder(1);
    VLMSDKHTTPRequestManager manager(options);
    manager.performDataTaskRequest(makeRequest("GET", silent.url("/json")), recorder.completion(0));
    ASSERT_TRUE(recorder.waitForAll());
    const Reply reply = recorder.reply(0);
    ASSERT_NE(reply.error, nullptr);
    EXPECT_EQ(reply.error->code(), VLMErrorCode::Timeout) << reply.error->description();
    EXPECT_EQ(reply.error->domain(), kVLMSDKNetworkErrorDomain);
    EXPECT_EQ(reply.response, nullptr);
    EXPECT_EQ(reply.json, nullptr);
}

TEST_F(HTTPRequestManagerTest, BrokenConnectionsAreTransportErrors) {
    struct Row {
        const char* name;
        RawSocketServer::Script script;  // empty: nothing listens at all
        bool statusLineSent;
    };
    const std::vector<Row> rows = {
        {"refused", nullptr, false},
        {"closed mid-reply",
         [](int socket) {
             RawSocketServer::readRequestHead(socket);
             RawSocketServer::sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"partial\"");
         },
         true},
        {"closed without a reply", [](int socket) { RawSocketServer::readRequestHead(socket); }, false},
        {"not HTTP",
         [](int socket) {
             RawSocketServer::readRequestHead(socket);
             RawSocketServer::sendAll(socket, "hello there\r\n\r\n");
         },
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::optional<RawSocketServer> server;
        std::string url = "http://127.0.0.1:" + std::to_string(RawSocketServer::closedPort()) + "/json";
        if (row.script) url = server.emplace(row.script).url("/json");

        ReplyRecorder recorder(1);
        VLMSDKHTTPRequestManager manager(quickOptions());
        manager.performDataTaskRequest(makeRequest("GET", url), recorder.completion(0));
        ASSERT_TRUE(recorder.waitForAll());
        const Reply reply = recorder.reply(0);
        ASSERT_NE(reply.error, nullptr);
        EXPECT_EQ(reply.error->code(), VLMErrorCode::Transport) << reply.error->description();
        EXPECT_EQ(reply.error->domain(), kVLMSDKNetworkErrorDomain);
        // The request and libcurl's own account of the failure.
        EXPECT_NE(reply.error->developerMessage().find("GET " + url + " failed: "), std::string::npos)
            << reply.error->developerMessage();
        EXPECT_EQ(reply.json, nullptr);
        EXPECT_EQ(reply.response != nullptr, row.statusLineSent);
    }
}

TEST_F(HTTPRequestManagerTest, ManyThreadsSendAtOnceAndEveryRequestGetsItsOwnReply) {
    constexpr int kThreads = 8;
    constexpr int kPerThread = 50;
    constexpr std::size_t kConnections = 8;
    auto options = quickOptions();
    options.maximumLiveTransfers = kConnections;
    ReplyRecorder recorder(kThreads * kPerThread);
    VLMSDKHTTPRequestManager manager(options);
    std::latch ready(kThreads);
    std::vector<std::thread> senders;
    for (int t = 0; t < kThreads; ++t) {
        senders.emplace_back([&, t] {
            ready.arrive_and_wait();
            for (int k = 0; k < kPerThread; ++k) {
                const int index = t * kPerThread + k;
                manager.performDataTaskRequest(makeRequest("GET", server_.url("/json?i=" + std::to_string(index))),
                                               recorder.completion(static_cast<std::size_t>(index)));
            }
        });
    }
    for (auto& sender : senders) sender.join();
    ASSERT_TRUE(recorder.waitForAll());
    for (int index = 0; index < kThreads * kPerThread; ++index) {
        const Reply reply = recorder.reply(static_cast<std::size_t>(index));
        ASSERT_EQ(reply.error, nullptr) << index << ": " << reply.error->description();
        ASSERT_NE(reply.json, nullptr) << index;
        EXPECT_EQ(reply.json->value("i", -1), index);
    }
    const auto statistics = manager.statistics();
    EXPECT_EQ(statistics.requestsSent, static_cast<std::size_t>(kThreads * kPerThread));
    EXPECT_EQ(statistics.requestsCompleted, static_cast<std::size_t>(kThreads * kPerThread));
    EXPECT_GE(statistics.connectionsOpened, 1u);
    EXPECT_LE(statistics.connectionsOpened, kConnections);
    manager.shutdown();
    recorder.expectEachCalledOnce();
}

TEST_F(HTTPRequestManagerTest, KeepAliveConnectionsAreReused) {
    ReplyRecorder recorder(10);
    VLMSDKHTTPRequestManager manager(quickOptions());
    std::set<int> clientPorts;
    for (std::size_t i = 0; i < 10; ++i) {
        manager.performDataTaskRequest(makeRequest("GET", server_.url("/connection")), recorder.completion(i));
        ASSERT_TRUE(recorder.waitForCalls(i + 1));
        const Reply reply = recorder.reply(i);
        ASSERT_NE(reply.json, nullptr);
        clientPorts.insert(reply.json->at("port").get<int>());
    }
    EXPECT_EQ(clientPorts.size(), 1u) << "the server saw this many connections";
    EXPECT_EQ(manager.connectionsOpened(), 1u);
}

TEST_F(HTTPRequestManagerTest, ConnectionsOfABurstStayOpenForTheNextOne) {
    constexpr std::size_t kRounds = 3;
    constexpr std::size_t kBurst = 8;
    ReplyRecorder recorder(kRounds * kBurst);
    VLMSDKHTTPRequestManager manager(quickOptions());
    for (std::size_t round = 0; round < kRounds; ++round) {
        for (std::size_t k = 0; k < kBurst; ++k) {
            manager.performDataTaskRequest(makeRequest("GET", server_.url("/hold")),
                                           recorder.completion(round * kBurst + k));
        }
        // All of a burst are at the server at once, on as many connections; they are answered one by one, so
        // that the burst's transfers end one after another.
        ASSERT_TRUE(waitForHeldArrivals((round + 1) * kBurst));
        for (std::size_t k = 0; k < kBurst; ++k) {
            releaseHeldRequests(1);
            ASSERT_TRUE(recorder.waitForCalls(round * kBurst + k + 1));
        }
    }
    std::set<int> clientPorts;
    for (std::size_t i = 0; i < kRounds * kBurst; ++i) {
        const Reply reply = recorder.reply(i);
        ASSERT_NE(reply.json, nullptr) << i << ": " << (reply.error ? reply.error->description() : "");
        clientPorts.insert(reply.json->at("port").get<int>());
    }
    EXPECT_EQ(clientPorts.size(), kBurst) << "the server saw this many connections";
    EXPECT_EQ(manager.connectionsOpened(), kBurst);
}

void HTTPRequestManagerTest::expectShutdownCancelsEverything(bool destroy) {
    constexpr std::size_t kLive = 5;
    constexpr std::size_t kRequests = 8;  // three of them still queued in the manager
    auto options = quickOptions();
    options.maximumLiveTransfers = kLive;
    ReplyRecorder recorder(kRequests);
    auto manager = std::make_unique<VLMSDKHTTPRequestManager>(options);
    for (std::size_t i = 0; i < kRequests; ++i) {
        manager->performDataTaskRequest(makeRequest("GET", server_.url("/hold")), recorder.completion(i));
    }
    ASSERT_TRUE(waitForHeldArrivals(kLive));
    EXPECT_EQ(recorder.total(), 0u);

    if (destroy) {
        manager.reset();
    } else {
        manager->shutdown();
    }
    // Every handler ran before shutdown returned.
    ASSERT_EQ(recorder.total(), kRequests);
    for (std::size_t i = 0; i < kRequests; ++i) {
        SCOPED_TRACE(i);
        const Reply reply = recorder.reply(i);
        ASSERT_NE(reply.error, nullptr);
        EXPECT_EQ(reply.error->code(), VLMErrorCode::Cancelled) << reply.error->description();
        EXPECT_EQ(reply.error->domain(), kVLMSDKNetworkErrorDomain);
        EXPECT_EQ(reply.response, nullptr);
        EXPECT_EQ(reply.json, nullptr);
    }
    if (!destroy) {
        // Later requests are answered at once, on the calling thread.
        ReplyRecorder late(1);
        manager->performDataTaskRequest(makeRequest("GET", server_.url("/json")), late.completion(0));
        ASSERT_EQ(late.total(), 1u);
        EXPECT_EQ(late.reply(0).thread, std::this_thread::get_id());
        ASSERT_NE(late.reply(0).error, nullptr);
        EXPECT_EQ(late.reply(0).error->code(), VLMErrorCode::Cancelled);
        manager->shutdown();
        EXPECT_EQ(late.total(), 1u);
        EXPECT_EQ(manager->statistics().requestsCompleted, kRequests + 1);
    }
    recorder.expectEachCalledOnce();
}

TEST_F(HTTPRequestManagerTest, ShutdownCancelsQueuedAndLiveRequestsExactlyOnce) {
    expectShutdownCancelsEverything(false);
}

TEST_F(HTTPRequestManagerTest, DestructionCancelsQueuedAndLiveRequestsExactlyOnce) {
    expectShutdownCancelsEverything(true);
}

TEST_F(HTTPRequestManagerTest, RequestsThatCannotBeSentNeverReachTheNetwork) {
    const auto buildError = VLMError::errorWithCode(VLMErrorCode::InvalidRequest, kVLMSDKNetworkErrorDomain,
                                                    "bad path", __func__, __FILE__);
    struct Row {
        const char* name;
        std::shared_ptr<const VLMSDKRequest> request;
    };
    const std::vector<Row> rows = {
        {"build error", makeRequest("GET", server_.url("/json"), {}, std::nullopt, buildError)},
        {"build error on a POST", makeRequest("POST", server_.url("/echo"), {}, "{}", buildError)},
        {"unsupported method", makeRequest("TRACE", server_.url("/json"))},
        {"lower-case method", makeRequest("get", server_.url("/json"))},
        {"not http", makeRequest("GET", "ftp://127.0.0.1:" + std::to_string(server_.port()) + "/json")},
        {"file URL", makeRequest("GET", "file:///etc/hostname")},
        {"malformed URL", makeRequest("GET", "http://[::1/json")},
        {"no request", nullptr},
    };
    ReplyRecorder recorder(rows.size() + 1);
    VLMSDKHTTPRequestManager manager(quickOptions());
    for (std::size_t i = 0; i < rows.size(); ++i) manager.performDataTaskRequest(rows[i].request, recorder.completion(i));
    ASSERT_TRUE(recorder.waitForCalls(rows.size()));
    // A good request after them is the only one the server ever sees.
    manager.performDataTaskRequest(makeRequest("GET", server_.url("/json")), recorder.completion(rows.size()));
    ASSERT_TRUE(recorder.waitForAll());
    EXPECT_EQ(recorder.reply(rows.size()).error, nullptr);
    EXPECT_EQ(serverHits_.load(), 1);

    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        const Reply reply = recorder.reply(i);
        ASSERT_NE(reply.error, nullptr);
        EXPECT_EQ(reply.error->code(), VLMErrorCode::InvalidRequest) << reply.error->description();
        EXPECT_EQ(reply.response, nullptr);
        EXPECT_EQ(reply.json, nullptr);
    }
    EXPECT_EQ(recorder.reply(0).error, buildError);
    EXPECT_EQ(recorder.reply(1).error, buildError);
    manager.shutdown();
    recorder.expectEachCalledOnce();
}

TEST_F(HTTPRequestManagerTest, MethodHeadersAndBodyReachTheServer) {
    const std::string largeBody = VLMSDKJSON{{"note", std::string(5000, 'n')}}.dump();
    const VLMSDKRequest::Headers json = {{"Content-Type", "application/json"}};
    struct Row {
        const char* name;
        std::string method;
        VLMSDKRequest::Headers headers;
        std::optional<std::string> body;
        VLMSDKJSON contentLength;  // as the server saw it; null: no such header
        VLMSDKJSON contentType;
    };
    const std::vector<Row> rows = {
        {"GET", "GET", {{"X-Trace", "t-1"}}, std::nullopt, nullptr, nullptr},
        {"POST with JSON", "POST", json, R"({"a":1})", "7", "application/json"},
        {"POST without body", "POST", {}, std::nullopt, "0", nullptr},
        {"PATCH without body", "PATCH", json, std::nullopt, "0", "application/json"},
        {"PATCH with JSON", "PATCH", json, R"({"b":[1,2]})", "11", "application/json"},
        {"PUT with JSON", "PUT", json, "[]", "2", "application/json"},
        {"DELETE", "DELETE", {}, std::nullopt, nullptr, nullptr},
        {"POST with a large body", "POST", json, largeBody, std::to_string(largeBody.size()), "application/json"},
    };
    ReplyRecorder recorder(rows.size());
    VLMSDKHTTPRequestManager manager(quickOptions());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        manager.performDataTaskRequest(makeRequest(rows[i].method, server_.url("/echo"), rows[i].headers, rows[i].body),
                                       recorder.completion(i));
    }
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        const Reply reply = recorder.reply(i);
        ASSERT_EQ(reply.error, nullptr) << reply.error->description();
        ASSERT_NE(reply.json, nullptr);
        const VLMSDKJSON& seen = *reply.json;
        EXPECT_EQ(seen["method"], rows[i].method);
        EXPECT_EQ(seen["body"], rows[i].body.value_or(""));
        EXPECT_EQ(seen["contentLength"], rows[i].contentLength);
        EXPECT_EQ(seen["contentType"], rows[i].contentType);
        EXPECT_EQ(seen["expect"], nullptr);
        EXPECT_EQ(reply.response->headerValue("X-Echo"), "yes");
    }
    EXPECT_EQ((*recorder.reply(0).json)["trace"], "t-1");
}

TEST(HTTPRequestManagerWireTest, HeaderLinesAreSentAsGiven) {
    std::mutex mutex;
    std::vector<std::string> heads;
    RawSocketServer server([&](int socket) {
        const std::string request = RawSocketServer::readRequest(socket);
        {
            std::lock_guard lock(mutex);
            heads.push_back(request.substr(0, request.find("\r\n\r\n") + 2));
        }
        RawSocketServer::sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}");
    });
    struct Row {
        const char* name;
        std::shared_ptr<const VLMSDKRequest> request;
        std::vector<std::string> present;  // whole header lines, each followed by CRLF on the wire
        std::vector<std::string> absent;   // header names
    };
    const std::vector<Row> rows = {
        {"empty header value",
         makeRequest("GET", server.url("/a"), {{"X-Trace", "t-1"}, {"X-Empty", ""}}),
         {"GET /a HTTP/1.1", "X-Trace: t-1", "X-Empty:"},
         {"Content-Length", "Content-Type"}},
        {"PATCH without body or type",
         makeRequest("PATCH", server.url("/b")),
         {"PATCH /b HTTP/1.1", "Content-Length: 0"},
         {"Content-Type", "Expect"}},
        {"large POST",
         makeRequest("POST", server.url("/c"), {{"Content-Type", "application/json"}}, std::string(5000, ' ') + "{}"),
         {"POST /c HTTP/1.1", "Content-Type: application/json", "Content-Length: 5002"},
         {"Expect"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ReplyRecorder recorder(1);
        VLMSDKHTTPRequestManager manager(quickOptions());
        manager.performDataTaskRequest(row.request, recorder.completion(0));
        ASSERT_TRUE(recorder.waitForAll());
        EXPECT_EQ(recorder.reply(0).error, nullptr);
        std::string head;
        {
            std::lock_guard lock(mutex);
            ASSERT_FALSE(heads.empty());
            head = heads.back();
        }
        for (const auto& line : row.present) {
            EXPECT_NE(head.find(line + "\r\n"), std::string::npos) << line << " in\n" << head;
        }
        for (const auto& name : row.absent) {
            EXPECT_EQ(head.find("\r\n" + name + ":"), std::string::npos) << name << " in\n" << head;
        }
    }
}

TEST_F(HTTPRequestManagerTest, RequestsFromTheBuilderReachTheServerAsBuilt) {
    VLMSDKRequestBuilder builder(server_.url("/"));
    builder.setAccessToken("t0ken");
    ReplyRecorder recorder(2);
    VLMSDKHTTPRequestManager manager(quickOptions());
    manager.performDataTaskRequest(builder.POSTWithPath("echo", VLMSDKJSON{{"a", 1}}), recorder.completion(0));
    manager.performDataTaskRequest(builder.PATCHWithPath("echo", std::nullopt), recorder.completion(1));
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < 2; ++i) {
        SCOPED_TRACE(i);
        const Reply reply = recorder.reply(i);
        ASSERT_EQ(reply.error, nullptr) << reply.error->description();
        ASSERT_NE(reply.json, nullptr);
        EXPECT_EQ((*reply.json)["authorization"], "Bearer t0ken");
        EXPECT_EQ((*reply.json)["userAgent"], VLMSDKRequestBuilder::defaultUserAgent());
        EXPECT_EQ((*reply.json)["contentType"], "application/json");
    }
    EXPECT_EQ((*recorder.reply(0).json)["method"], "POST");
    EXPECT_EQ((*recorder.reply(0).json)["body"], R"({"a":1})");
    EXPECT_EQ((*recorder.reply(1).json)["method"], "PATCH");
    EXPECT_EQ((*recorder.reply(1).json)["contentLength"], "0");
}

TEST_F(HTTPRequestManagerTest, HandlersRunOnTheNetworkThreadAndMayThrow) {
    ReplyRecorder recorder(3);
    VLMSDKHTTPRequestManager manager(quickOptions());
    const auto throwing = [&](std::size_t index, auto exception) -> VLMSDKDataTaskCompletion {
        return [record = recorder.completion(index), exception](auto json, auto response, auto error) {
            record(std::move(json), std::move(response), std::move(error));
            throw exception;
        };
    };
    manager.performDataTaskRequest(makeRequest("GET", server_.url("/json")),
                                   throwing(0, std::runtime_error("handler failed")));
    ASSERT_TRUE(recorder.waitForCalls(1));
    manager.performDataTaskRequest(makeRequest("GET", server_.url("/json")), throwing(1, 42));
    ASSERT_TRUE(recorder.waitForCalls(2));
    manager.performDataTaskRequest(makeRequest("GET", server_.url("/json")), recorder.completion(2));
    ASSERT_TRUE(recorder.waitForAll());
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(recorder.reply(i).error, nullptr);
        EXPECT_NE(recorder.reply(i).thread, std::this_thread::get_id());
        EXPECT_EQ(recorder.reply(i).thread, recorder.reply(0).thread);
    }
    manager.shutdown();
    recorder.expectEachCalledOnce();
}

/// Sets an environment variable (or removes it, for nullopt) until the end of the scope.
class ScopedEnvironment {
public:
    ScopedEnvironment(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        if (value) {
            ::setenv(name, value->c_str(), 1);
        } else {
            ::unsetenv(name);
        }
    }
    ~ScopedEnvironment() {
        if (old_) {
            ::setenv(name_, old_->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(HTTPRequestManagerProxyTest, TheProxyOptionAndTheEnvironmentAreHonoured) {
    std::mutex mutex;
    std::vector<std::string> requestLines;
    RawSocketServer proxy([&](int socket) {
        const std::string head = RawSocketServer::readRequestHead(socket);
        {
            std::lock_guard lock(mutex);
            requestLines.push_back(head.substr(0, head.find("\r\n")));
        }
        RawSocketServer::sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 17\r\nConnection: close\r\n\r\n"
                                         "{\"proxied\": true}");
    });
    const std::string target = "http://service.invalid/guest/reservations/abc";
    for (const bool fromEnvironment : {false, true}) {
        SCOPED_TRACE(fromEnvironment ? "environment" : "option");
        // Set before the manager's thread exists, so that no other thread reads the environment meanwhile.
        ScopedEnvironment httpProxy("http_proxy", fromEnvironment ? std::optional(proxy.url("")) : std::nullopt);
        ScopedEnvironment noProxy("no_proxy", std::nullopt);
        ScopedEnvironment upperNoProxy("NO_PROXY", std::nullopt);
        auto options = quickOptions();
        if (!fromEnvironment) options.proxy = proxy.url("");
        ReplyRecorder recorder(1);
        VLMSDKHTTPRequestManager manager(options);
        manager.performDataTaskRequest(makeRequest("GET", target), recorder.completion(0));
        ASSERT_TRUE(recorder.waitForAll());
        manager.shutdown();
        const Reply reply = recorder.reply(0);
        ASSERT_EQ(reply.error, nullptr) << reply.error->description();
        ASSERT_NE(reply.json, nullptr);
        EXPECT_EQ((*reply.json)["proxied"], true);
        std::lock_guard lock(mutex);
        ASSERT_FALSE(requestLines.empty());
        EXPECT_EQ(requestLines.back(), "GET " + target + " HTTP/1.1");
    }
    std::lock_guard lock(mutex);
    EXPECT_EQ(requestLines.size(), 2u);
}

TEST(HTTPRequestManagerTLSTest, CertificatesAreCheckedAsTheOptionsSay) {
#if defined(VLMSDK_TEST_TLS_CERT) && defined(VLMSDK_TEST_TLS_KEY)
    const TestHTTPServer server(
        [](httplib::Server& routes) {
            routes.Get("/json", [](const httplib::Request&, httplib::Response& response) {
                response.set_content(R"({"secure": true})", "application/json");
            });
        },
        TestHTTPServer::TLSFiles{VLMSDK_TEST_TLS_CERT, VLMSDK_TEST_TLS_KEY});
    struct Row {
        const char* name;
        std::function<void(VLMSDKHTTPRequestManager::Options&)> configure;
        bool succeeds;
    };
    const std::vector<Row> rows = {
        {"system CAs only: the self-signed certificate is refused", [](auto&) {}, false},
        {"its certificate as the CA file", [](auto& options) { options.caFile = VLMSDK_TEST_TLS_CERT; }, true},
        {"no verification", [](auto& options) { options.verifyPeer = options.verifyHost = false; }, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto options = quickOptions();
        row.configure(options);
        ReplyRecorder recorder(1);
        VLMSDKHTTPRequestManager manager(options);
        manager.performDataTaskRequest(makeRequest("GET", server.url("/json")), recorder.completion(0));
        ASSERT_TRUE(recorder.waitForAll());
        const Reply reply = recorder.reply(0);
        if (row.succeeds) {
            ASSERT_EQ(reply.error, nullptr) << reply.error->description();
            ASSERT_NE(reply.json, nullptr);
            EXPECT_EQ((*reply.json)["secure"], true);
        } else {
            ASSERT_NE(reply.error, nullptr);
            EXPECT_EQ(reply.error->code(), VLMErrorCode::Transport) << reply.error->description();
            EXPECT_NE(reply.error->developerMessage().find("certificate"), std::string::npos)
                << reply.error->developerMessage();
            EXPECT_EQ(reply.response, nullptr);
        }
    }
#else
    GTEST_SKIP() << "no test certificate could be made at configure time";
#endif
}

}  // namespace
