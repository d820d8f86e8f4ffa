#pragma once

// Result: the answer of every decision procedure in vorn (the SAT engine, the simplex, branch
// and bound, the SMT solver). One type, so that an answer passes between the layers unchanged;
// each layer names it as its own (sat::Result, lra::Result, smt::Result).

namespace vorn::util {

enum class Result { Sat, Unsat, Unknown };

}  // namespace vorn::util
