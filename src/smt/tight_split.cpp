// Tight-row splits of the SAT search (lra/tight_split.h): at a full assignment whose vertex is
// fractional, the slacks of atoms over Int variables at a bound, taken as equalities, may have no
// integer solution; the split atom T ≤ ⌊C⌋ from their multipliers then cuts the vertex off on
// both sides. Any split on an integral term is sound, so it needs no proof of its own, as for
// lattice splits: the side that contradicts the tight bounds closes by a Farkas lemma. When a
// fractional Int variable is unbounded on a side, the free non-basic variables count as fixed
// too, so that the split follows the vertex instead of a single variable. Counted as a branch,
// within the budget.

#include "vorn/lra/tight_split.h"
#include "arith_theory.h"

#include <algorithm>

namespace vorn::smt {

bool ArithTheory::tight_split() {
    std::vector<int> slacks;
    for (std::size_t v = 1; v < atoms_on_.size(); ++v)
        if (!atoms_on_[v].empty() && simplex_.is_slack(static_cast<int>(v)))
            slacks.push_back(static_cast<int>(v));
    auto split = lra::tight_term_split(simplex_, integer_vars_, slacks, kMaxLatticeEntries,
                                       lra::fractional_unbounded(simplex_, integer_vars_));
    // Only short splits: each split's term becomes a tight row of the next vertex, so a run of
    // splits compounds their terms. On incremental scripts (the wide certificate generator) such
    // runs made hundreds of splits with coefficients growing to 10³–10⁵, over vertices near 10²⁰
    // to 10³⁵, each pivot dearer, without an end; past this bound the search branches instead
    // (the cube test and the single-variable branches found those points at once).
    constexpr long kMaxCoefficient = 100;
    if (!split || std::any_of(split->term.begin(), split->term.end(), [&](const auto& e) {
            return QNumber(kMaxCoefficient) < e.coeff || e.coeff < QNumber(-kMaxCoefficient);
        }))
        return false;
    if (limit_ != 0 && used_ >= limit_) {
        gave_up_ = true;
        return false;
    }
    ++used_;
    ++branches_;
    ++lattice_splits_;
    LinearExpr::Entries term;
    for (const auto& e : split->term)
        term.push_back({problem_var_[static_cast<std::size_t>(e.var)], e.coeff});
    sat::Var p = new_search_atom(term, Relation::Le, split->below);
    sat_.set_phase(p, split->value - split->below > QNumber(1, 2));
    return true;
}

}  // namespace vorn::smt
