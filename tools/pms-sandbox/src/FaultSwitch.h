#pragma once

#include <pmssandbox/Fault.h>

#include <cstddef>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace pmssandbox {

/// The active faults. take() both picks and uses up a fault, so counted faults stay exact under concurrency.
class FaultSwitch {
public:
    void set(const Fault& fault);
    void add(const Fault& fault);
    void clear();
    std::size_t size() const;
    /// The active faults in order, each with the hits it has left (-1: until cleared).
    std::vector<std::pair<Fault, int>> list() const;

    /// The first active fault matching the request, counting it as used.
    std::optional<Fault> take(std::string_view method, std::string_view path);

private:
    struct Entry {
        Fault fault;
        int remaining;  // -1: until cleared
    };

    mutable std::mutex mutex_;
    std::vector<Entry> entries_;
};

}  // namespace pmssandbox
