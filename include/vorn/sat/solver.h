#pragma once

// Solver: a CDCL SAT engine (Eén, Sörensson 2003), the propositional core of the coming
// CDCL(T) solver.
//
// Use. new_var() hands out variables, add_clause() adds clauses over them, solve() decides the
// conjunction, optionally under assumptions (literals taken as true for that call only). After
// Sat, value() reads the model; after Unsat under assumptions, failed_assumptions() is a subset
// of them that is unsat together with the clauses (empty: the clauses alone are unsat).
// push()/pop() bracket clauses: pop removes every clause added since the matching push, and
// every clause learned from them.
//
// Search. Two watched literals per clause with a blocking literal; first-UIP conflict analysis
// with recursive minimization (Sörensson, Biere 2009); VSIDS decisions from a binary heap with
// phase saving, a target phase and rephasing (a theory may choose the sign, and variables marked
// decide_first come first), or from a DecisionGuide, which may end the search before every variable
// is assigned (in turns with the activity order, Options::guide_turn); Luby or LBD-driven restarts;
// learned clauses reduced by LBD (Audemard, Simon 2009). Between solve() calls the solver is at
// decision level 0.
//
// Backjumps. A conflict undoes the levels above its learned clause's second-highest level, but
// one that would undo more than Options::chronological_distance levels undoes the conflict's
// level only, so that a deep search does not decide its unrelated levels again; the asserting
// literal then takes the current level, so levels still grow along the trail (the level noted
// is an upper bound on the one the literal follows at; analysis stays sound, only coarser).
// A clause so learned may later be unit without propagating, once its true literal is undone
// while the false one stays: it still reports the conflict when that literal is made false.
//
// State. The trail holds the true literals in assignment order, `trail_lim_[d]` the trail size
// where level d+1 began. Per variable: its level, its reason (a clause with the variable's
// literal first, kNoClause for decisions and level-0 facts, kTheoryReason for a theory
// implication not yet explained), activity and saved phase. Per literal: its value and the
// watch list of the clauses that watch it. Facts at level 0 are permanent.
//
// Push levels. push() creates an activation variable a; clauses added while it is the innermost
// level get the literal ¬a and solve() assumes a before the caller's assumptions. A clause learned
// from such a clause keeps ¬a (a is a decision, which analysis never resolves away). pop() gives
// the variables back: a and every variable made after it go, with every clause over any of them
// (those of the level, those learned from them, and theory lemmas over the level's atoms), so
// that the solver is as large as at the push and a long push/pop loop stays in bounds. What
// stays is bounded by the surviving variables: their level-0 facts (valid without the level),
// activities and phases, and the learned clauses over them alone, which reduction bounds.
// With a proof recorded the variables stay (the record names them): pop then deletes the clauses
// containing ¬a and makes ¬a a fact.
//
// Theory. With set_theory(), the solver drives a Theory by the protocol of theory.h: its
// implications are assigned with kTheoryReason and explained lazily; its conflicts and
// explanations are kept as lemma clauses.
//
// Proof. With Options::record_proof, proof() lists every clause in order: the added ones as
// given (Input, with the activation literal of their push level; a pop adds the fact ¬a), the
// learned ones (each follows by reverse unit propagation from the steps before it) and theory
// lemmas (valid in the theory; the theory justifies them). An Unsat answer ends it with a
// learned clause of negated assumptions, activation literals included (empty without any).
// Theory implications at level 0 are explained at once, so that the facts they make stay
// derivable. Removed clauses stay in the record: they were derived soundly, and a push level's
// clauses are satisfied by its activation literal false.

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "vorn/sat/clause_arena.h"
#include "vorn/sat/decision_guide.h"
#include "vorn/sat/literal.h"
#include "vorn/sat/restarts.h"
#include "vorn/sat/theory.h"
#include "vorn/sat/var_heap.h"
#include "vorn/util/result.h"
#include "vorn/util/stop.h"

namespace vorn::sat {

using Result = util::Result;

struct Options {
    // Conflicts per solve() call before it gives up with Unknown; negative: no limit.
    std::int64_t conflict_limit = -1;
    RestartPolicy restarts = RestartPolicy::Luby;
    // Conflicts before the first reduction of the learned clauses; each interval is 300 longer.
    std::int64_t reduce_interval = 2000;
    // A conflict whose learned clause would undo more than this many levels undoes only the
    // conflict's own level (chronological backtracking, Nadel, Ryvchin 2018); 0: always the
    // learned clause's level. 700: only the deep searches of fuzzer output with thousands of
    // gates jump so far (ite-fuzz-2vars: four times faster); no other benchmark family does.
    int chronological_distance = 700;
    bool record_proof = false;
    // At each restart every variable takes the phase it has in the last model (none before the
    // first Sat answer).
    bool model_phase = false;
    // Conflicts before the first rephase; the k-th waits k times as long; 0: never. At the restart
    // after it, every saved and target phase is reset, in turns, to the longest trail's signs
    // since the last such reset, to all negative (the initial phase), to those signs again, and
    // to all positive (Biere, Fleury 2020). Searches shorter than 5 000 conflicts never rephase;
    // 1 000 cost the bmc family a quarter more conflicts (docs/performance.md).
    std::int64_t rephase_interval = 5000;
    // With a DecisionGuide: conflicts of its first turn, after which activity decides for as
    // many, then the guide for twice as many, and so on (each change a restart); 0: the guide
    // decides throughout. Neither order wins on every fuzzer-like script (a guided search that
    // misses a model can take ten times the conflicts that activity needs, and the other way
    // round): taking turns bounds the loss to the turns spent. 1000 was measured best of
    // 500-2000 on the generated fuzzer families (docs/performance.md).
    std::int64_t guide_turn = 1000;
    // Not owned: solve() gives up with Unknown, at level 0 again, once this is requested.
    util::Stop* stop = nullptr;
};

struct Stats {
    std::uint64_t decisions = 0;
    std::uint64_t propagations = 0;         // literals whose watches were visited
    std::uint64_t theory_propagations = 0;  // literals assigned as the theory implied them
    std::uint64_t conflicts = 0;
    std::uint64_t restarts = 0;
    std::uint64_t learned = 0;           // clauses, units included
    std::uint64_t learned_literals = 0;  // summed sizes of the learned clauses
    std::uint64_t learned_max = 0;       // the longest learned clause (a maximum, not a sum)
    std::uint64_t deleted = 0;           // learned clauses removed by reduction or pop
};

struct ProofStep {
    enum class Kind { Input, Learned, Lemma };
    Kind kind;
    std::vector<Lit> clause;
};

class Solver {
  public:
    explicit Solver(Options options = {});

    Var new_var();
    std::size_t num_vars() const { return level_.size(); }
    // Live clauses, learned ones and lemmas included (a walk of the arena), and its words.
    std::size_t num_clauses() const;
    std::size_t arena_words() const { return arena_.words(); }

    // Adds a clause over existing variables (duplicates and tautologies allowed). False once the
    // clauses are unsat without any search; the solver then stays unsat (pop does not undo it).
    bool add_clause(std::span<const Lit> lits);
    bool add_clause(std::initializer_list<Lit> lits) {
        return add_clause({lits.begin(), lits.size()});
    }

    // A clause valid in the theory, added between searches: recorded as a Lemma step and kept
    // like an added clause, but without the activation literal of the push level (it holds on
    // every level).
    bool add_valid(std::span<const Lit> lits);
    // A clause that follows by unit propagation from the clauses so far, under the activation
    // literals of every open level (the caller knows why): recorded as a Learned step, with
    // those literals negated, and kept like an added clause.
    bool add_implied(std::span<const Lit> lits);

    // A theory lemma added during the search, from Theory::check: valid in the theory, recorded
    // as a Lemma step and kept for good (a learned clause that reduction spares). Its first two
    // literals must be unassigned (they are watched), e.g. atoms the theory has just made.
    void add_lemma(std::span<const Lit> lits);

    Result solve() { return solve({}); }
    Result solve(std::span<const Lit> assumptions);

    // The model of the last Sat answer.
    bool value(Lit lit) const { return (model_[lit.var()] == LBool::True) != lit.negative(); }
    const std::vector<Lit>& failed_assumptions() const { return failed_; }

    void push();
    void pop();
    std::size_t push_depth() const { return activation_.size(); }
    // The literal that solve() assumes for each push level, outermost first.
    const std::vector<Lit>& activation_literals() const { return activation_; }
    // The sign the next decision on `var` takes, until the search saves another.
    void set_phase(Var var, bool negative) { phase_[var] = target_[var] = negative; }
    // Decisions take `var` before every variable not so marked (by activity among themselves).
    void decide_first(Var var);

    // Not owned; nullptr detaches: decisions then follow activity alone.
    void set_guide(DecisionGuide* guide) { guide_ = guide; }
    // The current assignment (during the search, as a guide reads it) and its decision level.
    LBool current(Lit lit) const { return value_of(lit); }
    int decision_level() const { return level(); }
    // Whether the activity order puts `a` before `b` (decide_first, then activity).
    bool ahead(Var a, Var b) const {
        return first_[a] != first_[b] ? first_[a] : activity_[a] > activity_[b];
    }

    // Not owned; nullptr detaches. Attach before the first solve(). The theory may create
    // variables (new_var) during check(); the search then goes on to decide them.
    void set_theory(Theory* theory) { theory_ = theory; }

    const Stats& stats() const { return stats_; }
    void set_conflict_limit(std::int64_t limit) { options_.conflict_limit = limit; }
    void set_stop(util::Stop* stop) { options_.stop = stop; }
    void set_model_phase(bool on) { options_.model_phase = on; }
    const std::vector<ProofStep>& proof() const { return proof_; }

  private:
    struct Watch {
        CRef clause;
        Lit blocker;  // some other literal of the clause; true means nothing to do
    };

    // solver.cpp: the search loop and the trail.
    Result search();
    void resolve(CRef conflict);
    LBool value_of(Lit lit) const { return values_[lit.code()]; }
    int level() const { return static_cast<int>(trail_lim_.size()); }
    void enqueue(Lit lit, CRef reason);
    void new_level();
    void backtrack(int level);
    void take_model_phases();
    CRef attach(std::span<const Lit> lits, bool learned, bool lemma, std::uint32_t lbd);
    void record(ProofStep::Kind kind, std::span<const Lit> clause);
    // `lits` with the negations of `levels` (activation literals), recorded as `kind` and kept.
    bool add_recorded(std::span<const Lit> lits, std::span<const Lit> levels, ProofStep::Kind kind);
    void set_unsat();
    // assumptions.cpp: gives back the variables from `first` on (their clauses are gone).
    void truncate_vars(Var first);

    // propagate.cpp: unit propagation, theory propagation and theory conflicts.
    CRef propagate();
    CRef propagate_with_theory();
    CRef theory_conflict(std::vector<Lit>& clause);
    CRef reason_of(Var v);

    // analyze.cpp: conflict analysis.
    void analyze(CRef conflict);
    bool redundant(Lit lit, std::uint32_t levels);
    std::uint32_t lbd_of(std::span<const Lit> lits);
    std::uint32_t abstract_level(Var v) const { return 1u << (level_[v] & 31); }
    void learn();

    // decide.cpp: VSIDS with phase saving, variables decided first before the others.
    void bump(Var v);
    void decay_activities() { var_inc_ /= kVarDecay; }
    Lit pick_branch();

    // assumptions.cpp: assumption levels, failed assumptions, push/pop.
    enum class Next { Decide, Assumption, Failed };
    Next next_assumption(Lit& decision);
    void analyze_final(Lit failed);

    // reduce.cpp: learned-clause reduction and garbage collection.
    void reduce_learned();
    void collect_garbage();
    bool locked(CRef c) const;

    static constexpr double kVarDecay = 0.95;

    Options options_;
    Stats stats_;
    bool ok_ = true;  // false once the clauses are unsat at level 0

    ClauseArena arena_;
    std::vector<std::vector<Watch>> watches_;  // by literal code: clauses watching that literal
    std::vector<LBool> values_;                // by literal code
    std::vector<int> level_;
    std::vector<CRef> reason_;
    std::vector<Lit> trail_;
    std::vector<std::size_t> trail_lim_;
    std::size_t qhead_ = 0;        // trail position of the next literal to propagate
    std::size_t theory_head_ = 0;  // trail position of the next literal to tell the theory

    std::vector<double> activity_;
    double var_inc_ = 1;
    VarHeap heap_{activity_};
    // The variables decided first (decide_first) wait in a heap of their own; heap_ may still
    // hold one made so after it entered, which pick_branch passes over.
    VarHeap first_heap_{activity_};
    std::vector<bool> first_;
    VarHeap& heap_of(Var v) { return first_[v] ? first_heap_ : heap_; }
    std::vector<bool> phase_;  // saved phase: the sign the variable last had
    // The sign in the longest conflict-free trail since the last restart (decide.cpp).
    std::vector<bool> target_;
    std::size_t target_size_ = 0;  // that trail's length
    void update_target();
    // rephase.cpp: the signs of the longest trail since the last reset to them, and its length.
    std::vector<bool> best_;
    std::size_t best_size_ = 0;
    std::uint64_t rephases_ = 0;
    std::uint64_t next_rephase_;  // stats_.conflicts at which the next restart rephases
    void note_best(std::size_t size);
    void rephase();

    Restarts restarts_;
    std::uint64_t conflict_stop_ = 0;  // stats_.conflicts at which solve() gives up; 0: never
    std::int64_t reduce_interval_;
    std::int64_t next_reduce_;

    std::vector<Lit> assumptions_;  // activation literals, then the caller's
    std::vector<Lit> activation_;   // one per push level, innermost last
    std::vector<Lit> failed_;
    std::vector<LBool> model_;

    Theory* theory_ = nullptr;
    DecisionGuide* guide_ = nullptr;
    bool guide_done_ = false;     // the guide needs no more decisions at this assignment
    bool guide_resting_ = false;  // activity decides in this turn (Options::guide_turn)
    std::int64_t turn_length_ = 0;
    std::uint64_t turn_end_ = 0;      // stats_.conflicts at which the turn ends
    std::vector<Lit> implied_;        // from Theory::propagate
    std::vector<Lit> theory_clause_;  // from Theory::explain and Theory::check

    std::vector<ProofStep> proof_;

    // Scratch of conflict analysis.
    std::vector<char> seen_;
    std::vector<Lit> learned_;  // the clause being learned, asserting literal first
    std::vector<Var> to_clear_;
    std::vector<Lit> stack_;
    std::vector<std::uint32_t> level_stamp_;
    std::uint32_t stamp_ = 0;
    int backjump_level_ = 0;
    std::uint32_t learned_lbd_ = 0;
};

}  // namespace vorn::sat
