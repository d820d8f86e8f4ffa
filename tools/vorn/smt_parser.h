#pragma once

// The linear real/integer subset of SMT-LIB 2: declarations of Real and Int constants,
// nullary define-fun, assertions that are conjunctions of linear atoms (=, <=, <, >=, >,
// distinct), let, and the commands that do not change the problem (set-logic, set-info,
// set-option, check-sat, get-model, get-info, exit). push and pop are rejected.

#include "vorn/problem.h"

namespace vorn::cli {

Problem parse_smt2(const std::string& text);

}  // namespace vorn::cli
