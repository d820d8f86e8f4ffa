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
