#pragma once

// The equalities over Int variables among a problem's first atoms, as one system A·x = b solved
// over the integers (lra::solve_over_integers). Used by the conjunctive decider before it
// branches, and by the context before a Boolean search: the asserted atoms must all hold there
// too, so a lattice refutation of them refutes the whole problem.

#include <cstddef>
#include <vector>

#include "vorn/lra/lattice.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct IntegerSystem {
    std::vector<std::size_t> atoms;  // the equality atoms, one per row
    std::vector<int> var_of;         // the problem variable of each column
    lra::LatticeAnswer answer;
    bool solved = false;  // false: no such equality, or too many for the dense elimination

    bool refuted() const {
        return solved && answer.kind == lra::LatticeAnswer::Kind::NoIntegerSolution;
    }
    // After refuted(): the proof leaf that combines the equalities.
    ProofStep lattice_leaf() const;
};

// `reduce_basis`: as in lra::solve_over_integers (only a search over the solutions needs it).
IntegerSystem solve_integer_equalities(const Problem& problem, std::size_t atoms,
                                       bool reduce_basis = true);

}  // namespace vorn::smt
