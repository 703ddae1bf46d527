#include "VLMSDKHTTP1Connection.h"

#include "../VLMSDKSystemCalls.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "../VLMSDKHeaderLookup.h"

namespace vlmsdk::detail {
namespace {

// Replies are read through one buffer per thread: a connection holds none of its own while it waits.
constexpr std::size_t kReadBytes = 64 * 1024;

std::string errnoText(int error) { return std::strerror(error); }

bool sendsBody(const VLMSDKRequest& request) {
    const std::string& method = request.method();
    return method == "POST" || method == "PUT" || method == "PATCH" || (method == "DELETE" && request.body());
}

}  // namespace

std::optional<VLMSDKHTTP1Connection::Target> VLMSDKHTTP1Connection::Target::of(std::string_view url) {
    constexpr std::string_view scheme = "http://";
    if (url.size() < scheme.size() || !equalsIgnoringASCIICase(url.substr(0, scheme.size()), scheme)) {
        return std::nullopt;
    }
    url.remove_prefix(scheme.size());
    const auto authorityEnd = url.find_first_of("/?#");
    const std::string_view authority = url.substr(0, authorityEnd);
    if (authority.empty() || authority.find('@') != std::string_view::npos) return std::nullopt;

    // "[v6]:port", "[v6]", "v4:port" or "v4".
    std::string_view host = authority;
    std::string_view port;
    if (host.front() == '[') {
        const auto close = host.find(']');
        if (close == std::string_view::npos) return std::nullopt;
        if (close + 1 < host.size()) {
            if (host[close + 1] != ':') return std::nullopt;
            port = host.substr(close + 2);
        }
        host = host.substr(1, close - 1);
    } else if (const auto colon = host.find(':'); colon != std::string_view::npos) {
        port = host.substr(colon + 1);
        host = host.substr(0, colon);
    }
    unsigned number = 80;
    if (!port.empty() &&
        (std::from_chars(port.data(), port.data() + port.size(), number).ec != std::errc() ||
         std::from_chars(port.data(), port.data() + port.size(), number).ptr != port.data() + port.size() ||
         number == 0 || number > 65535)) {
        return std::nullopt;
    }
    Target target;
    const std::string hostText(host);
    if (auto* v4 = reinterpret_cast<sockaddr_in*>(&target.address);
        inet_pton(AF_INET, hostText.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(static_cast<std::uint16_t>(number));
        target.length = sizeof(sockaddr_in);
    } else if (auto* v6 = reinterpret_cast<sockaddr_in6*>(&target.address);
               inet_pton(AF_INET6, hostText.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(static_cast<std::uint16_t>(number));
        target.length = sizeof(sockaddr_in6);
    } else {
        return std::nullopt;  // a name: libcurl looks it up
    }
    target.authority = std::string(authority);
    const std::string_view rest = authorityEnd == std::string_view::npos
                                      ? std::string_view()
                                      : url.substr(authorityEnd, url.find('#', authorityEnd) - authorityEnd);
    if (rest.empty() || rest.front() != '/') target.path.push_back('/');
    target.path.append(rest);
    return target;
}

std::unique_ptr<VLMSDKHTTP1Connection> VLMSDKHTTP1Connection::open(const Target& target, std::string* error) {
    const int socket = openStreamSocket(target.address.ss_family);
    if (socket < 0) {
        *error = "No socket could be made: " + errnoText(errno);
        return nullptr;
    }
    // Requests go out in one write each: no reason to hold them back.
    const int one = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&target.address), target.length) != 0 &&
        errno != EINPROGRESS) {
        *error = "Could not connect to " + target.authority + ": " + errnoText(errno);
        ::close(socket);
        return nullptr;
    }
    return std::unique_ptr<VLMSDKHTTP1Connection>(new VLMSDKHTTP1Connection(socket, target.authority));
}

VLMSDKHTTP1Connection::VLMSDKHTTP1Connection(int socket, std::string authority)
    : socket_(socket), authority_(std::move(authority)) {}

VLMSDKHTTP1Connection::~VLMSDKHTTP1Connection() { ::close(socket_); }

std::string VLMSDKHTTP1Connection::requestText(const VLMSDKRequest& request, const Target& target,
                                               const std::optional<std::string>& idempotencyKey,
                                               const std::string* authorization) {
    const std::string* body = request.body() ? &*request.body() : nullptr;
    std::string text;
    text.reserve(256 + (body ? body->size() : 0));
    text.append(request.method()).append(" ").append(target.path).append(" HTTP/1.1\r\nHost: ");
    text.append(target.authority).append("\r\n");
    // The request builder refuses CR and LF in fields: each one is a line of its own.
    for (const auto& [name, value] : request.headers()) {
        text.append(name).append(value.empty() ? ":" : ": ").append(value).append("\r\n");
    }
    if (idempotencyKey) text.append("Idempotency-Key: ").append(*idempotencyKey).append("\r\n");
    if (authorization) text.append("Authorization: ").append(*authorization).append("\r\n");
    if (sendsBody(request)) {
        text.append("Content-Length: ").append(std::to_string(body ? body->size() : 0)).append("\r\n");
    }
    text.append("\r\n");
    if (body) text.append(*body);
    return text;
}

VLMSDKHTTP1Connection::Step VLMSDKHTTP1Connection::start(std::string request, VLMSDKHTTP1ReplyParser::Limits limits) {
    out_ = std::move(request);
    sent_ = 0;
    reply_.emplace(limits);
    ++exchanges_;
    if (phase_ == Phase::Connecting) return Step::Waiting;  // sent once connected
    phase_ = Phase::Sending;
    return sendSome();
}

bool VLMSDKHTTP1Connection::stillUsable() const {
    if (phase_ != Phase::Idle) return false;
    pollfd look{socket_, POLLIN, 0};
    return ::poll(&look, 1, 0) == 0;
}

short VLMSDKHTTP1Connection::events() const {
    switch (phase_) {
        case Phase::Connecting:
            return POLLOUT;
        // An answer may come before the whole request went (an early error): read it then.
        case Phase::Sending:
            return POLLOUT | POLLIN;
        default:
            return POLLIN;
    }
}

VLMSDKHTTP1Connection::Step VLMSDKHTTP1Connection::advance(short revents) {
    if (revents == 0) return phase_ == Phase::Done ? Step::Failed : Step::Waiting;
    switch (phase_) {
        case Phase::Connecting: {
            int error = 0;
            socklen_t length = sizeof error;
            if (::getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
            if (error != 0)
                return fail(Failure::Connect, "Could not connect to " + authority_ + ": " + errnoText(error));
            if (!(revents & POLLOUT)) return Step::Waiting;
            phase_ = Phase::Sending;
            return sendSome();
        }
        case Phase::Sending:
            if (revents & POLLIN) {
                phase_ = Phase::Receiving;
                return receive();
            }
            return sendSome();
        case Phase::Receiving:
            return receive();
        case Phase::Idle:
            return fail(Failure::NoAnswer, "The server closed the connection to " + authority_ + " while it was idle.");
        case Phase::Done:
            break;
    }
    return Step::Failed;
}

VLMSDKHTTP1Connection::Step VLMSDKHTTP1Connection::sendSome() {
    while (sent_ < out_.size()) {
        const ssize_t n = sendWithoutSignal(socket_, out_.data() + sent_, out_.size() - sent_);
        if (n >= 0) {
            sent_ += static_cast<std::size_t>(n);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return Step::Waiting;
        } else if (errno != EINTR) {
            return fail(Failure::Send, "Could not send the request to " + authority_ + ": " + errnoText(errno));
        }
    }
    phase_ = Phase::Receiving;
    // Most answers on a fast link come within the next wait; reading now would cost a call that finds nothing.
    return Step::Waiting;
}

VLMSDKHTTP1Connection::Step VLMSDKHTTP1Connection::receive() {
    thread_local std::array<char, kReadBytes> buffer;
    VLMSDKHTTP1ReplyParser& reply = *reply_;
    for (;;) {
        const ssize_t n = ::recv(socket_, buffer.data(), buffer.size(), 0);
        if (n < 0) {
            if (errno == EINTR) continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) return Step::Waiting;
            return fail(Failure::Receive, "Could not read the reply from " + authority_ + ": " + errnoText(errno));
        }
        std::size_t used = 0;
        if (n == 0) {
            reply.finish();
        } else {
            used = reply.feed(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
        }
        if (reply.state() == VLMSDKHTTP1ReplyParser::State::Failed) {
            const bool nothing =
                reply.failure() == VLMSDKHTTP1ReplyParser::Failure::Truncated && !reply.receivedAnything();
            return fail(nothing ? Failure::NoAnswer : Failure::Reply, reply.failureReason());
        }
        if (reply.state() == VLMSDKHTTP1ReplyParser::State::Complete) {
            // Bytes past the reply were not asked for, and a request not fully sent leaves the stream unusable.
            const bool clean = used == static_cast<std::size_t>(n) && sent_ == out_.size() && reply.keepAlive();
            out_.clear();
            phase_ = clean ? Phase::Idle : Phase::Done;
            return Step::Answered;
        }
        if (n == 0) return Step::Waiting;  // not reached: finish() ends every incomplete reply
    }
}

VLMSDKHTTP1Connection::Step VLMSDKHTTP1Connection::fail(Failure failure, std::string message) {
    phase_ = Phase::Done;
    failure_ = failure;
    failureMessage_ = std::move(message);
    return Step::Failed;
}

}  // namespace vlmsdk::detail
