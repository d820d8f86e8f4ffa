// The tight rows of a vertex, solved over the integers; see tight_split.h.

#include "vorn/lra/tight_split.h"

#include <algorithm>
#include <unordered_map>

#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/lattice.h"

namespace vorn::lra {

namespace {

// The bound var sits at, when it sits at one without δ.
const QNumber* bound_at(const Simplex& simplex, int var) {
    const BoundTrail& bounds = simplex.bounds();
    const DeltaRational& v = simplex.delta_value(var);
    if (bounds.has_lower(var) && bounds.lower_value(var) == v && v.delta().is_zero())
        return &bounds.lower_value(var).real();
    if (bounds.has_upper(var) && bounds.upper_value(var) == v && v.delta().is_zero())
        return &bounds.upper_value(var).real();
    return nullptr;
}

}  // namespace

bool fractional_unbounded(const Simplex& simplex, std::span<const int> integers) {
    const BoundTrail& bounds = simplex.bounds();
    return std::any_of(integers.begin(), integers.end(), [&](int x) {
        return !is_integral(simplex.delta_value(x)) &&
               (!bounds.has_lower(x) || !bounds.has_upper(x));
    });
}

namespace {

std::optional<TermSplit> split_from(const Simplex& simplex, std::span<const int> integers,
                                    std::span<const int> slacks, std::size_t max_entries,
                                    bool free_as_fixed) {
    std::unordered_map<int, QNumber> fixed;
    for (int x : integers) {
        if (const QNumber* at = bound_at(simplex, x); at != nullptr && at->is_integer()) {
            fixed.emplace(x, *at);
            continue;
        }
        const DeltaRational& v = simplex.delta_value(x);
        if (free_as_fixed && is_integral(v) && !simplex.tableau().rows().contains(x))
            fixed.emplace(x, v.real());
    }
    std::vector<int> tight;
    std::size_t entries = 0;
    for (int s : slacks)
        if (bound_at(simplex, s) != nullptr) {
            tight.push_back(s);
            entries += simplex.slack_term(s).size();
        }
    std::size_t columns = std::min(entries, integers.size());
    if (tight.empty() || tight.size() * columns > max_entries) return std::nullopt;

    std::unordered_map<int, std::size_t> column;
    std::vector<int> var_of;
    SparseRows sparse;
    std::vector<QNumber> rhs;
    for (int s : tight) {
        sparse.emplace_back();
        rhs.push_back(*bound_at(simplex, s));
        for (const auto& e : simplex.slack_term(s)) {
            if (auto f = fixed.find(e.var); f != fixed.end()) {
                rhs.back() -= e.coeff * f->second;
                continue;
            }
            auto [it, added] = column.emplace(e.var, var_of.size());
            if (added) var_of.push_back(e.var);
            sparse.back().emplace_back(it->second, e.coeff);
        }
    }
    if (var_of.empty()) return std::nullopt;
    LatticeOptions options;
    options.reduce_basis = false;
    LatticeAnswer answer = solve_sparse_over_integers(sparse, rhs, var_of.size(), options);
    if (answer.kind != LatticeAnswer::Kind::NoIntegerSolution) return std::nullopt;

    const std::vector<QNumber>& t = answer.refuting_term;
    TermSplit split;
    split.value = answer.refuting_constant;
    for (std::size_t col = 0; col < t.size(); ++col)
        if (!t[col].is_zero()) split.term.push_back({var_of[col], t[col]});
    if (split.term.empty()) return std::nullopt;  // not even a rational solution
    split.below = floor_of(DeltaRational(split.value));
    return split;
}

}  // namespace

// The bounds alone first: their split is the one that refutes (2x − 2y ≥ 1, z = 0 gives x − y);
// the free variables' values only choose where the vertex is.
std::optional<TermSplit> tight_term_split(const Simplex& simplex, std::span<const int> integers,
                                          std::span<const int> slacks, std::size_t max_entries,
                                          bool free_as_fixed) {
    if (auto split = split_from(simplex, integers, slacks, max_entries, false)) return split;
    if (!free_as_fixed) return std::nullopt;
    return split_from(simplex, integers, slacks, max_entries, true);
}

}  // namespace vorn::lra
