#include "RequestLog.h"

#include <pmssandbox/Fault.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <utility>

namespace pmssandbox {

RequestLog::RequestLog() {
    std::random_device device;
    char tag[9];
    std::snprintf(tag, sizeof tag, "%08x", static_cast<unsigned>(device()));
    runTag_ = tag;
}

std::string RequestLog::requestId(std::uint64_t sequence) const {
    return "req_" + runTag_ + "-" + std::to_string(sequence);
}

std::uint64_t RequestLog::add(RecordedRequest request, const std::string& routePath) {
    const auto now = std::chrono::system_clock::now();
    std::lock_guard lock(mutex_);
    ++counts_[{request.method, routePath}];
    ++total_;
    LoggedRequest entry;
    entry.sequence = ++lastSequence_;
    entry.requestId = requestId(entry.sequence);
    entry.request = std::move(request);
    entry.receivedAt = now;
    latest_.push_back(std::move(entry));
    if (latest_.size() > kKept) latest_.pop_front();
    return lastSequence_;
}

std::optional<LoggedRequest> RequestLog::finish(std::uint64_t sequence, int status, double milliseconds,
                                                std::string note) {
    std::lock_guard lock(mutex_);
    // Sequences in the deque are consecutive, so the entry's place follows from the first one's.
    if (latest_.empty() || sequence < latest_.front().sequence || sequence > latest_.back().sequence)
        return std::nullopt;
    LoggedRequest& entry = latest_[sequence - latest_.front().sequence];
    entry.finished = true;
    entry.status = status;
    entry.milliseconds = milliseconds;
    entry.note = std::move(note);
    return entry;
}

void RequestLog::clear() {
    std::lock_guard lock(mutex_);
    latest_.clear();
    counts_.clear();
    total_ = 0;
}

std::size_t RequestLog::count() const {
    std::lock_guard lock(mutex_);
    return total_;
}

std::size_t RequestLog::count(std::string_view method, std::string_view pathPrefix) const {
    // Same matching rule as faults, so a test can count exactly what a fault would hit.
    const Fault filter = Fault::delay({}).matching(std::string(method), std::string(pathPrefix));
    std::lock_guard lock(mutex_);
    std::size_t matched = 0;
    for (const auto& [key, n] : counts_) {
        if (filter.matches(key.first, key.second)) matched += n;
    }
    return matched;
}

std::optional<RecordedRequest> RequestLog::last() const {
    std::lock_guard lock(mutex_);
    if (latest_.empty()) return std::nullopt;
    return latest_.back().request;
}

std::vector<RecordedRequest> RequestLog::all() const {
    std::lock_guard lock(mutex_);
    std::vector<RecordedRequest> requests;
    for (const LoggedRequest& entry : latest_) requests.push_back(entry.request);
    return requests;
}

std::vector<LoggedRequest> RequestLog::since(std::uint64_t after, std::size_t limit) const {
    std::lock_guard lock(mutex_);
    auto first = std::find_if(latest_.begin(), latest_.end(), [&](const LoggedRequest& e) { return e.sequence > after; });
    const auto available = static_cast<std::size_t>(latest_.end() - first);
    if (available > limit) first += static_cast<std::ptrdiff_t>(available - limit);
    return {first, latest_.end()};
}

}  // namespace pmssandbox
