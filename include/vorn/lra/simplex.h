#pragma once

// Simplex: an exact, incremental decision procedure for conjunctions of linear constraints over
// the rationals, built on la::Tableau.
//
// Variables are numbered densely from 1. A structural variable comes from new_variable(); a
// slack variable s stands for a linear term over structural variables and has the row
// s = term in the tableau (rows carry no constants: every constant lives in a bound). Terms
// equal up to a non-zero factor share one slack (TermTable). Constraints are bounds on
// variables, each with a caller-chosen Reason; an equality is two bounds with one reason.
//
// Assignment. Every variable that is not eliminated has a value (a DeltaRational). Invariants,
// between public calls after the first check():
//   "rows hold": the value of each basic variable is its row evaluated at the other values;
//   "non-basic in bounds": every non-basic variable (in a column or in no row) lies within
//     its bounds;
//   "violations queued": every basic variable outside its bounds is in `violated_`.
// check() repairs violated basic variables by pivoting (always through Tableau::pivot) until
// none is left (sat) or a row shows that none can be repaired (unsat, with that row's bounds as
// the explanation). Pivot choice: the smallest violated basic variable leaves; it enters the
// suitable non-basic variable of its row with the fewest column entries, until some variable
// has left the basis `bland_after` times in one check; from then on both choices follow one
// fixed order of the variables (Bland's rule), which guarantees termination. The order is fixed
// at the switch, sparsest columns first, because Bland's rule by variable number fills rows in
// so fast that a large problem never finishes.
//
// Elimination. The first check() eliminates (la::eliminate_greedy) every structural variable
// without bounds that occurs only in rows whose slack is fixed (equalities). An eliminated
// variable's kept equation defines it; a new term restores what it mentions (Tableau::
// add_equation), and a bound asserted on it restores it first (Tableau::uneliminate).
//
// Costs: a value update walks the changed non-basic variable's column, finding each row's
// coefficient by binary search; a pivot adds the tableau's own pivot; asserting a bound is
// O(1) plus, for a non-basic variable moved into its new bound, one value update.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "vorn/la/equation.h"
#include "vorn/la/tableau.h"
#include "vorn/lra/bound_trail.h"
#include "vorn/lra/delta_rational.h"
#include "vorn/lra/relation.h"
#include "vorn/lra/term_table.h"
#include "vorn/util/result.h"
#include "vorn/util/stop.h"

namespace vorn::lra {

using Result = util::Result;

// What an assertion did. Ok: the bound is recorded, or was no tighter than the current one.
// Conflict: it contradicts the current bounds, conflict() explains it and it is not recorded.
// Ignored: a conflict is already pending on this push level, so nothing is recorded until a pop
// removes it. Converts to true for Ok only.
class Asserted {
  public:
    enum Kind : std::uint8_t { Ok, Conflict, Ignored };
    constexpr Asserted(Kind kind) : kind_(kind) {}  // NOLINT: a result reads as its kind
    constexpr Kind kind() const { return kind_; }
    constexpr explicit operator bool() const { return kind_ == Ok; }
    constexpr bool operator==(Kind kind) const { return kind_ == kind; }

  private:
    Kind kind_;
};

// term = scale · var.
struct TermVar {
    int var;
    QNumber scale;
};

// One bound of a conflict, read as its caller asserted it: the atom "term ≤ c" (or "<") when
// `upper`, "term ≥ c" (or ">") otherwise, where term and c are the caller's (for assert_lower/
// assert_upper: the variable and the value). The certificate: Σ multiplier·(c − term) over the
// upper entries plus Σ multiplier·(term − c) over the lower ones is a constant K (every
// structural variable cancels), and either K < 0, or K = 0 and some entry's atom is strict.
struct Explanation {
    Reason reason;
    bool upper;
    QNumber multiplier;  // > 0
};

struct SimplexStats {
    std::uint64_t checks = 0;
    std::uint64_t pivots = 0;
    std::uint64_t bland_switches = 0;  // checks that switched to Bland's rule
    std::uint64_t conflicts = 0;       // from check() and from assert_* alike
    std::uint64_t eliminated = 0;
    std::uint64_t restored = 0;
    double check_seconds = 0;
};

struct SimplexOptions {
    // Bland's rule from the moment one variable has left the basis this often in one check.
    unsigned bland_after = 16;
    // check() gives up with Unknown after this many pivots in one call (0: never).
    std::uint64_t pivot_limit = 0;
    // Eliminate variables of equalities at the first check.
    bool eliminate = true;
    // Not owned: check() gives up with Unknown, before its next pivot, once this is requested
    // (and so does branch and bound before its next node).
    util::Stop* stop = nullptr;
};

// The end of Simplex::minimize.
struct Optimum {
    enum class Kind { Optimal, Unbounded, Stopped } kind = Kind::Optimal;
    DeltaRational value;  // Optimal: the least value (a δ part: an infimum not attained)
    // Unbounded: moving this non-basic variable up (or down) improves the objective without
    // limit, every basic variable following its row.
    int ray_variable = 0;
    bool ray_up = false;
};

class Simplex {
  public:
    explicit Simplex(SimplexOptions options = {});
    Simplex(const Simplex&) = delete;
    Simplex& operator=(const Simplex&) = delete;
    // Moving keeps every variable, bound and level; a BranchAndBound over the source must not be
    // used afterwards.
    Simplex(Simplex&&) noexcept;
    Simplex& operator=(Simplex&&) noexcept;
    ~Simplex();
    // Back to a new simplex with the same options: no variables, bounds, levels or statistics.
    void reset();
    // SimplexOptions::stop.
    void set_stop(util::Stop* stop) { options_.stop = stop; }
    bool stop_requested() { return options_.stop != nullptr && options_.stop->requested(); }

    // --- Variables and terms ---

    // A new structural variable, unbounded, valued 0. O(1) amortized.
    int new_variable();
    // Capacity for variables 1..n and for `bounds` asserted bounds, so that creating them
    // reallocates nothing (a reallocation copies every bound).
    void reserve(int n, std::size_t bounds = 0);
    // The variable of a linear term over structural variables (entries in any order, repeats
    // summed; at least one non-zero coefficient; no constant entry): a term of one variable is
    // that variable; otherwise the slack of its normal form (TermTable), created with its row
    // the first time. Cost: linear in the term plus a hash lookup; a new row after the first
    // check is substituted into solved form and restores the eliminated variables it mentions.
    TermVar term_variable(const TermEntries& entries);
    int num_variables() const { return static_cast<int>(values_.size()) - 1; }
    bool is_slack(int var) const { return term_of_[var] >= 0; }
    // The normal form a slack stands for.
    std::span<const la::Equation::VarCoeff> slack_term(int var) const {
        return terms_.term(term_of_[var]);
    }

    // --- Bounds ---

    // Asserts var ≥ value (var > value when strict). Any variable at any time (an eliminated
    // one is restored first). A bound no tighter than the current one changes nothing. On a
    // conflict with the current upper bound (Asserted::Conflict) conflict() explains it, the
    // bound is not recorded, and until the current push level is popped check() answers Unsat
    // and further assertions are Asserted::Ignored.
    Asserted assert_lower(int var, const QNumber& value, bool strict, Reason reason);
    Asserted assert_upper(int var, const QNumber& value, bool strict, Reason reason);
    // Asserts  term ⋈ constant  for term = t.scale · t.var: divides by the scale, flipping the
    // relation when it is negative, and records the caller's atom so that explanations read in
    // its terms. Eq asserts both bounds with the one reason. Ne and Distinct are not bounds:
    // std::invalid_argument.
    Asserted assert_term(const TermVar& t, Relation relation, const QNumber& constant,
                         Reason reason);

    // Pushes a level: pop() removes every bound asserted after it. The basis and the assignment
    // stay (popping only loosens bounds, so they stay valid), and so do the rows of terms made
    // before the push.
    void push();
    // Pops n levels (all of them when n exceeds the level). The slacks of terms made after the
    // first check and since the popped push have no bound left: their rows leave the tableau
    // (pivoted out when non-basic) and their terms leave the TermTable, so that an incremental
    // caller's rounds of push, new terms, check, pop do not make every later pivot dearer. Their
    // variable numbers stay taken, as unbounded variables in no row; TermVars of them are void.
    void pop(std::size_t n = 1);
    std::size_t level() const { return bounds_.level(); }

    // --- Deciding ---

    // Sat or Unsat (Unknown only when the pivot limit is reached). Reuses the basis and the
    // assignment of the previous call.
    Result check();
    // A warm start, before or between checks: pivots each variable of `basic` into the basis,
    // trading it for the basic variable of the shortest row of its column that is not in the
    // list (one without such a row stays non-basic), then moves each variable of `at_bound` that
    // is non-basic to its upper bound (second = true) or lower bound (false; the other one when
    // only that exists). Bounds do not change; the next check() repairs any violated one. For a
    // basis found elsewhere (a floating-point solver) that is nearly feasible or optimal. A
    // stop (SimplexOptions::stop) ends the pivots early.
    void warm_start(std::span<const int> basic, std::span<const std::pair<int, bool>> at_bound);
    // While `var` (a basic variable with its row, e.g. an objective's; 0: none) guides it,
    // check() repairs as the dual simplex does: of the variables that can repair a row, the one
    // whose ratio of coefficients in var's row and in the repaired row is least enters (fewest
    // entries on ties). Started from a basis where var is least (or greatest), with bounds
    // tightened since, check() then ends at such a basis, in few pivots when few bounds moved
    // (branch and bound's child nodes). Costs one pass over var's row per pivot.
    void set_dual_guide(int var) { guide_ = var; }
    // After Unsat (or a false assert): the bounds of the conflict, with Farkas multipliers.
    const std::vector<Explanation>& conflict() const { return conflict_; }
    // After a Sat check(): pivots to a vertex where `var` (structural or slack) is least (or
    // greatest), by
    // primal simplex steps under Bland's rule; the bounds stay satisfied throughout, and value()
    // reads the optimal vertex afterwards. Unbounded: the direction in which it decreases
    // forever. Stopped: SimplexOptions::stop was requested (the assignment is feasible still).
    Optimum minimize(int var, bool maximize = false);
    // After Sat: an exact model value for any variable (structural, slack or eliminated), with δ
    // replaced by a positive rational small enough that every strict bound holds. The first
    // call after a check is linear in the number of variables and eliminations; later ones O(1).
    // Anywhere else (no check yet, Unsat, or a bound, row, push or pop since): std::logic_error.
    const QNumber& value(int var) const;
    // After Sat: the assignment itself, δ kept symbolic (not for eliminated variables).
    const DeltaRational& delta_value(int var) const { return values_[var]; }

    // --- State for layers above (branch and bound) ---

    // The current bound of every variable (BoundTrail documents the records).
    const BoundTrail& bounds() const { return bounds_; }
    // Whether var is eliminated now: its value comes from its kept equation, and delta_value
    // does not cover it.
    bool is_eliminated(int var) const {
        return initialized_ && !tableau_->elim_index().empty() &&
               tableau_->elim_index().find(var) != nullptr;
    }
    // Brings an eliminated variable back as the basic variable of its kept equation (nothing
    // for any other variable), so that delta_value covers it from now on. The values stay as
    // they were, but the model must be read again: value() needs a new check(), which then has
    // nothing to pivot for this.
    void restore(int var);

    const SimplexStats& stats() const { return stats_; }
    const la::Tableau& tableau() const { return *tableau_; }
    // The variables that left the basis in the last check() that searched (those until a switch
    // to Bland's rule): the rows that hold them now are the ones its pivots rewrote.
    std::span<const int> left_basis() const { return left_; }

    // --- Checkers (run by check() in debug builds; tests call them too) ---

    // The last conflict's certificate combines to a contradiction, slacks expanded into their
    // terms.
    bool conflict_is_valid() const;
    // After Sat: every current bound holds in the model, exactly, and every slack equals its
    // term.
    bool model_is_valid() const;

  private:
    // A bound of the current conflict as the simplex sees it, for the checker.
    struct ConflictBound {
        int var;
        bool upper;
        DeltaRational value;
        QNumber multiplier;
    };
    struct CallerAtom {
        Reason reason;
        bool upper;
        const QNumber& scale;
    };

    // simplex.cpp
    int add_variable();
    // Takes out the rows of the slacks of TermTable entries from `keep` on.
    void reclaim_slacks(std::size_t keep);
    // Values and queue entries for the variables in `restored_`, now basic again.
    void absorb_restored();
    bool in_conflict() const { return conflict_level_ != kNoConflict; }

    // simplex_bounds.cpp
    Asserted assert_bound(int var, bool upper, const DeltaRational& bound, const CallerAtom& atom);
    void restore_eliminated(int var);
    void set_conflict_from_bounds(int var, bool upper, const DeltaRational& bound,
                                  const CallerAtom& atom);

    // simplex_values.cpp
    bool is_violated(int var) const;
    void queue_if_violated(int var);
    void compute_row_value(int basic);
    void update_non_basic(int var, const DeltaRational& target);
    void initialize();
    void eliminate_equality_variables();

    // simplex_check.cpp
    Result search();
    int next_violated();
    bool before(int a, int b) const { return priority_[a] < priority_[b]; }
    void rank_for_bland();
    void reset_priorities();
    int choose_entering(int basic, bool increase) const;
    int choose_entering_dual(int basic, bool increase) const;
    bool can_move(int var, bool up) const;
    bool repair_by_own_columns(int basic, bool increase);
    void pivot_and_update(int leaving, int entering, const DeltaRational& target);
    void note_leaving(int var);
    void explain_row(int basic, bool increase);
    void add_to_conflict(const BoundRecord& bound, const QNumber& multiplier);

    // simplex_model.cpp
    void compute_model() const;
    QNumber model_delta() const;

    static constexpr std::size_t kNoConflict = static_cast<std::size_t>(-1);

    SimplexOptions options_;
    std::unique_ptr<la::Tableau> tableau_;  // on the heap: the tableau itself does not move
    TermTable terms_;
    BoundTrail bounds_;
    std::vector<int> term_of_;   // per variable: its TermTable index, −1 for structurals
    std::vector<int> slack_of_;  // per TermTable index: its slack variable
    // TermTable sizes at each push, and at the first check: kept equations of eliminated
    // variables may mention the slacks made before it, so those are never reclaimed.
    std::vector<std::size_t> term_marks_;
    std::size_t terms_at_first_check_ = 0;
    std::vector<DeltaRational> values_;
    bool initialized_ = false;

    // Violated basic variables, a min-heap by priority; `queued_` marks its members.
    std::vector<int> violated_;
    std::vector<unsigned char> queued_;
    // The order of both pivot choices under Bland's rule, and of the leaving choice always: the
    // variable number until a switch, then a ranking fixed at the switch (see rank_for_bland).
    std::vector<std::uint32_t> priority_;
    bool ranked_ = false;
    // Times each variable left the basis in the current check, and which were counted.
    std::vector<unsigned> leaves_;
    std::vector<int> left_;
    bool bland_ = false;
    int guide_ = 0;  // set_dual_guide

    std::vector<Explanation> conflict_;
    std::vector<ConflictBound> conflict_bounds_;
    std::size_t conflict_level_ = kNoConflict;

    mutable std::vector<QNumber> model_;
    mutable bool model_ready_ = false;
    bool sat_ = false;

    SimplexStats stats_;
    // Scratch values reused by every update.
    DeltaRational step_;
    std::vector<int> restored_;
};

}  // namespace vorn::lra
