#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

/// An HTTP (or HTTPS) server on 127.0.0.1 and an ephemeral port, serving the routes it was given, for as long as
/// it lives.
class TestHTTPServer {
public:
    /// Adds routes to the server before it starts; they cannot change afterwards.
    using Routes = std::function<void(httplib::Server&)>;

    struct TLSFiles {
        std::string certificate;
        std::string privateKey;
    };

    /// Returns once the server accepts connections. With `tls`, the server speaks HTTPS.
    explicit TestHTTPServer(const Routes& routes, const std::optional<TLSFiles>& tls = std::nullopt);
    ~TestHTTPServer();

    TestHTTPServer(const TestHTTPServer&) = delete;
    TestHTTPServer& operator=(const TestHTTPServer&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:<port>" (or https) followed by `path`.
    std::string url(const std::string& path) const;

private:
    std::unique_ptr<httplib::Server> server_;
    std::string scheme_;
    int port_ = -1;
    std::thread thread_;
};
