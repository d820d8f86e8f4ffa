#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {
long g_countdown = -1;
long g_live = 0;
}  // namespace

long vorn::test::fail_new_in(long n) {
    long old = g_countdown;
    g_countdown = n;
    return old;
}

long vorn::test::live_new_blocks() {
    return g_live;
}

void* operator new(std::size_t n) {
    if (g_countdown >= 0 && g_countdown-- == 0) throw std::bad_alloc();
    void* p = std::malloc(n == 0 ? 1 : n);
    if (p == nullptr) throw std::bad_alloc();
    ++g_live;
    return p;
}
void operator delete(void* p) noexcept {
    if (p != nullptr) --g_live;
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    operator delete(p);
}

// Every other form goes through the two above, so no block is allocated by one allocator and
// freed by another (the standard library's temporary buffers use the nothrow form).
void* operator new[](std::size_t n) {
    return operator new(n);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    try {
        return operator new(n);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void* operator new[](std::size_t n, const std::nothrow_t& tag) noexcept {
    return operator new(n, tag);
}
void operator delete[](void* p) noexcept {
    operator delete(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    operator delete(p);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    operator delete(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    operator delete(p);
}
