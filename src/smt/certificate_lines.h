#pragma once

// The lines that every certificate block shares, written by one function each so that the
// unsat, the ray and the clause certificates name variables and atoms alike:
//   var <index> <Int|Real|Bool> <name>
//   atom <id> <relation> <constant> <var:coeff>...   (term ⋈ constant, the term without it)
//   quotient <var> <divisor> <var:coeff>...          (var = the Euclidean quotient of the term,
//                                                      its constant written 0:c, by divisor)

#include <iosfwd>
#include <set>
#include <span>
#include <string_view>

#include "vorn/smt/formula_dag.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/variables.h"

namespace vorn::smt {

void write_var_line(std::ostream& out, const Variables& variables, int v);

// `relation` is written as the checker reads it: Distinct (one of its pairs) as "!=".
void write_atom_line(std::ostream& out, std::string_view id, Relation relation,
                     const QNumber& constant, std::span<const LinearExpr::Entry> term);

// Adds to `vars` what the dividends of the lifted quotients among them mention, down to the
// variables of the input: a checker reading the input derives each quotient from its dividend.
void add_quotient_variables(const Problem& problem, const FormulaDag* dag, std::set<int>& vars);
// One quotient line for each lifted quotient among `vars`.
void write_quotient_lines(std::ostream& out, const Problem& problem, const FormulaDag* dag,
                          const std::set<int>& vars);

}  // namespace vorn::smt
