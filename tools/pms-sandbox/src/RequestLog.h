#pragma once

#include "LoggedRequest.h"

#include <pmssandbox/RecordedRequest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pmssandbox {

/// Guest requests seen and what became of them. Whole requests are kept only for the latest ones so a
/// long run stays small; counts cover every request.
class RequestLog {
public:
    static constexpr std::size_t kKept = 1000;

    RequestLog();

    /// `routePath` is the base-relative path that filtered counts match against. Answers its sequence.
    std::uint64_t add(RecordedRequest request, const std::string& routePath);
    /// The X-Request-Id of request `sequence`: unique across runs too (a random tag per log).
    std::string requestId(std::uint64_t sequence) const;
    /// Records the outcome of request `sequence`; answers the whole entry (nullopt when no longer kept).
    std::optional<LoggedRequest> finish(std::uint64_t sequence, int status, double milliseconds, std::string note);
    /// Forgets the requests and counts; sequences go on.
    void clear();

    std::size_t count() const;
    /// Requests with `method` (empty: any, case-insensitive) whose route path starts with `pathPrefix`.
    std::size_t count(std::string_view method, std::string_view pathPrefix) const;
    std::optional<RecordedRequest> last() const;
    std::vector<RecordedRequest> all() const;
    /// Kept entries after sequence `after`, oldest first; at most `limit` of them, the latest ones.
    std::vector<LoggedRequest> since(std::uint64_t after, std::size_t limit) const;

private:
    mutable std::mutex mutex_;
    std::deque<LoggedRequest> latest_;
    std::map<std::pair<std::string, std::string>, std::size_t> counts_;  // (method, route path)
    std::size_t total_ = 0;
    std::uint64_t lastSequence_ = 0;
    std::string runTag_;
};

}  // namespace pmssandbox
