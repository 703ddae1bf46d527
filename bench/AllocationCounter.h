#pragma once

// Counts the heap allocations of the whole process (every thread, every library): malloc, calloc,
// realloc of nothing, the aligned forms and, through them, operator new. Counting is on only in programs
// built without sanitizers, which bring their own allocator; elsewhere `allocationCountingWorks` is false.

#include <cstdint>

namespace vlmsdk::bench {

/// Allocations made by this process so far.
std::uint64_t allocationsSoFar();

/// Whether allocationsSoFar counts anything in this build.
bool allocationCountingWorks();

}  // namespace vlmsdk::bench
