#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Text the tool did not write itself (a server's message or body, an argument it refuses) made safe to put
/// on a terminal: control characters and bytes that are not UTF-8 are escaped ("\x1b", "\r", "\xff"), so
/// nothing can move the cursor, clear the screen or fake a line, and long text is cut with its full size said.
class PMSShownText {
public:
    /// How much of a message (server or error) is shown.
    static constexpr std::size_t kMessageLimit = 500;
    /// How much of an error is shown on a line of the outbox's list or report.
    static constexpr std::size_t kErrorLimit = 200;
    /// How much of a body is shown at -vv.
    static constexpr std::size_t kBodyLimit = 16 * 1024;

    /// `text` on one line: every control character escaped, newlines included; at most `limit` bytes of it
    /// shown, then "... (N bytes in all)".
    static std::string line(std::string_view text, std::size_t limit = kMessageLimit);
    /// `text` as it is up to `limit` bytes (never inside a UTF-8 sequence), then "... (N bytes in all)": for a
    /// JSON document, whose strings escape control characters themselves.
    static std::string cut(std::string_view text, std::size_t limit = kMessageLimit);
    /// Whether line() would change any of `text`: it holds a control character or bytes that are not UTF-8.
    static bool needsEscaping(std::string_view text);
    /// `text` as lines (split at "\n"), each escaped as in line(); at most `limit` bytes of `text` in all, the
    /// last line then saying how much there was.
    static std::vector<std::string> lines(std::string_view text, std::size_t limit = kBodyLimit);
};
