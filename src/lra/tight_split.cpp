// The tight rows of a vertex, solved over the integers; see tight_split.h.

#include "vorn/lra/tight_split.h"

#include <algorithm>
#include <unordered_map>

#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/lattice.h"

#include "integer_math.h"

namespace vorn::lra {

namespace {

// The bound var sits at, when it sits at one (a strict bound holds it δ inside).
const DeltaRational* bound_at(const Simplex& simplex, int var) {
    const BoundTrail& bounds = simplex.bounds();
    const DeltaRational& v = simplex.delta_value(var);
    if (bounds.has_lower(var) && bounds.lower_value(var) == v) return &v;
    if (bounds.has_upper(var) && bounds.upper_value(var) == v) return &v;
    return nullptr;
}

// One row of the tight system, dense over the columns met so far.
struct TightRow {
    std::vector<QNumber> coeffs;
    QNumber rhs, rhs_delta;  // the bound c + k·δ
    std::vector<int> from;   // the candidate slacks combined into it
};

void add_sources(std::vector<int>& to, const std::vector<int>& from) {
    for (int s : from)
        if (std::find(to.begin(), to.end(), s) == to.end()) to.push_back(s);
}

// How the integer variables at a bound enter the system (fixed ones, lower = upper, are always
// put in at their value).
enum class AtBound {
    Column,  // free columns
    Row,     // rows x = c after the tight rows: a refutation may combine them with the rows
    Free,    // put in at their bound, and so are non-basic ones between bounds, at their values
};

// The tight system of the vertex with every rational column eliminated (a Real variable is
// determined by the rows, so only combinations without it say anything about the integers),
// solved over the integers. The vertex satisfies each row up to the δ part of its bound, so a
// combination with an integral term and a constant C that is no integer puts the term strictly
// between ⌊C⌋ and ⌊C⌋ + 1 there.
std::optional<TermSplit> split_from(const Simplex& simplex, std::span<const int> integers,
                                    std::span<const int> slacks, std::size_t max_entries,
                                    AtBound at_bound) {
    const BoundTrail& bounds = simplex.bounds();
    std::unordered_map<int, QNumber> fixed;
    std::unordered_map<int, char> integer;
    std::unordered_map<int, QNumber> bound_rows;
    for (int x : integers) {
        integer.emplace(x, 1);
        const DeltaRational* at = bound_at(simplex, x);
        if (at != nullptr && is_integral(*at) &&
            (at_bound != AtBound::Column || bounds.is_fixed(x))) {
            if (at_bound != AtBound::Free && !bounds.is_fixed(x))
                bound_rows.emplace(x, at->real());
            else
                fixed.emplace(x, at->real());
            continue;
        }
        const DeltaRational& v = simplex.delta_value(x);
        if (at_bound == AtBound::Free && is_integral(v) && !simplex.tableau().rows().contains(x))
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
    std::vector<TightRow> rows;
    auto add_entry = [&](TightRow& row, int var, const QNumber& coeff) {
        if (auto f = fixed.find(var); f != fixed.end()) {
            row.rhs -= coeff * f->second;
            return;
        }
        auto [it, added] = column.emplace(var, var_of.size());
        if (added) var_of.push_back(var);
        if (row.coeffs.size() <= it->second) row.coeffs.resize(it->second + 1);
        row.coeffs[it->second] += coeff;
    };
    for (int s : tight) {
        const DeltaRational& at = *bound_at(simplex, s);
        rows.push_back({{}, at.real(), at.delta(), {s}});
        for (const auto& e : simplex.slack_term(s))
            add_entry(rows.back(), e.var, e.coeff);
    }
    for (std::size_t c = 0; c < var_of.size(); ++c)
        if (auto b = bound_rows.find(var_of[c]); b != bound_rows.end()) {
            rows.push_back({{}, b->second, QNumber(), {}});
            add_entry(rows.back(), var_of[c], QNumber(1));
        }
    // A rational variable at a bound is a tight row of its own.
    for (std::size_t c = 0; c < var_of.size(); ++c)
        if (!integer.contains(var_of[c]))
            if (const DeltaRational* at = bound_at(simplex, var_of[c])) {
                rows.push_back({{}, at->real(), at->delta(), {}});
                add_entry(rows.back(), var_of[c], QNumber(1));
            }
    for (TightRow& row : rows)
        row.coeffs.resize(var_of.size());
    if (rows.size() * var_of.size() > max_entries) return std::nullopt;

    // Eliminate each rational column with one of its rows, which then goes.
    for (std::size_t c = 0; c < var_of.size(); ++c) {
        if (integer.contains(var_of[c])) continue;
        auto pivot = std::find_if(rows.begin(), rows.end(),
                                  [&](const TightRow& r) { return !r.coeffs[c].is_zero(); });
        if (pivot == rows.end()) continue;
        TightRow p = std::move(*pivot);
        rows.erase(pivot);
        for (TightRow& r : rows) {
            if (r.coeffs[c].is_zero()) continue;
            QNumber factor = r.coeffs[c] / p.coeffs[c];
            for (std::size_t j = 0; j < var_of.size(); ++j)
                if (!p.coeffs[j].is_zero()) r.coeffs[j].add_product(-factor, p.coeffs[j]);
            r.rhs.add_product(-factor, p.rhs);
            r.rhs_delta.add_product(-factor, p.rhs_delta);
            add_sources(r.from, p.from);
        }
    }
    // A row left with a δ pins an integral term to c + k·δ, which no integer point meets.
    for (const TightRow& r : rows) {
        if (r.rhs_delta.is_zero()) continue;
        TermSplit split;
        for (std::size_t j = 0; j < var_of.size(); ++j)
            if (!r.coeffs[j].is_zero()) split.term.push_back({var_of[j], r.coeffs[j]});
        std::optional<QNumber> scale = coprime_scale(split.term);
        if (!scale) continue;
        for (auto& e : split.term)
            e.coeff *= *scale;
        split.value = r.rhs * *scale;
        split.sources = r.from;
        split.below = floor_of(DeltaRational(split.value, r.rhs_delta * *scale));
        return split;
    }
    SparseRows sparse;
    std::vector<QNumber> rhs;
    std::vector<const TightRow*> row_of;
    for (const TightRow& r : rows) {
        sparse.emplace_back();
        for (std::size_t j = 0; j < var_of.size(); ++j)
            if (!r.coeffs[j].is_zero()) sparse.back().emplace_back(j, r.coeffs[j]);
        if (sparse.back().empty() && r.rhs.is_zero()) {
            sparse.pop_back();
            continue;
        }
        rhs.push_back(r.rhs);
        row_of.push_back(&r);
    }
    if (sparse.empty()) return std::nullopt;
    LatticeOptions options;
    options.reduce_basis = false;
    LatticeAnswer answer = solve_sparse_over_integers(sparse, rhs, var_of.size(), options);
    if (answer.kind != LatticeAnswer::Kind::NoIntegerSolution) return std::nullopt;

    const std::vector<QNumber>& t = answer.refuting_term;
    TermSplit split;
    split.value = answer.refuting_constant;
    for (std::size_t i = 0; i < answer.multipliers.size(); ++i)
        if (!answer.multipliers[i].is_zero()) add_sources(split.sources, row_of[i]->from);
    for (std::size_t col = 0; col < t.size(); ++col)
        if (!t[col].is_zero()) split.term.push_back({var_of[col], t[col]});
    if (split.term.empty()) return std::nullopt;  // not even a rational solution
    split.below = floor_of(DeltaRational(split.value));
    return split;
}

}  // namespace

bool fractional_unbounded(const Simplex& simplex, std::span<const int> integers) {
    const BoundTrail& bounds = simplex.bounds();
    return std::any_of(integers.begin(), integers.end(), [&](int x) {
        return !is_integral(simplex.delta_value(x)) &&
               (!bounds.has_lower(x) || !bounds.has_upper(x));
    });
}

// The tight rows alone first, the integer variables at a single bound (often the last branches)
// left free: their split is the cut that the rows imply, where putting the branches in as values
// would give back a split on one variable and the vertex would dive along the rows. Then the
// bounds as rows of their own, which a refutation combines with the tight rows (putting them in
// as values dove on small mixed problems that the rows answer in a few splits); fixed values go
// in as values (2x − 2y + z ≥ 1 with z = 0 gives x − y). Last the free variables' values, which
// only choose where the vertex is.
std::optional<TermSplit> tight_term_split(const Simplex& simplex, std::span<const int> integers,
                                          std::span<const int> slacks, std::size_t max_entries,
                                          bool free_as_fixed) {
    if (auto split = split_from(simplex, integers, slacks, max_entries, AtBound::Column))
        return split;
    if (auto split = split_from(simplex, integers, slacks, max_entries, AtBound::Row)) return split;
    if (!free_as_fixed) return std::nullopt;
    return split_from(simplex, integers, slacks, max_entries, AtBound::Free);
}

bool has_compound_coefficient(const TermSplit& split) {
    const QNumber bound(100);
    return std::any_of(split.term.begin(), split.term.end(),
                       [&](const auto& e) { return bound < e.coeff || e.coeff < -bound; });
}

}  // namespace vorn::lra
