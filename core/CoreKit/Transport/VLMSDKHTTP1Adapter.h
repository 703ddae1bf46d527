#pragma once

#include "VLMSDKHTTP1Connection.h"
#include "VLMSDKTransportAdapter.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vlmsdk::detail {

/// The adapter of the core's own HTTP/1.1 connections: it carries plain http to a literal IP address when
/// the options ask for it (`Transport::HTTP1`) and no proxy applies, and leaves every other request to the
/// next adapter. Connections are kept per address for the next request while the server allows, as many
/// as may be live at once; one that sat idle longer than `maximumIdleTime`, or that the server wrote to or
/// closed while it sat idle, is closed instead of reused. A GET or keyed request whose kept connection died
/// before any byte of an answer goes again on a new one, once, within its first deadline; any other
/// request is not sent again (MayHaveActed). Knows sockets and its reply parser, nothing of libcurl.
class VLMSDKHTTP1Adapter final : public VLMSDKTransportAdapter {
public:
    VLMSDKHTTP1Adapter(const VLMSDKHTTPRequestManagerOptions& options, std::size_t liveLimit, Listener& listener);
    ~VLMSDKHTTP1Adapter() override;

    bool start(VLMSDKHTTPAttempt& attempt) override;
    void prepareWait(std::vector<pollfd>& descriptors,
                     std::optional<std::chrono::steady_clock::time_point>& wakeAt) override;
    void advance(std::span<const pollfd> descriptors) override;
    bool stop(VLMSDKHTTPAttempt& attempt) override;

private:
    // A connection, and the attempt it carries (nullptr: idle, kept alive).
    struct Wire {
        std::string authority;                              // where it goes: "127.0.0.1:8080"
        std::unique_ptr<VLMSDKHTTP1Connection> connection;  // nullptr: closed, gone at the end of the advance
        VLMSDKHTTPAttempt* attempt = nullptr;
        std::optional<std::chrono::steady_clock::time_point> connectBy;
        std::chrono::steady_clock::time_point idleSince;  // when it last went idle
        bool quietInLastWait = false;  // idle through the last wait, and nothing came: no need to look again
    };

    // Sends `attempt` on a kept or new connection to `target`.
    void startOnWire(VLMSDKHTTPAttempt& attempt, const VLMSDKHTTP1Connection::Target& target, bool mayReuse);
    // A kept connection to `authority` fit to carry a request now; closes the ones that are not.
    Wire* keptWire(const std::string& authority, std::chrono::steady_clock::time_point now);
    // Ends the attempt on `wire` if `step` says it is over.
    void settle(Wire& wire, VLMSDKHTTP1Connection::Step step);
    void timeOut();
    // Ends the attempt `wire` carries with `end`, the reply read so far handed to it.
    void finish(Wire& wire, VLMSDKHTTPAttemptEnd end, std::string_view detail);

    const VLMSDKHTTPRequestManagerOptions& options_;
    const std::size_t liveLimit_;
    Listener& listener_;
    bool carries_ = false;  // HTTP1 asked for, and no proxy applies to plain http
    std::vector<std::unique_ptr<Wire>> wires_;
    std::vector<Wire*> waitedOn_;  // what the last prepareWait appended, in order
};

}  // namespace vlmsdk::detail
