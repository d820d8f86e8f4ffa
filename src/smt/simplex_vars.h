#pragma once

// The map from problem variables to the simplex variables made for them, shared by every
// engine that enters a problem's terms into an lra::Simplex. A simplex variable is made on a
// problem variable's first use, so variables that no entered term mentions cost nothing.
//
// `simplex_var` is indexed by problem variable (0: none yet); `problem_var`, when an engine
// keeps it, by simplex variable (0: a slack). Both grow on demand to the largest index met.

#include <cstddef>
#include <vector>

#include "vorn/lra/simplex.h"

namespace vorn::smt {

// The simplex variable of problem variable `v`, made with simplex.new_variable() and recorded
// on its first use, when on_new(s) runs once for it.
template <typename OnNew>
int map_simplex_var(lra::Simplex& simplex, int v, std::vector<int>& simplex_var,
                    std::vector<int>* problem_var, OnNew&& on_new) {
    if (simplex_var.size() <= static_cast<std::size_t>(v)) simplex_var.resize(v + 1, 0);
    if (simplex_var[v] != 0) return simplex_var[v];
    int s = simplex.new_variable();
    simplex_var[v] = s;
    if (problem_var != nullptr) {
        if (problem_var->size() <= static_cast<std::size_t>(s)) problem_var->resize(s + 1, 0);
        (*problem_var)[s] = v;
    }
    on_new(s);
    return s;
}

}  // namespace vorn::smt
