#pragma once

// The plain text format: one equation per line, "lhs = rhs", with linear terms such as
// "2*x - 1/3*y + 5" or "2x - y/3 + 5"; "#" starts a comment; blank lines are skipped.

#include <string_view>

#include "vorn/problem.h"

namespace vorn::cli {

Problem parse_lin(const std::string& text);

// One linear term, as on either side of a .lin equation; `text` starts at `start`.
LinearExpr parse_lin_term(std::string_view text, SourcePos start, Symbols& symbols);

}  // namespace vorn::cli
