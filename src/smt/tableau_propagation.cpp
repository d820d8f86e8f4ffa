// Bound propagation along the rows of the current tableau. A row Σ cⱼ·xⱼ = 0 (its basic
// variable among the xⱼ) is a linear identity over the input variables, pivots or not, so once
// every entry but xₖ is bounded on the side that bounds cₖ·xₖ, it bounds xₖ, and once every entry
// is, it bounds each of them. After pivots the rows join terms that share no definition: the
// bounds on x+y and x−y bound x, which the definitions' propagation (row_propagation.cpp) never
// sees, and which fuzzer-like scripts over few variables need (if_v3_s61_int_unsat: 1 670
// conflicts without, z3 76 with its own). The tableau changes by the time an implication is
// explained, so the explanation is kept at once: the literals of the bounds used, with
// multipliers |cⱼ|/|cₖ| (over each bound's caller scale).

#include "arith_theory.h"
#include "imply_atoms.h"

#include <algorithm>

namespace vorn::smt {

// A new bound on `var` (an upper one when `upper`): the rows that hold it, its own first when it
// is basic, within the budget of rows per propagate() call.
void ArithTheory::propagate_tableau(int var, bool upper, std::vector<sat::Lit>& implied) {
    const la::Tableau& tableau = simplex_.tableau();
    if (!tableau_rows_ || !tableau.initialized()) return;
    // The new bound moves one side of each row: the max side where var's coefficient is positive
    // and the bound an upper one, or both are neither.
    auto side = [&](const la::Equation& row) { return upper == (row.coeff_of(var)->sign() > 0); };
    if (tableau.rows().contains(var)) {
        const la::Equation& row = *tableau.rows().at(var);
        propagate_tableau_row(row, side(row), implied);
    }
    const auto* column = tableau.cols().find(var);
    if (column == nullptr) return;
    for (int basic : column->value.second) {
        if (tableau_budget_ == 0) return;
        const la::Equation& row = *tableau.rows().at(basic);
        propagate_tableau_row(row, side(row), implied);
    }
}

// In Σ cⱼ·xⱼ = 0, cₖ·xₖ ≥ −Σⱼ≠ₖ cⱼ·xⱼ's largest value (the "max" side: each xⱼ at its upper
// bound when cⱼ > 0, at its lower one otherwise), and ≤ −Σⱼ≠ₖ cⱼ·xⱼ's least value (the "min"
// side).
void ArithTheory::propagate_tableau_row(const la::Equation& row, bool max_side,
                                        std::vector<sat::Lit>& implied) {
    const auto& entries = row.entries();
    if (entries.size() > kTableauRowSize || tableau_budget_ == 0) return;
    --tableau_budget_;
    row_bounds_.assign(entries.size(), nullptr);
    std::size_t missing = entries.size();
    for (std::size_t j = 0; j < entries.size(); ++j) {
        const auto& e = entries[j];
        row_bounds_[j] = literal_bound(e.var, max_side == (e.coeff.sign() > 0));
        if (row_bounds_[j] != nullptr) continue;
        if (missing != entries.size()) return;
        missing = j;
    }
    lra::DeltaRational total;  // Σ cⱼ·bⱼ over the bounded entries
    bool summed = false;
    for (std::size_t k = 0; k < entries.size(); ++k) {
        if ((missing != entries.size() && k != missing) || !has_open_atom(entries[k].var)) continue;
        if (!summed) {
            for (std::size_t j = 0; j < entries.size(); ++j)
                if (row_bounds_[j] != nullptr)
                    total.add_product(entries[j].coeff, row_bounds_[j]->value);
            summed = true;
        }
        const QNumber& ck = entries[k].coeff;
        lra::DeltaRational bound = total;
        if (row_bounds_[k] != nullptr) bound.add_product(-ck, row_bounds_[k]->value);
        bound /= -ck;
        bool bound_upper = (ck.sign() > 0) != max_side;
        QNumber magnitude = ck.sign() > 0 ? ck : -ck;
        imply_atoms_on(entries[k].var, bound_upper, bound, implied, [&](RowReason& reason) {
            reason.slack = -1;
            for (std::size_t j = 0; j < entries.size(); ++j) {
                if (j == k) continue;
                const lra::BoundRecord& b = *row_bounds_[j];
                reason.lits.push_back(sat::Lit::from_code(static_cast<std::uint32_t>(b.reason)));
                const QNumber& cj = entries[j].coeff;
                QNumber weight = (cj.sign() > 0 ? cj : -cj) / magnitude;
                if (record_) reason.multipliers.push_back(weight / b.caller_scale);
                if (relax_) reason.weights.push_back(std::move(weight));
            }
        });
    }
}

// Rows to look at: `least`, or the tableau's rows over `share` when more. On a large tableau a
// bound's column can span most rows (fuzzer-like scripts over few variables: 1 300–1 900 rows,
// columns of 1 000), and a fixed budget spent on the first literals of a propagation left the
// later ones unpropagated (if_l3000_s51_unsat: 1 168 conflicts, 828 with the share); a smaller
// tableau keeps the fixed budget, and its search its path.
std::size_t ArithTheory::tableau_budget(std::size_t least, std::size_t share) const {
    const la::Tableau& tableau = simplex_.tableau();
    if (!tableau.initialized()) return least;
    return std::max(least, tableau.rows().size() / share);
}

// After a check that pivoted, the rows that hold a variable that left the basis are new: each
// is tried on both sides, within a budget of rows.
void ArithTheory::sweep_tableau(std::vector<sat::Lit>& implied) {
    sweep_due_ = false;
    const la::Tableau& tableau = simplex_.tableau();
    if (!tableau.initialized()) return;
    tableau_budget_ = tableau_budget(kSweepRows, 1);
    swept_.clear();
    auto sweep = [&](int basic) {
        if (swept_mark_.size() <= static_cast<std::size_t>(basic))
            swept_mark_.resize(static_cast<std::size_t>(basic) + 1, 0);
        if (swept_mark_[basic]) return;
        swept_mark_[basic] = 1;
        swept_.push_back(basic);
        const la::Equation& row = *tableau.rows().at(basic);
        propagate_tableau_row(row, true, implied);
        propagate_tableau_row(row, false, implied);
    };
    for (int var : simplex_.left_basis()) {
        if (tableau_budget_ == 0) break;
        if (tableau.rows().contains(var)) sweep(var);
        if (const auto* column = tableau.cols().find(var))
            for (int basic : column->value.second)
                if (tableau_budget_ != 0) sweep(basic);
    }
    for (int basic : swept_)
        swept_mark_[basic] = 0;
}

}  // namespace vorn::smt
