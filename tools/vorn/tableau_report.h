#pragma once

// `vorn tableau`: the tableau a simplex solver builds for a linear-arithmetic problem. One slack
// row per distinct linear term of the atoms, terms scaled to a leading coefficient of 1 so that
// t and 2t share a slack; atoms over a single variable are bounds on it and need no row.

#include <string>

#include "vorn/problem.h"

namespace vorn::cli {

struct TableauOptions {
    bool dump = false;
    bool stats = false;
};

std::string tableau_report(const Problem& problem, const TableauOptions& options, double parse_ms);

}  // namespace vorn::cli
