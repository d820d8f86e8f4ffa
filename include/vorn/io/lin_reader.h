#pragma once

// The plain format (.lin): one equation "lhs = rhs" per line, "#" starts a comment, blank lines
// are skipped. Its one grammar:
//
//   equation := sum '=' sum
//   sum      := ['+' | '-'] product { ('+' | '-') product }
//   product  := factor { '*' factor | '/' factor }
//   factor   := '-' factor | '(' sum ')' | number [name | '(' sum ')'] | name
//   number   := digits ['.' digits] | '.' digits
//   name     := [A-Za-z_][A-Za-z0-9_]*
//
// A number directly followed by a name or a parenthesis multiplies it ("2x", "3(x + y)"); with
// a space between them it is an error. Exponents are not numbers: "1e5" is an error rather than
// 1·e5. A product has at most one factor with variables, and divisors are constants other than
// 0. Spaces and tabs separate tokens anywhere.

#include <string_view>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::io {

// `stop` (may be null): an interrupt throws Interrupted (interrupted.h).
smt::Problem read_lin(std::string_view text, const util::Stop* stop = nullptr);

// One sum, as on either side of an equation; `text` starts at `start` of its file.
smt::LinearExpr read_lin_sum(std::string_view text, smt::SourcePos start,
                             smt::Variables& variables);

}  // namespace vorn::io
