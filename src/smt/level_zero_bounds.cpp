// Bounds of their own for Int variables that only rows bound at level 0: the quotient q of
// (div t d) is pinned by 0 ≤ t − d·q < |d| and t's bounds, yet without a bound on q itself the
// integer search counted it as unbounded and split on terms and rows instead of branching on q
// (dm_s56 of the hunt: 328 lattice splits, pivots at 170 µs as the split rows grew). The new
// atom q ≤ ⌊u⌋ (or q ≥ ⌈l⌉) is implied by the row's bounds like any row propagation, so the
// same Farkas lemma explains it (an atom over Int variables counts rounded).

#include "arith_theory.h"
#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

// At level 0 only: a bound there holds for good and a new atom's variable is permanent.
void ArithTheory::bound_row_bounded_integers(std::vector<sat::Lit>& implied) {
    if (!level_start_.empty() || !sat_.activation_literals().empty()) return;
    for (std::size_t i = 0; i < integer_vars_.size(); ++i) {  // the list may grow meanwhile
        int var = integer_vars_[i];
        if (static_cast<std::size_t>(var) >= slacks_of_.size()) continue;
        for (bool upper : {false, true}) {
            const lra::BoundTrail& bounds = simplex_.bounds();
            if (upper ? bounds.has_upper(var) : bounds.has_lower(var)) continue;
            for (SlackOf of : slacks_of_[var])
                if (bound_from_row(of.slack, var, upper, implied)) break;
        }
    }
}

// The bound on `var` that `slack`'s literal bound and its other summands' literal bounds give,
// as a new atom implied now; false when some bound is missing.
bool ArithTheory::bound_from_row(int slack, int var, bool upper, std::vector<sat::Lit>& implied) {
    if (!simplex_.is_slack(slack)) return false;
    const auto& term = simplex_.slack_term(slack);
    std::size_t k = 0;
    while (k < term.size() && term[k].var != var)
        ++k;
    if (k == term.size()) return false;
    bool slack_upper = upper == (term[k].coeff.sign() > 0);
    const lra::BoundRecord* sb = literal_bound(slack, slack_upper);
    const lra::BoundRecord* other = literal_bound(slack, !slack_upper);
    if (sb == nullptr || other == nullptr) return false;
    // Only rows that define the variable as a quotient does: a slack narrower than the
    // variable's coefficient, which is not ±1 (equalities of unit steps, as in the BMC scripts,
    // bound their variables too, but boxing those changed the search: 17 373 -> 23 667 conflicts
    // on bmc_int_s3_unsat).
    QNumber width = sb->value.real() - other->value.real();
    QNumber magnitude = term[k].coeff.sign() > 0 ? term[k].coeff : -term[k].coeff;
    if (width.sign() < 0) width = -width;
    if (magnitude <= QNumber(1) || !(width < magnitude)) return false;
    summand_bounds_.assign(term.size(), nullptr);
    lra::DeltaRational bound = sb->value;
    for (std::size_t j = 0; j < term.size(); ++j) {
        if (j == k) continue;
        summand_bounds_[j] = literal_bound(term[j].var, slack_upper != (term[j].coeff.sign() > 0));
        if (summand_bounds_[j] == nullptr) return false;
        bound.add_product(-term[j].coeff, summand_bounds_[j]->value);
    }
    bound /= term[k].coeff;
    // An Int variable at most (least) c + k·δ is at most its floor (least its ceiling).
    QNumber r = upper ? lra::floor_of(bound)
                      : -lra::floor_of(lra::DeltaRational(-bound.real(), -bound.delta()));
    LinearExpr::Entry x{problem_var_[static_cast<std::size_t>(var)], QNumber(1)};
    sat::Var atom = new_search_atom({&x, 1}, upper ? Relation::Le : Relation::Ge, r);
    RowReason& reason = new_row_reason(atom);
    explain_by_summands(reason, slack, slack_upper, k, *sb);
    implied.push_back(sat::Lit(atom, false));
    return true;
}

}  // namespace vorn::smt
