// The simplex on generated instances (lra_instances.h): each iteration builds a Simplex from
// the instance in memory (variables, box bounds, one term and its bounds per constraint) and
// checks it once. Nothing is parsed; bench/solvers.py times other solvers on the same instances
// written as files. Counters: the build and the check alone (wall; the check also in CPU time),
// pivots, pivots per CPU second of check, switches to Bland's rule, the mean row length after
// the check, heap bytes in use after the check (glibc mallinfo2, malloc headers included), and
// the answer the instance has by construction (a wrong answer fails the benchmark).

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <chrono>
#include <ctime>

#include "lra_instances.h"
#include "vorn/lra/simplex.h"

using vorn::QNumber;
using vorn::bench::LraInstance;
using vorn::lra::Relation;
using vorn::lra::Result;
using vorn::lra::Simplex;

namespace {

void load(const LraInstance& inst, Simplex& s) {
    s.reserve(inst.variables + static_cast<int>(inst.constraints.size()),
              2 * (inst.variables + inst.constraints.size()));
    for (int v = 1; v <= inst.variables; ++v)
        s.new_variable();
    vorn::lra::Reason reason = 0;
    for (int v = 1; inst.boxed && v <= inst.variables; ++v) {
        s.assert_lower(v, inst.boxes[v].first, false, reason++);
        s.assert_upper(v, inst.boxes[v].second, false, reason++);
    }
    vorn::lra::TermEntries entries;
    for (const auto& c : inst.constraints) {
        entries.clear();
        for (const auto& [v, a] : c.terms)
            entries.push_back({v, QNumber(a)});
        auto term = s.term_variable(entries);
        if (c.has_lower && c.has_upper && c.lower == c.upper) {
            s.assert_term(term, Relation::Eq, c.lower, reason++);
            continue;
        }
        if (c.has_lower) s.assert_term(term, Relation::Ge, c.lower, reason);
        if (c.has_upper) s.assert_term(term, Relation::Le, c.upper, reason);
        ++reason;
    }
}

// CPU time of this thread in ms: the machine is shared, and waiting for a core is not work.
double thread_cpu_ms() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
}

double mean_row_length(const vorn::la::Tableau& t) {
    std::size_t entries = 0;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        entries += it.value()->coeffs_.size();
    return t.rows().size() == 0 ? 0 : static_cast<double>(entries) / t.rows().size();
}

void run(benchmark::State& state, const LraInstance& inst) {
    double build_ms = 0, check_ms = 0, check_cpu_ms = 0, heap = 0;
    bool right = true;
    using Clock = std::chrono::steady_clock;
    auto ms_since = [](Clock::time_point start) {
        return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    };
    for (auto _ : state) {
        std::size_t before = mallinfo2().uordblks;
        auto start = Clock::now();
        Simplex s;
        load(inst, s);
        build_ms = ms_since(start);
        start = Clock::now();
        double cpu_start = thread_cpu_ms();
        Result r = s.check();
        check_cpu_ms = thread_cpu_ms() - cpu_start;
        check_ms = ms_since(start);
        heap = static_cast<double>(mallinfo2().uordblks - before);
        right = right && (r == Result::Sat) == inst.feasible;
        state.counters["pivots"] = static_cast<double>(s.stats().pivots);
        state.counters["bland_switches"] = static_cast<double>(s.stats().bland_switches);
        state.counters["row_length"] = mean_row_length(s.tableau());
    }
    if (!right) state.SkipWithError("wrong answer");
    state.counters["build_ms"] = build_ms;
    state.counters["check_ms"] = check_ms;
    state.counters["check_cpu_ms"] = check_cpu_ms;
    state.counters["pivots_per_s"] =
        check_cpu_ms > 0 ? state.counters["pivots"] / (check_cpu_ms / 1e3) : 0;
    state.counters["heap_MB"] = heap / 1e6;
    state.counters["sat"] = inst.feasible ? 1 : 0;
}

// Args: m, feasible (1) or infeasible (0).
void BM_SimplexSparse(benchmark::State& state) {
    run(state, vorn::bench::make_sparse_instance(static_cast<int>(state.range(0)),
                                                 state.range(1) != 0, 1));
}
BENCHMARK(BM_SimplexSparse)
    ->ArgsProduct({{1000, 10000, 100000}, {1, 0}})
    ->Unit(benchmark::kMillisecond);

void BM_SimplexSquare(benchmark::State& state) {
    run(state, vorn::bench::make_square_instance(static_cast<int>(state.range(0)), 1));
}
// Rows fill in to dense with coefficients of hundreds of bits: 150 is as far as a few minutes go.
BENCHMARK(BM_SimplexSquare)->DenseRange(50, 150, 25)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
