// Explanations over earlier literals: a Farkas explanation (a conflict, or the reason of an
// implied atom) names the tightest bound of each variable, often the newest literal; another
// true atom on the same variable, on the same side, made earlier and weaker, serves as well
// when the explanation's excess covers the loss. The learned clause then reaches back to lower
// levels and resolves less.

#include <algorithm>

#include "arith_theory.h"

namespace vorn::smt {

// What a true literal's bound adds to the excess of a Farkas sum with weight `weight` on its
// simplex variable: m·l for a lower bound l, −m·u for an upper bound u.
lra::DeltaRational ArithTheory::excess_of(sat::Lit lit, const QNumber& weight) const {
    const Reading& r = atom_data_[atom_of_[lit.var()]].reading[lit.negative() ? 1 : 0];
    lra::DeltaRational out;
    out.add_product(r.upper ? -weight : weight, r.value);
    return out;
}

// `lits` are true literals whose bounds, weighted by `weights` (simplex units), contradict with
// `excess` > 0 to spare (δ counts after the real part). Newest first, each is replaced by the
// earliest true atom on its variable and side whose weaker bound the excess still covers.
// `multipliers` (the proof's, in the caller's units), when given, follow the replacement.
void ArithTheory::relax_explanation(std::span<sat::Lit> lits, std::span<const QNumber> weights,
                                    lra::DeltaRational excess, std::vector<QNumber>* multipliers) {
    if (excess <= lra::DeltaRational()) return;  // not a contradiction by the atoms' readings
    order_.resize(lits.size());
    for (std::size_t i = 0; i < lits.size(); ++i)
        order_[i] = i;
    std::sort(order_.begin(), order_.end(), [&](std::size_t a, std::size_t b) {
        return position_[lits[a].var()] > position_[lits[b].var()];
    });
    lra::DeltaRational loss, best_loss;
    for (std::size_t i : order_) {
        sat::Lit lit = lits[i];
        const Atom& a = atom_data_[atom_of_[lit.var()]];
        const Reading& r = a.reading[lit.negative() ? 1 : 0];
        std::uint32_t best_position = position_[lit.var()];
        sat::Lit best = lit;
        for (std::uint32_t other : atoms_on_[a.term.var]) {
            sat::Var ov = atoms_[other].var;
            if (value_[ov] == 0 || position_[ov] >= best_position) continue;
            const Atom& o = atom_data_[other];
            const Reading& w = o.reading[value_[ov] < 0 ? 1 : 0];
            if (!o.alive || w.upper != r.upper) continue;
            loss = w.value;
            loss -= r.value;
            if (!r.upper) loss *= QNumber(-1);
            loss *= weights[i];
            if (!(loss < excess)) continue;
            best_position = position_[ov];
            best = sat::Lit(ov, value_[ov] < 0);
            best_loss = loss;
        }
        if (best == lit) continue;
        excess -= best_loss;
        if (multipliers != nullptr)
            (*multipliers)[i] = (*multipliers)[i] / a.unit * atom_data_[atom_of_[best.var()]].unit;
        lits[i] = best;
        ++relaxed_;
    }
}

// The weights of a row reason's literals and its excess with the implied literal `lit` negated.
// From the row: the implied bound is on the slack, the literals' on the summands in term order
// (weights |aⱼ|). To a summand xₖ: the slack's literal first (1/|aₖ|), then the other summands'
// (|aⱼ|/|aₖ|). From a tableau row: the weights kept with the reason.
void ArithTheory::relax_row_reason(sat::Lit lit, RowReason& reason) {
    weights_.clear();
    if (reason.slack < 0) {
        weights_ = reason.weights;
    } else if (const auto& term = simplex_.slack_term(reason.slack); reason.summand < 0) {
        for (const auto& e : term)
            weights_.push_back(e.coeff.sign() > 0 ? e.coeff : -e.coeff);
    } else {
        const QNumber& ak = term[static_cast<std::size_t>(reason.summand)].coeff;
        QNumber magnitude = ak.sign() > 0 ? ak : -ak;
        weights_.push_back(QNumber(1) / magnitude);
        for (std::size_t j = 0; j < term.size(); ++j)
            if (j != static_cast<std::size_t>(reason.summand)) {
                const QNumber& aj = term[j].coeff;
                weights_.push_back((aj.sign() > 0 ? aj : -aj) / magnitude);
            }
    }
    if (weights_.size() != reason.lits.size()) return;  // level-0 facts left out
    lra::DeltaRational excess = excess_of(~lit, QNumber(1));
    for (std::size_t i = 0; i < reason.lits.size(); ++i)
        excess += excess_of(reason.lits[i], weights_[i]);
    relax_explanation(reason.lits, weights_, std::move(excess),
                      record_ ? &reason.multipliers : nullptr);
}

}  // namespace vorn::smt
