#include "RequestLog.h"

#include <pmssandbox/Fault.h>

#include <utility>

namespace pmssandbox {

void RequestLog::add(RecordedRequest request, const std::string& routePath) {
    std::lock_guard lock(mutex_);
    ++counts_[{request.method, routePath}];
    ++total_;
    latest_.push_back(std::move(request));
    if (latest_.size() > kKept) latest_.pop_front();
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
    return latest_.back();
}

std::vector<RecordedRequest> RequestLog::all() const {
    std::lock_guard lock(mutex_);
    return {latest_.begin(), latest_.end()};
}

}  // namespace pmssandbox
