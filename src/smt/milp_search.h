#pragma once

// The branch-and-bound search behind optimize_integer (milp.h, which describes it): one object
// per call. milp.cpp holds the search (nodes, bounds, the proof tree), milp_branching.cpp the
// choice of the branching variable (pseudo-costs, strong branching) and the rounding heuristic,
// milp_fixing.cpp reduced-cost fixing, milp_cuts.cpp the cuts at the root, milp_term_split.cpp
// the splits on integral terms where a fractional Int variable is unbounded, milp_float.cpp the
// floating-point node relaxations and their safe bounds.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <queue>
#include <span>
#include <string>
#include <vector>

#include "vorn/lra/branch_and_bound.h"
#include "vorn/lra/simplex.h"
#include "vorn/lra/tight_split.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/optimize.h"
#include "vorn/smt/problem.h"

#include "simplex_vars.h"

namespace vorn::smt {

class FloatNodeLp;  // milp_float.cpp, the only file of the search that sees CLP

inline constexpr std::size_t kNoMilpNode = static_cast<std::size_t>(-1);

// Objective gain per unit of distance a branch moved a variable, averaged over the branches
// measured so far (Achterberg, Koch, Martin: pseudo-costs).
struct PseudoCost {
    double sum[2] = {0, 0};
    std::uint32_t count[2] = {0, 0};
    bool known(int side) const { return count[side] > 0; }
    double average(int side) const { return sum[side] / count[side]; }
};

class MilpSearch {
  public:
    MilpSearch(const Problem& p, std::uint32_t objective, bool maximize, const DecideOptions& o)
        : p_(p), objective_(objective), maximize_(maximize), options_(o) {}

    Optimization run();

  private:
    // A node of the search: the branch bound from its parent (var ≤ below, or ≥ below + 1 when
    // `high`), its proof step, and what pseudo-costs need of its parent.
    struct Node {
        std::size_t parent = kNoMilpNode;
        int var = 0;  // problem variable
        QNumber below;
        bool high = false;
        std::size_t step = 0;
        QNumber parent_value;  // the parent's relaxation optimum, minimizing
        QNumber distance;      // how far the branch moved the variable from its value
        QNumber value;         // its own relaxation optimum, minimizing, once branched
        // A split on an integral term instead of `var` (term ≤ below | term ≥ below + 1), over
        // problem variables.
        LinearExpr::Entries term;
        bool branched = false;
        bool closed = false;  // a split turned into a leaf: every node below it is moot
        // The basis of its relaxation's optimum, once branched, until both children start from
        // it: the basic variables, and the bound each non-basic one was at (bound_side).
        std::vector<int> basis;
        std::vector<signed char> sides;
        int basis_uses = 0;
        // Once branched: the objective's row at its optimum as a Farkas conflict but for the
        // incumbent's bound (milp_fixing.cpp), and the value its bounds give the objective; empty
        // when some bound is missing or the optimum is not attained.
        std::vector<lra::Explanation> bound_proof;
        lra::DeltaRational reached;
    };
    struct Open {
        QNumber key;  // the parent's relaxation optimum, minimizing: a bound on the node
        std::size_t depth;
        std::size_t node;
        bool operator<(const Open& o) const {  // the priority queue's top is the best
            if (key != o.key) return key > o.key;
            return depth < o.depth;
        }
    };
    enum class Outcome { Closed, Branched, Stopped, Failed, Unbounded };

    int simplex_var(int v) {
        return map_simplex_var(simplex_, v, false, var_of_, nullptr, nullptr, [](int) {});
    }
    lra::TermVar term_var(std::span<const LinearExpr::Entry> term) {
        lra::TermEntries entries;
        for (const LinearExpr::Entry& e : term)
            if (e.var != 0) entries.push_back({simplex_var(e.var), e.coeff});
        return simplex_.term_variable(entries);
    }
    bool is_int(int v) const { return p_.variables.sort(v) == Sort::Int; }
    void enter_atoms();
    // The value minimized: the objective, negated when maximizing.
    QNumber minimizing(const QNumber& objective_value) const {
        return maximize_ ? -objective_value : objective_value;
    }
    Outcome visit(std::size_t node);
    void save_basis(Node& n) const;
    int saved_side(int var) const;
    void restore_basis(std::size_t from, bool child, bool warm = true);
    bool cannot_beat_incumbent(const QNumber& value) const;
    bool below_closed_node(std::size_t node) const;
    bool close_by_bound(std::size_t node);
    void collect_path(std::size_t node);
    bool assert_path(std::size_t node);
    lra::Asserted assert_cutoff();
    void close_with_conflict(std::size_t node);
    void close_with_conflict(std::size_t node, std::span<const lra::Explanation> conflict);
    Outcome accept_incumbent(std::size_t node);
    Outcome branch(std::size_t node, const QNumber& value);
    struct Fractional {
        int var;  // problem variable
        lra::DeltaRational value;
    };
    void collect_fractional();
    bool has_both_bounds(int var) const;  // a problem variable
    void try_rounding(bool up);
    void measure_by_strong_branching(const QNumber& value);
    int choose_branch_variable(QNumber& value) const;
    std::optional<lra::TermSplit> unbounded_split();
    Outcome branch_on_term(std::size_t node, const QNumber& value, const lra::TermSplit& split);
    static constexpr std::size_t kMaxTightEntries = 20000;  // of the dense system solved
    // Reduced-cost fixing (milp_fixing.cpp): a split whose far side the objective's row refutes
    // under the incumbent's bound, its conflict but for the far bound itself.
    struct Fixing {
        int var;  // problem variable
        QNumber below;
        bool far_high;  // the far side is x ≥ below + 1 (else x ≤ below)
        std::vector<lra::Explanation> conflict;
        QNumber far_multiplier;
    };
    // Node relaxations in floating point closed by exact safe bounds (milp_float.cpp).
    std::vector<la::Equation::VarCoeff> objective_entries() const;
    void build_float_lp();
    bool safe_bound_conflict(const double* y, double sign, bool with_objective,
                             std::vector<lra::Explanation>& conflict) const;
    bool close_by_float_bound(std::size_t node);
    std::shared_ptr<FloatNodeLp> float_lp_;
    bool float_least_ = true;  // CLP minimizes the objective's slack (else its negation)
    std::uint64_t float_closed_ = 0, float_solves_ = 0;
    std::optional<double> float_child_change(int var, const QNumber& below, bool high);
    std::optional<double> float_node_value_;  // CLP's optimum at the node, when it stays open
    double float_cap_ = 0;                    // the incumbent's bound, in CLP's objective
    void collect_fixings();
    void save_bound_proof(Node& n) const;
    bool close_by_row(std::size_t node);
    // Root cuts (milp_cuts.cpp, milp_mir.cpp): Σ cut ≥ cut_constant and its derivation, a split
    // s ≤ split_constant with a Farkas leaf on each side: low_side (s ≤ k) or high_side
    // (s ≥ k + 1), the split's bound weighted split_low or split_high and the cut's negation
    // weighted `negation`.
    struct RootCut {
        LinearExpr::Entries cut, split;
        QNumber cut_constant, split_constant, split_low, split_high, negation{1};
        std::vector<FarkasEntry> low_side, high_side;
    };
    bool mir_cut(std::size_t atom, bool upper, RootCut& out) const;
    void mir_cuts(std::vector<RootCut>& into) const;
    static constexpr lra::Reason kCutReason = lra::Reason(1) << 40;  // + the cut's number
    static constexpr std::size_t kCutsPerRound = 20;
    static constexpr int kCutGainPercent = 1;         // of the root bound, for the cuts to be kept
    static constexpr std::size_t kCutRowLimit = 200;  // non-basic entries of a row cut from
    bool integral_simplex_var(int var) const;
    void expand(int var, const QNumber& factor, std::vector<QNumber>& into) const;
    FarkasEntry bound_entry(const lra::BoundRecord& b, const QNumber& multiplier) const;
    bool gomory_cut(int basic, RootCut& out) const;
    void add_root_cut(RootCut& c);
    Outcome resolve_root(lra::Optimum& best);
    Outcome cut_root(lra::Optimum& best);
    std::vector<std::size_t> cut_steps_;  // by cut: its cut split, chained above the root
    std::size_t proof_root_ = 0;          // the first cut split, or the search's root
    std::size_t fix_by_reduced_cost(std::size_t node, const QNumber& value);
    bool cutoff_asserted_ = false;  // at the node visited
    bool dual_ = false;             // the dual guide and each node from its parent's basis
    void learn_pseudo_cost(const Node& n, const QNumber& value);
    std::size_t add_node(std::size_t parent, int var, const QNumber& below, bool high,
                         const QNumber& value, const QNumber& distance);
    Optimization answer_by_decision();
    Optimization answer_unbounded();
    Optimization finish(Outcome last);

    const Problem& p_;
    std::uint32_t objective_;
    bool maximize_;
    DecideOptions options_;
    lra::Simplex simplex_{lra::SimplexOptions{16, 0, false, nullptr}};
    lra::BranchAndBound rounding_{simplex_};  // only its rounded assert_term
    std::vector<int> var_of_;
    std::optional<lra::TermVar> objective_var_;
    QNumber objective_constant_;
    lra::Reason cutoff_reason_ = 0;  // the atom "objective < incumbent" of the proof's problem
    // Every variable of the objective Int: its values differ by multiples of objective_step_.
    bool integral_objective_ = false;
    QNumber objective_step_;

    std::vector<ProofStep> steps_;
    std::vector<Node> nodes_;
    std::priority_queue<Open> open_;
    std::vector<std::size_t> path_;  // of the node visited, root first
    std::vector<PseudoCost> pseudo_;
    std::vector<Fractional> fractional_;         // at the node being branched
    std::vector<Fixing> fixings_;                // at the node being branched
    std::vector<int> problem_var_;               // by simplex variable (0: none)
    std::vector<int> integer_vars_;              // the simplex variables of the Int ones
    std::vector<int> atom_rows_;                 // the slacks of the atoms and the objective
    std::size_t preferred_child_ = kNoMilpNode;  // of the last Branched visit
    QNumber last_value_;                         // the last relaxation optimum, minimizing

    bool has_incumbent_ = false;
    bool incumbent_approached_ = false;  // an infimum (supremum) of strict bounds, not attained
    bool approached_here_ = false;       // the node visited: its optimum is not attained
    QNumber incumbent_;
    std::vector<QNumber> incumbent_model_;
    std::string failure_;
    std::uint64_t visited_ = 0;
    bool root_open_ = false;  // stopped before the root's relaxation was solved
};

}  // namespace vorn::smt
