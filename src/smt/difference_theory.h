#pragma once

// DifferenceTheory: the theory of difference constraints x − y ≤ c (and bounds x ≤ c, read as
// x − zero ≤ c), decided on the constraint graph instead of by the simplex: the QF_IDL and
// QF_RDL logics, scheduling problems.
//
// Every true literal is an edge y → x of weight c for x − y ≤ c (a strict c − δ over the reals;
// rounded to c − 1 over the integers). The constraints are consistent exactly when the graph
// has no negative cycle. A potential π with π(x) ≤ π(y) + c for every edge is kept across
// assignments (Cotton, Maler 2006): a new edge that π violates lowers π along shortest paths
// from its head, a Dijkstra search over reduced costs, and finding its tail on the way closes a
// negative cycle: the conflict, explained by the cycle's literals with multiplier 1 each (per
// unit of the atom's coefficient). Removing edges keeps π valid, so backtracking only pops
// edges. The model is x = π(x) − π(zero), δ made small enough for every strict edge.
//
// Propagation: like the simplex theory, an edge implies or refutes the other atoms on the same
// pair of variables. A conflict's edge gives way to an earlier true atom's weaker edge between
// the same nodes when the cycle stays negative (explain_cycle). Phase: an atom is decided true
// exactly when π satisfies its edge.
//
// Weights: while every weight, scaled by a common denominator, fits in machine integers, π and
// the search run on SmallWeights (checked sums; a new denominator rescales the graph once); the
// first weight or sum that does not fit moves π to the exact DeltaRationals for good
// (leave_small), and the search runs again there from the same π. The steps are the same.

#include <cstdint>
#include <span>
#include <unordered_map>
#include <vector>

#include "vorn/lra/delta_rational.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/problem.h"

#include "linear_theory.h"
#include "small_weight.h"

namespace vorn::smt {

class DifferenceTheory : public LinearTheory {
  public:
    DifferenceTheory(const Problem& problem, bool record);

    // Whether the atom over `term` (no constant entry) is a difference constraint: one variable,
    // or two with opposite coefficients.
    static bool is_difference(std::span<const LinearExpr::Entry> term);

    void add_atom(sat::Var var, std::span<const LinearExpr::Entry> term, Relation relation,
                  const QNumber& c) override;
    void retire(sat::Var var) override;
    void truncate(sat::Var first) override;
    void truncate_variables(int n) override;
    bool is_atom(sat::Var var) const override {
        return var < atom_of_.size() && atom_of_[var] >= 0;
    }
    void begin_check(std::uint64_t) override {}
    void set_theory_phase(bool on) override { theory_phase_ = on; }
    void set_relax_explanations(bool on) override { relax_ = on; }
    DecideStats stats() const override;

    void new_level() override;
    void backtrack(int level) override;
    void assign(sat::Lit lit) override;
    void propagate(std::vector<sat::Lit>& implied) override;
    void explain(sat::Lit lit, std::vector<sat::Lit>& clause) override;
    bool check(bool full, std::vector<sat::Lit>& conflict) override;
    bool phase(sat::Var v, bool saved) override;

  private:
    using Weight = lra::DeltaRational;
    struct Edge {
        int from, to;
        Weight weight;
        SmallWeight small;  // the same weight, while small_
    };
    struct Atom {
        Edge edge[2];  // by literal sign: [0] the atom, [1] its negation
        QNumber unit;  // 1/|coefficient|
        int pair;      // index in pairs_: atoms on the same two nodes
        bool alive = true;
    };
    struct Active {
        sat::Lit lit;  // kFact: a level-0 fact whose atom a pop took
        Edge edge;
    };
    // A pop gives back the SAT variables of its level, and their atoms go (truncate). Their
    // level-0 facts follow from the permanent clauses, so their edges stay, naming no literal:
    // analysis drops level-0 literals from conflicts anyway. No such edge touches the node of a
    // variable declared inside the level (nothing permanent constrains it), so those nodes are
    // handed to the next new variables.
    static inline const sat::Lit kFact = sat::Lit::from_code(~std::uint32_t{0});

    int node(int problem_var);
    Edge read(std::span<const LinearExpr::Entry> term, Relation relation, const QNumber& c,
              bool integral);
    bool add_edge(sat::Lit lit, const Edge& e);
    enum class Search { Consistent, Cycle, Overflow };
    template <class W>
    Search search(const Edge& e, std::vector<W>& pi, std::vector<W>& drop);
    void set_small_weights(Atom& atom);
    bool rescale(std::int64_t factor);
    void leave_small();
    Weight potential(std::size_t node) const;
    void explain_cycle();
    void take_model();

    const Problem& problem_;
    std::vector<int> node_of_;  // by problem variable + 1 (0: none); node 0 is zero
    std::vector<int> var_of_;   // by node, 0: the zero node or free
    std::vector<int> free_nodes_;
    std::vector<Weight> pi_;  // by node, unless small_
    bool small_ = true;       // every weight a SmallWeight: small_pi_ holds π
    std::int64_t scale_ = 1;  // of every SmallWeight
    std::vector<SmallWeight> small_pi_;

    std::vector<int> atom_of_;  // by SAT variable
    std::vector<Atom> atom_data_;
    std::vector<std::vector<std::uint32_t>> pairs_;      // atoms by unordered node pair
    std::unordered_map<std::uint64_t, int> pair_index_;  // node pair → index in pairs_
    std::vector<std::vector<std::uint32_t>> out_;        // by node: indices into active_
    std::vector<Active> active_;
    std::vector<std::size_t> level_start_;
    std::vector<signed char> value_;  // by SAT variable
    std::size_t propagated_ = 0;
    std::vector<sat::Lit> implied_by_;
    bool conflict_ = false;
    std::vector<sat::Lit> pending_;
    std::vector<QNumber> pending_multipliers_;

    // Scratch of the search: tentative decrease of π and the edge it came by, per node.
    std::vector<Weight> drop_;
    std::vector<SmallWeight> small_drop_;
    std::vector<int> via_;  // index into active_, −1: none
    std::vector<int> touched_;
    std::uint64_t relaxations_ = 0;
    std::uint64_t conflicts_ = 0;
    bool theory_phase_ = true;  // decisions take the potential's sign
    bool relax_ = true;         // conflicts over earlier atoms (explain_cycle)
    std::uint64_t relaxed_ = 0;
    std::vector<int> cycle_;               // scratch of explain_cycle
    std::vector<std::uint32_t> position_;  // by SAT variable: its index in active_ when true
};

}  // namespace vorn::smt
