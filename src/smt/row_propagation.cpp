// Bound propagation through the definitions of slacks: a sum whose every summand is bounded on
// one side is bounded on that side, and the atoms on the sum that this bound implies need not
// wait for a full simplex check or a decision.

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

bool ArithTheory::implied_bound(int slack, bool upper, lra::DeltaRational& bound) {
    const lra::BoundTrail& bounds = simplex_.bounds();
    row_lits_.clear();
    row_multipliers_.clear();
    bound = lra::DeltaRational();
    for (const auto& e : simplex_.slack_term(slack)) {
        // s ≤ Σ aⱼ·xⱼ's largest value: xⱼ at its upper bound when aⱼ > 0, at its lower one when
        // aⱼ < 0 (and the other way round for a lower bound on s).
        bool need_upper = upper == (e.coeff.sign() > 0);
        if (need_upper ? !bounds.has_upper(e.var) : !bounds.has_lower(e.var)) return false;
        const lra::BoundRecord& b = need_upper ? bounds.upper(e.var) : bounds.lower(e.var);
        auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(b.reason));
        if (lit.var() >= value_.size() || value_[lit.var()] != (lit.negative() ? -1 : 1))
            return false;  // a bound of no literal: nothing to explain it by
        bound.add_product(e.coeff, b.value);
        row_lits_.push_back(lit);
        row_multipliers_.push_back((e.coeff.sign() > 0 ? e.coeff : -e.coeff) / b.caller_scale);
    }
    return true;
}

void ArithTheory::propagate_rows(int var, std::vector<sat::Lit>& implied) {
    if (static_cast<std::size_t>(var) >= slacks_of_.size()) return;
    for (int slack : slacks_of_[var]) {
        if (!simplex_.is_slack(slack)) continue;  // taken out by a pop (see make_slacks_again)
        bool open = false;
        for (std::uint32_t o : atoms_on_[slack])
            open = open || (atom_data_[o].alive && value_[atoms_[o].var] == 0);
        if (!open) continue;
        for (bool upper : {true, false}) {
            lra::DeltaRational bound;
            if (!implied_bound(slack, upper, bound)) continue;
            for (std::uint32_t other : atoms_on_[slack]) {
                const Atom& o = atom_data_[other];
                sat::Var ov = atoms_[other].var;
                if (!o.alive || value_[ov] != 0) continue;
                for (int side = 0; side < 2; ++side) {
                    const Reading& r = o.reading[side];
                    if (r.upper != upper || (upper ? !(bound <= r.value) : !(bound >= r.value)))
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
}

}  // namespace vorn::smt
