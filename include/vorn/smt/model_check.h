#pragma once

// The exact check of a model against a problem's atoms, independent of the solver's own
// checkers: every atom is evaluated from its terms, and every Int variable must be integral.

#include <span>
#include <string>
#include <vector>

#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// The value of a term (variable 0 the constant) in `model` (by variable; a variable past its end
// is 0).
QNumber evaluate(std::span<const LinearExpr::Entry> term, const std::vector<QNumber>& model);
// The value of term `index` in `model` (by variable; a variable past its end is 0).
QNumber term_value(const Problem& problem, std::uint32_t index, const std::vector<QNumber>& model);

// Whether `atom` holds in `model` (a distinct: its terms pairwise different).
bool atom_holds(const Problem& problem, const Atom& atom, const std::vector<QNumber>& model);

// Empty when the model satisfies every atom; otherwise what fails, for an internal error.
std::string check_model(const Problem& problem, const std::vector<QNumber>& model);

// The model of a Sat decision (check_model) or the proof of an Unsat one (check_proof in
// certificate.h); empty when it checks or the answer is Unknown.
std::string check_decision(const Problem& problem, const Decision& decision);

}  // namespace vorn::smt
