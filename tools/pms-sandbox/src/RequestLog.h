#pragma once

#include <pmssandbox/RecordedRequest.h>

#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pmssandbox {

/// Requests seen, for tests to inspect. Whole requests are kept only for the latest ones so a long
/// run stays small; counts cover every request.
class RequestLog {
public:
    static constexpr std::size_t kKept = 1000;

    /// `routePath` is the base-relative path that filtered counts match against.
    void add(RecordedRequest request, const std::string& routePath);
    void clear();

    std::size_t count() const;
    /// Requests with `method` (empty: any, case-insensitive) whose route path starts with `pathPrefix`.
    std::size_t count(std::string_view method, std::string_view pathPrefix) const;
    std::optional<RecordedRequest> last() const;
    std::vector<RecordedRequest> all() const;

private:
    mutable std::mutex mutex_;
    std::deque<RecordedRequest> latest_;
    std::map<std::pair<std::string, std::string>, std::size_t> counts_;  // (method, route path)
    std::size_t total_ = 0;
};

}  // namespace pmssandbox
