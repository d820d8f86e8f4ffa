#pragma once

// Folding while a front end builds a FormulaDag (formula_dag.h): an atom whose term has no
// variables becomes true or false, atoms equal up to normalisation are one node (or its
// negation: canonical_atoms.h), and connectives fold their constant, repeated and
// complementary operands, so that a term ite whose condition folds is its branch instead of a
// lifted variable, and the encoder never sees what a constant decides.
//
// Every rule is an equivalence that the certificate checker's normal form applies as well
// (docs/certificates.md): constants through and, or, xor and ite; repeated and complementary
// operands of and and or; a two-operand xor of one formula; an ite with a constant condition or
// equal branches. Operands keep their order (the checker folds xor from the left, so a reordered
// xor would meet its own formula in other numbers). Each call costs O(k log k) for k operands.

#include <span>
#include <vector>

#include "vorn/smt/formula_dag.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// 1 when `atom` holds whatever the variables are, 0 when it never does, −1 otherwise. Only an
// atom without variables (a distinct: one of two equal terms) is decided.
int constant_atom_truth(const Problem& problem, const Atom& atom);

// The atom, the constant it folds to, or the earlier atom (or its negation) that states the same.
FormulaRef folded_atom(FormulaDag& dag, const Problem& problem, const Atom& atom);

// And, Or or Xor over `operands`; `scratch` is reused and must not alias them.
FormulaRef folded_connective(FormulaDag& dag, FormulaNode::Kind kind,
                             std::span<const FormulaRef> operands, SourcePos pos,
                             std::vector<FormulaRef>& scratch);

// (ite condition then otherwise) between formulas.
FormulaRef folded_ite(FormulaDag& dag, FormulaRef condition, FormulaRef then, FormulaRef otherwise,
                      SourcePos pos);

// Whether two expressions are the same linear term (a term ite between them is either one).
bool same_expr(const LinearExpr& a, const LinearExpr& b);

}  // namespace vorn::smt
