#include "PMSShownText.h"

#include <algorithm>
#include <cstdio>

namespace {

std::string hex(unsigned char byte) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
    return escaped;
}

// Length of the well-formed UTF-8 sequence at `at`, 0 when the bytes there are not one.
std::size_t sequenceLength(std::string_view text, std::size_t at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    std::size_t length = 0;
    if (byte >= 0xc2 && byte <= 0xdf) length = 2;
    else if (byte >= 0xe0 && byte <= 0xef) length = 3;
    else if (byte >= 0xf0 && byte <= 0xf4) length = 4;
    if (length == 0 || at + length > text.size()) return 0;
    for (std::size_t next = 1; next < length; ++next) {
        if ((static_cast<unsigned char>(text[at + next]) & 0xc0) != 0x80) return 0;
    }
    const auto second = static_cast<unsigned char>(text[at + 1]);
    // Overlong forms, UTF-16 surrogates and code points above U+10FFFF.
    if ((byte == 0xe0 && second < 0xa0) || (byte == 0xed && second > 0x9f) || (byte == 0xf0 && second < 0x90) ||
        (byte == 0xf4 && second > 0x8f)) {
        return 0;
    }
    return length;
}

// Appends `text` escaped; stops before `limit` bytes of it, never inside a character. Answers the bytes used.
std::size_t appendEscaped(std::string& out, std::string_view text, std::size_t limit) {
    std::size_t at = 0;
    while (at < text.size()) {
        const auto byte = static_cast<unsigned char>(text[at]);
        const std::size_t sequence = byte < 0x80 ? 1 : sequenceLength(text, at);
        const std::size_t length = sequence == 0 ? 1 : sequence;
        std::string piece;
        if (byte == '\n') {
            piece = "\\n";
        } else if (byte == '\r') {
            piece = "\\r";
        } else if (byte == '\t') {
            piece = "\\t";
        } else if (byte < 0x20 || byte == 0x7f || sequence == 0) {
            piece = hex(byte);
        } else if (byte == 0xc2 && static_cast<unsigned char>(text[at + 1]) < 0xa0) {
            // U+0080 to U+009F are control characters too (C1: some terminals act on them).
            piece = "\\u00" + hex(static_cast<unsigned char>(text[at + 1])).substr(2);
        } else {
            piece = std::string(text.substr(at, length));
        }
        if (at + length > limit) break;
        out += piece;
        at += length;
    }
    return at;
}

std::string cutNote(std::size_t total) { return "... (" + std::to_string(total) + " bytes in all)"; }

}  // namespace

std::string PMSShownText::line(std::string_view text, std::size_t limit) {
    std::string shown;
    if (appendEscaped(shown, text, limit) < text.size()) shown += cutNote(text.size());
    return shown;
}

std::string PMSShownText::cut(std::string_view text, std::size_t limit) {
    if (text.size() <= limit) return std::string(text);
    std::size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0) == 0x80) --end;
    return std::string(text.substr(0, end)) + cutNote(text.size());
}

bool PMSShownText::needsEscaping(std::string_view text) {
    std::string escaped;
    appendEscaped(escaped, text, text.size());
    return escaped != text;
}

std::vector<std::string> PMSShownText::lines(std::string_view text, std::size_t limit) {
    std::vector<std::string> shown;
    std::size_t start = 0;
    while (true) {
        if (start > limit) {
            shown.push_back(cutNote(text.size()));
            break;
        }
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string line;
        const std::size_t taken = appendEscaped(line, text.substr(start, end - start), limit - start);
        if (start + taken < end) {
            shown.push_back(line + cutNote(text.size()));
            break;
        }
        shown.push_back(std::move(line));
        if (end == text.size()) break;
        start = end + 1;
    }
    return shown;
}
