// Gaussian elimination of chosen variables, removal of variables for good, and restoration on
// demand.

#include <algorithm>

#include "vorn/la/tableau.h"

namespace vorn::la {

int Tableau::pivot_row_in(const VarSet& col) const {
    auto it = col.begin();
    int best = *it;
    std::size_t best_len = rows_.at(best)->coeffs_.size();
    for (++it; it != col.end(); ++it) {
        std::size_t len = rows_.at(*it)->coeffs_.size();
        if (len < best_len) {
            best = *it;
            best_len = len;
        }
    }
    return best;
}

void Tableau::drop_empty_columns() {
    std::vector<int> empty;
    for (const auto& column : cols_)
        if (column.second.size() == 0) empty.push_back(column.first);
    for (int v : empty)
        cols_.erase(v);
}

void Tableau::record_elimination(int x) {
    elim_index_[x] = elim_eqs_.size();
    Equation* eq = remove_row(x);
    elim_eqs_.emplace_back(x, eq);
    if (!elim_integral_) return;
    elim_integral_ = std::all_of(eq->coeffs_.begin(), eq->coeffs_.end(),
                                 [](const auto& entry) { return entry.coeff.is_integer(); });
}

void Tableau::eliminate_variables(const VarSet& vars) {
    if (vars.size() > elim_eqs_.capacity()) elim_eqs_.reserve(vars.size());
    for (int x : vars) {
        if (!rows_.contains(x)) {
            const VarSet& col = cols_[x];
            if (col.size() == 0) continue;  // occurs in no row; its empty column goes below
            int b = pivot_row_in(col);
            if (b < 1) continue;
            pivot(b, x);
        }
        record_elimination(x);
    }
    drop_empty_columns();
}

void Tableau::remove_variable(int x) {
    Equation* eq = nullptr;
    if (rows_.contains(x)) {
        eq = remove_row(x);
    } else if (const VarSet& col = cols_[x]; col.size() != 0) {
        int b = pivot_row_in(col);
        if (b >= 1) {
            pivot(b, x);
            eq = remove_row(x);
        }
    }
    drop_empty_columns();
    if (eq != nullptr) destroy_equation(eq);
}

void Tableau::destroy_equation(const Equation* eq) {
    auto it = std::find_if(equations_.begin(), equations_.end(),
                           [eq](const Equation& held) { return &held == eq; });
    if (it != equations_.end()) equations_.erase(it);
}

void Tableau::uneliminate(int x, std::vector<int>* restored) {
    auto* node = elim_index_.find(x);
    if (node == nullptr) return;  // not eliminated: nothing to restore
    do_add_equation(*elim_eqs_[node->value.second].second, restored);
    elim_index_.erase(x);
}

Equation* Tableau::get_eliminated_equation(int x) const {
    auto* node = elim_index_.find(x);
    return node == nullptr ? nullptr : elim_eqs_[node->value.second].second;
}

}  // namespace vorn::la
