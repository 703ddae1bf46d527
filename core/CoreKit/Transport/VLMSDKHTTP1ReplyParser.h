#pragma once

#include <VLMSDKCoreKit/VLMSDKExport.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vlmsdk::detail {

/// Reads one HTTP/1.x reply as its bytes arrive, in pieces of any size: the status line, the header fields,
/// then a body framed by Content-Length, by the chunked transfer coding or by the end of the connection.
/// Interim (1xx) replies are skipped, up to a limit. Strict where leniency lets a reply be read two ways (a
/// space before a colon, folded lines, lines ending in a bare LF, conflicting lengths, codings other than
/// chunked): it fails instead, at once. Read by the core's
/// own HTTP/1.1 connections; one parser per exchange, one thread at a time.
class VLMSDK_INTERNAL VLMSDKHTTP1ReplyParser {
public:
    enum class State { Incomplete, Complete, Failed };
    enum class Failure { None, Malformed, HeadersTooLarge, BodyTooLarge, Truncated };
    using Headers = std::vector<std::pair<std::string, std::string>>;

    /// Each bounds what a server could otherwise send for ever, whatever the request's time limit.
    struct Limits {
        std::size_t headerBytes = 64 * 1024;   ///< status line and fields together, per (interim) reply; and
                                               ///< the trailer section of a chunked body
        std::optional<std::size_t> bodyBytes;  ///< none: no limit
        std::size_t interimReplies = 5;        ///< 1xx replies before the final one
        std::size_t trailerFields = 64;        ///< fields in the trailer section of a chunked body
    };

    /// `bodyless`: the request was HEAD, whose reply has no body whatever its fields say.
    explicit VLMSDKHTTP1ReplyParser(Limits limits, bool bodyless = false);

    /// Reads from `bytes` up to the end of the reply; answers how many it used (all of them unless the reply
    /// ended inside). Nothing once the state is no longer Incomplete.
    std::size_t feed(std::string_view bytes);
    /// The peer closed the connection: ends a body read to the end of the connection, fails anything else
    /// that is incomplete (Truncated).
    void finish();

    State state() const { return state_; }
    Failure failure() const { return failure_; }
    /// Why it failed, in a sentence; empty unless Failed.
    const std::string& failureReason() const { return reason_; }
    /// Whether any byte arrived: a kept-alive connection that the server closed before answering is safe to
    /// try again, one that answered in part is not.
    bool receivedAnything() const { return receivedAnything_; }

    /// Once the status line was read (0 before).
    long statusCode() const { return status_; }
    const Headers& headers() const { return headers_; }
    /// The header fields, moved out.
    Headers takeHeaders() { return std::move(headers_); }
    /// The body so far; the whole body once Complete. Movable out.
    std::string& body() { return body_; }
    /// Once Complete: whether the connection may carry another request.
    bool keepAlive() const { return keepAlive_; }

private:
    enum class Phase { Head, Length, ChunkSize, ChunkData, ChunkDataEnd, Trailer, UntilClose, Done };

    std::size_t readHead(std::string_view bytes);
    bool parseHead();
    bool parseStatusLine(std::string_view line);
    bool startBody();
    std::size_t readChunkLine(std::string_view bytes, Phase phase);
    bool appendBody(std::string_view bytes);
    void complete();
    void fail(Failure failure, std::string reason);

    const Limits limits_;
    const bool bodyless_;
    State state_ = State::Incomplete;
    Failure failure_ = Failure::None;
    std::string reason_;
    Phase phase_ = Phase::Head;
    bool receivedAnything_ = false;
    std::string line_;  // the head, or a chunk-size or trailer line, as it arrives
    long status_ = 0;
    bool http10_ = false;
    Headers headers_;
    std::string body_;
    std::uint64_t remaining_ = 0;  // of the body (Length) or of the chunk (ChunkData)
    std::size_t interimReplies_ = 0;
    std::size_t trailerBytes_ = 0;
    std::size_t trailerFields_ = 0;
    bool keepAlive_ = false;
};

}  // namespace vlmsdk::detail
