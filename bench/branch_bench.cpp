// Branch and bound on small generated integer problems. Each instance has n integer variables
// boxed in [0, 4] around a hidden point p and n constraints of 3 entries, each a range
// a·p ≤ Σ a·x ≤ a·p + 1 (the square family of lra_instances.h, boxed and integral), so the
// relaxation is a thin polytope whose vertices are rarely integral and the search must split.
// An infeasible instance multiplies the first constraint by 3 and asks for 3·a·p + 1 ≤ Σ ≤
// 3·a·p + 2, which no integer point meets; no gcd test sees it (it is not an equality), so
// the tree must refute it. Counters: nodes, nodes per second, the deepest split, the answer
// (Unknown past the default node limit is reported, not an error).

#include <benchmark/benchmark.h>

#include <functional>

#include "lra_instances.h"
#include "vorn/lra/branch_and_bound.h"

using vorn::QNumber;
using vorn::lra::BranchAndBound;
using vorn::lra::Relation;
using vorn::lra::Result;
using vorn::lra::Simplex;

namespace {

void build(Simplex& s, BranchAndBound& bb, int n, bool feasible, unsigned seed) {
    std::mt19937_64 rng(seed * 7919ULL + static_cast<unsigned>(n));
    std::vector<std::int64_t> p(static_cast<std::size_t>(n) + 1);
    vorn::lra::Reason reason = 0;
    for (int v = 1; v <= n; ++v) {
        p[v] = vorn::bench::detail::draw(rng, 0, 4);
        s.new_variable();
        bb.set_integer(v);
        s.assert_lower(v, 0, false, reason++);
        s.assert_upper(v, 4, false, reason++);
    }
    for (int k = 0; k < n; ++k) {
        vorn::bench::LinearConstraint c;
        std::int64_t at_p = vorn::bench::detail::random_terms(rng, 3, n, p, c);
        std::int64_t factor = k == 0 && !feasible ? 3 : 1, shift = factor == 3 ? 1 : 0;
        vorn::lra::TermEntries entries;
        for (const auto& [v, a] : c.terms)
            entries.push_back({v, QNumber(factor * a)});
        auto term = s.term_variable(entries);
        s.assert_term(term, Relation::Ge, factor * at_p + shift, reason);
        s.assert_term(term, Relation::Le, factor * at_p + shift + 1, reason++);
    }
}

void run(benchmark::State& state, const std::function<void(Simplex&, BranchAndBound&)>& load,
         bool feasible) {
    std::uint64_t nodes = 0, depth = 0;
    double seconds = 0;
    Result answer = Result::Unknown;
    for (auto _ : state) {
        Simplex s;
        BranchAndBound bb(s);
        load(s, bb);
        answer = bb.check();
        nodes = bb.stats().nodes;
        depth = bb.stats().max_depth;
        seconds = bb.stats().seconds;
    }
    if (answer == (feasible ? Result::Unsat : Result::Sat)) state.SkipWithError("wrong answer");
    state.counters["nodes"] = static_cast<double>(nodes);
    state.counters["nodes_per_s"] = seconds > 0 ? static_cast<double>(nodes) / seconds : 0;
    state.counters["max_depth"] = static_cast<double>(depth);
    state.counters["answer"] = answer == Result::Sat ? 1 : answer == Result::Unsat ? 0 : -1;
}

// Args: n, feasible (1) or infeasible (0).
void BM_BranchSquare(benchmark::State& state) {
    int n = static_cast<int>(state.range(0));
    bool feasible = state.range(1) != 0;
    run(
        state, [&](Simplex& s, BranchAndBound& bb) { build(s, bb, n, feasible, 1); }, feasible);
}
BENCHMARK(BM_BranchSquare)->ArgsProduct({{10, 20, 40, 80}, {1, 0}})->Unit(benchmark::kMillisecond);

// The simplex benchmark's sparse family with every variable integral. Args: m, feasible.
void BM_BranchSparse(benchmark::State& state) {
    bool feasible = state.range(1) != 0;
    auto inst = vorn::bench::make_sparse_instance(static_cast<int>(state.range(0)), feasible, 1);
    auto load = [&](Simplex& s, BranchAndBound& bb) {
        vorn::lra::Reason reason = 0;
        for (int v = 1; v <= inst.variables; ++v) {
            s.new_variable();
            bb.set_integer(v);
            s.assert_lower(v, inst.boxes[v].first, false, reason++);
            s.assert_upper(v, inst.boxes[v].second, false, reason++);
        }
        for (const auto& c : inst.constraints) {
            vorn::lra::TermEntries entries;
            for (const auto& [v, a] : c.terms)
                entries.push_back({v, QNumber(a)});
            auto term = s.term_variable(entries);
            if (c.has_lower) s.assert_term(term, Relation::Ge, c.lower, reason);
            if (c.has_upper) s.assert_term(term, Relation::Le, c.upper, reason);
            ++reason;
        }
    };
    run(state, load, feasible);
}
BENCHMARK(BM_BranchSparse)->ArgsProduct({{100, 1000}, {1, 0}})->Unit(benchmark::kMillisecond);

}  // namespace
