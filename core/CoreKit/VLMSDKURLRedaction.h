#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace vlmsdk::detail {

/// `url` with the password of its user information, if any, replaced by "***"; everything else as it is.
inline std::string redactedURL(std::string_view url) {
    const auto scheme = url.find("://");
    if (scheme == std::string_view::npos) return std::string(url);
    const auto authorityStart = scheme + 3;
    const auto authorityEnd = std::min(url.find_first_of("/?#", authorityStart), url.size());
    const auto at = url.rfind('@', authorityEnd == 0 ? 0 : authorityEnd - 1);
    if (at == std::string_view::npos || at < authorityStart) return std::string(url);
    const auto colon = url.find(':', authorityStart);
    if (colon == std::string_view::npos || colon > at) return std::string(url);
    std::string redacted(url.substr(0, colon + 1));
    redacted += "***";
    redacted += url.substr(at);
    return redacted;
}

}  // namespace vlmsdk::detail
