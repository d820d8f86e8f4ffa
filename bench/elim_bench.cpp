// Eliminating k% of the structural variables of an n-row sparse tableau in one
// eliminate_variables call, then restoring them all with uneliminate, against the reference
// tableau doing the same. Both phases are timed separately per iteration; the tableau is rebuilt
// between iterations with the timer paused.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>

#include "reference_tableau.h"
#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/tableau.h"
#include "workload.h"

using vorn::bench::make_sparse_system;
using vorn::bench::ReferenceTableau;
using vorn::la::Tableau;
using vorn::la::VarSet;

namespace {

// Every `stride`-th structural variable: 10% or 50% of them.
std::vector<int> chosen(int structurals, int percent) {
    std::vector<int> vars;
    int stride = 100 / percent;
    for (int v = 1; v <= structurals; v += stride)
        vars.push_back(v);
    return vars;
}

// Times the two phases separately on a tableau built afresh, untimed, for every iteration:
// `eliminate(t)`, then `restore(t)`, which returns how many variables it restored.
template <class Build, class Eliminate, class Restore>
void time_phases(benchmark::State& state, Build build, Eliminate eliminate, Restore restore) {
    using Clock = std::chrono::steady_clock;
    double eliminate_ns = 0, restore_ns = 0;
    std::size_t restored = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto t = build();
        state.ResumeTiming();
        auto start = Clock::now();
        eliminate(*t);
        auto middle = Clock::now();
        restored = restore(*t);
        auto end = Clock::now();
        eliminate_ns += std::chrono::duration<double, std::nano>(middle - start).count();
        restore_ns += std::chrono::duration<double, std::nano>(end - middle).count();
        state.PauseTiming();
        t.reset();
        state.ResumeTiming();
    }
    auto n = static_cast<double>(state.iterations()) * static_cast<double>(restored);
    state.counters["ns_per_elimination"] = eliminate_ns / n;
    state.counters["ns_per_restoration"] = restore_ns / n;
}

// Arguments: rows (as many structural variables), percent of them to eliminate.
void BM_EliminateRestore(benchmark::State& state) {
    auto rows = static_cast<int>(state.range(0));
    auto system = make_sparse_system(rows, rows, 3, 5, 4);
    VarSet set;
    for (int v : chosen(rows, static_cast<int>(state.range(1))))
        set.insert(v);
    time_phases(
        state, [&] { return vorn::bench::checked_tableau(system); },
        [&](Tableau& t) { t.eliminate_variables(set); },
        [](Tableau& t) {
            std::vector<int> order;
            for (const auto& [v, pos] : t.elim_index())
                order.push_back(v);
            for (int v : order)
                if (t.elim_index().find(v) != nullptr) t.uneliminate(v, nullptr);
            return order.size();
        });
}

void BM_EliminateRestore_reference(benchmark::State& state) {
    auto rows = static_cast<int>(state.range(0));
    auto system = make_sparse_system(rows, rows, 3, 5, 4);
    auto vars = chosen(rows, static_cast<int>(state.range(1)));
    std::vector<int> done;
    time_phases(
        state,
        [&] {
            auto t = std::make_unique<ReferenceTableau>();
            for (const auto& eq : system.equations)
                t->add_equation(eq.get_basic_var(), ReferenceTableau::row_of(eq));
            return t;
        },
        [&](ReferenceTableau& t) {
            done.clear();
            for (int v : vars)
                if (t.rows().count(v) || t.cols().count(v)) {
                    t.eliminate(v);
                    done.push_back(v);
                }
        },
        [&](ReferenceTableau& t) {
            for (int v : done)
                t.restore_if_eliminated(v);
            return done.size();
        });
}

BENCHMARK(BM_EliminateRestore)
    ->ArgsProduct({{1000, 10000, 100000, 1000000}, {10, 50}})
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EliminateRestore_reference)
    ->ArgsProduct({{1000, 10000, 100000}, {10, 50}})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

// Solving m random equations with 4 entries over 2m variables: one eliminate_variables call
// (ascending order) against eliminate_greedy (fewest rows first, in independent batches).
void solve_order(benchmark::State& state, bool greedy) {
    int m = static_cast<int>(state.range(0));
    auto system = make_sparse_system(m, 2 * m, 4, 4, 6);
    VarSet all;
    for (int v = 1; v <= 2 * m; ++v)
        all.insert(v);
    std::size_t fill = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto t = vorn::bench::checked_tableau(system);
        state.ResumeTiming();
        if (greedy)
            vorn::la::eliminate_greedy(*t, all);
        else
            t->eliminate_variables(all);
        state.PauseTiming();
        fill = 0;
        for (const auto& [v, eq] : t->elim_eqs())
            fill += eq->coeffs_.size();
        t.reset();
        state.ResumeTiming();
    }
    state.counters["stored_coefficients"] = static_cast<double>(fill);
}
void BM_SolveAscending(benchmark::State& s) {
    solve_order(s, false);
}
void BM_SolveGreedy(benchmark::State& s) {
    solve_order(s, true);
}
BENCHMARK(BM_SolveAscending)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SolveGreedy)
    ->Arg(1000)
    ->Arg(3000)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
