// Allocation failures: the global operator new and the pools' malloc are made to fail on
// request. The contract: std::bad_alloc reaches the caller, a failed copy in add_equation leaves
// the stored equations unchanged, a failed chunk leaves the pool usable with the same chunk size,
// and a tableau is destructible after a failure at any point of a scenario.
//
// This binary replaces malloc and operator new, so it is not built under the sanitizers; it
// counts live blocks itself to find leaks. GMP is left alone: it aborts on a failed allocation
// by design.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "support/tableau_builders.h"
#include "vorn/la/tableau.h"
#include "vorn/util/memory_pool.h"

extern "C" {
// glibc's own allocator, under the wrappers below.
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void __libc_free(void*);
}

namespace {

long g_fail_malloc_in = -1;  // the n-th next pool-sized malloc returns null (0 = the next)
std::size_t g_last_malloc_size = 0;
long g_fail_new_in = -1;  // the n-th next operator new throws
long g_live = 0;          // blocks handed out and not yet freed: the leak detector

// The sizes of the pools' chunks: Size·n + 8 for the 24- and 48-byte pools.
bool pool_chunk_size(std::size_t n) {
    for (std::size_t blocks = 16; blocks <= 8192; blocks *= 2)
        if (n == 24 * blocks + 8 || n == 48 * blocks + 8) return true;
    return false;
}

}  // namespace

extern "C" void* malloc(std::size_t n) {
    g_last_malloc_size = n;
    if (pool_chunk_size(n) && g_fail_malloc_in >= 0 && g_fail_malloc_in-- == 0) return nullptr;
    void* p = __libc_malloc(n);
    if (p != nullptr) ++g_live;
    return p;
}
extern "C" void* calloc(std::size_t count, std::size_t n) {
    void* p = __libc_calloc(count, n);
    if (p != nullptr) ++g_live;
    return p;
}
extern "C" void* realloc(void* old, std::size_t n) {
    void* p = __libc_realloc(old, n);
    if (old == nullptr && p != nullptr) ++g_live;
    if (old != nullptr && n == 0) --g_live;
    return p;
}
extern "C" void free(void* p) {
    if (p != nullptr) --g_live;
    __libc_free(p);
}

void* operator new(std::size_t n) {
    if (g_fail_new_in >= 0 && g_fail_new_in-- == 0) throw std::bad_alloc();
    if (void* p = malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    free(p);
}

using vorn::QNumber;
using vorn::la::Equation;
using vorn::la::Tableau;
using vorn::test::row_of;

TEST(PoolFailure, FailedChunkLeavesThePoolUsable) {
    vorn::MemoryPool<48, false> pool;
    pool.allocate();
    EXPECT_EQ(g_last_malloc_size, 776u);
    for (int i = 0; i < 15; ++i)
        pool.allocate();
    g_fail_malloc_in = 0;
    EXPECT_THROW(pool.allocate(), std::bad_alloc);
    EXPECT_EQ(pool.chunk_blocks(), 32u);
    EXPECT_EQ(pool.free_list(), nullptr);
    void* block = pool.allocate();  // the same chunk size is tried again
    EXPECT_EQ(g_last_malloc_size, 1544u);
    EXPECT_NE(block, nullptr);
    EXPECT_EQ(pool.chunk_blocks(), 64u);
}

TEST(AllocationFailure, FailedCopyLeavesEquationsUnchanged) {
    Tableau t(0);
    t.add_equation(row_of(1, {2}), false, nullptr);
    Equation big(3, {{3, QNumber(-1)}, {4, QNumber::make_big(QNumber(7))}, {5, QNumber(1)}});
    for (long k = 0; k < 3; ++k) {
        g_fail_new_in = k;
        try {
            t.add_equation(big, false, nullptr);
            g_fail_new_in = -1;
            break;
        } catch (const std::bad_alloc&) {
            g_fail_new_in = -1;
            EXPECT_EQ(t.equations().size(), 1u) << "failure at allocation " << k;
        }
    }
}

TEST(AllocationFailure, FailedBigAssignmentKeepsTheOldValue) {
    const QNumber big = QNumber::make_big(QNumber::from_string("123456789012345678901234567890"));
    QNumber dest(3, 4);
    long live = g_live;
    g_fail_new_in = 0;  // the block of the big form
    EXPECT_THROW(dest = big, std::bad_alloc);
    g_fail_new_in = -1;
    EXPECT_FALSE(dest.is_big());
    EXPECT_EQ(dest, QNumber(3, 4));
    EXPECT_EQ(g_live, live);
    g_fail_new_in = 0;
    EXPECT_THROW(QNumber copy(big), std::bad_alloc);
    g_fail_new_in = -1;
    EXPECT_EQ(g_live, live);
}

namespace {

// Touches every operation: intake before and after check, pivots, elimination with a restoring
// add, uneliminate, removal and the dump.
void scenario() {
    Tableau t(0);
    for (int b = 20; b < 40; ++b)
        t.add_equation(row_of(b, {1 + b % 7, 2 + b % 5}), false, nullptr);
    t.check();
    for (int b : {20, 21}) {
        for (const auto& e : t.rows().at(b)->coeffs_)
            if (e.var >= 1 && e.var != b) {
                t.pivot(b, e.var);
                break;
            }
    }
    vorn::la::VarSet vars;
    for (int v = 1; v <= 8; ++v)
        vars.insert(v);
    t.eliminate_variables(vars);
    std::vector<int> out;
    t.add_equation(row_of(50, {3, 4}), true, &out);
    if (t.elim_index().find(5) != nullptr) t.uneliminate(5, &out);
    t.remove_variable(25);
    (void)t.to_str();
}

}  // namespace

// Fails allocation k of the given kind for k = 0, 1, ... until the scenario completes; every
// failure must reach the caller as std::bad_alloc and leave nothing allocated behind.
long walk_failure_points(long& fail_in) {
    long points = 0;
    for (long k = 0;; ++k) {
        long live_before = g_live;
        fail_in = k;
        bool failed = false;
        try {
            scenario();
        } catch (const std::bad_alloc&) {
            failed = true;
        }
        fail_in = -1;
        EXPECT_EQ(g_live, live_before) << "leak after a failure at point " << k;
        if (!failed) return points;
        ++points;
    }
}

TEST(AllocationFailure, EveryFailurePointOfAScenarioReachesTheCaller) {
    long new_points = walk_failure_points(g_fail_new_in);
    long chunk_points = walk_failure_points(g_fail_malloc_in);
    EXPECT_GT(new_points, 100);
    EXPECT_GT(chunk_points, 1);
    std::printf("allocation failure points walked: %ld operator new, %ld pool chunks\n", new_points,
                chunk_points);
}
