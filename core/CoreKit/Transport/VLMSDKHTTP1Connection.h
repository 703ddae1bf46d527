#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

#include <VLMSDKCoreKit/VLMSDKRequest.h>
#include <poll.h>
#include <sys/socket.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VLMSDKHTTP1ReplyParser.h"

namespace vlmsdk::detail {

/// One HTTP/1.1 connection to one origin, carrying one exchange at a time and kept for the next while the
/// server allows, moved forward by whoever waits on its descriptor: a non-blocking connect, the request
/// written as the socket takes it, the reply read with VLMSDKHTTP1ReplyParser. Time limits are the
/// caller's (the request manager's engine keeps them). One driving thread at a time.
class VLMSDK_INTERNAL VLMSDKHTTP1Connection {
public:
    /// Where a request goes when no name has to be looked up: http to a literal IPv4 or IPv6 address.
    struct Target {
        sockaddr_storage address{};
        socklen_t length = 0;
        std::string authority;  ///< "127.0.0.1:8080": the Host field, and the key connections are kept by
        std::string path;       ///< the request target, as the URL has it ("/a/b?c")

        /// The target of `url`, or nothing when it needs more than this connection does: another scheme, a
        /// host name, credentials in the URL.
        static std::optional<Target> of(std::string_view url);
    };

    enum class Step { Waiting, Answered, Failed };
    enum class Failure {
        None,
        Connect,   ///< the connection could not be made
        Send,      ///< the request could not be written
        Receive,   ///< reading failed (reset, say)
        NoAnswer,  ///< the server closed the connection before any byte of a reply
        Reply,     ///< the reply is malformed, over a limit or cut short
    };

    /// Starts connecting to `target`; nullptr (and `error`) when no socket could be made or the connect
    /// failed at once.
    static std::unique_ptr<VLMSDKHTTP1Connection> open(const Target& target, std::string* error);
    ~VLMSDKHTTP1Connection();
    VLMSDKHTTP1Connection(const VLMSDKHTTP1Connection&) = delete;
    VLMSDKHTTP1Connection& operator=(const VLMSDKHTTP1Connection&) = delete;

    /// The text of `request` for `target`, with an Idempotency-Key field when `idempotencyKey` is given, an
    /// Authorization field when `authorization` is, and a Content-Length for every method that sends a body
    /// (zero when it has none).
    static std::string requestText(const VLMSDKRequest& request, const Target& target,
                                   const std::optional<std::string>& idempotencyKey,
                                   const std::string* authorization = nullptr);

    /// Starts an exchange on a new or idle connection: `request` goes out (as much as the socket takes at
    /// once, when connected), a reply under `limits` is awaited.
    Step start(std::string request, VLMSDKHTTP1ReplyParser::Limits limits);

    int descriptor() const { return socket_; }
    const std::string& authority() const { return authority_; }
    /// What to wait for. An idle connection waits for input too: any means the server closed it.
    short events() const;
    /// Moves the exchange on after a wait found `revents`.
    Step advance(short revents);
    /// Whether the connect is still under way.
    bool connecting() const { return phase_ == Phase::Connecting; }
    /// Whether the connection is between exchanges (answered, not failed).
    bool idle() const { return phase_ == Phase::Idle; }
    /// Whether an idle connection may carry the next request, looked at now: one the server wrote to or
    /// closed while it sat idle may not (the next request would be lost on it, or read a stale reply).
    bool stillUsable() const;
    /// Whether the current exchange is not the connection's first: a NoAnswer then usually means the server
    /// closed it while it was idle, and a request that may be repeated can go again on a new connection.
    bool reused() const { return exchanges_ > 1; }
    /// Bytes of the current request written so far.
    std::size_t bytesSent() const { return sent_; }

    /// The reply of the current exchange (complete once it was Answered).
    VLMSDKHTTP1ReplyParser& reply() { return *reply_; }
    /// After Answered: whether the connection may carry another exchange.
    bool reusable() const { return phase_ == Phase::Idle; }
    Failure failure() const { return failure_; }
    const std::string& failureMessage() const { return failureMessage_; }

private:
    enum class Phase { Connecting, Sending, Receiving, Idle, Done };

    VLMSDKHTTP1Connection(int socket, std::string authority);
    Step fail(Failure failure, std::string message);
    Step sendSome();
    Step receive();

    int socket_;
    const std::string authority_;
    Phase phase_ = Phase::Connecting;
    bool startPending_ = false;  // an exchange was started while still connecting
    std::size_t exchanges_ = 0;
    std::string out_;
    std::size_t sent_ = 0;
    std::optional<VLMSDKHTTP1ReplyParser> reply_;
    Failure failure_ = Failure::None;
    std::string failureMessage_;
};

}  // namespace vlmsdk::detail
