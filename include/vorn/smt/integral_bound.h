#pragma once

// Over integer variables a bound on a term can be rounded. Scaled to coprime integer
// coefficients, T = term·L/g takes integer values, so T ≤ c implies T ≤ ⌊c⌋ and T < c implies
// T ≤ ⌈c⌉ − 1 (and symmetrically for lower bounds). Branch and bound needs the rounded form: a
// model that a strict bound keeps δ away from an integer is never integral, and splitting on
// the variables alone can chase it forever. The solver and the certificate checks apply this
// one rule, so a Farkas leaf may use the rounded constant of an integral atom.

#include <optional>
#include <span>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct RoundedBound {
    Relation relation;  // Le or Ge
    QNumber constant;
};

// The rounded form of  term ⋈ c  (⋈ one of ≤ < ≥ >; entries of variable 0 are ignored), or
// nothing when the relation is another one or a variable of the term is not Int.
std::optional<RoundedBound> round_integral_bound(std::span<const LinearExpr::Entry> term,
                                                 Relation relation, const QNumber& c,
                                                 const Variables& variables);

// Whether  term = c  has no solution over the integers (all of the term's variables Int): scaled
// to coprime integer coefficients, the term takes every integer value and only those, so the
// equation is refuted exactly when the scaled c is not an integer (the gcd test).
bool integral_equation_refuted(std::span<const LinearExpr::Entry> term, const QNumber& c);

}  // namespace vorn::smt
