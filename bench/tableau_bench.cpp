// Entering equations and pivoting on solver-shaped sparse tableaux, against the reference
// tableau of std::map rows over GMP rationals. Memory per stored coefficient is measured with
// glibc's mallinfo2 around the build and includes every allocation the tableau makes.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <random>

#include "alloc_counter.h"
#include "reference_tableau.h"
#include "vorn/la/tableau.h"
#include "workload.h"

using vorn::bench::make_sparse_system;
using vorn::bench::ReferenceTableau;
using vorn::la::Tableau;

namespace {

std::size_t heap_in_use() {
    return mallinfo2().uordblks;
}

std::size_t stored_coefficients(const Tableau& t) {
    std::size_t n = 0;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        n += it.value()->coeffs_.size();
    return n;
}

// 3-10 entries per row over as many structural variables as rows.
vorn::bench::SparseSystem system_for(const benchmark::State& state) {
    auto n = static_cast<int>(state.range(0));
    return make_sparse_system(n, n, 3, 10, 1, state.range(1) / 100.0);
}

void BM_EnterThroughCheck(benchmark::State& state) {
    auto system = system_for(state);
    double bytes_per_coeff = 0;
    for (auto _ : state) {
        std::size_t before = heap_in_use();
        Tableau t(0);
        for (const auto& eq : system.equations)
            t.add_equation(eq, false, nullptr);
        t.check();
        bytes_per_coeff = static_cast<double>(heap_in_use() - before) /
                          static_cast<double>(stored_coefficients(t));
        benchmark::DoNotOptimize(t.get_num_variables());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["bytes_per_coeff"] = bytes_per_coeff;
}

// Memory against row density: 10^5 rows of min..max entries over as many structural variables.
// The fixed costs of a row (its list node and array header) and of a column (its hash node and
// array header) are shared by more coefficients as rows get denser.
void BM_MemoryDensity(benchmark::State& state) {
    auto rows = static_cast<int>(state.range(0));
    auto system = make_sparse_system(rows, rows, static_cast<int>(state.range(1)),
                                     static_cast<int>(state.range(2)), 3);
    double bytes_per_coeff = 0;
    for (auto _ : state) {
        std::size_t before = heap_in_use();
        auto t = vorn::bench::checked_tableau(system);
        bytes_per_coeff = static_cast<double>(heap_in_use() - before) /
                          static_cast<double>(stored_coefficients(*t));
    }
    state.counters["bytes_per_coeff"] = bytes_per_coeff;
}

BENCHMARK(BM_MemoryDensity)
    ->Args({100000, 3, 10})
    ->Args({100000, 10, 20})
    ->Args({100000, 20, 40})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

void BM_EnterAfterCheck(benchmark::State& state) {
    auto system = system_for(state);
    for (auto _ : state) {
        Tableau t(0);
        t.check();
        for (const auto& eq : system.equations)
            t.add_equation(eq, true, nullptr);
        benchmark::DoNotOptimize(t.get_num_variables());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_EnterAfterCheck_reference(benchmark::State& state) {
    auto system = system_for(state);
    for (auto _ : state) {
        ReferenceTableau t;
        for (const auto& eq : system.equations)
            t.add_equation(eq.get_basic_var(), ReferenceTableau::row_of(eq));
        benchmark::DoNotOptimize(t.rows().size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(BM_EnterThroughCheck)
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {0, 5}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EnterAfterCheck)
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {0, 5}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EnterAfterCheck_reference)
    ->ArgsProduct({{1000, 10000, 100000}, {0}})
    ->Unit(benchmark::kMillisecond);

// Pairs of pivots pivot(b, v), pivot(v, b) restore the tableau exactly, so the stream runs in a
// steady state; the basic variable and the entering one are drawn at random.
using PivotPlan = std::vector<std::pair<int, int>>;

PivotPlan plan_pivots(const Tableau& t, std::size_t count, unsigned seed) {
    std::mt19937_64 rng(seed);
    std::vector<int> basics;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        basics.push_back(it.index());
    PivotPlan plan;
    while (plan.size() < count) {
        int b = basics[rng() % basics.size()];
        const auto& entries = t.rows().at(b)->coeffs_;
        int v = entries[rng() % entries.size()].var;
        if (v >= 1 && v != b) plan.emplace_back(b, v);
    }
    return plan;
}

// Arguments: rows, structural variables per row in percent (100 or 200), big coefficients in
// percent, fewest and most entries per row.
vorn::bench::SparseSystem pivot_system(const benchmark::State& state) {
    auto rows = static_cast<int>(state.range(0));
    auto structurals = static_cast<int>(state.range(0) * state.range(1) / 100);
    return make_sparse_system(rows, structurals, static_cast<int>(state.range(3)),
                              static_cast<int>(state.range(4)), 1, state.range(2) / 100.0);
}

void BM_PivotStream(benchmark::State& state) {
    auto tableau = vorn::bench::checked_tableau(pivot_system(state));
    Tableau& t = *tableau;
    PivotPlan plan = plan_pivots(t, 4096, 9);
    for (auto [b, v] : plan) {  // one round first: rows reach their steady capacity
        t.pivot(b, v);
        t.pivot(v, b);
    }
    std::size_t i = 0;
    std::uint64_t allocations = vorn::bench::allocation_count();
    for (auto _ : state) {
        auto [b, v] = plan[i++ % plan.size()];
        t.pivot(b, v);
        t.pivot(v, b);
    }
    allocations = vorn::bench::allocation_count() - allocations;
    auto pivots = static_cast<double>(state.iterations() * 2);
    state.SetItemsProcessed(state.iterations() * 2);
    state.counters["allocs_per_pivot"] = static_cast<double>(allocations) / pivots;
}

void BM_PivotStream_reference(benchmark::State& state) {
    auto system = pivot_system(state);
    ReferenceTableau t;
    for (const auto& eq : system.equations)
        t.add_equation(eq.get_basic_var(), ReferenceTableau::row_of(eq));
    PivotPlan plan = plan_pivots(*vorn::bench::checked_tableau(system), 4096, 9);
    std::size_t i = 0;
    for (auto _ : state) {
        auto [b, v] = plan[i++ % plan.size()];
        t.pivot(b, v);
        t.pivot(v, b);
    }
    state.SetItemsProcessed(state.iterations() * 2);
}

BENCHMARK(BM_PivotStream)
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {100, 200}, {0}, {3}, {10}})
    ->ArgsProduct({{10000, 100000}, {100}, {5}, {3}, {10}})
    ->Args({10000, 100, 0, 10, 20})
    ->Args({10000, 100, 0, 20, 40});
BENCHMARK(BM_PivotStream_reference)
    ->ArgsProduct({{1000, 10000, 100000}, {100, 200}, {0}, {3}, {10}})
    ->Args({10000, 100, 0, 10, 20})
    ->Args({10000, 100, 0, 20, 40});

}  // namespace
