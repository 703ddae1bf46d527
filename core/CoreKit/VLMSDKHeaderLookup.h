#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vlmsdk::detail {

inline bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

inline bool startsWithIgnoringASCIICase(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && equalsIgnoringASCIICase(text.substr(0, prefix.size()), prefix);
}

/// A C0 control byte or DEL: what no URL, header line or log line shows raw.
inline bool isControlByte(char c) {
    const auto u = static_cast<unsigned char>(c);
    return u < 0x20 || u == 0x7F;
}

inline std::optional<std::string> headerValue(const std::vector<std::pair<std::string, std::string>>& headers,
                                              std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (equalsIgnoringASCIICase(key, name)) return value;
    }
    return std::nullopt;
}

}  // namespace vlmsdk::detail
