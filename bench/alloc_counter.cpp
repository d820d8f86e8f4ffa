// Wraps glibc's allocator to count allocations. operator new, GMP's default allocator and the
// node pools all end in malloc, so one set of wrappers sees them all.

#include "alloc_counter.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
}

namespace {
// Relaxed: the benchmarks are single-threaded; the atomic only keeps the wrappers race-free.
std::atomic<std::uint64_t> g_allocations{0};

void* counted(void* p) {
    if (p != nullptr) g_allocations.fetch_add(1, std::memory_order_relaxed);
    return p;
}
}  // namespace

extern "C" void* malloc(std::size_t n) {
    return counted(__libc_malloc(n));
}
extern "C" void* calloc(std::size_t count, std::size_t n) {
    return counted(__libc_calloc(count, n));
}
extern "C" void* realloc(void* old, std::size_t n) {
    return counted(__libc_realloc(old, n));
}
extern "C" void free(void* p) {
    __libc_free(p);
}

namespace vorn::bench {

std::uint64_t allocation_count() {
    return g_allocations.load(std::memory_order_relaxed);
}

}  // namespace vorn::bench
