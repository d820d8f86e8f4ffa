#pragma once

// Coefficient lookups in tableau rows. The tableau keeps every row's entries sorted by
// variable, so a lookup is a binary search (Equation::coeff_of scans linearly).

#include <algorithm>
#include <cassert>

#include "vorn/la/equation.h"

namespace vorn::lra {

// The coefficient of `var` in `row`, which must mention it.
inline const QNumber& coefficient_of(const la::Equation& row, int var) {
    auto it = std::lower_bound(row.entries().begin(), row.entries().end(), var,
                               [](const la::Equation::VarCoeff& e, int v) { return e.var < v; });
    assert(it != row.entries().end() && it->var == var && "the row does not mention the variable");
    return it->coeff;
}

}  // namespace vorn::lra
