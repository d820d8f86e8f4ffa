#pragma once

// Exact linear optimization: the least (or greatest) value of a term over a problem's atoms.
//
// Feasibility is decided first (smt::decide, with its proof when infeasible); then a simplex on
// the atoms as bounds runs phase 2 from the feasible basis (lra::Simplex::minimize). With Int
// variables the answer is the integer optimum, from exact branch and bound (milp.h), and its
// proof a branch-and-bound tree. Disequalities and Boolean structure are outside: Unknown.
//
// Every answer is checkable: an optimum comes with a model attaining it and a proof, in the
// conjunctive proof format, that the atoms together with "objective < optimum" (">" when
// maximizing) have no solution — Farkas multipliers that are the optimal dual values. An
// unbounded answer comes with a feasible model and a ray: a direction that keeps every atom and
// improves the objective.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vorn/numbers/qnumber.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct Optimization {
    enum class Kind { Optimal, Infeasible, Unbounded, Unknown } kind = Kind::Unknown;
    std::string reason_unknown;
    QNumber optimum;             // Optimal: of the objective term, its constant included
    std::vector<QNumber> model;  // Optimal, Unbounded: by problem variable, index 0 unused
    std::vector<QNumber> ray;    // Unbounded: by problem variable
    // Infeasible: the proof over `problem`. Optimal: the proof over `bounded`, the problem
    // with the atom "objective < optimum" (or ">") appended.
    std::vector<ProofStep> proof;
    Problem bounded{NameSyntax::SmtLib};
    DecideStats stats;
    // Unknown after a stop in branch and bound: the best integral solution found (`optimum`,
    // `model`) when `incumbent`, and the proven bound: no solution is better than `bound`.
    bool incumbent = false;
    std::optional<QNumber> bound;
    // Unknown, strict bounds: `optimum` is the infimum (supremum when maximizing), approached by
    // the model but not attained.
    bool approached = false;
    // The floating-point start (DecideOptions::float_start): whether its basis was exactly
    // optimal as it stood, and otherwise why not (the exact simplex then went on from it).
    bool float_basis_optimal = false;
    std::string float_basis_note;
};

// `objective`: a term of the problem. The options' limits apply to the whole call (one
// deadline from its start); a stop or running out of memory answers Unknown with the reason.
Optimization optimize(const Problem& problem, std::uint32_t objective, bool maximize,
                      const DecideOptions& options = {});

// Empty when the answer checks: the model satisfies the atoms and attains the optimum and the
// proof refutes anything better, or the ray keeps every atom and improves the objective;
// otherwise what fails.
std::string check_optimization(const Problem& problem, std::uint32_t objective, bool maximize,
                               const Optimization& answer);

}  // namespace vorn::smt
