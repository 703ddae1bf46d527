#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <sys/types.h>

namespace vlmsdk::bench {

/// A small HTTP/1.1 server on 127.0.0.1 (an ephemeral port) for the benchmarks, run in a child process so
/// that the client's figures (getrusage of its own process) hold none of the server's work.
///
/// One thread on epoll with keep-alive and pipelining: every GET whose path starts with
/// "/guest/reservations/" is answered with the same pre-rendered 200 reply; anything else gets a 404 with a
/// JSON error body. The child ends when this object is destroyed or the parent process dies.
class LoopbackServer {
public:
    /// Forks the server answering with the JSON text `replyBody`. Call it before the program starts any
    /// thread. nullptr, with `error` set, when the socket or the process cannot be made.
    static std::unique_ptr<LoopbackServer> start(const std::string& replyBody, std::string* error);
    ~LoopbackServer();

    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    std::uint16_t port() const { return port_; }
    /// "http://127.0.0.1:<port>/".
    std::string baseURL() const;

    /// While paused the server takes in requests but answers none; `resume` answers all it held back.
    void pause();
    void resume();

    /// CPU time the server process has used so far, in microseconds (nanosecond clock of the scheduler).
    double cpuMicroseconds() const;
    std::uint64_t requestsAnswered() const;
    std::uint64_t connectionsAccepted() const;

    struct Shared;

private:
    LoopbackServer(pid_t child, int control, std::uint16_t port, Shared* shared);
    void wake() const;

    pid_t child_;
    int control_;
    std::uint16_t port_;
    Shared* shared_;
};

}  // namespace vlmsdk::bench
