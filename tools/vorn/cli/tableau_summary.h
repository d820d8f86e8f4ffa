#pragma once

// `vorn tableau`: the tableau a simplex solver builds for a linear-arithmetic problem. One slack
// row per distinct linear term of the atoms, terms scaled to a leading coefficient of 1 so that
// t and 2t share a slack; an atom over a single variable is a bound on it and needs no row. A
// `distinct` over n terms is counted as n(n−1)/2 disequalities and builds no row: a solver splits
// disequalities when it needs them. Int variables are accepted (no answer is given).

#include <cstdint>
#include <memory>

#include "vorn/la/tableau.h"
#include "vorn/smt/problem.h"

namespace vorn::cli {

struct TableauSummary {
    std::unique_ptr<la::Tableau> tableau;
    int variables = 0;  // slacks are numbered variables + 1 ... last_slack
    int last_slack = 0;
    std::size_t atoms = 0;
    std::size_t bounds = 0;          // atoms over one variable
    std::size_t term_atoms = 0;      // atoms over a slack
    std::size_t constant_atoms = 0;  // atoms without variables
    std::uint64_t disequalities = 0;
    std::size_t coefficients = 0;
    std::size_t big_coefficients = 0;
    double tableau_ms = 0;
};

TableauSummary build_tableau(const smt::Problem& problem);

}  // namespace vorn::cli
