#pragma once

// Bounds over integer variables. Scaled to coprime integer coefficients, T = term·L/g takes
// integer values only, so T ≤ c implies T ≤ ⌊c⌋ and T < c implies T ≤ ⌈c⌉ − 1 (and likewise for
// lower bounds). Branch and bound needs the rounded form: a model that a strict bound keeps δ
// away from an integer is never integral, and splitting on the variables alone can chase it
// forever (0 < 2n − 2m < 2). The solver and the certificate checkers apply this one rule, so a
// Farkas leaf may use the rounded constant of an integral atom.

#include <optional>
#include <span>

#include "vorn/la/equation.h"
#include "vorn/lra/delta_rational.h"
#include "vorn/lra/simplex.h"

namespace vorn::lra {

struct RoundedBound {
    Relation relation;  // Le or Ge
    QNumber constant;
};

// The rounded form of  term ⋈ c  (⋈ one of ≤ < ≥ >; entries of variable 0 are ignored), every
// variable of the term taken to be integral; nothing for another relation or an empty term.
std::optional<RoundedBound> round_integral_bound(std::span<const la::Equation::VarCoeff> term,
                                                 Relation relation, const QNumber& c);

// Whether  term = c  has no integral solution (every variable integral; entries of variable 0
// ignored): scaled to coprime integer coefficients the term takes every integer value and only
// those, so the equation is refuted exactly when the scaled c is not an integer (the gcd test).
bool integral_equation_refuted(std::span<const la::Equation::VarCoeff> term, const QNumber& c);

// ⌊v⌋ for v = c + k·δ with δ > 0 infinitesimal: ⌊c⌋, less one when c is an integer and k < 0.
QNumber floor_of(const DeltaRational& v);

// Whether v = c + k·δ is an integer: k = 0 and c an integer.
inline bool is_integral(const DeltaRational& v) {
    return v.delta().is_zero() && v.real().is_integer();
}

}  // namespace vorn::lra
