#pragma once

// Engine: the solver under every front end (the SMT-LIB interpreter, the embedding API of
// solver.h). It owns the Problem, the formula DAG (formula_dag.h) that the front ends build into,
// the AssertionEncoder that commits it and one Context that decides it across checks.
//
// Levels: push() marks the problem's atoms, variables, the named assertions, the objectives, the
// DAG's arenas and the encoder's logs; pop() truncates all of them, the context truncating the
// atoms, clauses and terms and forgetting the variables (and the SAT search what it made for
// them), so that a pop brings every size_counters() back to its value at the push. A front end
// keeps what is its own (declarations, names as text) on a stack beside it.
//
// A check decides the assertions under the named ones (assumed, so that a core can name them)
// and the assumed formulas: while the problem is a conjunction and so are they, they are
// asserted on a level of their own and the conjunctive decider answers, its proof naming the
// atoms of the core; otherwise they are encoded and assumed, and the failed assumptions are the
// core. A Sat answer on a problem with constructs outside the fragment becomes Unknown; a Sat
// answer with objectives is optimized lexicographically.
// With verify on, every model is checked against the formulas as read (ite terms at the values
// of their ites) and every proof by its checker before the check returns: a failure throws
// VerificationFailure. The library never prints.
//
// Costs: a check costs the context's decision plus, per named assertion or assumed formula, a
// walk of its top conjunction; model_values() copies the model once per check and walks the
// lifted ites once.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "vorn/smt/assertion_encoder.h"
#include "vorn/smt/context.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/formula_dag.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct EngineOptions {
    // Time, memory, conflicts and interrupts (decide.stop); certify to keep clause proofs.
    DecideOptions decide;
    bool verify = false;  // check every model (against the formulas) and proof before answering
    // Decide every check from scratch instead of with the one context kept across them: the
    // reference of the differential tests.
    bool fresh_solver_per_check = false;
    // Keep the variables added on a popped level (an API whose handles outlive the level; they
    // are kept too when certifying); otherwise a pop forgets them and their numbers come again.
    bool keep_popped_variables = false;
    // False: reading one problem (solve, tableau): no context, and an assertion that is no
    // conjunction throws NotAccepted.
    bool lenient = true;
};

// Summed over the checks of an engine (and of the engines a front end made in turn).
struct CheckStats {
    std::uint64_t checks = 0;
    DecideStats decide;
    double solve_seconds = 0;
};

// A model or certificate that does not check: an internal error.
class VerificationFailure : public std::logic_error {
    using std::logic_error::logic_error;
};

// The sizes a pop brings back to those at the matching push (tests compare them across rounds).
struct SizeCounters {
    int variables = 0;  // of the problem
    std::uint32_t terms = 0;
    std::size_t atoms = 0, formula_nodes = 0;
    SearchSize search;
    bool operator==(const SizeCounters&) const = default;
};

// What the optimization of one objective found.
struct ObjectiveValue {
    bool unbounded = false;
    QNumber optimum;  // when bounded
    // Strict bounds: the optimum is optimum + epsilon·ε, approached but not attained (−1: a
    // supremum, 1: an infimum), as z3 writes it.
    int epsilon = 0;
    // With DecideOptions::certify, when bounded: the certificate block (smt/certificate.h) that
    // refutes a better value, "objective < optimum" (">" when maximizing; "<=" and ">=" when
    // approached), under the assertions, the assumptions and the earlier objectives held at
    // their optima. Rendered at the step, while the problem holds what it refutes.
    std::string certificate;
};

class Engine {
  public:
    // `stats` (may be null: the engine's own) is where the checks are counted.
    explicit Engine(const EngineOptions& options, CheckStats* stats = nullptr);
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    Problem& problem() { return *problem_; }
    const Problem& problem() const { return *problem_; }
    FormulaDag& dag() { return dag_; }
    const CheckStats& stats() const { return *stats_; }
    SizeCounters size_counters() const {
        return {problem_->variables.size(), problem_->term_count(), problem_->atoms.size(),
                dag_.size(), context_ ? context_->search_size() : SearchSize{}};
    }
    // Time, conflict and memory limits and the interrupt, for the checks from now on.
    void set_limits(const DecideOptions& decide);
    // EngineOptions::keep_popped_variables from now on (declarations that outlive their level).
    void keep_popped_variables(bool keep) { options_.keep_popped_variables = keep; }
    // The problem, the engine being of no use afterwards (reading).
    Problem take_problem();

    // ---- levels (engine_levels.cpp)
    void push(std::size_t levels = 1);
    // std::invalid_argument past level 0.
    void pop(std::size_t levels = 1);
    std::size_t level() const { return levels_.size(); }
    // Every level and assertion goes; the declarations (variables) and the DAG's level-0 nodes
    // stay. A new context starts empty.
    void reset_assertions();
    // Truncates the DAG back to `marks` (formulas a front end built and needs no more).
    void drop_formulas(const FormulaDag::Marks& marks);

    // ---- assertions
    // Asserts `root`. True when part of it was encoded: the DAG must then keep it.
    bool assert_formula(FormulaRef root) { return encoder_.assert_formula(root); }
    // A named assertion, assumed at every check until popped; `name` is the caller's, reported
    // by core().
    void assume_named(FormulaRef root, std::int32_t name) { named_.push_back({root, name}); }
    bool has_named() const { return !named_.empty(); }

    // ---- checks (engine_check.cpp)
    // Called with the answer while the problem still holds what the check asserted for it, so
    // that a proof's atoms can be shown.
    using AnswerHook = std::function<void(const Decision&)>;
    // Decides the assertions with the named ones and `assumed` as assumptions.
    const Decision& check(std::span<const FormulaRef> assumed = {},
                          const AnswerHook& answered = {});
    const Decision& last() const { return last_; }
    // When the last Sat answer became Unknown: the construct outside the fragment.
    const std::optional<Unsupported>& outside() const { return outside_; }
    // After Unsat: the names of the named assertions the refutation needs (ascending) and the
    // indices of the assumed formulas it needs (ascending).
    const std::vector<std::int32_t>& core() const { return core_; }
    const std::vector<std::uint32_t>& assumed_core() const { return assumed_core_; }

    // ---- objectives (engine_objectives.cpp)
    // Optimized at every Sat check, in order, until popped.
    void add_objective(const LinearExpr& expr, bool maximize);
    // z3's box priority: each objective optimized on its own, the model the first one's (no
    // certificates: their blocks hold the earlier optima); lexicographic otherwise.
    void set_box(bool box) { box_ = box; }
    bool box() const { return box_ && objectives_.size() > 1; }
    // Adds `expr` to objective `k` (a group of soft assertions growing), `k` < objective_count().
    void extend_objective(std::size_t k, const LinearExpr& expr);
    std::size_t objective_count() const { return objectives_.size(); }
    // After a Sat check: the optimum of each objective optimized, or why none (not empty).
    const std::vector<ObjectiveValue>& objective_values() const { return objective_values_; }
    const std::string& objectives_unknown() const { return objectives_unknown_; }
    // After a Sat check with objectives optimized, `k` < objective_values().size(): the "format
    // optimum" block of objective `k` (docs/certificates.md), the model's value of each variable
    // of `shown` in its lines and the refutation of a better value closing it (none when
    // unbounded, or when the check was made without DecideOptions::certify). Linear in the
    // refutation's text.
    std::string optimum_certificate(std::size_t k, std::span<const int> shown) const;

    // ---- the model of the last Sat check (engine_evaluation.cpp)
    // By problem variable, every lifted ite at the value of its ite; variables added since the
    // check are 0.
    const std::vector<QNumber>& model_values();
    // 1 when `ref` holds, 0 when not, −1 when it depends on a construct outside the fragment.
    int holds(FormulaRef ref);
    QNumber value(const LinearExpr& term);

  private:
    struct Level {
        std::size_t atoms, named, objectives;
        int variables;
        FormulaDag::Marks dag;
        AssertionEncoder::Marks encoded;
    };
    struct Named {
        FormulaRef formula;
        std::int32_t name;
    };
    struct Objective {
        LinearExpr expr;
        bool maximize;
    };

    Level current_level() const {
        return {problem_->atoms.size(),     named_.size(), objectives_.size(),
                problem_->variables.size(), dag_.marks(),  encoder_.marks()};
    }
    // After the context popped back to `level`.
    void truncate(const Level& level);
    // Asserts the named and assumed atoms on a level of their own, then decides.
    void check_conjunction(std::span<const FormulaRef> assumed, const AnswerHook& answered);
    void decide(std::span<const Literal> assumptions, std::span<const FormulaRef> assumed,
                const AnswerHook& answered);
    void collect_core(const std::vector<Literal>& failed);
    void add_source(std::int32_t source);
    void verify(std::span<const FormulaRef> assumed);
    void optimize(bool conjunctive);
    // Objectives over Boolean structure or Int variables: optimize the conjunction the model
    // fixes, demand better, check again until unsat (engine_objectives.cpp).
    void optimize_by_search();
    // One objective from the model of the last check; false when it ends the lexicographic order.
    // With `hold`, the optimum found is held for the next objectives.
    bool search_objective(std::size_t k, std::vector<QNumber>& model, bool hold);
    // ObjectiveValue::certificate: for an optimum approached on a conjunction, and for the
    // last step of a search (on the search's level, which it replaces).
    void certify_conjunction(const Objective& o, ObjectiveValue& value);
    void certify_search_step(const Objective& o, ObjectiveValue& value);

    EngineOptions options_;
    CheckStats own_stats_;
    CheckStats* stats_;
    std::unique_ptr<Problem> problem_;
    FormulaDag dag_;
    AssertionEncoder encoder_;
    std::unique_ptr<Context> context_;  // one solver for every check; none when reading
    std::vector<Level> levels_;
    std::vector<Named> named_;
    std::vector<Objective> objectives_;
    std::vector<ObjectiveValue> objective_values_;
    std::string objectives_unknown_;
    bool box_ = false;
    // During a check, the source of each assumption and atom of the core: a named assertion
    // (its index in named_) or an assumed formula (named_.size() + its index); −1 for none.
    std::vector<std::int32_t> atom_source_;
    std::vector<std::pair<Literal, std::int32_t>> literal_source_;
    std::vector<Literal> assumptions_;
    std::vector<Unsupported> reached_;  // outside the fragment, under this check's assumptions
    std::vector<std::int32_t> core_;
    std::vector<std::uint32_t> assumed_core_;
    std::size_t named_in_check_ = 0;
    // The context has met Boolean structure: it stays with the Boolean engine, whose proofs are
    // clause proofs, even when a pop took the structure away.
    bool context_boolean_ = false;
    // By problem variable: declared on a popped level and kept for the proofs; a model sets
    // them to 0.
    std::vector<char> popped_;
    bool model_evaluated_ = false;  // model_values() is that of last_
    Decision last_;
    std::optional<Unsupported> outside_;
};

}  // namespace vorn::smt
