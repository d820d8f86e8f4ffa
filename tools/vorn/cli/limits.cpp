#include "cli/limits.h"

#include <gmp.h>
#include <malloc.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <new>

namespace vorn::cli {

namespace {

util::Stop the_stop;
std::atomic<int> caught{0};
bool answers_unknown = false;
static_assert(std::atomic<int>::is_always_lock_free);

// Usable sizes on both sides, so that a block counts the same when it goes as when it came,
// whoever frees it.
void* counted(void* p) noexcept {
    if (p != nullptr) util::count_allocation(static_cast<std::ptrdiff_t>(malloc_usable_size(p)));
    return p;
}

void release(void* p) noexcept {
    if (p == nullptr) return;
    util::count_allocation(-static_cast<std::ptrdiff_t>(malloc_usable_size(p)));
    std::free(p);
}

void* try_allocate(std::size_t size, std::size_t alignment) noexcept {
    if (size == 0) size = 1;
    if (alignment <= alignof(std::max_align_t)) return counted(std::malloc(size));
    void* p = nullptr;
    return posix_memalign(&p, std::max(alignment, sizeof(void*)), size) == 0 ? counted(p) : nullptr;
}

void* allocate(std::size_t size, std::size_t alignment) {
    for (;;) {
        if (void* p = try_allocate(size, alignment)) return p;
        std::new_handler handler = std::get_new_handler();
        if (handler == nullptr) throw std::bad_alloc();
        handler();
    }
}

void* allocate_nothrow(std::size_t size, std::size_t alignment) noexcept {
    try {
        return allocate(size, alignment);
    } catch (...) {
        return nullptr;
    }
}

[[noreturn]] void gmp_out_of_memory() {
    answer_out_of_memory();
    static constexpr char kMessage[] = "vorn: out of memory\n";
    (void)!::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
    ::_exit(kOutOfMemory);
}

void* gmp_allocate(std::size_t size) {
    void* p = try_allocate(size, 0);
    if (p == nullptr) gmp_out_of_memory();
    return p;
}

void* gmp_reallocate(void* old, std::size_t, std::size_t size) {
    auto before = static_cast<std::ptrdiff_t>(old != nullptr ? malloc_usable_size(old) : 0);
    void* p = std::realloc(old, size == 0 ? 1 : size);
    if (p == nullptr) gmp_out_of_memory();
    util::count_allocation(static_cast<std::ptrdiff_t>(malloc_usable_size(p)) - before);
    return p;
}

void gmp_free(void* p, std::size_t) {
    release(p);
}

extern "C" void on_interrupt(int signal) {
    int none = 0;
    if (!caught.compare_exchange_strong(none, signal)) ::_exit(128 + signal);
    the_stop.interrupt();
}

// The address space in use now: code, libraries, stacks, the heap so far.
std::int64_t address_space_bytes() {
    std::FILE* f = std::fopen("/proc/self/statm", "r");
    if (f == nullptr) return 0;
    long long pages = 0;
    if (std::fscanf(f, "%lld", &pages) != 1) pages = 0;
    std::fclose(f);
    return pages * sysconf(_SC_PAGESIZE);
}

}  // namespace

util::Stop& tool_stop() {
    return the_stop;
}

void count_gmp_allocations() {
    mp_set_memory_functions(gmp_allocate, gmp_reallocate, gmp_free);
}

void limit_memory(std::int64_t megabytes) {
    std::int64_t bytes = megabytes << 20;
    the_stop.set_memory_limit(bytes);
#if !defined(VORN_SANITIZED) && !defined(__SANITIZE_ADDRESS__)
    // The margin covers what is not counted: malloc's own overhead and fragmentation, stacks.
    std::int64_t margin = std::max<std::int64_t>(bytes / 2, std::int64_t{256} << 20);
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0) return;
    auto wanted = static_cast<rlim_t>(address_space_bytes() + bytes + margin);
    if (limit.rlim_max != RLIM_INFINITY) wanted = std::min(wanted, limit.rlim_max);
    if (limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur <= wanted) return;
    limit.rlim_cur = wanted;
    setrlimit(RLIMIT_AS, &limit);
#endif
}

void catch_interrupts() {
    struct sigaction action {};
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    // Reads and writes go on; the checks poll the stop. Installed even where the signals came
    // ignored (a background job of a script): a runner that sends one expects it to count.
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGINT, SIGTERM})
        sigaction(signal, &action, nullptr);
}

int caught_signal() {
    return caught.load();
}

void answer_unknown_when_out_of_memory() {
    answers_unknown = true;
}

void answer_out_of_memory() noexcept {
    std::cout.flush();
    if (!answers_unknown) return;
    static constexpr char kUnknown[] = "unknown\n";
    (void)!::write(STDOUT_FILENO, kUnknown, sizeof kUnknown - 1);
}

}  // namespace vorn::cli

// The replaceable global allocation functions, all counted.
using vorn::cli::allocate;
using vorn::cli::allocate_nothrow;
using vorn::cli::release;

void* operator new(std::size_t size) {
    return allocate(size, 0);
}
void* operator new[](std::size_t size) {
    return allocate(size, 0);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate_nothrow(size, 0);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate_nothrow(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate_nothrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    return allocate_nothrow(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* p) noexcept {
    release(p);
}
void operator delete[](void* p) noexcept {
    release(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
    release(p);
}
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept {
    release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    release(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    release(p);
}
