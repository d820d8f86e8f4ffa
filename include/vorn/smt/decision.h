#pragma once

// The decision core of `vorn check`: whether the atoms of a Problem have a common solution, Int
// variables integral, decided exactly by lra::Simplex and lra::BranchAndBound.
//
// Every atom but a disequality becomes one bound (Simplex::assert_term, the atom's index as its
// reason). Disequalities (Ne, and distinct pairwise) are split on demand: only one that the
// current model violates, term = c, is tried as term < c and term > c, each under push/pop; a
// pair of an n-ary distinct is only looked at when a model makes it equal. Over the rationals
// the other atoms form a convex set, so one side of each violated disequality is enough and the
// model is repaired step by step (search_convex); with Int variables the search is a depth-first
// tree with its own stack (its depth bounded by memory, not the machine stack), BranchAndBound
// deciding every node.
//
// An Unsat answer comes with a proof tree (ProofStep) over the atoms: splits on disequalities,
// the branch-and-bound splits, and leaves that are Farkas combinations or gcd tests.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vorn/lra/branch_and_bound.h"
#include "vorn/lra/simplex.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/clause_proof.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"
#include "vorn/util/stop.h"

namespace vorn::smt {

// One bound of a Farkas leaf. From an atom: the atom's "term ≤ c" (upper) or "term ≥ c" half, as
// in lra::Explanation, where the atom is term + k ⋈ 0 read as term ⋈ −k. From a split: the
// bound that the ancestor split `index` asserts on the side this leaf lies in.
struct FarkasEntry {
    bool from_split = false;
    std::size_t index = 0;  // atom or proof node
    bool upper = false;
    QNumber multiplier;
};

struct ProofStep {
    // Lattice: the equality atoms of `farkas` (their multipliers of any sign, `upper` unused)
    // sum to a term with integer coefficients over Int variables and a non-integer constant.
    // SplitCut: any inequality `term relation constant` (term over problem variables), split into
    // its negation (child `low`) and itself (child `high`): true of every point, so the low side's
    // subtree is the cut's derivation and the high side may use it as a bound (a cut).
    enum class Kind { Farkas, SplitNe, SplitInt, Gcd, Lattice, SplitCut } kind = Kind::Farkas;
    Relation relation = Relation::Le;  // SplitCut
    // SplitNe: the disequality term ≠ c of atom `atom` (for a distinct: its terms `first` −
    // `second`), split into term < c (child `low`) and term > c (child `high`); term over problem
    // variables, without constant.
    std::size_t atom = 0;
    std::uint32_t first = 0, second = 0;
    LinearExpr::Entries term;
    QNumber constant;
    // SplitInt: var ≤ below (low), var ≥ below + 1 (high).
    int var = 0;
    QNumber below;
    std::size_t low = 0, high = 0;
    std::vector<FarkasEntry> farkas;
    QNumber gcd;  // Gcd: of the scaled coefficients of atom `atom`, an equality
};

struct DecideOptions {
    std::uint64_t bb_limit = 10000;  // branch-and-bound nodes in one whole check (0: no limit)
    // The Boolean search over Int variables may, before branching, cut a fractional vertex off
    // with a Gomory mixed-integer cut from its tableau row; false: branch only. Off by default:
    // on the benchmarks so far, cuts cost more time than the nodes they save.
    bool cuts = false;
    // The Boolean search replaces a bound literal of a Farkas explanation (a conflict, a row
    // propagation's reason) by an earlier true atom on the same variable that still suffices.
    bool relax_explanations = true;
    // The Boolean search decides an atom by the theory's current assignment (the simplex's, or
    // the difference graph's potential) instead of its saved phase; atoms the search made itself
    // (branches, cuts, splits) keep the phase they were given.
    bool theory_phase = true;
    // The arithmetic theory propagates bounds along the rows of the current simplex tableau, not
    // only along the terms' definitions (src/smt/tableau_propagation.cpp).
    bool tableau_propagation = true;
    // At each restart the Boolean variables take the phases of the last model again
    // (solution-phase saving): a search for a better model stays near the best one so far.
    bool model_phase = false;
    // The Boolean search goes on inside a box on the Int variables that holds a solution
    // whenever there is one (Real variables stay free), after this many splits of a check
    // (0: never): the search then ends without the node budget (docs/integers.md,
    // "Termination"). 1 000: no benchmark family splits so often, so none searches differently.
    std::uint64_t box_after = 1000;
    // optimize over Int variables: rounds of Gomory mixed-integer cuts at the root of branch and
    // bound (0: none). Six: on MIPLIB 3 they solve 11 of 12 problems instead of 10, in about the
    // same total time; fewer rounds cost more than they gain (lseu, gt2).
    int root_cut_rounds = 6;
    // Problems with Boolean structure: keep the clause proof of an Unsat answer
    // (Decision::clause_proof). It costs memory for every clause the search learns.
    bool certify = false;
    // With certify: decide a conjunction by the Boolean search too, so that its proof is a clause
    // proof. A proof tree cannot define a lifted term ite; a clause proof's definitions do.
    bool clause_proof = false;
    // Per check, measured from its start (zero: none): the check answers Unknown, reason
    // "timeout", soon after.
    std::chrono::milliseconds time_limit{0};
    // Conflicts of the Boolean search per check (zero: none): Unknown, reason "conflict limit".
    // Deterministic, unlike the time limit.
    std::uint64_t conflict_limit = 0;
    // Not owned: interrupts and the memory limit (util::Stop); nullptr: the context's own.
    util::Stop* stop = nullptr;
    // Optimization: start from the optimal basis of a floating-point LP solver, checked (and
    // where needed repaired) exactly; without it the exact simplex starts from scratch. The
    // answers are the same, exact either way.
    bool float_start = true;
    // optimize over Int variables: each node's relaxation is solved by CLP first, and closed by
    // an exact bound from its duals (or its Farkas ray) where that shows it cannot beat the
    // incumbent (or is infeasible); false: every node by the exact simplex (the same optima).
    bool float_nodes = true;
};

struct DecideStats {
    lra::SimplexStats simplex;
    lra::BranchStats branch;
    std::uint64_t splits = 0;  // disequality splits
    sat::Stats sat;            // the Boolean search, on problems with Boolean structure
    std::uint64_t cuts = 0;    // Gomory cuts of the Boolean search
    // Splits of the Boolean search on integral terms from the equalities it has fixed: one that
    // refutes them, or one on a parameter of their integer solutions
    std::uint64_t lattice_splits = 0;
    // Literals of Farkas explanations replaced by earlier, weaker ones
    std::uint64_t relaxed_literals = 0;
    // Conjunctions decided by a floating-point basis (DecideOptions::float_start), checked
    // exactly, without a step of the exact simplex; in branch and bound, the nodes closed so
    // (DecideOptions::float_nodes).
    std::uint64_t float_decided = 0;

    // Sums counters and times (max_depth, learned_max: the larger one).
    DecideStats& operator+=(const DecideStats& other);
    // The counts since `earlier`; max_depth and learned_max stay this one's.
    DecideStats operator-(const DecideStats& earlier) const;
};

struct Decision {
    lra::Result result = lra::Result::Unknown;
    std::string reason_unknown;
    std::vector<QNumber> model;    // Sat: by problem variable, index 0 unused
    std::vector<ProofStep> proof;  // Unsat, conjunctions: nodes[0] is the root
    ClauseProof clause_proof;      // Unsat, Boolean structure, with DecideOptions::certify
    // Answered by the Boolean search (Boolean structure, assumptions, or a conjunction that branch
    // and bound gave up on): an Unsat proof is in clause_proof, not in proof.
    bool boolean_search = false;
    DecideStats stats;
};

Decision decide(const Problem& problem, const DecideOptions& options);

}  // namespace vorn::smt
