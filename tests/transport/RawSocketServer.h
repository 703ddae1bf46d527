#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// A TCP server on 127.0.0.1 and an ephemeral port that runs a script on every connection it accepts, for
/// replies no well-behaved HTTP server would give. Each connection has its own thread; the server closes the
/// socket when the script returns, and on destruction shuts every open socket down to end blocked scripts.
class RawSocketServer {
public:
    using Script = std::function<void(int socket)>;

    explicit RawSocketServer(Script script);
    ~RawSocketServer();

    RawSocketServer(const RawSocketServer&) = delete;
    RawSocketServer& operator=(const RawSocketServer&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:<port>" followed by `path`.
    std::string url(const std::string& path) const;

    /// Reads up to the blank line that ends a request head and returns what it read; empty when the peer left.
    static std::string readRequestHead(int socket);
    /// Reads a whole request, head and the body its Content-Length announces; empty when the peer left.
    static std::string readRequest(int socket);
    /// Blocks until the peer closes the connection (or the server shuts it down).
    static void waitForPeerToLeave(int socket);
    static bool sendAll(int socket, std::string_view data);
    /// A port on 127.0.0.1 where nothing listens (it was bound and released again).
    static int closedPort();

private:
    void acceptConnections();

    Script script_;
    int listener_ = -1;
    int port_ = -1;
    std::thread acceptor_;
    std::mutex mutex_;
    std::vector<int> openSockets_;
    std::vector<std::thread> connections_;
};
