// Tight-row splits of the SAT search (lra/tight_split.h): at a full assignment whose vertex is
// fractional, the slacks of atoms over Int variables at a bound, taken as equalities, may have no
// integer solution; the split atom T ≤ ⌊C⌋ from their multipliers then cuts the vertex off on
// both sides. Any split on an integral term is sound, so it needs no proof of its own, as for
// lattice splits: the side that contradicts the tight bounds closes by a Farkas lemma. When a
// fractional Int variable is unbounded on a side, the free non-basic variables count as fixed
// too, so that the split follows the vertex instead of a single variable. A split that combines
// earlier splits' rows is taken only when short (below). Counted as a branch, within the
// budget.

#include "vorn/lra/tight_split.h"
#include "arith_theory.h"
#include "vorn/lra/integer_bounds.h"

#include <algorithm>

namespace vorn::smt {

// No atom of the problem, nor of another step, is on the slack.
bool ArithTheory::is_split_row(int slack) const {
    const auto& on = atoms_on_[static_cast<std::size_t>(slack)];
    return !on.empty() && std::all_of(on.begin(), on.end(), [&](std::uint32_t index) {
        return index < split_atom_.size() && split_atom_[index] != 0;
    });
}

bool ArithTheory::tight_split() {
    // An integral vertex (or none of the problem's variables Int) gives every integral term an
    // integral value, so no split: the tight system is not worth building (on the fuzzer-like
    // Real scripts it was most of the time of every full check).
    if (std::all_of(integer_vars_.begin(), integer_vars_.end(),
                    [&](int s) { return lra::is_integral(simplex_.delta_value(s)); }))
        return false;
    std::vector<int> slacks;
    for (std::size_t v = 1; v < atoms_on_.size(); ++v)
        if (!atoms_on_[v].empty() && simplex_.is_slack(static_cast<int>(v)))
            slacks.push_back(static_cast<int>(v));
    auto split = lra::tight_term_split(simplex_, integer_vars_, slacks, kMaxLatticeEntries,
                                       lra::fractional_unbounded(simplex_, integer_vars_));
    // A split on the problem's own rows is always taken; one that combines earlier splits' rows
    // only when it is short, else the search branches on a variable. Each split's term is a
    // tight row of the next vertex, so splits on splits compound their terms: on incremental
    // scripts (the wide certificate generator) runs of them made hundreds of splits with
    // coefficients growing to 10³–10⁵, over vertices near 10²⁰ to 10³⁵, each pivot dearer,
    // without an end. The own rows' splits need no bound: their multipliers lie in [0, 1), so
    // their coefficients are bounded by the rows' (docs/integers.md, "Termination").
    if (split && lra::has_compound_coefficient(*split) &&
        std::any_of(split->sources.begin(), split->sources.end(),
                    [&](int s) { return is_split_row(s); }))
        return false;
    if (!split) return false;
    if (!take_split()) return false;
    ++branches_;
    ++lattice_splits_;
    LinearExpr::Entries term;
    for (const auto& e : split->term)
        term.push_back({problem_var_[static_cast<std::size_t>(e.var)], e.coeff});
    sat::Var p = new_search_atom(term, Relation::Le, split->below);
    auto index = static_cast<std::size_t>(atom_of_[p]);
    if (split_atom_.size() <= index) split_atom_.resize(index + 1);
    split_atom_[index] = 1;
    sat_.set_phase(p, split->value - split->below > QNumber(1, 2));
    return true;
}

}  // namespace vorn::smt
