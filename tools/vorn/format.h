#pragma once

// Linear forms written with the input's variable names, exact rationals as "p/q".

#include <string>

#include "vorn/linear_expr.h"

namespace vorn::cli {

// "2*x - 1/3*y + 5": variables in numbering order, the constant (variable 0) last, "0" when
// empty. `names` maps variable numbers to names.
std::string format_sum(const LinearExpr::Entries& terms, const Symbols& names);

}  // namespace vorn::cli
