// Network faults and TLS through a kit operation: each ends in exactly one completion, on the main thread,
// with an error that names its cause. HTTP/2 carries requests in flight over one connection. Loopback only.
#include "ChildProcess.h"
#include "TestCertificates.h"
#include "TestHTTPServer.h"

#include <VLMSDKCoreKit/VLMSDKConsoleLogger.h>
#include <VLMSDKCoreKit/VLMSDKHTTPRequestManager.h>
#include <VLMSDKCoreKit/VLMSDKMainQueue.h>
#include <VLMSDKCoreKit/VLMSDKRequestBuilder.h>
#include <VLMSDKPMSKit/VLMSDKPMSKit.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <tuple>

namespace {

using namespace std::chrono_literals;

constexpr const char* kReply = R"({"reservation": {"id": "rsv_1", "status": "reserved"}})";

// The tests check every error themselves; the validator's failure lines would only bury gtest's output.
class QuietConsole : public ::testing::Environment {
public:
    void SetUp() override { VLMSDKConsoleLogger::sharedLogger().setMaximumLevel(0); }
};
[[maybe_unused]] ::testing::Environment* const kQuietConsole = ::testing::AddGlobalTestEnvironment(new QuietConsole);

struct Delivery {
    std::shared_ptr<VLMSDKReservation> reservation;
    VLMErrorPtr error;
    bool onMainThread = false;
};

struct Fetched {
    std::vector<Delivery> deliveries;
    std::size_t connectionsOpened = 0;
};

/// Fetches reservation "rsv_1" `count` times at once through one API manager on the HTTP transport, then shuts
/// the transport down and runs what it left on the main queue: every delivery has been made then.
Fetched fetchAll(const std::string& baseURL, const VLMSDKHTTPRequestManagerOptions& options, std::size_t count) {
    const auto manager = std::make_shared<VLMSDKHTTPRequestManager>(options);
    const VLMSDKAPIManager api(std::make_shared<VLMSDKRequestBuilder>(baseURL), manager);
    // Shared with the completions, so that a stray late one could not outlive it.
    const auto mutex = std::make_shared<std::mutex>();
    const auto fetched = std::make_shared<Fetched>();
    for (std::size_t i = 0; i < count; ++i) {
        fetchReservationWithID(api, "rsv_1", [=](std::shared_ptr<VLMSDKReservation> reservation, VLMErrorPtr error) {
            std::lock_guard lock(*mutex);
            fetched->deliveries.push_back({std::move(reservation), std::move(error), VLMSDKMainQueue::isMainThread()});
        });
    }
    // A generous limit only guards against a hang.
    EXPECT_TRUE(VLMSDKMainQueue::runUntil(
        [&] {
            std::lock_guard lock(*mutex);
            return fetched->deliveries.size() >= count;
        },
        60s));
    manager->shutdown();
    VLMSDKMainQueue::drain();
    std::lock_guard lock(*mutex);
    fetched->connectionsOpened = manager->connectionsOpened();
    return *fetched;
}

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

sockaddr_in loopback(std::uint16_t port) { return {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}}; }

/// A listener on 127.0.0.1 whose accept queue is full and never emptied: the kernel drops every further
/// SYN, so a connect to it never completes.
class FullListener {
public:
    FullListener() {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0 || ::listen(listener_, 0) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
        // A backlog of 0 queues one connection; the fillers that complete their handshake fill the queue.
        bool filled = false;
        for (int i = 0; i < 3; ++i) {
            const int filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
            ::connect(filler, reinterpret_cast<sockaddr*>(&address), sizeof address);
            pollfd wait{filler, POLLOUT, 0};
            filled = (::poll(&wait, 1, 1000) == 1 && !(wait.revents & (POLLERR | POLLHUP))) || filled;
            fillers_.push_back(filler);
        }
        if (!filled) throw std::runtime_error("no connection reached the accept queue");
    }
    ~FullListener() {
        for (const int filler : fillers_) ::close(filler);
        ::close(listener_);
    }
    std::uint16_t port() const { return port_; }

private:
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::vector<int> fillers_;
};

/// A server program started for a test on a port of 127.0.0.1 the kernel just handed out: "{port}" in its
/// arguments stands for it. Tried again on another port should that one be taken in between.
class LoopbackChild {
public:
    LoopbackChild(const std::string& program, const std::vector<std::string>& arguments) {
        for (int attempt = 0; attempt < 5 && !process_; ++attempt) {
            port_ = freePort();
            std::vector<std::string> given = arguments;
            for (auto& argument : given) {
                if (argument == "{port}") argument = std::to_string(port_);
            }
            process_ = std::make_unique<ChildProcess>(program, given);
            if (!awaitListening()) process_.reset();
        }
        if (!process_) throw std::runtime_error(program + " did not start");
    }
    std::string url(const std::string& path) const { return "https://127.0.0.1:" + std::to_string(port_) + path; }

private:
    static std::uint16_t freePort() {
        const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof address;
        ::bind(probe, reinterpret_cast<sockaddr*>(&address), length);
        ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
        ::close(probe);
        return ntohs(address.sin_port);
    }
    // Waits (bounded) until the server accepts connections, or has exited.
    bool awaitListening() {
        const sockaddr_in address = loopback(port_);
        for (int tries = 0; tries < 500 && process_->running(); ++tries) {
            const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            const bool accepted = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
            ::close(probe);
            if (accepted) return true;
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    std::uint16_t port_ = 0;
    std::unique_ptr<ChildProcess> process_;
};

/// A temporary directory, removed with everything in it.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        char pattern[] = "/tmp/vlmsdk-transport-XXXXXX";
        if (!::mkdtemp(pattern)) throw std::runtime_error("cannot make a temporary directory");
        path_ = pattern;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// nghttpd over TLS on 127.0.0.1, serving files from a temporary directory.
class HTTP2Server {
public:
    explicit HTTP2Server(const std::map<std::string, std::string>& files) {
        for (const auto& [path, content] : files) {
            std::filesystem::create_directories(std::filesystem::path(root_.file(path)).parent_path());
            std::ofstream(root_.file(path)) << content;
        }
        const auto& certificates = TestCertificates::shared();
        server_ = std::make_unique<LoopbackChild>(
            "nghttpd", std::vector<std::string>{"--address=127.0.0.1", "--htdocs=" + root_.file(""), "{port}",
                                                certificates.serverKey, certificates.loopbackCert});
    }
    std::string url(const std::string& path) const { return server_->url(path); }

private:
    TemporaryDirectory root_;
    std::unique_ptr<LoopbackChild> server_;
};

using Mode = VLMSDKHTTPRequestManagerOptions::Mode;
using Transport = VLMSDKHTTPRequestManagerOptions::Transport;

/// Each test runs with the main thread driving the transfers and with a network thread, on each transport.
class TransportFaults : public ::testing::TestWithParam<std::tuple<Mode, Transport>> {
protected:
    VLMSDKHTTPRequestManagerOptions quick() const {
        VLMSDKHTTPRequestManagerOptions options;
        options.mode = std::get<Mode>(GetParam());
        options.transport = std::get<Transport>(GetParam());
        options.connectTimeout = 2s;
        options.requestTimeout = 20s;
        options.retry.maximumAttempts = 1;  // each fault's own outcome, not a retry's
        return options;
    }
};

TEST_P(TransportFaults, EachFetchEndsInOneCompletionPerRequestOnTheMainThreadWithItsRecordOrCause) {
    const auto& certificates = TestCertificates::shared();
    auto serve = [](httplib::Server& server) {
        server.Get("/guest/reservations/rsv_1",
                   [](const httplib::Request&, httplib::Response& response) { response.set_content(kReply, "application/json"); });
    };
    const TestHTTPServer trusted(serve, TestHTTPServer::TLSFiles(certificates.loopbackCert, certificates.serverKey));
    const TestHTTPServer misnamed(serve, TestHTTPServer::TLSFiles(certificates.otherHostCert, certificates.serverKey));
    const HTTP2Server http2(std::map<std::string, std::string>{{"guest/reservations/rsv_1", kReply}});
    const FullListener full;
    int closedPort = 0;
    { closedPort = TestHTTPServer([](httplib::Server&) {}).port(); }

    auto withCA = [&](VLMSDKHTTPRequestManagerOptions& options) { options.caFile = certificates.caFile; };
    struct Row {
        const char* name;
        std::string baseURL;
        std::function<void(VLMSDKHTTPRequestManagerOptions&)> configure;
        std::optional<VLMErrorCode> error;  // none: the reservation arrives
        std::vector<std::string> causes;    // one of them, in lower case, is in the message
        std::size_t requests = 1;           // sent at once; when they succeed, over one connection
    };
    const std::vector<Row> rows = {
        {"a name that does not resolve", "http://no-such-host.invalid/", {}, VLMErrorCode::Transport,
         {"resolve", "resolving"}},
        {"a connect that never completes", "http://127.0.0.1:" + std::to_string(full.port()) + "/",
         [](auto& options) { options.connectTimeout = 300ms; }, VLMErrorCode::Timeout, {"connect", "timed out"}},
        {"a refused connection", "http://127.0.0.1:" + std::to_string(closedPort) + "/", {}, VLMErrorCode::Transport,
         {"couldn't connect", "connection refused"}},
        {"a certificate from an authority the system does not trust", trusted.url("/"), {}, VLMErrorCode::Transport,
         {"certificate"}},
        {"the same with its authority as the CA file", trusted.url("/"), withCA, std::nullopt, {}},
        {"a certificate for another host name", misnamed.url("/"), withCA, VLMErrorCode::Transport,
         {"subject name", "host name"}},
        {"eight requests in flight over HTTP/2", http2.url("/"), withCA, std::nullopt, {}, 8},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        auto options = quick();
        if (row.configure) row.configure(options);
        const Fetched fetched = fetchAll(row.baseURL, options, row.requests);
        ASSERT_EQ(fetched.deliveries.size(), row.requests);
        for (const Delivery& delivery : fetched.deliveries) {
            EXPECT_TRUE(delivery.onMainThread);
            if (!row.error) {
                ASSERT_NE(delivery.reservation, nullptr) << delivery.error->description();
                EXPECT_EQ(delivery.reservation->velmoraID(), "rsv_1");
                continue;
            }
            ASSERT_NE(delivery.error, nullptr);
            EXPECT_EQ(delivery.error->code(), *row.error) << delivery.error->description();
            const std::string message = lowered(delivery.error->developerMessage());
            EXPECT_TRUE(std::any_of(row.causes.begin(), row.causes.end(),
                                    [&](const std::string& cause) { return message.find(cause) != std::string::npos; }))
                << message;
        }
        if (!row.error) {
            EXPECT_EQ(fetched.connectionsOpened, 1u);
        }
    }
}

// A POST is never sent twice behind the host's back, over HTTP/2 either: the server acts on it and drops the
// connection without a word; the POST went out on the kept connection, once, and says the service may have
// acted; nor when the server then claims, by GOAWAY, that it processed nothing. (Over HTTP/1.1 the transport
// fault table has the same row.)
TEST_P(TransportFaults, APostTheServerActsOnAndDropsWithoutAnswerGoesOutOnceOverHTTP2) {
    const auto& certificates = TestCertificates::shared();
    const TemporaryDirectory directory;
    const std::string log = directory.file("requests.log");
    const LoopbackChild server(VLMSDK_HTTP2_SCRIPTED_SERVER,
                               {"{port}", certificates.loopbackCert, certificates.serverKey, log});
    auto options = quick();
    options.caFile = certificates.caFile;
    VLMSDKHTTPRequestManager manager(options);
    struct Step {
        const char* method;
        const char* path;
        bool answered;
    };
    for (const Step& step : {Step{"GET", "/a", true}, Step{"POST", "/close-pay", false}, Step{"POST", "/c", true},
                             Step{"POST", "/goaway-pay", false}}) {
        SCOPED_TRACE(std::string(step.method) + " " + step.path);
        std::optional<std::pair<long, VLMErrorPtr>> outcome;
        const auto request = std::make_shared<const VLMSDKRequest>(VLMSDKRequest::Parts{
            step.method, {}, server.url(step.path), {}, std::string(step.method) == "GET" ? std::nullopt : std::optional<std::string>("{}"), {}});
        // Recorded on the main thread, whichever thread handles the reply.
        manager.performDataTaskRequest(request, [&](auto, std::shared_ptr<const VLMSDKURLResponse> response, VLMErrorPtr error) {
            const long status = response ? response->statusCode() : 0;
            VLMSDKMainQueue::async([&outcome, status, error] { outcome.emplace(status, error); });
        });
        ASSERT_TRUE(VLMSDKMainQueue::runUntil([&] { return outcome.has_value(); }, 60s));
        if (step.answered) {
            EXPECT_EQ(outcome->second, nullptr) << outcome->second->description();
            EXPECT_EQ(outcome->first, 200);
        } else {
            ASSERT_NE(outcome->second, nullptr);
            EXPECT_EQ(outcome->second->code(), VLMErrorCode::Transport);
            EXPECT_NE(outcome->second->developerMessage().find("may have acted"), std::string::npos)
                << outcome->second->developerMessage();
        }
    }
    manager.shutdown();
    std::ifstream lines(log);
    std::vector<std::string> seen;
    for (std::string line; std::getline(lines, line);) seen.push_back(line);
    ASSERT_EQ(seen.size(), 4u) << ::testing::PrintToString(seen);
    // The GET and the POST on one connection; the POST after the drop on another. (Connections are numbered
    // by the server, the start-up probe's included.)
    const auto connectionOf = [](const std::string& line) { return line.substr(0, line.find(' ')); };
    const auto requestOf = [](const std::string& line) { return line.substr(line.find(' ') + 1); };
    EXPECT_EQ(requestOf(seen[0]), "GET /a");
    EXPECT_EQ(requestOf(seen[1]), "POST /close-pay");
    EXPECT_EQ(requestOf(seen[2]), "POST /c");
    EXPECT_EQ(connectionOf(seen[0]), connectionOf(seen[1]));
    EXPECT_NE(connectionOf(seen[1]), connectionOf(seen[2]));
    // A GOAWAY claiming nothing was processed does not bring it back either.
    EXPECT_EQ(seen[3], connectionOf(seen[2]) + " POST /goaway-pay");
}

std::string faultModeName(const ::testing::TestParamInfo<std::tuple<Mode, Transport>>& info) {
    return std::get<Mode>(info.param) == Mode::Pumped ? "Pumped" : "Threaded";
}
INSTANTIATE_TEST_SUITE_P(LibCurl, TransportFaults,
                         ::testing::Combine(::testing::Values(Mode::Pumped, Mode::Threaded),
                                            ::testing::Values(Transport::LibCurl)),
                         faultModeName);
INSTANTIATE_TEST_SUITE_P(HTTP1, TransportFaults,
                         ::testing::Combine(::testing::Values(Mode::Pumped, Mode::Threaded),
                                            ::testing::Values(Transport::HTTP1)),
                         faultModeName);

}  // namespace
