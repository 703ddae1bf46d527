#include "ScriptedServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>

ScriptedServer::ScriptedServer(Script script) : script_(std::move(script)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0 || ::listen(listener_, 8) != 0) {
        ::close(listener_);
        throw std::runtime_error("cannot listen on 127.0.0.1");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
        for (int connection = 0;; ++connection) {
            const int socket = ::accept(listener_, nullptr, nullptr);
            if (socket < 0) break;  // the listener was shut down
            connections_.emplace_back([this, socket, connection] {
                script_(socket, connection);
                ::close(socket);
            });
        }
        for (auto& thread : connections_) thread.join();
    });
}

ScriptedServer::~ScriptedServer() {
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
}

std::string ScriptedServer::readRequest(int socket) {
    std::string text;
    char buffer[4096];
    std::size_t want = std::string::npos;
    while (text.size() < want) {
        const ssize_t n = ::recv(socket, buffer, sizeof buffer, 0);
        if (n <= 0) return text;
        text.append(buffer, static_cast<std::size_t>(n));
        const auto head = text.find("\r\n\r\n");
        if (want == std::string::npos && head != std::string::npos) {
            const auto field = text.find("Content-Length: ");
            want = head + 4 + (field < head ? std::stoul(text.substr(field + 16)) : 0);
        }
    }
    return text;
}

void ScriptedServer::sendAll(int socket, std::string_view text) {
    while (!text.empty()) {
        const ssize_t n = ::send(socket, text.data(), text.size(), MSG_NOSIGNAL);
        if (n <= 0) return;
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}
