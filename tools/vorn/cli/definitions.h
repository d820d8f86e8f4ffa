#pragma once

// The definitions of the variables a tableau has eliminated, over the variables it keeps.

#include <vector>

#include "vorn/la/tableau.h"
#include "vorn/smt/linear_expr.h"

namespace vorn::cli {

struct Definition {
    int var;
    smt::LinearExpr::Entries terms;  // var = Σ terms, variable 0 the constant
};

// Every variable up to `last_var` that `t` holds eliminated, with the slacks above `last_var`
// fixed to 0. Triangular: latest elimination first, each definition as stored, over kept
// variables and those listed before it. Otherwise: in variable order, each over kept variables
// only.
std::vector<Definition> read_definitions(const la::Tableau& t, int last_var, bool triangular);

}  // namespace vorn::cli
