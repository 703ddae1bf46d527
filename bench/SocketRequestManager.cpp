#include "SocketRequestManager.h"

#include <Velmora_Errors/VLMError.h>
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "JSON/VLMSDKJSONReader.h"
#include "Transport/VLMSDKHTTP1ReplyParser.h"
#include "VLMSDKMainQueueSource.h"

namespace vlmsdk::bench {
namespace {

using vlmsdk::detail::VLMSDKJSONReader;
using Parser = vlmsdk::detail::VLMSDKHTTP1ReplyParser;

VLMErrorPtr transportError(std::string message) {
    return VLMError::errorWithCode(VLMErrorCode::Transport, kVLMSDKNetworkErrorDomain, std::move(message), __func__,
                                   __FILE__);
}

// "http://127.0.0.1:8080/a/b" -> address, port, host header, target.
struct Target {
    sockaddr_in address{};
    std::string host;
    std::string path;
};

bool parseURL(std::string_view url, Target& target) {
    constexpr std::string_view scheme = "http://";
    if (!url.starts_with(scheme)) return false;
    url.remove_prefix(scheme.size());
    const auto slash = url.find('/');
    target.host = std::string(url.substr(0, slash));
    target.path = slash == std::string_view::npos ? "/" : std::string(url.substr(slash));
    const auto colon = target.host.rfind(':');
    if (colon == std::string::npos) return false;
    unsigned port = 0;
    const char* first = target.host.data() + colon + 1;
    if (std::from_chars(first, target.host.data() + target.host.size(), port).ec != std::errc() || port > 65535) {
        return false;
    }
    target.address.sin_family = AF_INET;
    target.address.sin_port = htons(static_cast<std::uint16_t>(port));
    return inet_pton(AF_INET, target.host.substr(0, colon).c_str(), &target.address.sin_addr) == 1;
}

struct Exchange {
    std::shared_ptr<const VLMSDKRequest> request;
    VLMSDKDataTaskCompletion completion;
};

struct Connection {
    int fd = -1;
    bool busy = false;
    std::string out;
    std::size_t sent = 0;
    std::optional<Parser> parser;
    Exchange exchange;
};

class SocketRequestManager final : public VLMSDKRequestManager, public vlmsdk::detail::VLMSDKMainQueueSource {
public:
    ~SocketRequestManager() override {
        for (auto& connection : connections_) {
            if (connection->fd >= 0) ::close(connection->fd);
        }
    }

    void performDataTaskRequest(std::shared_ptr<const VLMSDKRequest> request,
                                VLMSDKDataTaskCompletion completion) override {
        Exchange exchange{std::move(request), std::move(completion)};
        if (exchange.request->buildError()) {
            exchange.completion(nullptr, nullptr, exchange.request->buildError());
            return;
        }
        Connection* idle = nullptr;
        for (auto& connection : connections_) {
            if (!connection->busy) {
                idle = connection.get();
                break;
            }
        }
        if (!idle) {
            connections_.push_back(std::make_unique<Connection>());
            idle = connections_.back().get();
        }
        start(*idle, std::move(exchange));
    }

    int prepareWait(std::vector<pollfd>& descriptors) override {
        waitingOn_.clear();
        for (auto& connection : connections_) {
            if (!connection->busy) continue;
            const short events = connection->sent < connection->out.size() ? POLLOUT : POLLIN;
            descriptors.push_back({connection->fd, events, 0});
            waitingOn_.push_back(connection.get());
        }
        return -1;
    }

    void dispatch(std::span<const pollfd> descriptors) override {
        // A completion may start the next request on a connection this loop already passed: fine, its
        // descriptor is only waited on from the next round.
        for (std::size_t i = 0; i < descriptors.size() && i < waitingOn_.size(); ++i) {
            if (descriptors[i].revents == 0) continue;
            Connection& connection = *waitingOn_[i];
            if (connection.sent < connection.out.size()) {
                sendSome(connection);
            } else {
                receive(connection);
            }
        }
    }

private:
    void start(Connection& connection, Exchange exchange) {
        Target target;
        if (!parseURL(exchange.request->url(), target)) {
            exchange.completion(nullptr, nullptr, transportError("Only http://<IPv4>:<port>/ URLs are spoken here."));
            return;
        }
        if (connection.fd < 0) {
            connection.fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
            const int one = 1;
            setsockopt(connection.fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
            if (connection.fd < 0 || (::connect(connection.fd, reinterpret_cast<const sockaddr*>(&target.address),
                                                sizeof target.address) != 0 &&
                                      errno != EINPROGRESS)) {
                fail(connection, std::move(exchange), std::strerror(errno));
                return;
            }
        }
        const auto& request = *exchange.request;
        std::string& out = connection.out;
        out.clear();
        out.append(request.method()).append(" ").append(target.path).append(" HTTP/1.1\r\nHost: ");
        out.append(target.host).append("\r\n");
        for (const auto& [name, value] : request.headers()) out.append(name).append(": ").append(value).append("\r\n");
        if (request.body()) {
            out.append("Content-Length: ").append(std::to_string(request.body()->size())).append("\r\n\r\n");
            out.append(*request.body());
        } else {
            out.append("\r\n");
        }
        connection.sent = 0;
        connection.parser.emplace(Parser::Limits(), request.method() == "HEAD");
        connection.busy = true;
        connection.exchange = std::move(exchange);
        sendSome(connection);
    }

    void sendSome(Connection& connection) {
        while (connection.sent < connection.out.size()) {
            const ssize_t n = ::send(connection.fd, connection.out.data() + connection.sent,
                                     connection.out.size() - connection.sent, MSG_NOSIGNAL);
            if (n > 0) {
                connection.sent += static_cast<std::size_t>(n);
            } else if (n < 0 && errno == EINTR) {
                continue;
            } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
                return;  // the next round waits for POLLOUT
            } else {
                fail(connection, std::move(connection.exchange), std::strerror(errno));
                return;
            }
        }
    }

    void receive(Connection& connection) {
        for (;;) {
            const ssize_t n = ::recv(connection.fd, buffer_.data(), buffer_.size(), 0);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
            if (n < 0) {
                fail(connection, std::move(connection.exchange), std::strerror(errno));
                return;
            }
            auto& parser = *connection.parser;
            if (n == 0) {
                parser.finish();
            } else {
                parser.feed(std::string_view(buffer_.data(), static_cast<std::size_t>(n)));
            }
            if (parser.state() == Parser::State::Failed) {
                fail(connection, std::move(connection.exchange), parser.failureReason().c_str());
                return;
            }
            if (parser.state() == Parser::State::Complete) {
                complete(connection);
                return;
            }
            if (n == 0) return;
        }
    }

    void complete(Connection& connection) {
        Parser& parser = *connection.parser;
        Exchange exchange = std::move(connection.exchange);
        connection.busy = false;
        if (!parser.keepAlive()) closeConnection(connection);
        auto response =
            std::make_shared<const VLMSDKURLResponse>(exchange.request->url(), parser.statusCode(), parser.headers());
        std::shared_ptr<const VLMSDKJSONReply> reply;
        VLMErrorPtr error;
        if (!parser.body().empty()) {
            auto read = reader_.read(parser.body());
            reply = std::move(read.reply);
            if (!reply) {
                error = VLMError::errorWithCode(VLMErrorCode::InvalidResponse, kVLMSDKNetworkErrorDomain,
                                                "The reply is not JSON.", __func__, __FILE__);
            }
        }
        exchange.completion(std::move(reply), std::move(response), std::move(error));
    }

    void fail(Connection& connection, Exchange exchange, const char* why) {
        closeConnection(connection);
        connection.busy = false;
        if (exchange.completion) exchange.completion(nullptr, nullptr, transportError(why));
    }

    static void closeConnection(Connection& connection) {
        if (connection.fd >= 0) ::close(connection.fd);
        connection.fd = -1;
    }

    std::vector<std::unique_ptr<Connection>> connections_;
    std::vector<Connection*> waitingOn_;  // prepareWait's descriptors, in order
    std::array<char, 16384> buffer_;
    VLMSDKJSONReader reader_;
};

}  // namespace

std::shared_ptr<VLMSDKRequestManager> makeSocketRequestManager() {
    auto manager = std::make_shared<SocketRequestManager>();
    vlmsdk::detail::attachMainQueueSource(manager);
    return manager;
}

void closeSocketRequestManager(const std::shared_ptr<VLMSDKRequestManager>& manager) {
    vlmsdk::detail::detachMainQueueSource(static_cast<const SocketRequestManager*>(manager.get()));
}

}  // namespace vlmsdk::bench
