#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

/// A loopback HTTP server written by the test itself, byte by byte: each accepted connection runs `script`
/// on a thread of its own with the connection's number (0, 1, ...), and is closed when the script returns.
/// For what a real server library will not do on request (close a kept connection without a word, answer
/// out of turn). Scripts must return once the client closes; the destructor waits for them.
class ScriptedServer {
public:
    using Script = std::function<void(int socket, int connection)>;
    explicit ScriptedServer(Script script);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& path = "/") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

    /// Reads one request (its head, then a Content-Length body) from `socket`; what came before the client
    /// closed, when it did.
    static std::string readRequest(int socket);
    static void sendAll(int socket, std::string_view text);

private:
    Script script_;
    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    std::vector<std::thread> connections_;  // the accepting thread's
};
