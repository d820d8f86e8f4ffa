#pragma once

// The exact check of a model against a problem's atoms, independent of the solver's own
// checkers: every atom is evaluated from its terms, and every Int variable must be integral.

#include <span>
#include <string>
#include <vector>

#include "vorn/smt/problem.h"

namespace vorn::smt {

// The value of a term (variable 0 the constant) in `model` (by variable; a variable past its end
// is 0).
QNumber evaluate(std::span<const LinearExpr::Entry> term, const std::vector<QNumber>& model);
// The value of term `index` in `model` (by variable; a variable past its end is 0).
QNumber term_value(const Problem& problem, std::uint32_t index, const std::vector<QNumber>& model);

// Empty when the model satisfies every atom; otherwise what fails, for an internal error.
std::string check_model(const Problem& problem, const std::vector<QNumber>& model);

}  // namespace vorn::smt
