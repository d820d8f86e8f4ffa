#pragma once

// DecisionGuide: decisions chosen from the structure of the formulas behind the clauses instead
// of by activity alone. A guide names the next variable that the asserted formulas still need
// (the solver picks its sign); once they need none, the assignment so far satisfies them
// whatever the unassigned variables take, and the solver ends with Sat there (after the
// theory's full check). Every clause must then hold under any extension that evaluates the
// formulas' gates from their operands: the guide answers for that.

#include "vorn/sat/literal.h"

namespace vorn::sat {

class Solver;

class DecisionGuide {
  public:
    virtual ~DecisionGuide() = default;
    // True with `var` an unassigned variable to decide; false once nothing more is needed.
    virtual bool next(const Solver& solver, Var& var) = 0;
};

}  // namespace vorn::sat
