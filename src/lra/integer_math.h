#pragma once

// Integer questions about exact rationals, for branch and bound: floors of values with an
// infinitesimal, and the gcd test of an equality. Both go through GMP integers: they run once
// per node or per equality, never inside a pivot.

#include <optional>
#include <span>

#include "vorn/la/equation.h"
#include "vorn/lra/delta_rational.h"
#include "vorn/lra/integer_bounds.h"

namespace vorn::lra {

// The equality Σ coeffs = constant (not all coefficients zero) brought to coprime integers,
// coefficients and constant together: the gcd g of its coefficients when g does not divide
// its constant (no integral solution), nothing otherwise.
std::optional<QNumber> gcd_conflict(std::span<const la::Equation::VarCoeff> coeffs,
                                    const QNumber& constant);

// L/g for the term's variables (variable 0 skipped): the factor that turns their coefficients
// into coprime integers; nothing when the term has no variable.
std::optional<QNumber> coprime_scale(std::span<const la::Equation::VarCoeff> term);

}  // namespace vorn::lra
