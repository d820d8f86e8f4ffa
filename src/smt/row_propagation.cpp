// Bound propagation through the definitions of slacks: a sum whose every summand is bounded on
// one side is bounded on that side, and a summand is bounded by the sum's bound less the other
// summands' opposite bounds; the atoms that such a bound implies need not wait for a full
// simplex check or a decision.

#include <algorithm>

#include "arith_theory.h"
#include "imply_atoms.h"

namespace vorn::smt {

void ArithTheory::index_slack(int slack) {
    if (slack_indexed_.size() <= static_cast<std::size_t>(slack))
        slack_indexed_.resize(static_cast<std::size_t>(slack) + 1, 0);
    if (slack_indexed_[slack] || !simplex_.is_slack(slack)) return;
    slack_indexed_[slack] = 1;
    const auto& term = simplex_.slack_term(slack);
    for (std::size_t j = 0; j < term.size(); ++j) {
        int var = term[j].var;
        if (slacks_of_.size() <= static_cast<std::size_t>(var))
            slacks_of_.resize(static_cast<std::size_t>(var) + 1);
        slacks_of_[var].push_back({slack, static_cast<std::uint32_t>(j)});
    }
}

namespace {

// The index of `var` in `term`: where it was indexed unless a pop made the slack anew over
// another term; term.size() when it is not there.
template <class Term>
std::size_t index_in(const Term& term, std::uint32_t indexed, int var) {
    if (indexed < term.size() && term[indexed].var == var) return indexed;
    auto at = std::find_if(term.begin(), term.end(), [&](const auto& e) { return e.var == var; });
    return static_cast<std::size_t>(at - term.begin());
}

}  // namespace

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
    for (SlackOf of : slacks_of_[var]) {
        int slack = of.slack;
        if (!simplex_.is_slack(slack)) continue;  // taken out by a pop (see make_slacks_again)
        if (!has_open_atom(slack)) continue;
        const auto& term = simplex_.slack_term(slack);
        std::size_t at = index_in(term, of.index, var);
        if (at == term.size()) continue;
        bool side_upper = upper == (term[at].coeff.sign() > 0);
        lra::DeltaRational bound;
        if (!implied_bound(slack, side_upper, bound)) continue;
        imply_atoms_on(slack, side_upper, bound, implied, [&](RowReason& reason) {
            reason.lits.assign(row_lits_.begin(), row_lits_.end());
            reason.multipliers.assign(row_multipliers_.begin(), row_multipliers_.end());
            reason.slack = slack;
        });
    }
}

// A cleared explanation for the row propagation of `v`. Slots that a backtrack gives up keep
// their storage: the same long rows (an objective over 40 ites) propagate again after every
// backtrack, and allocating their explanations anew took 8 % of a selection script.
ArithTheory::RowReason& ArithTheory::new_row_reason(sat::Var v) {
    row_reason_of_[v] = static_cast<std::int32_t>(row_reasons_used_);
    if (row_reasons_used_ == row_reasons_.size()) row_reasons_.emplace_back();
    RowReason& reason = row_reasons_[row_reasons_used_++];
    reason.lits.clear();
    reason.multipliers.clear();
    reason.weights.clear();
    reason.slack = 0;
    reason.summand = -1;
    reason.pending = false;
    return reason;
}

// The bound on one side of `var` when a true literal made it, else nullptr.
const lra::BoundRecord* ArithTheory::literal_bound(int var, bool upper) const {
    const lra::BoundTrail& bounds = simplex_.bounds();
    if (upper ? !bounds.has_upper(var) : !bounds.has_lower(var)) return nullptr;
    const lra::BoundRecord& b = upper ? bounds.upper(var) : bounds.lower(var);
    auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(b.reason));
    if (lit.var() >= value_.size() || value_[lit.var()] != (lit.negative() ? -1 : 1))
        return nullptr;
    return &b;
}

// s = Σ aⱼ·xⱼ with s ≤ u (or ≥ l, `slack_upper` false) bounds each aₖ·xₖ by u − Σⱼ≠ₖ aⱼ·xⱼ's
// least value; the atoms on xₖ that the bound implies are implied by the bounds' literals.
// Passes without arithmetic first: a row with two summands lacking their bounds, or without an
// unassigned atom on a summand it could bound, gives nothing.
void ArithTheory::propagate_to_summands(int slack, bool slack_upper,
                                        std::vector<sat::Lit>& implied) {
    const lra::BoundRecord* sb = literal_bound(slack, slack_upper);
    if (sb == nullptr || propagate_within_room(slack, slack_upper, *sb, implied)) return;
    const auto& term = simplex_.slack_term(slack);
    auto lacks_bound = [&](std::size_t j) {
        return literal_bound(term[j].var, slack_upper != (term[j].coeff.sign() > 0)) == nullptr;
    };
    // Called for every bound on every summand: on a long row (an objective over 150 soft
    // assertions) the pass below took a third of a MaxSAT search.
    auto hint = static_cast<std::size_t>(slack) * 2 + slack_upper;
    if (unbounded_summands_.size() <= hint) unbounded_summands_.resize(hint + 1, {0, 0});
    std::array<std::uint32_t, 2>& lacking = unbounded_summands_[hint];
    if (lacking[0] != lacking[1] && lacking[0] < term.size() && lacking[1] < term.size() &&
        lacks_bound(lacking[0]) && lacks_bound(lacking[1]))
        return;
    summand_bounds_.assign(term.size(), nullptr);
    std::size_t missing = term.size();
    for (std::size_t j = 0; j < term.size(); ++j) {
        const auto& e = term[j];
        summand_bounds_[j] = literal_bound(e.var, slack_upper != (e.coeff.sign() > 0));
        if (summand_bounds_[j] != nullptr) continue;
        if (missing != term.size()) {
            lacking = {static_cast<std::uint32_t>(missing), static_cast<std::uint32_t>(j)};
            return;
        }
        missing = j;
    }
    remember_room(slack, slack_upper);
    auto open = [&](std::size_t k) {
        if (missing != term.size() && k != missing) return false;
        if (static_cast<std::size_t>(term[k].var) >= atoms_on_.size()) return false;
        const auto& on = atoms_on_[term[k].var];
        return std::any_of(on.begin(), on.end(), [&](std::uint32_t o) {
            return atom_data_[o].alive && value_[atoms_[o].var] == 0;
        });
    };
    open_.clear();
    for (std::size_t k = 0; k < term.size(); ++k)
        if (open(k)) open_.push_back(k);
    if (open_.empty()) return;
    lra::DeltaRational rest = sb->value;  // u − Σ of the bounded summands' least values
    for (std::size_t j = 0; j < term.size(); ++j)
        if (summand_bounds_[j] != nullptr)
            rest.add_product(-term[j].coeff, summand_bounds_[j]->value);
    for (std::size_t k : open_) {
        lra::DeltaRational bound = rest;
        if (summand_bounds_[k] != nullptr)
            bound.add_product(term[k].coeff, summand_bounds_[k]->value);
        imply_on_summand(slack, slack_upper, k, std::move(bound), *sb, implied);
    }
}

// aₖ·xₖ bounded by `bound` (the slack's bound `sb` less the other summands' least values, in
// summand_bounds_): the atoms on xₖ that it decides are implied by those bounds' literals.
void ArithTheory::imply_on_summand(int slack, bool slack_upper, std::size_t k,
                                   lra::DeltaRational bound, const lra::BoundRecord& sb,
                                   std::vector<sat::Lit>& implied) {
    const auto& term = simplex_.slack_term(slack);
    const auto& ek = term[k];
    bound /= ek.coeff;
    bool upper = slack_upper == (ek.coeff.sign() > 0);
    imply_atoms_on(ek.var, upper, bound, implied, [&](RowReason& reason) {
        explain_by_summands(reason, slack, slack_upper, k, sb);
    });
}

// The reason of a bound on summand k from the slack's bound `sb` and the other summands' bounds
// in summand_bounds_.
void ArithTheory::explain_by_summands(RowReason& reason, int slack, bool slack_upper, std::size_t k,
                                      const lra::BoundRecord& sb) {
    const auto& term = simplex_.slack_term(slack);
    const auto& ek = term[k];
    reason.slack = slack;
    reason.summand = static_cast<int>(k);
    reason.lits.push_back(sat::Lit::from_code(static_cast<std::uint32_t>(sb.reason)));
    if (!record_) {
        // Most implications are never explained: building each from all the summands was
        // 13 % of a MaxSAT search.
        reason.pending = true;
        reason.slack_upper = slack_upper;
        reason.bounds_then = simplex_.bounds().records().size();
        return;
    }
    QNumber magnitude = ek.coeff.sign() > 0 ? ek.coeff : -ek.coeff;
    reason.multipliers.push_back(QNumber(1) / (magnitude * sb.caller_scale));
    for (std::size_t j = 0; j < term.size(); ++j) {
        if (j == k) continue;
        const lra::BoundRecord& b = *summand_bounds_[j];
        reason.lits.push_back(sat::Lit::from_code(static_cast<std::uint32_t>(b.reason)));
        QNumber aj = term[j].coeff.sign() > 0 ? term[j].coeff : -term[j].coeff;
        reason.multipliers.push_back(aj / (magnitude * b.caller_scale));
    }
}

// The other summands' bounds when the implication was made: each summand's bound record then is
// its current one or an earlier one down its chain (a backtrack past the implication would have
// taken the implied literal too). Level-0 facts are left out: conflict analysis drops them (an
// objective's row over 150 soft assertions explained each implication by ~150 literals, mostly
// the facts xⱼ ≥ 0; 7.1 s -> 4.6 s on maxsat100 s3); such a reason is not relaxed.
void ArithTheory::explain_summand(RowReason& reason) {
    reason.pending = false;
    const lra::BoundTrail& bounds = simplex_.bounds();
    const auto& records = bounds.records();
    const auto& term = simplex_.slack_term(reason.slack);
    for (std::size_t j = 0; j < term.size(); ++j) {
        if (j == static_cast<std::size_t>(reason.summand)) continue;
        const auto& e = term[j];
        bool upper = reason.slack_upper != (e.coeff.sign() > 0);
        auto at = static_cast<std::size_t>((upper ? &bounds.upper(e.var) : &bounds.lower(e.var)) -
                                           records.data());
        while (at >= reason.bounds_then)
            at = static_cast<std::size_t>(records[at].previous);
        auto lit = sat::Lit::from_code(static_cast<std::uint32_t>(records[at].reason));
        if (!level_start_.empty() && position_[lit.var()] < level_start_[0]) continue;
        reason.lits.push_back(lit);
    }
}

// A new bound on `var`: the summands of `var` itself when it is a slack, and of every slack
// over it (on the side of the slack whose reverse reading uses the bound).
void ArithTheory::propagate_summands(int var, bool upper, std::vector<sat::Lit>& implied) {
    if (simplex_.is_slack(var) && static_cast<std::size_t>(var) < slack_indexed_.size() &&
        slack_indexed_[var])
        propagate_to_summands(var, upper, implied);
    if (static_cast<std::size_t>(var) >= slacks_of_.size()) return;
    for (SlackOf of : slacks_of_[var]) {
        int slack = of.slack;
        if (!simplex_.is_slack(slack)) continue;
        const auto& term = simplex_.slack_term(slack);
        std::size_t at = index_in(term, of.index, var);
        if (at == term.size()) continue;
        bool slack_upper = upper != (term[at].coeff.sign() > 0);
        note_summand_bound(slack, slack_upper, static_cast<std::uint32_t>(at));
        propagate_to_summands(slack, slack_upper, implied);
    }
}

}  // namespace vorn::smt
