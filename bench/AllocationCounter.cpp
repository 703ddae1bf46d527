// Replaces the C allocator's entry points in the executable, counting each call and handing it to the C
// library's own implementation. operator new, libcurl and every other library allocate through these.

#include "AllocationCounter.h"

#include <atomic>
#include <cstddef>

namespace {
std::atomic<std::uint64_t> allocations{0};
}

namespace vlmsdk::bench {

#if VLMSDK_BENCH_COUNT_ALLOCATIONS
bool allocationCountingWorks() { return true; }
#else
bool allocationCountingWorks() { return false; }
#endif

std::uint64_t allocationsSoFar() { return allocations.load(std::memory_order_relaxed); }

}  // namespace vlmsdk::bench

#if VLMSDK_BENCH_COUNT_ALLOCATIONS
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
void* calloc(std::size_t count, std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}
void* realloc(void* pointer, std::size_t size) noexcept {
    if (!pointer) allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(pointer, size);
}
void free(void* pointer) noexcept { __libc_free(pointer); }
void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}
void* memalign(std::size_t alignment, std::size_t size) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
    if (alignment % sizeof(void*) != 0 || (alignment & (alignment - 1)) != 0) return 22;  // EINVAL
    allocations.fetch_add(1, std::memory_order_relaxed);
    void* pointer = __libc_memalign(alignment, size);
    if (!pointer) return 12;  // ENOMEM
    *out = pointer;
    return 0;
}
}
#endif
