#pragma once

// Small builders for tableau tests: equations "by mentions" and readable views of the state.

#include <map>
#include <set>
#include <vector>

#include "vorn/la/tableau.h"

namespace vorn::test {

// b = Σ v over `mentions`, i.e. entries (b, -1) and (v, 1).
inline la::Equation row_of(int b, std::initializer_list<int> mentions) {
    std::vector<la::Equation::VarCoeff> entries{{b, QNumber(-1)}};
    for (int v : mentions)
        entries.push_back({v, QNumber(1)});
    return la::Equation(b, std::move(entries));
}

inline la::VarSet set_of(std::initializer_list<int> vars) {
    la::VarSet s;
    for (int v : vars)
        s.insert(v);
    return s;
}

inline std::map<int, std::set<int>> columns_of(const la::Tableau& t) {
    std::map<int, std::set<int>> cols;
    for (const auto& [v, set] : t.cols())
        cols[v] = std::set<int>(set.begin(), set.end());
    return cols;
}

inline std::vector<int> basics_of(const la::Tableau& t) {
    std::vector<int> out;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        out.push_back(it.index());
    return out;
}

}  // namespace vorn::test
