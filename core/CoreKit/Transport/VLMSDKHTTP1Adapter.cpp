#include "VLMSDKHTTP1Adapter.h"

#include <algorithm>
#include <cstdlib>

namespace vlmsdk::detail {

using Clock = std::chrono::steady_clock;

VLMSDKHTTP1Adapter::VLMSDKHTTP1Adapter(const VLMSDKHTTPRequestManagerOptions& options, std::size_t liveLimit,
                                       Listener& listener)
    : options_(options), liveLimit_(liveLimit), listener_(listener) {
    // libcurl reads the lower-case http_proxy only, for plain http (the upper-case one could come from a
    // request header in a CGI environment); a request a proxy would carry stays with libcurl.
    bool proxyApplies = false;
    if (options.proxy) {
        proxyApplies = !options.proxy->empty();
    } else {
        for (const char* name : {"http_proxy", "all_proxy", "ALL_PROXY"}) {
            const char* value = std::getenv(name);
            proxyApplies = proxyApplies || (value && *value);
        }
    }
    carries_ = options.transport == VLMSDKHTTPRequestManagerOptions::Transport::HTTP1 && !proxyApplies;
}

VLMSDKHTTP1Adapter::~VLMSDKHTTP1Adapter() = default;

bool VLMSDKHTTP1Adapter::start(VLMSDKHTTPAttempt& attempt) {
    if (!carries_) return false;
    std::optional<VLMSDKHTTP1Connection::Target> target;
    try {
        target = VLMSDKHTTP1Connection::Target::of(attempt.request().url());
    } catch (const std::exception&) {
        return false;  // out of memory: libcurl may still manage
    }
    if (!target) return false;
    startOnWire(attempt, *target, true);
    return true;
}

VLMSDKHTTP1Adapter::Wire* VLMSDKHTTP1Adapter::keptWire(const std::string& authority, Clock::time_point now) {
    for (const auto& kept : wires_) {
        if (!kept->connection || kept->attempt || kept->authority != authority) continue;
        // As libcurl does before it reuses one: too old, or written to or closed while idle, it goes. The
        // wait that just ended looked at it already when it sat idle through it.
        const bool tooOld =
            options_.maximumIdleTime.count() > 0 && now - kept->idleSince > options_.maximumIdleTime;
        if (tooOld || (!kept->quietInLastWait && !kept->connection->stillUsable())) {
            kept->connection.reset();
            continue;
        }
        return kept.get();
    }
    return nullptr;
}

void VLMSDKHTTP1Adapter::startOnWire(VLMSDKHTTPAttempt& attempt, const VLMSDKHTTP1Connection::Target& target,
                                     bool mayReuse) {
    const auto now = Clock::now();
    Wire* wire = nullptr;
    try {
        if (mayReuse) wire = keptWire(target.authority, now);
        if (!wire) {
            std::string failure;
            auto connection = VLMSDKHTTP1Connection::open(target, &failure);
            // Refused at once: the attempt ends as a connect that failed, and may be retried.
            if (!connection) {
                (void)listener_.attemptEnded(attempt, VLMSDKHTTPAttemptEnd::ConnectFailed, failure);
                return;
            }
            wires_.push_back(std::make_unique<Wire>(Wire{target.authority, std::move(connection), nullptr, std::nullopt, now, false}));
            wire = wires_.back().get();
            listener_.connectionsOpened(1);
            if (options_.connectTimeout.count() > 0) wire->connectBy = now + options_.connectTimeout;
        }
        wire->attempt = &attempt;
        wire->quietInLastWait = false;
        VLMSDKHTTP1ReplyParser::Limits limits;
        limits.bodyBytes = options_.maximumReplySize;
        std::string text = VLMSDKHTTP1Connection::requestText(attempt.request(), target, attempt.idempotencyKey(),
                                                              attempt.authorization());
        settle(*wire, wire->connection->start(std::move(text), limits));
    } catch (const std::exception&) {
        if (wire) {
            wire->connection.reset();
            wire->attempt = nullptr;
        }
        (void)listener_.attemptEnded(attempt, VLMSDKHTTPAttemptEnd::OutOfMemory, {});
    }
}

void VLMSDKHTTP1Adapter::prepareWait(std::vector<pollfd>& descriptors, std::optional<Clock::time_point>& wakeAt) {
    waitedOn_.clear();
    const auto wakeBy = [&wakeAt](const std::optional<Clock::time_point>& due) {
        if (due && (!wakeAt || *due < *wakeAt)) wakeAt = due;
    };
    // Idle connections are waited on too: input on one means the server closed it.
    for (const auto& wire : wires_) {
        wire->quietInLastWait = false;
        if (!wire->connection) continue;
        descriptors.push_back({wire->connection->descriptor(), wire->connection->events(), 0});
        waitedOn_.push_back(wire.get());
        wakeBy(wire->connectBy);
        if (wire->attempt) wakeBy(wire->attempt->deadline());
    }
}

void VLMSDKHTTP1Adapter::advance(std::span<const pollfd> descriptors) {
    // The wires waited on stay in wires_ until the end of this advance, closed or not.
    for (std::size_t i = 0; i < descriptors.size() && i < waitedOn_.size(); ++i) {
        Wire& wire = *waitedOn_[i];
        if (!wire.connection) continue;
        if (descriptors[i].revents == 0) {
            wire.quietInLastWait = !wire.attempt;
            continue;
        }
        if (listener_.stopRequested()) break;
        if (!wire.attempt) {
            wire.connection.reset();  // input on an idle connection: the server closed it
            continue;
        }
        settle(wire, wire.connection->advance(descriptors[i].revents));
    }
    waitedOn_.clear();
    if (!listener_.stopRequested()) timeOut();
    std::erase_if(wires_, [](const auto& wire) { return !wire->connection; });
}

bool VLMSDKHTTP1Adapter::stop(VLMSDKHTTPAttempt& attempt) {
    for (const auto& wire : wires_) {
        if (wire->attempt != &attempt) continue;
        // Half an exchange leaves the connection unusable.
        const bool sentAnything = wire->connection && wire->connection->bytesSent() > 0;
        wire->connection.reset();
        wire->attempt = nullptr;
        return sentAnything;
    }
    return false;
}

void VLMSDKHTTP1Adapter::settle(Wire& wire, VLMSDKHTTP1Connection::Step step) {
    using Step = VLMSDKHTTP1Connection::Step;
    using Failure = VLMSDKHTTP1Connection::Failure;
    using End = VLMSDKHTTPAttemptEnd;
    VLMSDKHTTP1Connection& connection = *wire.connection;
    if (step == Step::Waiting) {
        if (!connection.connecting()) wire.connectBy.reset();
        return;
    }
    if (step == Step::Answered) return finish(wire, End::Answered, {});
    VLMSDKHTTPAttempt& attempt = *wire.attempt;
    // A kept connection the server closed while it was idle fails before any byte of an answer (closed,
    // reset, or refusing the request): what may be repeated goes on a new connection, once, within the
    // first deadline. What may not is not sent again: the service may have acted on it.
    const bool died = connection.failure() == Failure::NoAnswer || connection.failure() == Failure::Send ||
                      connection.failure() == Failure::Receive;
    if (died && connection.reused() && !connection.reply().receivedAnything()) {
        if (!attempt.isRepeatable()) return finish(wire, End::MayHaveActed, connection.failureMessage());
        if (const auto target = VLMSDKHTTP1Connection::Target::of(attempt.request().url())) {
            wire.connection.reset();
            wire.attempt = nullptr;
            return startOnWire(attempt, *target, false);
        }
    }
    End end = End::ReceiveFailed;
    switch (connection.failure()) {
        case Failure::Connect: end = End::ConnectFailed; break;
        case Failure::Send: end = End::SendFailed; break;
        case Failure::NoAnswer: end = End::NoAnswer; break;
        case Failure::Reply:
            switch (connection.reply().failure()) {
                case VLMSDKHTTP1ReplyParser::Failure::BodyTooLarge: end = End::TooLarge; break;
                case VLMSDKHTTP1ReplyParser::Failure::Truncated: end = End::CutShort; break;
                default: end = End::MalformedReply; break;
            }
            break;
        default: break;
    }
    finish(wire, end, connection.failureMessage());
}

void VLMSDKHTTP1Adapter::timeOut() {
    const auto now = Clock::now();
    for (std::size_t i = 0; i < wires_.size(); ++i) {
        Wire& wire = *wires_[i];
        if (!wire.attempt || !wire.connection) continue;
        const bool connecting = wire.connectBy && now >= *wire.connectBy;
        const auto deadline = wire.attempt->deadline();
        if (!connecting && !(deadline && now >= *deadline)) continue;
        const auto limit = connecting ? options_.connectTimeout : options_.requestTimeout;
        finish(wire, VLMSDKHTTPAttemptEnd::TimedOut,
               std::string(connecting ? "Connection" : "Operation") + " timed out after " +
                   std::to_string(limit.count()) + " milliseconds");
        if (listener_.stopRequested()) return;
    }
}

void VLMSDKHTTP1Adapter::finish(Wire& wire, VLMSDKHTTPAttemptEnd end, std::string_view detail) {
    const std::string said(detail);  // it may be the connection's own words, and the connection may go
    VLMSDKHTTPAttempt& attempt = *wire.attempt;
    VLMSDKHTTP1Connection& connection = *wire.connection;
    wire.attempt = nullptr;
    wire.connectBy.reset();
    VLMSDKHTTP1ReplyParser& reply = connection.reply();
    attempt.statusCode = reply.statusCode();
    attempt.headers = reply.takeHeaders();
    attempt.body = std::move(reply.body());
    // Kept for the next request while the server allows, as many as may be live at once.
    const auto kept =
        std::count_if(wires_.begin(), wires_.end(), [](const auto& w) { return w->connection && !w->attempt; });
    if (end != VLMSDKHTTPAttemptEnd::Answered || !connection.reusable() || static_cast<std::size_t>(kept) > liveLimit_) {
        wire.connection.reset();
    } else {
        wire.idleSince = Clock::now();
        wire.quietInLastWait = false;  // not looked at since it went idle
    }
    if (!listener_.attemptEnded(attempt, end, said) && !wire.attempt) wire.connection.reset();
}


}  // namespace vlmsdk::detail
