#include "FaultSwitch.h"

namespace pmssandbox {

void FaultSwitch::set(const Fault& fault) {
    std::lock_guard lock(mutex_);
    entries_.clear();
    entries_.push_back({fault, fault.remaining()});
}

void FaultSwitch::add(const Fault& fault) {
    std::lock_guard lock(mutex_);
    entries_.push_back({fault, fault.remaining()});
}

void FaultSwitch::clear() {
    std::lock_guard lock(mutex_);
    entries_.clear();
}

std::size_t FaultSwitch::size() const {
    std::lock_guard lock(mutex_);
    return entries_.size();
}

std::vector<std::pair<Fault, int>> FaultSwitch::list() const {
    std::lock_guard lock(mutex_);
    std::vector<std::pair<Fault, int>> faults;
    for (const Entry& entry : entries_) faults.emplace_back(entry.fault, entry.remaining);
    return faults;
}

std::optional<Fault> FaultSwitch::take(std::string_view method, std::string_view path) {
    std::lock_guard lock(mutex_);
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
        if (!it->fault.matches(method, path)) continue;
        Fault hit = it->fault;
        if (it->remaining > 0 && --it->remaining == 0) entries_.erase(it);
        return hit;
    }
    return std::nullopt;
}

}  // namespace pmssandbox
