#pragma once

// Text as the service reads it: in the C locale's terms, whatever the process's locale is.

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace pmssandbox {

/// `text` without the white space at either end.
inline std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
    return text;
}

/// `text` in lower case, letter by letter.
inline std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

}  // namespace pmssandbox
