#pragma once

// Test-side invariant checker for a Tableau: rows under their basic variable, columns exactly the
// set of mentions with no empty column, rows and columns disjoint, and (once initialized) solved
// form: no row mentions a basic variable or an eliminated one.

#include <gtest/gtest.h>

#include <map>
#include <set>

#include "vorn/la/tableau.h"

namespace vorn::test {

inline ::testing::AssertionResult tableau_is_valid(const la::Tableau& t) {
    std::map<int, std::set<int>> mentions;
    std::set<int> basics;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it) {
        int b = it.index();
        basics.insert(b);
        const la::Equation* row = it.value();
        if (row == nullptr) return ::testing::AssertionFailure() << "row " << b << " is null";
        if (row->get_basic_var() != b)
            return ::testing::AssertionFailure()
                   << "row " << b << " has basic var " << row->get_basic_var();
        for (const auto& e : row->coeffs_)
            if (e.var >= 1 && e.var != b) mentions[e.var].insert(b);
    }
    std::map<int, std::set<int>> columns;
    for (const auto& [v, set] : t.cols()) {
        if (set.size() == 0) return ::testing::AssertionFailure() << "empty column " << v;
        if (columns.count(v)) return ::testing::AssertionFailure() << "column " << v << " twice";
        columns[v] = std::set<int>(set.begin(), set.end());
    }
    if (columns != mentions) {
        auto f = ::testing::AssertionFailure() << "columns differ from mentions:";
        for (const auto& [v, s] : mentions)
            if (columns[v] != s) f << " var " << v;
        for (const auto& [v, s] : columns)
            if (mentions[v] != s) f << " col " << v;
        return f;
    }
    for (int b : basics)
        if (columns.count(b))
            return ::testing::AssertionFailure() << "basic " << b << " has a column";
    for (const auto& [v, node] : t.elim_index()) {
        if (basics.count(v) || columns.count(v))
            return ::testing::AssertionFailure() << "eliminated " << v << " still in the tableau";
        if (node >= t.elim_eqs().size() || t.elim_eqs()[node].first != v)
            return ::testing::AssertionFailure() << "bad position for eliminated " << v;
    }
    if (t.get_num_variables() != basics.size() + columns.size())
        return ::testing::AssertionFailure() << "get_num_variables mismatch";
    return ::testing::AssertionSuccess();
}

}  // namespace vorn::test
