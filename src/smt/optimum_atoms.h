#pragma once

// The problem an optimum's proof refutes: the input's atoms copied over variables of the same
// numbers (Int relaxed to Real for an LP relaxation, kept for branch and bound), then the atom
// "objective < optimum" (">" when maximizing) appended. Shared by the LP and the MILP optimizer,
// whose certificates read alike.

#include <cstddef>
#include <cstdint>

#include "vorn/numbers/qnumber.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// `to` must be empty; the copies keep the atoms' and the terms' indices.
void copy_atoms(const Problem& from, Problem& to, bool relax_to_real);

// Appends "objective < optimum" (">" when maximizing) over `objective`, a term of `p`, to `to`:
// its atom index.
std::size_t append_better_atom(const Problem& p, std::uint32_t objective, bool maximize,
                               const QNumber& optimum, Problem& to);

}  // namespace vorn::smt
