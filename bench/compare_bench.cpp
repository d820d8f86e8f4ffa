// Solving random sparse systems of equations (4 entries per equation, m equations over 2m
// variables) in the library: entering them through check() and eliminating every variable in a
// low-fill-in order. Other solvers are timed on the same kind of system as black-box programs
// reading files (bench/solvers.py), never linked.

#include <benchmark/benchmark.h>

#include <memory>
#include <random>
#include <vector>

#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/tableau.h"

namespace {

struct Term {
    int var;  // 1..2m
    long coeff;
};
struct SparseEquation {
    std::vector<Term> terms;
    long rhs;
};

std::vector<SparseEquation> make_system(int m) {
    std::mt19937_64 rng(12);
    std::vector<SparseEquation> system(static_cast<std::size_t>(m));
    for (auto& eq : system) {
        for (int i = 0; i < 4; ++i) {
            long c = static_cast<long>(rng() % 9) + 1;
            eq.terms.push_back({1 + static_cast<int>(rng() % (2 * m)), rng() % 2 ? c : -c});
        }
        eq.rhs = static_cast<long>(rng() % 19) - 9;
    }
    return system;
}

void BM_Solve_vorn(benchmark::State& state) {
    int m = static_cast<int>(state.range(0));
    auto system = make_system(m);
    vorn::la::VarSet vars;
    for (int v = 1; v <= 2 * m; ++v)
        vars.insert(v);
    for (auto _ : state) {
        auto t = std::make_unique<vorn::la::Tableau>(0);
        int slack = 2 * m;
        for (const auto& eq : system) {
            std::vector<vorn::la::Equation::VarCoeff> entries{{++slack, vorn::QNumber(-1)},
                                                              {0, vorn::QNumber(-eq.rhs)}};
            for (const auto& term : eq.terms)
                entries.push_back({term.var, vorn::QNumber(term.coeff)});
            t->add_equation(vorn::la::Equation(slack, std::move(entries)), false, nullptr);
        }
        t->check();
        vorn::la::eliminate_greedy(*t, vars);
        benchmark::DoNotOptimize(t->elim_eqs().size());
    }
    state.SetItemsProcessed(state.iterations() * m);
}
BENCHMARK(BM_Solve_vorn)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Arg(1000000)
    ->Unit(benchmark::kMillisecond);

}  // namespace
