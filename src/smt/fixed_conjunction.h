#pragma once

// The conjunction a model fixes: every arithmetic atom of a problem, top-level or a proposition
// of its Boolean structure, taken as it holds in the model (a false `t ≤ 0` as `t > 0`, a
// disequality as the side the model is on). Any point satisfying it gives every atom the model's
// truth value, so, with the model's Bool values, it satisfies the problem: optimizing over it is
// sound, and optimization modulo theories repeats it over the models of better and better
// objective bounds. Cost: one evaluation of every atom's term.

#include <vector>

#include "vorn/smt/problem.h"

namespace vorn::smt {

// The variables (same numbers, names and sorts) and the fixed atoms (a distinct as one atom per
// pair), into the empty `out`.
void fixed_conjunction(const Problem& problem, const std::vector<QNumber>& model, Problem& out);

}  // namespace vorn::smt
