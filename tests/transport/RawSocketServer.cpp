#include "RawSocketServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace {

int boundSocket(int* port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) throw std::runtime_error("socket() failed");
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    socklen_t length = sizeof address;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        ::close(fd);
        throw std::runtime_error("bind() failed");
    }
    *port = ntohs(address.sin_port);
    return fd;
}

}  // namespace

RawSocketServer::RawSocketServer(Script script) : script_(std::move(script)) {
    listener_ = boundSocket(&port_);
    if (::listen(listener_, 64) != 0) {
        ::close(listener_);
        throw std::runtime_error("listen() failed");
    }
    acceptor_ = std::thread([this] { acceptConnections(); });
}

RawSocketServer::~RawSocketServer() {
    // Shutting a listening socket down wakes the blocked accept() on Linux.
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    ::close(listener_);
    std::vector<std::thread> connections;
    {
        std::lock_guard lock(mutex_);
        for (const int socket : openSockets_) ::shutdown(socket, SHUT_RDWR);
        connections.swap(connections_);
    }
    for (auto& connection : connections) connection.join();
}

std::string RawSocketServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
}

void RawSocketServer::acceptConnections() {
    for (;;) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            return;
        }
        std::lock_guard lock(mutex_);
        openSockets_.push_back(socket);
        connections_.emplace_back([this, socket] {
            script_(socket);
            std::lock_guard closeLock(mutex_);
            openSockets_.erase(std::find(openSockets_.begin(), openSockets_.end(), socket));
            ::close(socket);
        });
    }
}

std::string RawSocketServer::readRequestHead(int socket) {
    std::string head;
    char buffer[1024];
    while (head.find("\r\n\r\n") == std::string::npos) {
        const ssize_t received = ::recv(socket, buffer, sizeof buffer, 0);
        if (received <= 0) return {};
        head.append(buffer, static_cast<std::size_t>(received));
    }
    return head;
}

std::string RawSocketServer::readRequest(int socket) {
    std::string request = readRequestHead(socket);
    const auto headEnd = request.find("\r\n\r\n");
    if (headEnd == std::string::npos) return {};
    std::size_t bodyLength = 0;
    const auto field = request.find("\r\nContent-Length: ");
    if (field != std::string::npos && field < headEnd) bodyLength = std::stoul(request.substr(field + 18));
    char buffer[1024];
    while (request.size() < headEnd + 4 + bodyLength) {
        const ssize_t received = ::recv(socket, buffer, sizeof buffer, 0);
        if (received <= 0) return {};
        request.append(buffer, static_cast<std::size_t>(received));
    }
    return request;
}

void RawSocketServer::waitForPeerToLeave(int socket) {
    char buffer[1024];
    while (::recv(socket, buffer, sizeof buffer, 0) > 0) {
    }
}

bool RawSocketServer::sendAll(int socket, std::string_view data) {
    while (!data.empty()) {
        const ssize_t sent = ::send(socket, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        data.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

int RawSocketServer::closedPort() {
    int port = 0;
    ::close(boundSocket(&port));
    return port;
}
