#pragma once

// Problems as text: relation names, variable names as they read back, and sums. Every sum the
// system prints (the tool's answers, certificates) is written by append_sum, on top of the
// library's la::append_sum_term, so every sum reads the same.

#include <span>
#include <string>
#include <string_view>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// "=", "<=", "<", ">=", ">", "distinct".
const char* relation_text(Relation r);

// The name of variable v as text output shows it: SMT-LIB names in |bars| when their plain form
// would not read back as the same symbol ("|1|", "|x y|", "||"); names of the plain format
// as they are.
void append_name(std::string& out, const Variables& vars, int v);
// An SMT-LIB symbol, in |bars| when its plain form would not read back.
void append_symbol(std::string& out, std::string_view name);

// "2*x - 1/3*y + 5": the terms in the order given with the constant (variable 0) last, "0" when
// there are none.
void append_sum(std::string& out, std::span<const LinearExpr::Entry> terms, const Variables& vars);

}  // namespace vorn::smt
