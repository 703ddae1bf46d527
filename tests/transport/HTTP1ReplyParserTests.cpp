// The core's own HTTP/1.1 reply parser: every reply is fed whole, a byte at a time and split in two at
// every point, and must read the same way each time; replies that could be read two ways are refused.
#include <Transport/VLMSDKHTTP1ReplyParser.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using Parser = vlmsdk::detail::VLMSDKHTTP1ReplyParser;

struct ParseOutcome {
    Parser::State state;
    Parser::Failure failure;
    long status;
    std::string body;
    bool keepAlive;
    std::size_t used;  // of the bytes fed
    std::string reason;
};

// Feeds `text` in the pieces `split` cuts (each a piece's length), then the connection's end if `close`.
ParseOutcome feedInPieces(const std::string& text, const std::vector<std::size_t>& split, bool close,
                          Parser::Limits limits, bool bodyless) {
    Parser parser(limits, bodyless);
    std::size_t at = 0, used = 0;
    for (const std::size_t length : split) {
        const std::size_t took = parser.feed(std::string_view(text).substr(at, length));
        EXPECT_LE(took, length);
        used += took;
        at += length;
        if (parser.state() != Parser::State::Incomplete) break;
        EXPECT_EQ(took, length) << "an incomplete reply uses every byte it is given";
    }
    if (close) parser.finish();
    return {parser.state(), parser.failure(),      parser.statusCode(), parser.body(), parser.keepAlive(),
            used,           parser.failureReason()};
}

// Every way of cutting `text`: whole, a byte at a time, and in two at each point.
void forEverySplit(const std::string& text, const std::function<void(const std::vector<std::size_t>&)>& check) {
    check({text.size()});
    if (text.size() > 1) check(std::vector<std::size_t>(text.size(), 1));
    for (std::size_t cut = 1; cut < text.size(); ++cut) check({cut, text.size() - cut});
}

struct Row {
    const char* what;
    std::string text;
    bool close;     // the peer closes after `text`
    bool bodyless;  // a HEAD request
    Parser::State state;
    Parser::Failure failure;
    long status;
    std::string body;  // once complete
    bool keepAlive;
    std::size_t trailing;  // bytes after the reply, left unused
};

using S = Parser::State;
using F = Parser::Failure;

const std::vector<Row>& readableReplies() {
    static const std::vector<Row> rows = {
        {"length", "HTTP/1.1 200 OK\r\nContent-Length: 7\r\nX-Note:  spaced  \r\n\r\n{\"a\":1}", false, false,
         S::Complete, F::None, 200, "{\"a\":1}", true, 0},
        {"reason phrase absent, next reply behind", "HTTP/1.1 404\r\nContent-Length: 2\r\n\r\n{}HTTP/1.1", false, false,
         S::Complete, F::None, 404, "{}", true, 8},
        {"repeated equal lengths", "HTTP/1.1 200 OK\r\nContent-Length: 2, 2\r\nContent-Length: 2\r\n\r\n[]", false,
         false, S::Complete, F::None, 200, "[]", true, 0},
        {"chunked, extension and trailer",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n4;name=x\r\n{\"a\"\r\n9 \r\n:1234567}\r\n0\r\nT: "
         "1\r\n\r\n",
         false, false, S::Complete, F::None, 200, "{\"a\":1234567}", true, 0},
        {"chunked beside a length: chunked wins, connection not kept",
         "HTTP/1.1 200 OK\r\nContent-Length: 99\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n", false,
         false, S::Complete, F::None, 200, "{}", false, 0},
        {"interim replies skipped",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\nHTTP/1.1 201 Created\r\n"
         "Content-Length: 0\r\n\r\n",
         false, false, S::Complete, F::None, 201, "", true, 0},
        {"no content", "HTTP/1.1 204 No Content\r\nContent-Length: 5\r\n\r\n", false, false, S::Complete, F::None, 204,
         "", true, 0},
        {"HEAD", "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\n", false, true, S::Complete, F::None, 200, "", true, 0},
        {"until the connection ends", "HTTP/1.1 200 OK\r\n\r\n{\"b\":2}", true, false, S::Complete, F::None, 200,
         "{\"b\":2}", false, 0},
        {"Connection: close", "HTTP/1.1 200 OK\r\nConnection: Upgrade, close\r\nContent-Length: 0\r\n\r\n", false,
         false, S::Complete, F::None, 200, "", false, 0},
        {"HTTP/1.0 closes by default", "HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n", false, false, S::Complete,
         F::None, 200, "", false, 0},
        {"HTTP/1.0 kept alive", "HTTP/1.0 200 OK\r\nConnection: keep-alive\r\nContent-Length: 0\r\n\r\n", false, false,
         S::Complete, F::None, 200, "", true, 0},
    };
    return rows;
}

const std::vector<Row>& refusedReplies() {
    static const std::vector<Row> rows = {
        {"not HTTP", "SSH-2.0-x\r\n\r\n", false, false, S::Failed, F::Malformed, 0, "", false, 0},
        {"HTTP/2 status line", "HTTP/2 200\r\n\r\n", false, false, S::Failed, F::Malformed, 0, "", false, 0},
        {"status of two digits", "HTTP/1.1 20 OK\r\n\r\n", false, false, S::Failed, F::Malformed, 0, "", false, 0},
        {"status of four digits", "HTTP/1.1 2000 OK\r\n\r\n", false, false, S::Failed, F::Malformed, 0, "", false, 0},
        {"bare LF in the status line", "HTTP/1.1 200 OK\nContent-Length: 0\r\n\r\n", false, false, S::Failed,
         F::Malformed, 0, "", false, 0},
        {"protocol switch", "HTTP/1.1 101 Switching Protocols\r\n\r\n", false, false, S::Failed, F::Malformed, 0, "",
         false, 0},
        {"space before the colon", "HTTP/1.1 200 OK\r\nContent-Length : 2\r\n\r\n{}", false, false, S::Failed,
         F::Malformed, 200, "", false, 0},
        {"folded field", "HTTP/1.1 200 OK\r\nX-A: 1\r\n 2\r\nContent-Length: 0\r\n\r\n", false, false, S::Failed,
         F::Malformed, 200, "", false, 0},
        {"bare LF inside a field", "HTTP/1.1 200 OK\r\nX-A: 1\nContent-Length: 0\r\n\r\n", false, false, S::Failed,
         F::Malformed, 0, "", false, 0},
        // Refused as soon as it is seen: no CR LF CR LF would ever end this head.
        {"every line ending in a bare LF", "HTTP/1.1 200 OK\nContent-Length: 2\n\n{}", false, false, S::Failed,
         F::Malformed, 0, "", false, 0},
        {"lengths that disagree", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\n{}", false, false,
         S::Failed, F::Malformed, 200, "", false, 0},
        {"signed length", "HTTP/1.1 200 OK\r\nContent-Length: +2\r\n\r\n{}", false, false, S::Failed, F::Malformed, 200,
         "", false, 0},
        {"length past 64 bits", "HTTP/1.1 200 OK\r\nContent-Length: 18446744073709551616\r\n\r\n", false, false,
         S::Failed, F::Malformed, 200, "", false, 0},
        {"a coding other than chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", false,
         false, S::Failed, F::Malformed, 200, "", false, 0},
        {"chunk size not hexadecimal", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nx1\r\n", false, false,
         S::Failed, F::Malformed, 200, "", false, 0},
        {"chunk size past 64 bits", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10000000000000000\r\n", false,
         false, S::Failed, F::Malformed, 200, "", false, 0},
        {"chunk longer than its size", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\n{}\r\n0\r\n\r\n",
         false, false, S::Failed, F::Malformed, 200, "", false, 0},
        {"chunk line ending in a bare LF", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\n{}\r\n", false,
         false, S::Failed, F::Malformed, 200, "", false, 0},
        {"closed before any byte", "", true, false, S::Failed, F::Truncated, 0, "", false, 0},
        {"closed inside the head", "HTTP/1.1 200 OK\r\nContent-", true, false, S::Failed, F::Truncated, 0, "", false,
         0},
        {"closed inside the body", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{\"a\"", true, false, S::Failed,
         F::Truncated, 200, "", false, 0},
        {"closed inside a chunked body", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n", true,
         false, S::Failed, F::Truncated, 200, "", false, 0},
    };
    return rows;
}

void checkEverySplit(const Row& row, Parser::Limits limits = Parser::Limits()) {
    SCOPED_TRACE(row.what);
    forEverySplit(row.text, [&](const std::vector<std::size_t>& split) {
        const ParseOutcome outcome = feedInPieces(row.text, split, row.close, limits, row.bodyless);
        SCOPED_TRACE("in " + std::to_string(split.size()) + " piece(s), the first " + std::to_string(split.front()) +
                     " bytes; " + outcome.reason);
        EXPECT_EQ(outcome.state, row.state);
        EXPECT_EQ(outcome.failure, row.failure);
        EXPECT_EQ(outcome.status, row.status);
        EXPECT_EQ(outcome.keepAlive, row.keepAlive);
        EXPECT_EQ(outcome.reason.empty(), row.state != S::Failed);
        if (row.state == S::Complete) {
            EXPECT_EQ(outcome.body, row.body);
            EXPECT_EQ(outcome.used, row.text.size() - row.trailing);
        }
    });
}

}  // namespace

TEST(VLMSDKHTTP1ReplyParser, ReadsEachFramingTheSameWayHoweverTheBytesArrive) {
    for (const Row& row : readableReplies()) checkEverySplit(row);
}

TEST(VLMSDKHTTP1ReplyParser, RefusesWhatCouldBeReadTwoWaysAndWhatEndsEarly) {
    for (const Row& row : refusedReplies()) checkEverySplit(row);
}

TEST(VLMSDKHTTP1ReplyParser, HoldsItsLimitsWhateverTheFraming) {
    Parser::Limits limits;
    limits.headerBytes = 64;
    limits.bodyBytes = 4;
    limits.interimReplies = 2;
    limits.trailerFields = 2;
    const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";
    const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n";
    const std::vector<Row> rows = {
        {"body at the limit", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n[12]", false, false, S::Complete, F::None,
         200, "[12]", true, 0},
        {"length over the limit, refused before the body", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n", false, false,
         S::Failed, F::BodyTooLarge, 200, "", false, 0},
        {"chunks adding up past the limit", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\n[12\r\n2\r\n",
         false, false, S::Failed, F::BodyTooLarge, 200, "", false, 0},
        {"body to the end of the connection past the limit", "HTTP/1.1 200 OK\r\n\r\n[1234]", false, false, S::Failed,
         F::BodyTooLarge, 200, "", false, 0},
        {"head past its limit", "HTTP/1.1 200 OK\r\nX-Padding: " + std::string(64, 'p') + "\r\n\r\n", false, false,
         S::Failed, F::HeadersTooLarge, 0, "", false, 0},
        {"trailer line past the head's limit",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nT: " + std::string(64, 't') + "\r\n\r\n", false,
         false, S::Failed, F::Malformed, 200, "", false, 0},
        // However long the time limit: a server could otherwise keep a request busy for ever.
        {"interim replies at the limit", interim + interim + "HTTP/1.1 204 No Content\r\n\r\n", false, false,
         S::Complete, F::None, 204, "", true, 0},
        {"one interim reply past the limit", interim + interim + interim, false, false, S::Failed, F::Malformed, 0, "",
         false, 0},
        {"trailer fields at the limit", chunkedHead + "A: 1\r\nB: 2\r\n\r\n", false, false, S::Complete, F::None, 200,
         "", true, 0},
        {"one trailer field past the limit", chunkedHead + "A: 1\r\nB: 2\r\nC: 3\r\n", false, false, S::Failed,
         F::Malformed, 200, "", false, 0},
        {"short trailer lines past the head's limit together", chunkedHead + "A: " + std::string(30, 'a') + "\r\nB: " +
         std::string(30, 'b') + "\r\n", false, false, S::Failed, F::Malformed, 200, "", false, 0},
    };
    for (const Row& row : rows) checkEverySplit(row, limits);
}
