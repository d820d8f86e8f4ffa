#pragma once

// Invariant checker for a Tableau, shared by the tests and the fuzz targets: rows under their
// basic variable, columns exactly the set of mentions with no empty column, rows and columns
// disjoint, eliminated variables out of both with their record in place, and the variable count.

#include <map>
#include <set>
#include <string>

#include "vorn/la/tableau.h"

namespace vorn::test {

// The first broken invariant, or "" when the tableau is valid.
inline std::string tableau_fault(const la::Tableau& t) {
    std::map<int, std::set<int>> mentions;
    std::set<int> basics;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it) {
        int b = it.index();
        basics.insert(b);
        const la::Equation* row = it.value();
        if (row == nullptr) return "row " + std::to_string(b) + " is null";
        if (row->get_basic_var() != b)
            return "row " + std::to_string(b) + " has basic variable " +
                   std::to_string(row->get_basic_var());
        for (const auto& e : row->coeffs_)
            if (e.var >= 1 && e.var != b) mentions[e.var].insert(b);
    }
    std::map<int, std::set<int>> columns;
    for (const auto& [v, set] : t.cols()) {
        if (set.size() == 0) return "empty column " + std::to_string(v);
        if (!columns.emplace(v, std::set<int>(set.begin(), set.end())).second)
            return "column " + std::to_string(v) + " twice";
    }
    if (columns != mentions) return "columns differ from the rows' mentions";
    for (int b : basics)
        if (columns.count(b)) return "basic " + std::to_string(b) + " has a column";
    for (const auto& [v, position] : t.elim_index()) {
        if (basics.count(v) || columns.count(v))
            return "eliminated " + std::to_string(v) + " is still in the tableau";
        if (position >= t.elim_eqs().size() || t.elim_eqs()[position].first != v)
            return "bad record position for eliminated " + std::to_string(v);
    }
    if (t.get_num_variables() != basics.size() + columns.size())
        return "get_num_variables differs from rows plus columns";
    return "";
}

}  // namespace vorn::test
