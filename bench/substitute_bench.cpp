// One substitution of a 20-entry definition into a 20-entry row, vorn's Equation against the
// same operation on GMP rationals in a std::map. Each iteration substitutes x := y + Σ a·z and
// then y := x − Σ a·z, which restores the row exactly, so the loop runs in the steady state;
// the reported time is per substitution.

#include <benchmark/benchmark.h>
#include <gmpxx.h>

#include <map>
#include <random>

#include "alloc_counter.h"
#include "reference_tableau.h"
#include "vorn/la/equation.h"

using vorn::QNumber;
using vorn::la::Equation;

namespace {

using vorn::bench::MapRow;
using vorn::bench::substitute;

constexpr int kX = 1;
constexpr int kY = 2;

struct Workload {
    Equation row, forward, backward;
};

QNumber coefficient(std::mt19937_64& rng, bool big) {
    QNumber c(static_cast<std::int64_t>(rng() % 9) + 1, static_cast<std::int64_t>(rng() % 4) + 1);
    if (rng() % 2) c.negate();
    if (big) c *= QNumber::from_string("1267650600228229401496703205653/717897987691852588770249");
    return c;
}

// row: x and 19 variables 10..28; forward: x = y + Σ a·z over z in 20..37 (20 entries).
Workload make_workload(bool big) {
    std::mt19937_64 rng(42);
    std::vector<Equation::VarCoeff> row{{kX, coefficient(rng, big)}, {100, QNumber(-1)}};
    for (int v = 10; v < 28; ++v)
        row.push_back({v, coefficient(rng, big)});
    std::vector<Equation::VarCoeff> fwd{{kX, QNumber(-1)}, {kY, QNumber(1)}};
    std::vector<Equation::VarCoeff> bwd{{kX, QNumber(1)}, {kY, QNumber(-1)}};
    for (int v = 20; v < 38; ++v) {
        QNumber a = coefficient(rng, big);
        fwd.push_back({v, a});
        bwd.push_back({v, -a});
    }
    return {Equation(100, std::move(row)), Equation(kX, std::move(fwd)),
            Equation(kY, std::move(bwd))};
}

void BM_EquationSubstitute(benchmark::State& state) {
    Workload w = make_workload(state.range(0) != 0);
    std::vector<int> dropped;
    std::vector<Equation::VarCoeff> scratch;
    std::uint64_t allocations = vorn::bench::allocation_count();
    for (auto _ : state) {
        dropped.clear();
        w.row.substitute_var(kX, w.forward, &dropped, scratch);
        dropped.clear();
        w.row.substitute_var(kY, w.backward, &dropped, scratch);
        benchmark::DoNotOptimize(w.row.coeffs_.data());
    }
    allocations = vorn::bench::allocation_count() - allocations;
    state.SetItemsProcessed(state.iterations() * 2);
    state.counters["allocs_per_substitution"] =
        static_cast<double>(allocations) / static_cast<double>(state.iterations() * 2);
    state.SetLabel(state.range(0) ? "big coefficients" : "small coefficients");
}
BENCHMARK(BM_EquationSubstitute)->Arg(0)->Arg(1);

void BM_GmpMapSubstitute(benchmark::State& state) {
    Workload w = make_workload(state.range(0) != 0);
    using vorn::bench::ReferenceTableau;
    MapRow row = ReferenceTableau::row_of(w.row), fwd = ReferenceTableau::row_of(w.forward),
           bwd = ReferenceTableau::row_of(w.backward);
    for (auto _ : state) {
        substitute(row, kX, fwd);
        substitute(row, kY, bwd);
        benchmark::DoNotOptimize(row.size());
    }
    state.SetItemsProcessed(state.iterations() * 2);
    state.SetLabel(state.range(0) ? "big coefficients" : "small coefficients");
}
BENCHMARK(BM_GmpMapSubstitute)->Arg(0)->Arg(1);

}  // namespace
