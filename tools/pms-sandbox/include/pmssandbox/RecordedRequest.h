#pragma once

#include <map>
#include <string>
#include <string_view>

namespace pmssandbox {

/// One request as the sandbox received it, before any fault or check was applied.
struct RecordedRequest {
    std::string method;
    /// The decoded path, prefix included, without the query string.
    std::string path;
    /// The request target as sent, query string included.
    std::string target;
    /// Header names are lower-cased; a repeated header appears once per occurrence.
    std::multimap<std::string, std::string> headers;
    std::string body;

    /// First value of header `name` (any case), or empty when absent.
    std::string header(std::string_view name) const;
};

}  // namespace pmssandbox
