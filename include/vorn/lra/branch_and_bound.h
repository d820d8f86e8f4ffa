#pragma once

// BranchAndBound: decides a Simplex's current constraints with some variables required to be
// integral.
//
// The rational relaxation is checked first (its Unsat is the answer). Then a gcd test on the
// equalities whose variables are all integral: an equality Σ aᵢxᵢ = c (fixed slack) whose
// coefficients' gcd, after scaling to integers, does not divide c has no integral solution.
// Then depth-first branching on the first integral variable whose model value v is fractional:
// x ≤ ⌊v⌋ and x ≥ ⌈v⌉, the side nearer v first, each under Simplex::push()/pop(), so the
// simplex returns to the caller's level after every call. Past `node_limit` nodes the answer is
// Unknown.
//
// Reasons: the caller's reasons are ≥ 0. A branch bound asserted at depth d of the current path
// carries the reason −(d + 1), so a leaf's Farkas conflict names the branch bounds it uses.
//
// Integrality is read from the assignment with δ kept symbolic (Simplex::delta_value), never
// from Simplex::value, whose stand-in for δ depends on the bounds of the moment: x = 2 + δ is
// fractional, and its branch x ≤ 2 | x ≥ 3 is the rounding of a strict bound x > 2 (the first
// child closes at once, by the assertion's conflict, without a pivot). Bounds asserted through
// assert_term on terms over integer variables are rounded there (integer_bounds.h), so that
// strict bounds on terms such as 0 < 2n − 2m < 2 close at the root instead of branching without
// end; bounds asserted on the simplex directly are taken as they are. Eliminated integer variables
// are restored after the relaxation, so that their values are symbolic too.
//
// Unit cube: a fractional root first tries the unit cube test (unit_cube.h), whose integral point
// is a model without any branch.
//
// Branching rule: the fractional integer variable with the smallest number. It is
// deterministic, costs one scan, and reproduces the same tree from the same input, which keeps
// answers and proofs stable across runs; choices by fractionality or by box width did no
// better on the benchmark families (bench/analysis.md).
//
// Tight rows: branching on single variables never ends where the rows at their bounds have no
// integer solution (tight_split.h); the split that ends it is on a term, which these proofs
// cannot hold. At every node whose count is a power of two from 8192 on (the problems that
// branching ends mostly end sooner), the search looks for one and, found, answers Unknown with
// wants_term_split() (BranchOptions::stop_for_term_split).
//
// Costs: one simplex check per node (reusing the basis of the previous node), a scan of the
// integer variables per node, and a scan of all variables for the gcd test at the root.

#include <cstdint>
#include <vector>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

struct BranchOptions {
    std::uint64_t node_limit = 10000;  // nodes explored before answering Unknown (0: no limit)
    // Answer Unknown with wants_term_split() at a vertex that only a split on a term cuts off
    // (see Tight rows above), for a caller that has a search which splits on terms.
    bool stop_for_term_split = false;
};

struct BranchStats {
    // Over every check() so far (node_limit counts the nodes of one check):
    std::uint64_t nodes = 0;  // simplex checks, the relaxation included
    std::uint64_t max_depth = 0;
    std::uint64_t gcd_conflicts = 0;  // answers decided by the gcd test
    std::uint64_t cube_models = 0;    // models found by the unit cube test at the root
    double seconds = 0;
};

// The proof of an Unsat answer: nodes[0] is the root.
//   Split: var ≤ below in child `low`, var ≥ below + 1 in child `high` (indices into nodes);
//          var is a structural integer variable, below an integer.
//   Farkas: a conflict of the simplex at that node (reasons < 0 name branch bounds, see above).
//   Gcd: the equality with reason `reason` has no integral solution, `gcd` divides every scaled
//        coefficient but not the scaled constant (scaled: the coefficients and the constant
//        brought to coprime integers together, so `gcd` does not depend on how the caller
//        scaled the equality).
struct ProofNode {
    enum class Kind { Split, Farkas, Gcd } kind = Kind::Farkas;
    int var = 0;
    QNumber below;
    std::size_t low = 0, high = 0;
    std::vector<Explanation> farkas;
    Reason reason = 0;
    QNumber gcd;
};

class BranchAndBound {
  public:
    explicit BranchAndBound(Simplex& simplex, BranchOptions options = {})
        : simplex_(simplex), options_(options) {}

    // Takes effect at the next check().
    void set_options(BranchOptions options) { options_ = options; }
    // Marks a structural variable integral (from then on, for every check()).
    void set_integer(int var);
    bool is_integer(int var) const;

    // Simplex::assert_term, with the bound rounded (integer_bounds.h) when every variable of the
    // term is integral: the form branching needs, and the one the proofs' Farkas leaves use. Mark
    // the variables integral before asserting bounds over them.
    Asserted assert_term(const TermVar& t, Relation relation, const QNumber& constant,
                         Reason reason);

    // Sat: the simplex holds a model (Simplex::value) that is integral on every integer variable
    // and satisfies every bound. Unsat: proof() explains it. Unknown: the node limit was reached.
    // The simplex is back at the caller's push level on return.
    Result check();
    const std::vector<ProofNode>& proof() const { return proof_; }
    const BranchStats& stats() const { return stats_; }
    // The last check() answered Unknown at a vertex that only a split on a term cuts off.
    bool wants_term_split() const { return wants_term_split_; }

  private:
    // One split on the current path, and which of its children is being explored. Each frame
    // owns one simplex push level: the one of its current child's branch bound.
    struct Frame {
        std::size_t node;
        bool in_high;
        bool second = false;  // the other child, after the first one failed
    };
    enum class Outcome { Sat, Unsat, Unknown, Split };

    Result search();
    // Checks the current node and records it in the proof: a Farkas or Gcd leaf when Unsat, a
    // Split (children not yet created) when an integer variable is fractional.
    Outcome visit(std::size_t node);
    void restore_integer_variables();
    bool gcd_refutes(std::size_t node);
    int fractional_variable() const;
    // Whether the split at `node` explores its high child (var ≥ below + 1) first.
    bool high_first(std::size_t node) const;
    // Creates the current child of the last frame, pushes a level and asserts its bound.
    std::size_t descend();
    // Pops finished splits and turns the deepest unfinished one to its other child; false when
    // none is left.
    bool backtrack();
    bool integral_model_is_valid() const;
    bool tight_rows_refuted();

    Simplex& simplex_;
    BranchOptions options_;
    std::vector<char> integer_;  // by variable
    std::vector<ProofNode> proof_;
    BranchStats stats_;
    std::vector<Frame> path_;
    bool wants_term_split_ = false;
    std::uint64_t visited_ = 0;               // nodes of this check
    std::uint64_t deepest_ = 0;               // longest path of this check
    std::uint64_t deepest_at_last_look_ = 0;  // deepest_ when the tight rows were last tried
};

}  // namespace vorn::lra
