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

/// nghttpd over TLS on 127.0.0.1, serving files from a temporary directory.
class HTTP2Server {
public:
    explicit HTTP2Server(const std::map<std::string, std::string>& files) {
        char pattern[] = "/tmp/vlmsdk-h2-XXXXXX";
        if (!::mkdtemp(pattern)) throw std::runtime_error("cannot make a temporary directory");
        root_ = pattern;
        for (const auto& [path, content] : files) {
            std::filesystem::create_directories(std::filesystem::path(root_ + "/" + path).parent_path());
            std::ofstream(root_ + "/" + path) << content;
        }
        const auto& certificates = TestCertificates::shared();
        // nghttpd needs a port number: one the kernel just handed out, tried again should it be taken.
        for (int attempt = 0; attempt < 5 && !process_; ++attempt) {
            port_ = freePort();
            process_ = std::make_unique<ChildProcess>(
                "nghttpd", std::vector<std::string>{"--address=127.0.0.1", "--htdocs=" + root_, std::to_string(port_),
                                                    certificates.serverKey, certificates.loopbackCert});
            if (!awaitListening()) process_.reset();
        }
        if (!process_) throw std::runtime_error("nghttpd did not start");
    }
    ~HTTP2Server() {
        process_.reset();
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
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

    std::string root_;
    std::uint16_t port_ = 0;
    std::unique_ptr<ChildProcess> process_;
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

std::string modeName(const ::testing::TestParamInfo<std::tuple<Mode, Transport>>& info) {
    return std::get<Mode>(info.param) == Mode::Pumped ? "Pumped" : "Threaded";
}
INSTANTIATE_TEST_SUITE_P(LibCurl, TransportFaults,
                         ::testing::Combine(::testing::Values(Mode::Pumped, Mode::Threaded),
                                            ::testing::Values(Transport::LibCurl)),
                         modeName);
INSTANTIATE_TEST_SUITE_P(HTTP1, TransportFaults,
                         ::testing::Combine(::testing::Values(Mode::Pumped, Mode::Threaded),
                                            ::testing::Values(Transport::HTTP1)),
                         modeName);

}  // namespace
