#pragma once

// The formulas added to a Solver written back as an SMT-LIB script (Solver::to_smt2). Private to
// the solver.

#include <span>
#include <string>

#include "vorn/smt/solver.h"
#include "vorn/smt/variables.h"

namespace vorn::smt {

struct AddedFormula {
    Formula formula;
    std::string name;
    bool tracked = false;  // added with a name: written with :named
};

// `declared`: the solver's variables in order of creation; `booleans`: the problem variable of
// each Boolean node number − 1. Iterative: a chain of any depth is written without recursion.
std::string write_smt2_script(const Variables& vars, std::span<const int> declared,
                              std::span<const int> booleans, std::span<const AddedFormula> added);

}  // namespace vorn::smt
