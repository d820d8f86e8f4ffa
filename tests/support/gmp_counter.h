#pragma once

// Counts GMP's allocations by installing counting wrappers around malloc/realloc/free; safe to
// install at any time because the wrappers stay compatible with GMP's default functions.

#include <gmp.h>

#include <cstdlib>

namespace vorn::test {

struct GmpCounts {
    long allocs = 0;
    long reallocs = 0;
    long frees = 0;
};

inline GmpCounts& gmp_counts() {
    static GmpCounts counts;
    return counts;
}

class GmpCounter {
  public:
    GmpCounter() {
        gmp_counts() = {};
        mp_set_memory_functions(
            [](size_t n) -> void* {
                ++gmp_counts().allocs;
                return std::malloc(n);
            },
            [](void* p, size_t, size_t n) -> void* {
                ++gmp_counts().reallocs;
                return std::realloc(p, n);
            },
            [](void* p, size_t) {
                ++gmp_counts().frees;
                std::free(p);
            });
    }
    ~GmpCounter() { mp_set_memory_functions(nullptr, nullptr, nullptr); }
    const GmpCounts& counts() const { return gmp_counts(); }
};

}  // namespace vorn::test
