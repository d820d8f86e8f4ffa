// Allocation failures: the global operator new and the pools' malloc are made to fail on
// request. The contract: std::bad_alloc reaches the caller, a failed copy in add_equation leaves
// the stored equations unchanged, a failed chunk leaves the pool usable with the same chunk size,
// and a tableau is destructible after a failure at any point of a scenario.
//
// This binary replaces malloc and operator new, so it is not built under the sanitizers.

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "support/tableau_builders.h"
#include "vorn/la/tableau.h"
#include "vorn/util/memory_pool.h"

extern "C" void* __libc_malloc(std::size_t);  // glibc's own allocator

namespace {

long g_fail_malloc_in = -1;  // the n-th next malloc returns null (0 = the next one)
std::size_t g_last_malloc_size = 0;
long g_fail_new_in = -1;  // the n-th next operator new throws

}  // namespace

extern "C" void* malloc(std::size_t n) {
    g_last_malloc_size = n;
    if (g_fail_malloc_in >= 0 && g_fail_malloc_in-- == 0) return nullptr;
    return __libc_malloc(n);
}

void* operator new(std::size_t n) {
    if (g_fail_new_in >= 0 && g_fail_new_in-- == 0) throw std::bad_alloc();
    if (void* p = __libc_malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
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

TEST(AllocationFailure, EveryFailurePointOfAScenarioReachesTheCaller) {
    long points = 0;
    for (long k = 0;; ++k) {
        g_fail_new_in = k;
        try {
            scenario();
            g_fail_new_in = -1;
            break;
        } catch (const std::bad_alloc&) {
            g_fail_new_in = -1;
            ++points;
        }
    }
    EXPECT_GT(points, 100);
    RecordProperty("failure_points", std::to_string(points));
    std::printf("allocation failure points walked: %ld\n", points);
}
