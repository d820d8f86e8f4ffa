// Installing, removing, substituting and pivoting rows while keeping the column index exact.

#include <cassert>

#include "vorn/la/tableau.h"

namespace vorn::la {

void Tableau::file_row(int b, const Equation& eq) {
    for (const auto& entry : eq.coeffs_)
        if (entry.var >= 1 && entry.var != b) cols_[entry.var].insert(b);
}

void Tableau::unfile(int w, int b) {
    if (cols_.find(w) == nullptr) return;
    VarSet& col = cols_[w];
    col.erase(b);
    if (col.size() == 0) cols_.erase(w);
}

void Tableau::add_row(int x, Equation& eq) {
    rows_[x] = &eq;
    file_row(x, eq);
}

Equation* Tableau::remove_row(int x) {
    assert(rows_.contains(x) && "remove_row: x has no row");
    Equation* eq = rows_[x];
    for (const auto& entry : eq->coeffs_) {
        int v = entry.var;
        // Every entry gets an inserting lookup: for variables that have no column (below 1, or
        // x itself) it creates one, erased at once. For a mentioned variable one lookup serves
        // both steps: a second on the same key, at the same count, could neither find another
        // node nor grow the table.
        VarSet& col = cols_[v];
        if (v >= 1 && v != x) col.erase(x);
        if (col.size() == 0) cols_.erase(v);
    }
    rows_.erase(x);
    return eq;
}

void Tableau::substitute_var(int x, const Equation& eq) {
    if (cols_.find(x) == nullptr) return;
    // Column nodes never move, so this reference survives the insertions below.
    const VarSet& col = cols_[x];
    // Every row of col will mention v unless v cancels: register them all with one union, then
    // take the cancellations back row by row.
    for (const auto& entry : eq.coeffs_)
        if (entry.var >= 1 && entry.var != x) cols_[entry.var].insert(col);
    for (auto it = col.begin(), end = col.end(); it != end; ++it) {
        int b = *it;
        Equation* row = rows_[b];
        dropped_vars_.clear();
        scratch_coeffs_.clear();
        row->substitute_var(x, eq, &dropped_vars_, scratch_coeffs_);
        for (int w : dropped_vars_)
            unfile(w, b);
    }
    cols_.erase(x);
}

void Tableau::pivot(int leaving, int entering) {
    Equation* eq = remove_row(leaving);
    eq->change_basic_var(entering);
    substitute_var(entering, *eq);
    add_row(entering, *eq);
}

}  // namespace vorn::la
