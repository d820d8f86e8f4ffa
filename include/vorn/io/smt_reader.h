#pragma once

// The linear real/integer subset of SMT-LIB 2: declare-fun and declare-const of Real and Int
// constants, define-fun without parameters (of sort Real, Int or Bool), assert, and the commands
// that do not change the problem (set-logic, set-info, set-option, check-sat, get-model,
// get-info, get-value, exit). push and pop are refused: one problem per file. Terms and
// formulas are those of cli/smt_terms.h.

#include <string_view>

#include "vorn/smt/problem.h"

namespace vorn::io {

smt::Problem read_smt2(std::string_view text);

}  // namespace vorn::io
