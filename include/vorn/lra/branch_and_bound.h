#pragma once

// BranchAndBound: decides a Simplex's current constraints with some variables required to be
// integral.
//
// The rational relaxation is checked first (its Unsat is the answer). Then a gcd test on the
// equalities whose variables are all integral: an equality Σ aᵢxᵢ = c (fixed slack) whose
// coefficients' gcd, after scaling to integers, does not divide c has no integral solution.
// Then depth-first branching on an integral variable whose model value v is fractional:
// x ≤ ⌊v⌋ first, then x ≥ ⌈v⌉, each under Simplex::push()/pop(), so the simplex returns to the
// caller's level after every call. Past `node_limit` nodes the answer is Unknown.
//
// Reasons: the caller's reasons are ≥ 0. A branch bound asserted at depth d of the current path
// carries the reason −(d + 1), so a leaf's Farkas conflict names the branch bounds it uses.

#include <cstdint>
#include <vector>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

struct BranchOptions {
    std::uint64_t node_limit = 10000;  // nodes explored before answering Unknown (0: no limit)
};

struct BranchStats {
    std::uint64_t nodes = 0;  // simplex checks, the relaxation included
    std::uint64_t max_depth = 0;
    std::uint64_t gcd_conflicts = 0;  // answers decided by the gcd test
    double seconds = 0;
};

// The proof of an Unsat answer: nodes[0] is the root.
//   Split: var ≤ below in child `low`, var ≥ below + 1 in child `high` (indices into nodes).
//   Farkas: a conflict of the simplex at that node (reasons < 0 name branch bounds, see above).
//   Gcd: the equality with reason `reason` has no integral solution, `gcd` divides every scaled
//        coefficient but not the scaled constant.
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

    // Marks a structural variable integral (from then on, for every check()).
    void set_integer(int var);
    bool is_integer(int var) const;

    // Sat: the simplex holds a model (Simplex::value) that is integral on every integer variable
    // and satisfies every bound. Unsat: proof() explains it. Unknown: the node limit was reached.
    // The simplex is back at the caller's push level on return.
    Result check();
    const std::vector<ProofNode>& proof() const { return proof_; }
    const BranchStats& stats() const { return stats_; }

  private:
    Simplex& simplex_;
    BranchOptions options_;
    std::vector<char> integer_;  // by variable
    std::vector<ProofNode> proof_;
    BranchStats stats_;
};

}  // namespace vorn::lra
