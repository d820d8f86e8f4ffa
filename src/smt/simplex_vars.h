#pragma once

// The map from problem variables to the simplex variables made for them, shared by every
// engine that enters a problem's terms into an lra::Simplex. A simplex variable is made on a
// problem variable's first use, so variables that no entered term mentions cost nothing.
//
// `simplex_var` is indexed by problem variable (0: none yet); `problem_var`, when an engine
// keeps it, by simplex variable (0: a slack, or free). Both grow on demand to the largest index
// met. An engine that forgets problem variables (a pop) keeps their simplex variables in two free
// lists by integrality and hands them to the next new problem variables of the same kind, so the
// simplex grows with the variables alive at once, not with all ever declared. A freed simplex
// variable must carry no bound: the caller sees to that.

#include <algorithm>
#include <cstddef>
#include <vector>

#include "vorn/lra/simplex.h"

namespace vorn::smt {

// Free simplex variables, [0] of Real and [1] of Int problem variables.
using FreeSimplexVars = std::vector<int>[2];

// The simplex variable of problem variable `v`, taken from `free` (may be null) or made with
// simplex.new_variable() and recorded on its first use, when on_new(s) runs once for it.
template <typename OnNew>
int map_simplex_var(lra::Simplex& simplex, int v, bool integral, std::vector<int>& simplex_var,
                    std::vector<int>* problem_var, FreeSimplexVars* free, OnNew&& on_new) {
    if (simplex_var.size() <= static_cast<std::size_t>(v)) simplex_var.resize(v + 1, 0);
    if (simplex_var[v] != 0) return simplex_var[v];
    int s = 0;
    if (free != nullptr && !(*free)[integral ? 1 : 0].empty()) {
        s = (*free)[integral ? 1 : 0].back();
        (*free)[integral ? 1 : 0].pop_back();
    } else {
        s = simplex.new_variable();
    }
    simplex_var[v] = s;
    if (problem_var != nullptr) {
        if (problem_var->size() <= static_cast<std::size_t>(s)) problem_var->resize(s + 1, 0);
        (*problem_var)[s] = v;
    }
    on_new(s);
    return s;
}

// Forgets the problem variables after the first n: their simplex variables go to `free`, by
// integral(v) of each forgotten problem variable v.
template <typename Integral>
void forget_simplex_vars(int n, std::vector<int>& simplex_var, std::vector<int>* problem_var,
                         FreeSimplexVars& free, Integral&& integral) {
    for (std::size_t v = static_cast<std::size_t>(n) + 1; v < simplex_var.size(); ++v) {
        int s = simplex_var[v];
        if (s == 0) continue;
        free[integral(static_cast<int>(v)) ? 1 : 0].push_back(s);
        if (problem_var != nullptr) (*problem_var)[static_cast<std::size_t>(s)] = 0;
    }
    simplex_var.resize(std::min(simplex_var.size(), static_cast<std::size_t>(n) + 1));
}

}  // namespace vorn::smt
