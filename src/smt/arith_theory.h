#pragma once

// ArithTheory: the simplex as the theory of the SAT engine (DPLL(T)); atoms are bounds on the
// simplex variables of their terms (terms equal up to a factor share one).
//
// Levels. Every SAT decision level is a simplex push level, so backtracking pops the bounds of
// the undone literals and keeps the basis and the assignment.
//
// Checks. Every propagation fixpoint runs the simplex (it is incremental: a few pivots after a
// few new bounds); a conflict's Farkas explanation is the lemma ∨ ¬l over its literals l.
// Propagation: a literal's bound implies or refutes the other atoms on the same simplex
// variable (x ≤ 3 makes x ≤ 5 true and x > 4 false), explained by the two-literal lemma; and
// through the definition of each slack s = Σ aⱼ·xⱼ it occurs in: once every xⱼ is bounded on
// the side that bounds s, the atoms on s that bound follows from are implied, explained by
// the bounds' literals with the multipliers |aⱼ| (a Farkas lemma, kept at propagation time
// since later, tighter bounds must not explain an earlier implication); and the other way round,
// a bound on s with every xⱼ but xₖ bounded on the opposite side bounds xₖ, and implies the
// atoms on xₖ that bound decides (multipliers 1 for s, |aⱼ| for the others, over |aₖ|); a long
// row keeps the sum of its summands' bounds between backtracks (summand_room.cpp), so that only
// summands wider than the room its slack's bound leaves are tried.
// Explanations (explanation_relaxation.cpp): a conflict's or a row propagation's bound literal
// gives way to an earlier true atom on the same variable whose weaker bound the Farkas sum's
// excess still covers, so that learned clauses reach back to lower levels.
// Phase: an input atom is decided the way the simplex's current assignment has it.
// Integers: a full assignment whose model gives an Int variable a fractional value v gets a
// new atom x ≤ ⌊v⌋ for the SAT search to decide (its negation is x ≥ ⌊v⌋ + 1); a budget of
// such branches per check ends the search with gave_up().
// Box: a check gives up, once its splits reach DecideOptions::box_after, with wants_box(); the
// decider then adds the box of its input atoms (make_box, lra/solution_box.h) under a new
// assumption and searches again, now with every Int variable bounded, so that the splits end
// (docs/integers.md, "Termination").
// Cube: a full assignment with a fractional vertex may first get an integral model from the unit
// cube test (lra/unit_cube.h), now and then, without a branch.
// Lattice splits (lattice_split.cpp): before a branch, a full assignment whose fixed integral
// terms have no common integer solution gets the split atom that the lattice's multipliers show;
// when they have, the lattice point nearest the vertex may be the model, else (when the tight
// rows give no split) one of the solutions' parameters is split on.
// Cuts (gomory_cut.cpp): before branching, shallow in the search, a full assignment may instead
// get a Gomory mixed-integer cut from the tableau row of a fractional basic Int variable: two
// new atoms, the split p: s ≤ k over an integral term s and the cut q, and two Farkas lemmas
// (¬p ∨ q ∨ ¬l…) and (p ∨ q ∨ ¬l…) over the literals l of the row's bounds, from which the
// search resolves q. Atoms made during the search have slacks that a backtrack below their
// level takes out of the simplex (Simplex::pop); such atoms stay without a row (and without
// propagation) until one of their literals is assigned, when the slack is made again.
// Pops (truncate): a pop gives the SAT variables of the level back and their atoms go with them
// (a suffix of the atom list, as variables are made in order). Their literals must leave no
// bound in the simplex that names them, so at level 0 an atom made inside a push level is
// asserted with the reason kLevelZeroFact: a literal made true at level 0 follows from the
// permanent clauses, and its bound holds after the pop as well. No such fact bounds a term over
// a variable declared inside a push level (nothing permanent constrains it), so the simplex
// variables of forgotten problem variables (truncate_variables) carry no bound; they are handed
// to the next new problem variables of their sort, so the simplex grows with the variables
// alive at once, not with all ever declared.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "vorn/lra/simplex.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/problem.h"

#include "linear_theory.h"
#include "simplex_vars.h"

namespace vorn::smt {

class ArithTheory : public LinearTheory {
  public:
    ArithTheory(const Problem& problem, sat::Solver& sat, bool record, util::Stop* stop);

    void add_atom(sat::Var var, std::span<const LinearExpr::Entry> term, Relation relation,
                  const QNumber& c) override;
    void retire(sat::Var var) override;
    void truncate(sat::Var first) override;
    void truncate_variables(int n) override;
    bool is_atom(sat::Var var) const override {
        return var < atom_of_.size() && atom_of_[var] >= 0;
    }
    void begin_check(std::uint64_t branch_limit) override;
    bool gave_up() const override { return gave_up_; }
    bool wants_box() const override { return box_wanted_; }
    QNumber make_box(std::vector<sat::Lit>& bounds) override;
    void set_stop(util::Stop* stop) override { simplex_.set_stop(stop); }
    void set_cuts(bool on) override { cuts_ = on; }
    void set_relax_explanations(bool on) override { relax_ = on; }
    void set_theory_phase(bool on) override { theory_phase_ = on; }
    void set_tableau_propagation(bool on) override { tableau_rows_ = on; }
    void set_box_after(std::uint64_t splits) override { box_after_ = splits; }
    void prefer_model_phase(sat::Var var) override;
    DecideStats stats() const override;

    // sat::Theory
    void new_level() override;
    void backtrack(int level) override;
    void assign(sat::Lit lit) override;
    void propagate(std::vector<sat::Lit>& implied) override;
    void explain(sat::Lit lit, std::vector<sat::Lit>& clause) override;
    bool check(bool full, std::vector<sat::Lit>& conflict) override;
    bool phase(sat::Var v, bool saved) override;
    bool wants_propagate() const override { return sweep_due_; }

  private:
    // One reading of an atom: the bound asserted for the literal, in the caller's terms, and
    // as a bound on the simplex variable.
    struct Reading {
        Relation relation;  // Le or Ge, rounded when integral
        QNumber constant;
        bool upper;  // on the simplex variable
        lra::DeltaRational value;
    };
    struct Atom {
        lra::TermVar term;
        Reading reading[2];  // by literal sign: [0] the atom, [1] its negation
        QNumber unit;        // 1/|scale|: the multiplier that makes the variable cancel
        bool alive = true;
        bool search = false;   // made by the search (a branch, cut or split): it sets the phase
        bool rowless = false;  // its slack taken out by a pop; made again when it is assigned
    };

    // A row propagation's explanation.
    struct RowReason {
        std::vector<sat::Lit> lits;  // the bounds' literals, true when it was made
        std::vector<QNumber> multipliers;
        int slack = 0;     // whose row
        int summand = -1;  // the index of the bounded summand, −1: the slack is bounded
        // Without a proof, a summand's explanation waits for explain(): the other summands'
        // bounds are those of the first `bounds_then` bound records (see explain_summand).
        bool pending = false;
        bool slack_upper = false;
        std::size_t bounds_then = 0;
        // A tableau row's (slack −1): the lits' weights for relaxation, as the row is gone by then.
        std::vector<QNumber> weights;
    };

    // The simplex bound of a level-0 fact that names no literal (see bound_reason).
    static constexpr lra::Reason kLevelZeroFact = -1;

    static bool implies(bool upper, const lra::DeltaRational& b, bool r_upper,
                        const lra::DeltaRational& r);
    int simplex_var(int problem_var);
    lra::Reason bound_reason(sat::Lit lit) const;
    Reading read(const lra::TermVar& t, std::span<const LinearExpr::Entry> term, Relation relation,
                 const QNumber& c, bool integral) const;
    void conflict_from_simplex(std::vector<sat::Lit>& clause);
    bool branch();
    // Some Int variable is fractional and bounded on both sides.
    bool has_bounded_fractional() const;
    // row_bounded.cpp: boxed, or bounded through boxed rows, at the current vertex
    void mark_row_bounded();
    bool is_row_bounded(int var) const;
    // Counts one more split of the check; false, the check given up, past the budget or when
    // the check is due for its box.
    bool take_split();
    bool cube_model();
    void take_model();
    // A new atom of the search; one whose term needs a slack made above level 0 is noted in
    // transient_.
    sat::Var new_search_atom(std::span<const LinearExpr::Entry> term, Relation relation,
                             const QNumber& c);
    // lattice_split.cpp
    // Parameters: nothing yet, but the fixed equalities' solutions are current for
    // parameter_split.
    enum class LatticeStep { None, Split, Model, Parameters };
    LatticeStep lattice_split();
    bool refute_fixed();
    bool round_to_lattice();
    bool parameter_split();
    bool over_integers(int var) const;
    bool fixed_at_rational(int var) const;
    bool over_integers_given_fixed(int slack) const;
    // tight_split.cpp
    bool tight_split();
    // Whether only tight-row splits have made the slack's row.
    bool is_split_row(int slack) const;
    // gomory_cut.cpp
    bool cut();
    bool cut_row(int basic);
    bool integral_var(int var) const;
    void expand(int var, const QNumber& factor, std::vector<QNumber>& into);
    void forget_reclaimed_slacks(bool at_level_zero);
    void make_slacks_again(std::uint32_t index);
    bool lemma_is_valid(const std::vector<sat::Lit>& clause,
                        const std::vector<QNumber>& multipliers) const;
    // row_propagation.cpp
    void index_slack(int slack);
    void propagate_rows(int var, bool upper, std::vector<sat::Lit>& implied);
    // The bound on `slack` that its term's current bounds give on one side; false when some
    // entry lacks the bound it needs. Fills row_lits_ and, with a proof recorded,
    // row_multipliers_.
    bool implied_bound(int slack, bool upper, lra::DeltaRational& bound);
    // The other direction: bounds on a slack's summands from the slack's bound.
    const lra::BoundRecord* literal_bound(int var, bool upper) const;
    RowReason& new_row_reason(sat::Var v);
    // Implies each open atom on `var` that the bound (an upper one when `upper`) decides, once,
    // with the explanation `explain` fills in its fresh reason.
    template <class Explain>
    void imply_atoms_on(int var, bool upper, const lra::DeltaRational& bound,
                        std::vector<sat::Lit>& implied, Explain explain);
    void propagate_to_summands(int slack, bool slack_upper, std::vector<sat::Lit>& implied);
    void imply_on_summand(int slack, bool slack_upper, std::size_t k, lra::DeltaRational bound,
                          const lra::BoundRecord& sb, std::vector<sat::Lit>& implied);
    void propagate_summands(int var, bool upper, std::vector<sat::Lit>& implied);
    void explain_by_summands(RowReason& reason, int slack, bool slack_upper, std::size_t k,
                             const lra::BoundRecord& sb);
    // level_zero_bounds.cpp
    void bound_row_bounded_integers(std::vector<sat::Lit>& implied);
    bool bound_from_row(int slack, int var, bool upper, std::vector<sat::Lit>& implied);
    // tableau_propagation.cpp
    void propagate_tableau(int var, bool upper, std::vector<sat::Lit>& implied);
    void propagate_tableau_row(const la::Equation& row, bool max_side,
                               std::vector<sat::Lit>& implied);
    void sweep_tableau(std::vector<sat::Lit>& implied);
    std::size_t tableau_budget(std::size_t least, std::size_t share) const;
    // summand_room.cpp
    // Propagation to the summands from the row's room alone; false when it has none kept (the
    // full pass is due).
    bool propagate_within_room(int slack, bool slack_upper, const lra::BoundRecord& sb,
                               std::vector<sat::Lit>& implied);
    bool has_open_atom(int var) const;
    void note_summand_bound(int slack, bool slack_upper, std::uint32_t index);
    void remember_room(int slack, bool slack_upper);
    void forget_rooms();
    // explanation_relaxation.cpp
    lra::DeltaRational excess_of(sat::Lit lit, const QNumber& weight) const;
    void relax_explanation(std::span<sat::Lit> lits, std::span<const QNumber> weights,
                           lra::DeltaRational excess, std::vector<QNumber>* multipliers);
    void relax_row_reason(sat::Lit lit, RowReason& reason);
    void explain_summand(RowReason& reason);

    const Problem& problem_;
    sat::Solver& sat_;
    lra::Simplex simplex_;
    std::vector<int> simplex_var_;   // by problem variable, 0: none yet
    std::vector<int> problem_var_;   // by simplex variable, 0: a slack
    std::vector<int> integer_vars_;  // simplex variables of Int problem variables
    FreeSimplexVars free_vars_;      // of forgotten problem variables

    std::vector<int> atom_of_;  // by SAT variable: index in atoms_, −1 for none
    std::vector<Atom> atom_data_;
    std::vector<std::vector<std::uint32_t>> atoms_on_;  // by simplex variable

    std::vector<sat::Lit> assigned_;  // atom literals in assignment order
    std::vector<std::size_t> level_start_;
    std::vector<signed char> value_;       // by SAT variable: 1 true, −1 false, 0 unassigned
    std::size_t propagated_ = 0;           // assigned_ entries whose implications were looked at
    std::vector<sat::Lit> implied_by_;     // by SAT variable: the literal that implied it
    bool conflict_ = false;                // a bound contradicted the simplex's bounds
    std::vector<sat::Lit> pending_;        // that conflict's clause
    std::vector<std::uint32_t> position_;  // by SAT variable: its index in assigned_ when true
    std::vector<QNumber> pending_multipliers_;

    // Row propagation: by structural variable, the slacks with atoms whose terms hold it (and
    // its index in each slack's term); by SAT variable, the index of its explanation in
    // row_reasons_ (−1: none).
    struct SlackOf {
        int slack;
        std::uint32_t index;
    };
    std::vector<std::vector<SlackOf>> slacks_of_;
    std::vector<char> slack_indexed_;
    std::vector<std::int32_t> row_reason_of_;
    std::vector<RowReason> row_reasons_;  // the first row_reasons_used_ in use
    std::size_t row_reasons_used_ = 0;
    std::vector<std::size_t> row_reasons_at_level_;
    std::vector<char> implied_now_;  // by SAT variable: implied in this propagate() call
    std::vector<sat::Lit> row_lits_;
    std::vector<QNumber> row_multipliers_;
    // Scratch of propagate_to_summands: by summand, its bound; the summands it may bound.
    std::vector<const lra::BoundRecord*> summand_bounds_;
    std::vector<std::size_t> open_;
    // By slack and side (2·slack + upper): two summands that lacked their bound at the last
    // pass; while both still do, the row bounds nothing (a hint, checked at each use).
    std::vector<std::array<std::uint32_t, 2>> unbounded_summands_;
    // By slack and side, for long rows (an objective over soft assertions): the sum of the
    // summands' bounds that the last full pass of propagate_to_summands saw, kept current as
    // single bounds tighten, and each summand's span between its two bounds then. Only summands
    // whose span exceeds the room the slack's bound leaves can tighten; while none of them has
    // an open atom, the pass is skipped. Forgotten at each backtrack (bounds loosen, spans
    // widen); a stale room only skips propagations, never makes a wrong one: the pass itself
    // explains what it implies.
    struct SummandRoom {
        bool valid = false;
        std::uint32_t missing = 0;              // summands without the bound the sum needs
        lra::DeltaRational sum;                 // Σ aⱼ·bⱼ over those with it
        std::vector<lra::DeltaRational> bound;  // bⱼ as summed
        std::vector<char> has;                  // by summand: bⱼ summed
        std::vector<lra::DeltaRational> span;   // |aⱼ|·|bⱼ − xⱼ's other bound|
        std::vector<char> unspanned;            // by summand: no other bound, span infinite
        std::vector<std::uint32_t> order;       // by the spans of the first pass, widest first
        std::vector<lra::DeltaRational> widest_from;  // by position in order: max span after
        std::vector<char> unspanned_from;  // by position in order: an infinite span after
        // By position in order: a position at or after it whose summand may have an open atom
        // (a summand without one gets none back before a backtrack); path-halved.
        std::vector<std::uint32_t> next_open;
    };
    static constexpr std::size_t kRoomRowSize = 16;  // shorter rows just take the pass
    // Tableau rows (tableau_propagation.cpp): on (tableau_rows_), rows longer than
    // kTableauRowSize skipped, at most kTableauRows rows, or half the tableau's when more,
    // looked at per propagate() call; after a check that pivoted, kSweepRows rows, or as many
    // as the tableau has when more (tableau_budget()).
    static constexpr std::size_t kTableauRowSize = 64;
    static constexpr std::size_t kTableauRows = 200;
    static constexpr std::size_t kTableauRowsShare = 2;  // the divisor of the tableau's rows
    bool tableau_rows_ = true;
    bool sweep_due_ = false;                        // a check pivoted since the last sweep
    std::uint64_t pivots_swept_ = 0;                // the simplex's pivot count at the last sweep
    static constexpr std::size_t kSweepRows = 400;  // rows looked at after a check, at least
    std::vector<int> swept_;                        // rows of this sweep (basic variables)
    std::vector<char> swept_mark_;                  // by basic variable: in swept_
    std::size_t tableau_budget_ = 0;
    std::vector<const lra::BoundRecord*> row_bounds_;
    std::vector<SummandRoom> rooms_;
    std::vector<std::uint32_t> valid_rooms_;  // indices into rooms_
    // Explanation relaxation: on (relax_), the literals replaced so far, scratch.
    bool relax_ = true;
    bool theory_phase_ = true;  // decisions on input atoms take the simplex's sign
    std::uint64_t relaxed_ = 0;
    std::vector<sat::Lit> conflict_lits_;
    std::vector<QNumber> weights_;
    std::vector<std::size_t> order_;

    std::uint64_t limit_ = 0;        // branches per check, 0: no limit
    std::uint64_t used_ = 0;         // branches in this check
    std::size_t next_branch_ = 0;    // where the next scan of integer_vars_ starts
    std::vector<char> row_bounded_;  // by simplex variable, at the last full check
    std::vector<int> boxed_slacks_;  // scratch of mark_row_bounded
    std::uint64_t branches_ = 0;
    bool gave_up_ = false;
    // The box (docs/integers.md, "Termination"): a check gives up after box_after_ splits (0:
    // never) with box_wanted_, and goes on inside the box (box_on_), whose bound make_box takes
    // by mixed_.
    std::uint64_t box_after_ = 1000;
    bool mixed_ = false;  // an atom, once made, names a non-Int variable
    bool box_wanted_ = false;
    bool box_on_ = false;
    std::uint64_t cube_at_ = 0;  // the branch count at which the cube test is tried next
    std::uint64_t cube_models_ = 0;
    lra::TermEntries scratch_;

    // Lattice splits: the fixed integral terms of this full assignment, as (simplex variable,
    // value), and the last such set solved over the integers.
    std::vector<std::pair<int, QNumber>> fixed_, solved_fixed_;
    static constexpr std::size_t kMaxLatticeEntries = 20000;  // of the dense system solved
    // The last solved equalities' columns (problem variables) and coordinate rows over them.
    std::vector<int> lattice_vars_;
    std::vector<std::vector<QNumber>> lattice_coordinates_, lattice_kernel_;
    std::size_t next_parameter_ = 0;
    std::uint64_t lattice_splits_ = 0;
    // By atom index: 1 for the atoms of tight-row splits (tight_split.cpp), absent or 0 for the
    // others.
    std::vector<char> split_atom_;

    // Cuts: at most kCutsPerCheck in one check, each at a full assignment no deeper than
    // kCutLevels decision levels (deeper ones branch); a cut with a coefficient or constant that
    // does not fit in machine words is not made.
    static constexpr std::uint64_t kCutsPerCheck = 100;
    static constexpr std::size_t kCutLevels = 4;
    static constexpr std::size_t kCutRowsTried = 8;  // per full assignment
    bool cuts_ = false;
    std::uint64_t cuts_used_ = 0;  // in this check
    std::uint64_t cuts_made_ = 0;
    // Atoms (indices in atom_data_) whose slacks were made above level 0: gone after a pop.
    std::vector<std::uint32_t> transient_;
    // Scratch of cut_row: by problem variable, the split's and the cut's coefficients.
    std::vector<QNumber> split_coeffs_, cut_coeffs_;
};

}  // namespace vorn::smt
