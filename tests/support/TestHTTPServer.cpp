#include "TestHTTPServer.h"

#include <sys/socket.h>

#include <stdexcept>

TestHTTPServer::TestHTTPServer(const Routes& routes, const std::optional<TLSFiles>& tls) {
    server_ = tls ? std::make_unique<httplib::SSLServer>(tls->first.c_str(), tls->second.c_str())
                  : std::make_unique<httplib::Server>();
    scheme_ = tls ? "https" : "http";
    if (!server_->is_valid()) throw std::runtime_error("the test server could not be set up");
    // Idle keep-alive connections each hold a worker: leave room for every connection a test opens.
    server_->new_task_queue = [] { return new httplib::ThreadPool(32); };
    server_->set_keep_alive_max_count(100000);
    // Without it, a reply written in two pieces waits for the client's delayed acknowledgement.
    server_->set_tcp_nodelay(true);
    routes(*server_);
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("the test server could not bind a port");
    // The library listens with a backlog of 5: a burst of new connections beyond it waits a second for a SYN
    // retransmission. Listening again on the same socket widens the backlog.
    struct Backlog : httplib::Server {
        static void widen(httplib::Server& server) { ::listen(server.*(&Backlog::svr_sock_), SOMAXCONN); }
    };
    Backlog::widen(*server_);
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // The socket already listens, so clients could connect now; stop() only works once the loop runs.
    while (!server_->is_running()) std::this_thread::yield();
}

TestHTTPServer::~TestHTTPServer() {
    server_->stop();
    thread_.join();
}

std::string TestHTTPServer::url(const std::string& path) const {
    return scheme_ + "://127.0.0.1:" + std::to_string(port_) + path;
}
