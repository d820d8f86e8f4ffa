// Bound propagation through the definitions of slacks: a sum whose every summand is bounded on
// one side is bounded on that side, and the atoms on the sum that this bound implies need not
// wait for a full simplex check or a decision.

#include <algorithm>

#include "arith_theory.h"

namespace vorn::smt {

void ArithTheory::index_slack(int slack) {
    if (slack_indexed_.size() <= static_cast<std::size_t>(slack))
        slack_indexed_.resize(static_cast<std::size_t>(slack) + 1, 0);
    if (slack_indexed_[slack] || !simplex_.is_slack(slack)) return;
    slack_indexed_[slack] = 1;
    for (const auto& e : simplex_.slack_term(slack)) {
        if (slacks_of_.size() <= static_cast<std::size_t>(e.var))
            slacks_of_.resize(static_cast<std::size_t>(e.var) + 1);
        slacks_of_[e.var].push_back(slack);
    }
}

// Two passes: whether every entry has the bound it needs under a true literal (most rows fail
// here, cheaply), then the sum. Multipliers are only worth their divisions for a proof.
bool ArithTheory::implied_bound(int slack, bool upper, lra::DeltaRational& bound) {
    const lra::BoundTrail& bounds = simplex_.bounds();
    row_lits_.clear();
    row_multipliers_.clear();
    const auto& term = simplex_.slack_term(slack);
    for (const auto& e : term) {
        // s ≤ Σ aⱼ·xⱼ's largest value: xⱼ at its upper bound when aⱼ > 0, at its lower one when
        // aⱼ < 0 (and the other way round for a lower bound on s).
        bool need_upper = upper == (e.coeff.sign() > 0);
        if (need_upper ? !bounds.has_upper(e.var) : !bounds.has_lower(e.var)) return false;
        const lra::BoundRecord& b = need_upper ? bounds.upper(e.var) : bounds.lower(e.var);
        auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(b.reason));
        if (lit.var() >= value_.size() || value_[lit.var()] != (lit.negative() ? -1 : 1))
            return false;  // a bound of no literal: nothing to explain it by
        row_lits_.push_back(lit);
    }
    bound = lra::DeltaRational();
    for (const auto& e : term) {
        bool need_upper = upper == (e.coeff.sign() > 0);
        const lra::BoundRecord& b = need_upper ? bounds.upper(e.var) : bounds.lower(e.var);
        bound.add_product(e.coeff, b.value);
        if (record_)
            row_multipliers_.push_back((e.coeff.sign() > 0 ? e.coeff : -e.coeff) / b.caller_scale);
    }
    return true;
}

// A new bound on `var` (an upper one when `upper`) moves one side of each slack over it: the
// upper side where its coefficient's sign agrees, the lower one otherwise.
void ArithTheory::propagate_rows(int var, bool upper, std::vector<sat::Lit>& implied) {
    if (static_cast<std::size_t>(var) >= slacks_of_.size()) return;
    for (int slack : slacks_of_[var]) {
        if (!simplex_.is_slack(slack)) continue;  // taken out by a pop (see make_slacks_again)
        const auto& on = atoms_on_[slack];
        if (std::none_of(on.begin(), on.end(), [&](std::uint32_t o) {
                return atom_data_[o].alive && value_[atoms_[o].var] == 0;
            }))
            continue;
        const auto& term = simplex_.slack_term(slack);
        auto at =
            std::find_if(term.begin(), term.end(), [&](const auto& e) { return e.var == var; });
        if (at == term.end()) continue;
        bool side_upper = upper == (at->coeff.sign() > 0);
        lra::DeltaRational bound;
        if (!implied_bound(slack, side_upper, bound)) continue;
        for (std::uint32_t other : atoms_on_[slack]) {
            const Atom& o = atom_data_[other];
            sat::Var ov = atoms_[other].var;
            if (!o.alive || value_[ov] != 0) continue;
            for (int side = 0; side < 2; ++side) {
                const Reading& r = o.reading[side];
                if (r.upper != side_upper ||
                    (side_upper ? !(bound <= r.value) : !(bound >= r.value)))
                    continue;
                if (implied_now_[ov]) break;
                row_reason_of_[ov] = static_cast<std::int32_t>(row_reasons_.size());
                row_reasons_.push_back({row_lits_, row_multipliers_});
                implied_now_[ov] = 1;
                implied.push_back(sat::Lit(ov, side == 1));
                break;
            }
        }
    }
}

}  // namespace vorn::smt
