#include <pmssandbox/RecordedRequest.h>

#include <algorithm>
#include <cctype>

namespace pmssandbox {

std::string RecordedRequest::header(std::string_view name) const {
    try {
        std::string key(name);
        std::transform(key.begin(), key.end(), key.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        auto it = headers.find(key);
        return it == headers.end() ? std::string() : it->second;
    } catch (...) {
        return {};  // out of memory only
    }
}

}  // namespace pmssandbox
