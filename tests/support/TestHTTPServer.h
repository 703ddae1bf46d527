#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

/// An HTTP (or, given certificate and key files, HTTPS) server on 127.0.0.1 and an ephemeral port, serving
/// the routes it was given for as long as it lives. Its listen backlog and worker pool fit a test's bursts.
class TestHTTPServer {
public:
    using Routes = std::function<void(httplib::Server&)>;
    /// Certificate and key files (PEM) for HTTPS.
    using TLSFiles = std::pair<std::string, std::string>;

    explicit TestHTTPServer(const Routes& routes, const std::optional<TLSFiles>& tls = std::nullopt);
    ~TestHTTPServer();

    TestHTTPServer(const TestHTTPServer&) = delete;
    TestHTTPServer& operator=(const TestHTTPServer&) = delete;

    int port() const { return port_; }
    /// "<scheme>://127.0.0.1:<port><path>".
    std::string url(const std::string& path) const;

private:
    std::unique_ptr<httplib::Server> server_;
    std::string scheme_;
    int port_ = -1;
    std::thread thread_;
};
