#pragma once

// Deterministic linear-arithmetic instances for the simplex benchmarks. The same generator
// feeds the in-process benchmark (simplex_bench) and the files that other solvers read
// (write_lra_instances: SMT-LIB and MPS), so every side decides the same problems.
//
// Sparse family (m constraints of about 4 entries over 2m variables, every variable boxed):
// a hidden integer point p lies in every box, and each constraint  Σ a·x ⋈ b  holds at p with
// b within 2 of a·p (⋈ is ≤, ≥ or, for one constraint in ten, =). An infeasible instance
// replaces one constraint by  Σ λ_i·t_i ≥ Σ λ_i·b_i + 1  for three ≤ constraints t_i ≤ b_i of
// the feasible one and multipliers λ_i in 1..3, which contradicts their positive combination.
// Square family (m constraints of 3 entries over m variables, no boxes): each constraint is a
// range  a·p ≤ Σ a·x ≤ a·p + 1  around a hidden point, so the feasible set is a thin polytope
// near p. Coefficients are integers in −9..9 without 0.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace vorn::bench {

struct LinearConstraint {
    std::vector<std::pair<int, std::int64_t>> terms;  // variable (from 1), coefficient
    std::int64_t lower;                               // Σ ≥ lower, when has_lower
    std::int64_t upper;                               // Σ ≤ upper, when has_upper
    bool has_lower;
    bool has_upper;
};

struct LraInstance {
    int variables = 0;
    bool boxed = false;
    std::vector<std::pair<std::int64_t, std::int64_t>> boxes;  // per variable from 1: lo, hi
    std::vector<LinearConstraint> constraints;
    bool feasible = true;  // by construction
};

namespace detail {

inline std::int64_t draw(std::mt19937_64& rng, std::int64_t lo, std::int64_t hi) {
    return lo + static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(hi - lo + 1));
}

inline std::int64_t coefficient(std::mt19937_64& rng) {
    std::int64_t c = draw(rng, 1, 9);
    return rng() % 2 == 0 ? c : -c;
}

// `count` distinct variables from 1..n with random coefficients, and their value at p.
inline std::int64_t random_terms(std::mt19937_64& rng, int count, int n,
                                 const std::vector<std::int64_t>& p, LinearConstraint& c) {
    std::int64_t at_p = 0;
    while (static_cast<int>(c.terms.size()) < count) {
        int v = static_cast<int>(draw(rng, 1, n));
        bool repeated = false;
        for (const auto& t : c.terms)
            repeated = repeated || t.first == v;
        if (repeated) continue;
        c.terms.emplace_back(v, coefficient(rng));
        at_p += c.terms.back().second * p[v];
    }
    return at_p;
}

}  // namespace detail

inline LraInstance make_sparse_instance(int m, bool feasible, unsigned seed) {
    std::mt19937_64 rng(seed * 1000003ULL + static_cast<unsigned>(m));
    LraInstance inst;
    inst.variables = 2 * m;
    inst.boxed = true;
    std::vector<std::int64_t> p(static_cast<std::size_t>(inst.variables) + 1);
    inst.boxes.resize(p.size());
    for (int v = 1; v <= inst.variables; ++v) {
        p[v] = detail::draw(rng, -20, 20);
        inst.boxes[v] = {p[v] - detail::draw(rng, 0, 10), p[v] + detail::draw(rng, 0, 10)};
    }
    inst.constraints.resize(static_cast<std::size_t>(m));
    for (LinearConstraint& c : inst.constraints) {
        std::int64_t at_p = detail::random_terms(rng, 4, inst.variables, p, c);
        auto kind = detail::draw(rng, 0, 19);  // 0-8 ≤, 9-17 ≥, 18-19 =
        c.has_upper = kind <= 8 || kind >= 18;
        c.has_lower = kind >= 9;
        c.upper = kind >= 18 ? at_p : at_p + detail::draw(rng, 0, 2);
        c.lower = kind >= 18 ? at_p : at_p - detail::draw(rng, 0, 2);
    }
    inst.feasible = feasible;
    if (feasible) return inst;
    // Three ≤ constraints, scaled and summed, and their sum pushed past their bound.
    std::size_t replaced = rng() % inst.constraints.size();
    LinearConstraint contradiction{{}, 1, 0, true, false};
    std::vector<std::int64_t> sum(p.size(), 0);
    for (int picked = 0; picked < 3;) {
        std::size_t k = rng() % inst.constraints.size();
        const LinearConstraint& c = inst.constraints[k];
        if (k == replaced || !c.has_upper || c.has_lower) continue;
        std::int64_t lambda = detail::draw(rng, 1, 3);
        for (const auto& [v, a] : c.terms)
            sum[v] += lambda * a;
        contradiction.lower += lambda * c.upper;
        ++picked;
    }
    for (int v = 1; v <= inst.variables; ++v)
        if (sum[v] != 0) contradiction.terms.emplace_back(v, sum[v]);
    inst.constraints[replaced] = contradiction;
    return inst;
}

inline LraInstance make_square_instance(int m, unsigned seed) {
    std::mt19937_64 rng(seed * 1000003ULL + static_cast<unsigned>(m) + 7);
    LraInstance inst;
    inst.variables = m;
    std::vector<std::int64_t> p(static_cast<std::size_t>(m) + 1);
    for (int v = 1; v <= m; ++v)
        p[v] = detail::draw(rng, -20, 20);
    inst.constraints.resize(static_cast<std::size_t>(m));
    for (LinearConstraint& c : inst.constraints) {
        std::int64_t at_p = detail::random_terms(rng, 3, m, p, c);
        c.has_lower = c.has_upper = true;
        c.lower = at_p;
        c.upper = at_p + 1;
    }
    return inst;
}

}  // namespace vorn::bench
