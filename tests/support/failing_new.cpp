#include "support/failing_new.h"

#include <cstdlib>
#include <new>

namespace {
long g_countdown = -1;
}

void vorn::test::fail_new_in(long n) {
    g_countdown = n;
}

void* operator new(std::size_t n) {
    if (g_countdown >= 0 && g_countdown-- == 0) throw std::bad_alloc();
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
