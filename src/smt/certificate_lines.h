#pragma once

// The lines that every certificate block shares, written by one function each so that the
// unsat, the ray and the clause certificates name variables and atoms alike:
//   var <index> <Int|Real|Bool> <name>
//   atom <id> <relation> <constant> <var:coeff>...   (term ⋈ constant, the term without it)

#include <iosfwd>
#include <span>
#include <string_view>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/variables.h"

namespace vorn::smt {

void write_var_line(std::ostream& out, const Variables& variables, int v);

// `relation` is written as the checker reads it: Distinct (one of its pairs) as "!=".
void write_atom_line(std::ostream& out, std::string_view id, Relation relation,
                     const QNumber& constant, std::span<const LinearExpr::Entry> term);

}  // namespace vorn::smt
