#pragma once

// The interface between the SAT engine and a decision procedure for a theory (DPLL(T), Nieuwenhuis,
// Oliveras, Tinelli 2006). The solver drives a theory through one protocol:
//
// - Levels. new_level() is called whenever the solver opens a decision level (also for an
//   assumption), backtrack(level) when it undoes every level above `level`; the theory then
//   forgets what assign() told it at those levels. Level 0 is never undone.
// - Assignments. assign(lit) is called once for every literal the solver makes true, in trail
//   order, before the next propagate() or check(); literals the theory implied come back too.
// - Propagation. propagate() may append literals that follow from the assignments so far. The
//   solver asks for a reason only when conflict analysis needs it, while the literal is still
//   assigned: explain(lit) then gives a clause that contains lit and whose other literals were
//   all false before lit was implied.
// - Consistency. check(full) returns false and a conflict clause (every literal false under the
//   current assignment) when the assignments are inconsistent in the theory. With full, every
//   variable is assigned (or every one a DecisionGuide needs) and true means the assignment is a
//   model of the theory.
//
// - Phase. phase(v, saved) gives the sign the solver decides v with (true: negative); the
//   default keeps the saved phase, a theory may answer by its current model instead.
// - Lemmas. During check(full) the theory may also make new variables and hand the solver
//   lemmas over them (Solver::add_lemma), which the search then goes on to decide.
//
// Clauses the theory returns are theory lemmas: valid in the theory, kept by the solver like
// learned clauses (and removed by the same reduction).

#include <vector>

#include "vorn/sat/literal.h"

namespace vorn::sat {

class Theory {
  public:
    virtual ~Theory() = default;

    virtual void new_level() = 0;
    virtual void backtrack(int level) = 0;
    virtual void assign(Lit lit) = 0;
    virtual void propagate(std::vector<Lit>& implied) = 0;
    virtual void explain(Lit lit, std::vector<Lit>& clause) = 0;
    virtual bool check(bool full, std::vector<Lit>& conflict) = 0;
    // The sign to decide `v` with, given the saved one (true: negative).
    virtual bool phase(Var /*v*/, bool saved) { return saved; }
    // After a consistent check(false): propagate() has more to give (the check changed what the
    // theory can derive), so the solver propagates again before it decides.
    virtual bool wants_propagate() const { return false; }
};

}  // namespace vorn::sat
