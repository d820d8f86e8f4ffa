#pragma once

// BooleanDecider: the decision procedure for problems with Boolean structure (CDCL(T)). The SAT
// engine searches over the propositions of the problem's clauses; ArithTheory keeps the
// arithmetic atoms consistent. Asserted atoms (Problem::atoms) become unit clauses over atoms
// of their own: t ⋈ c as one or two bounds, a disequality as the clause t < c ∨ t > c, a
// `distinct` as one such clause per pair.
//
// Incremental like Decider: what the problem holds is entered at push() and check(), and a pop
// removes what was entered since the matching push (SAT push levels; the popped atoms retire
// from the theory).
//
// With DecideOptions::certify an Unsat answer carries a clause proof that also says what each
// variable stands for (ClauseProof::Definition): the propositions from the problem's Boolean
// structure, the constants and selectors from records the decider keeps as it makes them.

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <vector>

#include "vorn/sat/solver.h"
#include "vorn/smt/clause_proof.h"
#include "vorn/smt/context.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"

#include "hall_interval.h"
#include "justification.h"
#include "linear_theory.h"

namespace vorn::smt {

class BooleanDecider {
  public:
    // `difference`: every atom the problem will hold is a difference constraint over variables
    // of one sort (DifferenceTheory decides them); otherwise the simplex does.
    BooleanDecider(const Problem& problem, const DecideOptions& options, bool difference);

    void set_options(const DecideOptions& options);
    // Enters what the problem holds (or, replaying levels, what it held at a push: its first
    // `atoms` atoms, `props` propositions and `clauses` clauses), then opens a level.
    void push();
    void push(std::size_t atoms, std::uint32_t props, std::size_t clauses);
    void pop(std::size_t n);
    void truncate_variables(int n) { theory_->truncate_variables(n); }
    std::size_t level() const { return levels_.size(); }
    // Decides the problem with `assumptions` (literals of its propositions) taken as true.
    Decision check(std::span<const Literal> assumptions = {});
    // After an Unsat check: assumptions that are unsat together with the problem.
    const std::vector<Literal>& failed() const { return failed_; }
    DecideStats stats() const;
    SearchSize search_size() const {
        return {sat_.num_vars(), sat_.num_clauses(), sat_.arena_words(), theory_->atoms().size()};
    }

  private:
    struct Level {
        std::size_t atoms, clauses;
        std::uint32_t props;
        std::size_t extra;  // extra_ size
    };

    void enter() {
        enter(problem_.atoms.size(), problem_.boolean.propositions(), problem_.boolean.clauses());
    }
    void enter(std::size_t atoms, std::uint32_t props, std::size_t clauses);
    sat::Lit sat_literal(Literal lit) const {
        return sat::Lit(prop_var_[lit.prop()], lit.negative());
    }
    // A new atom  term ⋈ c  (Le or Ge); term over problem variables with its constant, which
    // moves into c. A term without variables is a constant literal.
    sat::Lit atom_literal(std::span<const LinearExpr::Entry> term, Relation relation, bool extra);
    void enter_asserted(const Atom& atom);
    sat::Lit constant_literal(bool value);
    void open_level();
    // With certify: records what `lit`, a variable the decider made itself, stands for.
    void define(sat::Lit lit, ClauseProof::Definition::Kind kind,
                std::initializer_list<sat::Lit> operands, int index = 0);
    ClauseProof proof() const;
    // The pigeonhole lemmas of the distincts (asserted, or of the Boolean structure) under the
    // asserted bounds, once per new atoms or propositions (hall_interval.h).
    void add_hall_lemmas();
    // The lemma of one distinct, when its terms have an overfull interval; `equal(a, b)` the
    // literal of the equality of its terms a < b.
    template <class Equal>
    void add_hall_lemma(std::span<const OffsetTerm> terms, Equal equal);
    // The literal of a new definition: the `and` of the two halves of a pair's equality.
    sat::Lit equality_literal(std::pair<sat::Lit, sat::Lit> halves);
    // The rest of a check that gave up for its box (LinearTheory::wants_box), inside the box.
    sat::Result solve_in_box(std::vector<sat::Lit>& assumptions);

    const Problem& problem_;
    DecideOptions options_;
    sat::Solver sat_;
    std::unique_ptr<LinearTheory> theory_;
    std::vector<Level> levels_;
    std::size_t atoms_ = 0, clauses_ = 0;        // entered
    std::vector<sat::Var> prop_var_;             // by entered proposition
    std::vector<sat::Var> extra_;                // atoms made for asserted atoms, to retire on pop
    std::vector<std::uint32_t> prop_of_;         // by SAT variable: proposition + 1, 0: none
    std::vector<ClauseProof::Definition> made_;  // constants, their wrappers, level selectors
    std::vector<ClauseProof::Box> boxes_;
    std::vector<sat::Lit> box_bounds_;  // of the current check's box
    // Asserted atoms for the pigeonhole lemmas: bounds on one Int variable with their unit
    // literal, and the distincts with the halves t ≤ u, t ≥ u of each pair's equality.
    struct AssertedBound {
        std::size_t atom;
        IntegerBound bound;
        sat::Lit lit;
    };
    struct AssertedDistinct {
        std::size_t atom;
        std::vector<OffsetTerm> terms;
        std::vector<std::pair<sat::Lit, sat::Lit>> pairs;  // (a, b), a < b, row by row
    };
    std::vector<AssertedBound> asserted_bounds_;
    std::vector<AssertedDistinct> asserted_distincts_;
    // Atoms and propositions entered at the last add_hall_lemmas.
    std::pair<std::size_t, std::size_t> hall_checked_{0, 0};
    std::vector<std::pair<std::size_t, ClauseProof::Hall>> hall_steps_;  // by SAT proof step
    std::vector<Literal> failed_;
    std::vector<sat::Lit> clause_;
    LinearExpr::Entries scratch_;
    Justification guide_{problem_, prop_var_, prop_of_};
};

}  // namespace vorn::smt
