// Reply bytes from anywhere, cut into pieces the input chooses: the core's own HTTP/1.1 reply parser never
// reads past what it is given, holds its limits, and reads the reply the same way however it was cut.
#include <Transport/VLMSDKHTTP1ReplyParser.h>

#include <cstdint>
#include <string_view>

#include "FuzzOperations.h"

namespace {

using Parser = vlmsdk::detail::VLMSDKHTTP1ReplyParser;

// Small limits, so that inputs reach them.
Parser::Limits limits() {
    Parser::Limits limits;
    limits.headerBytes = 256;
    limits.bodyBytes = 1024;
    return limits;
}

struct Reading {
    Parser::State state;
    Parser::Failure failure;
    long status;
    bool keepAlive;
    std::size_t used;
    std::string body;
};

// Feeds `text` in pieces of the lengths `cuts` gives in turn (1 to 16 bytes), or whole when `cuts` is empty.
Reading read(std::string_view text, std::string_view cuts, bool bodyless, bool close) {
    Parser parser(limits(), bodyless);
    std::size_t at = 0, used = 0, turn = 0;
    while (at < text.size() && parser.state() == Parser::State::Incomplete) {
        const std::size_t length =
            cuts.empty() ? text.size() : 1 + static_cast<std::uint8_t>(cuts[turn++ % cuts.size()]) % 16;
        const std::string_view piece = text.substr(at, length);
        const std::size_t took = parser.feed(piece);
        fuzzRequire(took <= piece.size());
        fuzzRequire(parser.state() != Parser::State::Incomplete || took == piece.size());
        used += took;
        at += piece.size();
    }
    if (close) parser.finish();
    fuzzRequire(parser.body().size() <= *limits().bodyBytes);
    fuzzRequire((parser.state() == Parser::State::Failed) == !parser.failureReason().empty());
    fuzzRequire(parser.state() != Parser::State::Failed || !parser.keepAlive());
    return {parser.state(), parser.failure(), parser.statusCode(), parser.keepAlive(), used, parser.body()};
}

}  // namespace

// The first byte: flags; the next up to 8: the cuts; the rest: the reply.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2) return 0;
    const bool bodyless = data[0] & 1, close = data[0] & 2;
    const std::size_t cutCount = std::min<std::size_t>(1 + (data[0] >> 5), size - 1);
    const std::string_view cuts(reinterpret_cast<const char*>(data + 1), cutCount);
    const std::string_view text(reinterpret_cast<const char*>(data + 1 + cutCount), size - 1 - cutCount);
    const Reading whole = read(text, {}, bodyless, close);
    const Reading pieces = read(text, cuts, bodyless, close);
    fuzzRequire(whole.state == pieces.state && whole.failure == pieces.failure && whole.status == pieces.status &&
                whole.keepAlive == pieces.keepAlive);
    if (whole.state == Parser::State::Complete) fuzzRequire(whole.used == pieces.used && whole.body == pieces.body);
    return 0;
}
