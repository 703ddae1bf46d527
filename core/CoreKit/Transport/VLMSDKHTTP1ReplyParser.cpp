#include "VLMSDKHTTP1ReplyParser.h"

#include <algorithm>
#include <charconv>

namespace vlmsdk::detail {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kChunkLineBytes = 1024;
// A Content-Length is trusted for a reservation of at most this much; larger bodies grow as they arrive.
constexpr std::size_t kReserveBytes = 1 << 20;
// Room past the body for a parser that reads a few bytes beyond the end (the JSON reader's padding).
constexpr std::size_t kSpareBytes = 64;

bool isTokenChar(char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// Calls `each` with every element of a comma-separated field value, trimmed, empty ones skipped.
template <typename Each>
void forEachElement(std::string_view value, Each&& each) {
    while (!value.empty()) {
        const auto comma = value.find(',');
        const auto element = trimmed(value.substr(0, comma));
        if (!element.empty()) each(element);
        if (comma == std::string_view::npos) break;
        value.remove_prefix(comma + 1);
    }
}

std::optional<std::uint64_t> decimal(std::string_view text) {
    std::uint64_t value = 0;
    if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        return std::nullopt;
    }
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

VLMSDKHTTP1ReplyParser::VLMSDKHTTP1ReplyParser(Limits limits, bool bodyless) : limits_(limits), bodyless_(bodyless) {}

std::size_t VLMSDKHTTP1ReplyParser::feed(std::string_view bytes) {
    if (!bytes.empty()) receivedAnything_ = true;
    std::size_t used = 0;
    while (state_ == State::Incomplete && used < bytes.size()) {
        const std::string_view rest = bytes.substr(used);
        switch (phase_) {
            case Phase::Head:
                used += readHead(rest);
                break;
            case Phase::Length:
            case Phase::ChunkData: {
                const auto take = static_cast<std::size_t>(std::min<std::uint64_t>(remaining_, rest.size()));
                if (!appendBody(rest.substr(0, take))) return used;
                used += take;
                remaining_ -= take;
                if (remaining_ > 0) break;
                if (phase_ == Phase::Length) {
                    complete();
                } else {
                    phase_ = Phase::ChunkDataEnd;
                }
                break;
            }
            case Phase::ChunkSize:
            case Phase::ChunkDataEnd:
            case Phase::Trailer:
                used += readChunkLine(rest, phase_);
                break;
            case Phase::UntilClose:
                if (!appendBody(rest)) return used;
                used = bytes.size();
                break;
            case Phase::Done:
                return used;
        }
    }
    return used;
}

void VLMSDKHTTP1ReplyParser::finish() {
    if (state_ != State::Incomplete) return;
    if (phase_ == Phase::UntilClose) {
        complete();
    } else if (!receivedAnything_) {
        fail(Failure::Truncated, "The server closed the connection without answering.");
    } else {
        fail(Failure::Truncated, "The server closed the connection before the reply ended.");
    }
}

std::size_t VLMSDKHTTP1ReplyParser::readHead(std::string_view bytes) {
    // Look for the blank line from where the last piece could have started it.
    const std::size_t from = line_.size() < 3 ? 0 : line_.size() - 3;
    const std::size_t room = limits_.headerBytes - std::min(limits_.headerBytes, line_.size());
    const std::size_t had = line_.size();
    line_.append(bytes.substr(0, std::min(bytes.size(), room)));
    const auto end = line_.find("\r\n\r\n", from);
    // A line ending in a bare LF would never end the head here, while another reader takes it: refused at
    // once rather than waited on.
    const std::size_t scanned = end == std::string::npos ? line_.size() : end + 4;
    for (std::size_t i = had; i < scanned; ++i) {
        if (line_[i] == '\n' && (i == 0 || line_[i - 1] != '\r')) {
            fail(Failure::Malformed, "The reply's header has a line ending in a bare LF, not CR LF.");
            return bytes.size();
        }
    }
    if (end == std::string::npos) {
        if (line_.size() >= limits_.headerBytes) {
            fail(Failure::HeadersTooLarge,
                 "The reply's header is over " + std::to_string(limits_.headerBytes) + " bytes.");
        }
        return bytes.size();
    }
    // Bytes past the blank line belong to the body, or to the next head after an interim reply.
    const std::size_t alreadyHad = line_.size() - std::min(bytes.size(), room);
    const std::size_t used = end + 4 - alreadyHad;
    line_.resize(end + 2);
    if (!parseHead()) return used;
    line_.clear();
    if (status_ >= 100 && status_ < 200) {
        status_ = 0;  // an interim reply is no status of the reply's
        if (++interimReplies_ > limits_.interimReplies) {
            fail(Failure::Malformed,
                 "The server sent more than " + std::to_string(limits_.interimReplies) + " interim (1xx) replies.");
            return used;
        }
        headers_.clear();  // an interim reply: the real one follows
        status_ = 0;
        return used;
    }
    startBody();
    return used;
}

bool VLMSDKHTTP1ReplyParser::parseHead() {
    std::string_view head = line_;
    const auto statusEnd = head.find(kLineEnd);
    if (!parseStatusLine(head.substr(0, statusEnd))) return false;
    head.remove_prefix(statusEnd + kLineEnd.size());
    while (!head.empty()) {
        const auto lineEnd = head.find(kLineEnd);
        const std::string_view line = head.substr(0, lineEnd);
        head.remove_prefix(lineEnd + kLineEnd.size());
        if (line.front() == ' ' || line.front() == '\t') {
            fail(Failure::Malformed, "The reply folds a header field over lines.");
            return false;
        }
        const auto colon = line.find(':');
        const std::string_view name = line.substr(0, colon);
        if (colon == std::string_view::npos || name.empty() || !std::all_of(name.begin(), name.end(), isTokenChar)) {
            fail(Failure::Malformed, "The reply has a malformed header field.");
            return false;
        }
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (std::any_of(value.begin(), value.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; })) {
            fail(Failure::Malformed, "The reply's header field '" + std::string(name) + "' holds a control character.");
            return false;
        }
        headers_.emplace_back(name, value);
    }
    return true;
}

bool VLMSDKHTTP1ReplyParser::parseStatusLine(std::string_view line) {
    // HTTP/1.1 200 OK
    long status = 0;
    const bool versionOK = line.starts_with("HTTP/1.1 ") || line.starts_with("HTTP/1.0 ");
    const bool ok = versionOK && line.size() >= 12 && (line.size() == 12 || line[12] == ' ') &&
                    std::all_of(line.begin() + 9, line.begin() + 12, [](char c) { return c >= '0' && c <= '9'; }) &&
                    std::from_chars(line.data() + 9, line.data() + 12, status).ec == std::errc() && status >= 100 &&
                    std::none_of(line.begin(), line.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
    if (!ok) {
        fail(Failure::Malformed, "The reply does not start with an HTTP/1.x status line.");
        return false;
    }
    if (status == 101) {
        fail(Failure::Malformed, "The server switched protocols, which was not asked for.");
        return false;
    }
    status_ = status;
    http10_ = line[7] == '0';
    return true;
}

bool VLMSDKHTTP1ReplyParser::startBody() {
    std::optional<std::uint64_t> length;
    bool lengthsAgree = true;
    std::vector<std::string_view> codings;
    bool closes = false, keepsAlive = false;
    for (const auto& [name, value] : headers_) {
        if (equalsIgnoringCase(name, "Content-Length")) {
            forEachElement(value, [&](std::string_view element) {
                const auto parsed = decimal(element);
                if (!parsed || (length && *length != *parsed)) lengthsAgree = false;
                if (parsed) length = parsed;
            });
            if (trimmed(value).empty()) lengthsAgree = false;
        } else if (equalsIgnoringCase(name, "Transfer-Encoding")) {
            forEachElement(value, [&](std::string_view element) { codings.push_back(element); });
        } else if (equalsIgnoringCase(name, "Connection")) {
            forEachElement(value, [&](std::string_view element) {
                closes = closes || equalsIgnoringCase(element, "close");
                keepsAlive = keepsAlive || equalsIgnoringCase(element, "keep-alive");
            });
        }
    }
    keepAlive_ = !closes && (!http10_ || keepsAlive);
    if (bodyless_ || status_ == 204 || status_ == 304) {
        complete();
        return true;
    }
    if (!codings.empty()) {
        if (codings.size() != 1 || !equalsIgnoringCase(codings.front(), "chunked")) {
            fail(Failure::Malformed, "The reply's transfer coding is not chunked alone.");
            return false;
        }
        // A length beside a transfer coding is ignored, and the connection is not trusted after it.
        if (length || !lengthsAgree) keepAlive_ = false;
        phase_ = Phase::ChunkSize;
        return true;
    }
    if (!lengthsAgree) {
        fail(Failure::Malformed, "The reply's Content-Length is not one decimal number.");
        return false;
    }
    if (!length) {
        keepAlive_ = false;
        phase_ = Phase::UntilClose;
        return true;
    }
    if (limits_.bodyBytes && *length > *limits_.bodyBytes) {
        fail(Failure::BodyTooLarge, "The reply's body is over " + std::to_string(*limits_.bodyBytes) + " bytes.");
        return false;
    }
    if (*length == 0) {
        complete();
        return true;
    }
    body_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(*length, kReserveBytes)) + kSpareBytes);
    remaining_ = *length;
    phase_ = Phase::Length;
    return true;
}

std::size_t VLMSDKHTTP1ReplyParser::readChunkLine(std::string_view bytes, Phase phase) {
    // Up to and with the line's end only: what follows is chunk data, or the next line.
    // The trailer section as a whole is bounded like a head.
    const std::size_t bound = phase == Phase::Trailer        ? limits_.headerBytes - std::min(limits_.headerBytes, trailerBytes_)
                              : phase == Phase::ChunkDataEnd ? kLineEnd.size()
                                                             : kChunkLineBytes;
    const auto newline = bytes.find('\n');
    const std::size_t used = newline == std::string_view::npos ? bytes.size() : newline + 1;
    if (line_.size() + used > bound) {
        fail(Failure::Malformed, phase == Phase::ChunkDataEnd ? "A chunk of the reply does not end where its size says."
                                 : phase == Phase::Trailer
                                     ? "The reply's trailer section is over " + std::to_string(limits_.headerBytes) + " bytes."
                                     : "A chunk line of the reply is too long.");
        return used;
    }
    line_.append(bytes.substr(0, used));
    if (newline == std::string_view::npos) return used;
    if (line_.size() < kLineEnd.size() || line_[line_.size() - 2] != '\r') {
        fail(Failure::Malformed, "A chunk line of the reply does not end with CR LF.");
        return used;
    }
    const std::string_view line = std::string_view(line_).substr(0, line_.size() - kLineEnd.size());
    switch (phase) {
        case Phase::ChunkDataEnd:
            if (!line.empty()) {
                fail(Failure::Malformed, "A chunk of the reply does not end where its size says.");
                return used;
            }
            phase_ = Phase::ChunkSize;
            break;
        case Phase::Trailer:
            // Trailer fields are read past, not kept; the blank line ends the reply.
            if (line.empty()) {
                complete();
                break;
            }
            trailerBytes_ += line_.size();
            if (++trailerFields_ > limits_.trailerFields) {
                fail(Failure::Malformed, "The reply's trailer section has more than " +
                                             std::to_string(limits_.trailerFields) + " fields.");
                return used;
            }
            break;
        default: {
            std::uint64_t size = 0;
            const auto digitsEnd = std::find_if_not(line.begin(), line.end(), [](char c) {
                return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
            });
            const auto digits = static_cast<std::size_t>(digitsEnd - line.begin());
            const std::string_view extension = trimmed(line.substr(digits));
            if (digits == 0 || digits > 16 || (!extension.empty() && extension.front() != ';') ||
                std::from_chars(line.data(), line.data() + digits, size, 16).ec != std::errc()) {
                fail(Failure::Malformed, "A chunk size of the reply is not a hexadecimal number.");
                return used;
            }
            if (limits_.bodyBytes && size > *limits_.bodyBytes - std::min(*limits_.bodyBytes, body_.size())) {
                fail(Failure::BodyTooLarge,
                     "The reply's body is over " + std::to_string(*limits_.bodyBytes) + " bytes.");
                return used;
            }
            remaining_ = size;
            phase_ = size == 0 ? Phase::Trailer : Phase::ChunkData;
        }
    }
    line_.clear();
    return used;
}

bool VLMSDKHTTP1ReplyParser::appendBody(std::string_view bytes) {
    if (limits_.bodyBytes && bytes.size() > *limits_.bodyBytes - std::min(*limits_.bodyBytes, body_.size())) {
        fail(Failure::BodyTooLarge, "The reply's body is over " + std::to_string(*limits_.bodyBytes) + " bytes.");
        return false;
    }
    if (body_.capacity() < body_.size() + bytes.size() + kSpareBytes) {
        body_.reserve(std::max(body_.capacity() * 2, body_.size() + bytes.size() + kSpareBytes));
    }
    body_.append(bytes);
    return true;
}

void VLMSDKHTTP1ReplyParser::complete() {
    phase_ = Phase::Done;
    state_ = State::Complete;
    line_.clear();
}

void VLMSDKHTTP1ReplyParser::fail(Failure failure, std::string reason) {
    phase_ = Phase::Done;
    state_ = State::Failed;
    failure_ = failure;
    reason_ = std::move(reason);
    keepAlive_ = false;
}

}  // namespace vlmsdk::detail
