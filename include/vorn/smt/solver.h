#pragma once

// The embedding interface: declare Real, Int and Boolean variables, state linear constraints over
// them as C++ expressions, and decide them exactly, incrementally and under assumptions.
//
//   vorn::smt::Solver s;
//   vorn::smt::Term x = s.real("x"), n = s.integer("n");
//   s.add(x > 0 && 2 * x + n <= 5);
//   if (s.check() == vorn::smt::Result::Sat) std::cout << s.value(x) << '\n';
//
// Terms are linear: sums, differences, negation, products with a number (QNumber or any integer
// type). There is deliberately no Term * Term: a product of two variables is not linear, and
// writing one is a compile error rather than a run-time surprise. A long sum is best built with
// `+=` (or `std::move(sum) + t`): each step then costs the size of its right-hand side.
//
// Any formula over comparisons (strict ones too, disequalities), Boolean variables, `!`, `&&`,
// `||`, implies() and ite() terms is decided, Int variables integral: Sat with a model, Unsat,
// or Unknown only when the integer search reaches its branch limit or a limit below stops it.
//
// Terms and formulas are immutable values; formulas share their structure (copies are cheap) and
// may be read from several threads. A Solver is used by one thread at a time.
//
// Misuse (a value without a Sat answer just before, a core without an Unsat answer under
// assumptions, a term of another solver) throws UsageError; popping more levels than were pushed
// throws std::invalid_argument and changes nothing.
//
// Beyond deciding: tracked assertions (add with a name) and the names of an Unsat answer's core,
// objectives optimized lexicographically at every Sat check (minimize, maximize, add_soft),
// counters (statistics), the certificate of an Unsat answer and of each optimum as `vorn check
// --certificate` prints them, and the assertions as an SMT-LIB script (to_smt2).

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vorn/numbers/qnumber.h"
#include "vorn/smt/statistics.h"
#include "vorn/util/result.h"

namespace vorn::smt {

using Result = util::Result;

// A call the solver's state does not allow, or mixing terms and formulas of two solvers. The
// message says which.
class UsageError : public std::logic_error {
  public:
    using std::logic_error::logic_error;
};

class Formula;
class Solver;

namespace detail {
struct Node;
struct Access;
}  // namespace detail

// A linear term: Σ coefficient · variable + constant (and, outside the decided fragment, ite
// summands).
class Term {
  public:
    Term() = default;            // the constant 0
    Term(const QNumber& value);  // NOLINT: numbers are constant terms
    template <std::integral I>
    requires(!std::same_as<I, bool>) Term(I value)  // NOLINT: so that `x <= 3` reads as written
        : Term(QNumber(value)) {}

    Term& operator+=(const Term& other);
    Term& operator-=(const Term& other);
    Term& operator*=(const QNumber& factor);

    friend Term operator+(Term a, const Term& b) {
        a += b;
        return a;
    }
    friend Term operator-(Term a, const Term& b) {
        a -= b;
        return a;
    }
    friend Term operator-(Term a) {
        a *= QNumber(-1);
        return a;
    }
    friend Term operator*(Term a, const QNumber& factor) {
        a *= factor;
        return a;
    }
    friend Term operator*(const QNumber& factor, Term a) {
        a *= factor;
        return a;
    }

    friend Formula operator<=(const Term& a, const Term& b);
    friend Formula operator<(const Term& a, const Term& b);
    friend Formula operator>=(const Term& a, const Term& b);
    friend Formula operator>(const Term& a, const Term& b);
    friend Formula operator==(const Term& a, const Term& b);
    friend Formula operator!=(const Term& a, const Term& b);

  private:
    friend struct detail::Access;

    struct Part {
        int var;  // 0: the constant
        QNumber coeff;
    };
    struct Ite {
        std::shared_ptr<const detail::Node> node;
        QNumber coeff;
    };

    void take_owner(std::uint64_t other);
    // Sorts the parts by variable, sums repeats and drops zeros.
    void merge();

    std::uint64_t owner_ = 0;  // the solver whose variables occur; 0: none
    std::vector<Part> parts_;  // in any order, repeats allowed until merge()
    std::vector<Ite> ites_;
    std::size_t merged_ = 0;  // parts_.size() after the last merge, to merge at each doubling
};

// A formula over comparisons of terms and Boolean variables.
class Formula {
  public:
    template <std::same_as<bool> B>
    Formula(B value)  // NOLINT: `f && true`; only bool, so that `f && 1` does not compile
        : Formula(constant(value)) {}

    // Whether both are the same formula: one a copy of the other (as unsat_core() returns the
    // assumptions), not merely equal in meaning.
    bool identical(const Formula& other) const noexcept { return node_ == other.node_; }

    friend Formula operator!(const Formula& f);
    friend Formula operator&&(const Formula& a, const Formula& b);
    friend Formula operator||(const Formula& a, const Formula& b);

  private:
    friend struct detail::Access;

    explicit Formula(std::shared_ptr<const detail::Node> node) : node_(std::move(node)) {}
    static Formula constant(bool value);

    std::shared_ptr<const detail::Node> node_;
};

Formula implies(const Formula& a, const Formula& b);
// `then` when the condition holds, `otherwise` when not. With a constant condition this is
// simply one of the two terms.
Term ite(const Formula& condition, const Term& then, const Term& otherwise);

// A handle on an objective of Solver::minimize() or maximize(); valid until the level it was
// added on is popped. Copies are cheap.
class Objective {
  public:
    Objective() = default;  // refers to no objective

  private:
    friend class Solver;
    std::uint64_t owner_ = 0;
    std::uint64_t serial_ = 0;  // unique within its solver, so that a popped handle is told apart
    std::size_t index_ = 0;     // its place in the lexicographic order
};

class Solver {
  public:
    Solver();
    ~Solver();
    Solver(Solver&&) noexcept;  // a moved-from solver may only be destroyed or assigned to
    Solver& operator=(Solver&&) noexcept;

    // A new variable each call, even when the name repeats (as a declaration after a pop does).
    Term real(std::string_view name);
    Term integer(std::string_view name);
    Formula boolean(std::string_view name);

    void add(const Formula& f);
    Result check();
    // Decides the assertions together with `assumptions`, which are then forgotten again.
    Result check(std::span<const Formula> assumptions);
    void push(unsigned levels = 1);
    // Removes what was added since the matching push (std::invalid_argument past level 0).
    void pop(unsigned levels = 1);
    unsigned level() const;

    // The model of the last check() when it answered Sat and nothing was added, pushed or popped
    // since. Variables created after that check are 0 (Boolean ones false). UsageError
    // otherwise.
    QNumber value(const Term& t) const;
    bool value(const Formula& f) const;
    // After check(assumptions) answered Unsat (nothing added, pushed or popped since): the
    // assumptions whose constraints the refutation uses, in the order given. An assumption that
    // is constant true is never in it.
    std::vector<Formula> unsat_core() const;

    // Limits. A check that reaches one answers Unknown within a few milliseconds of work and
    // leaves the solver as it was before the check: the next check answers right. So does a
    // check that runs out of memory (std::bad_alloc inside it: reason "memout").
    //
    // Per check, measured from its start; 0: none. Reason "timeout".
    void set_time_limit(std::chrono::milliseconds per_check);
    // Conflicts of the Boolean search per check; 0: none. Deterministic. Reason "conflict
    // limit".
    void set_conflict_limit(std::uint64_t per_check);
    // From any thread, at any time: the running check, or else the next one, answers Unknown
    // soon, reason "interrupted".
    void interrupt();
    // After an Unknown answer: why. "timeout", "memout", "interrupted", "conflict limit",
    // "integer branch limit" (the integer search's node budget), or what lies outside the
    // decided fragment. Empty after Sat and Unsat.
    std::string_view reason_unknown() const;

    // ---- tracked assertions
    // Asserts `f` under `name` (any text; names may repeat): after an Unsat answer,
    // unsat_core_names() lists the tracked assertions its refutation needs. Popped with its level
    // as add() is. Cost: at every check `f` is assumed, a walk of its top conjunction.
    void add(const Formula& f, std::string_view name);
    // After an Unsat answer of check() or check(assumptions), nothing added, pushed or popped
    // since: the names of the tracked assertions the refutation uses, in the order they were
    // added (empty when it needs none). UsageError otherwise.
    std::vector<std::string> unsat_core_names() const;

    // ---- objectives
    // Optimized at every Sat check from now on until the level is popped, lexicographically in
    // the order added: each one with those before it held at their optima. The model of a Sat
    // answer is then an optimal one, over Boolean structure, Int and Real variables alike. What
    // the optimization does not cover leaves the answer Sat and the objectives not optimized:
    // objectives_unknown() says why. Cost: one exact optimization per objective and check.
    Objective minimize(const Term& t);
    Objective maximize(const Term& t);
    // A soft formula (weighted MaxSAT, z3's assert-soft): the soft formulas of one `id` added on
    // one level are one objective, placed in the order where the first of them was added, that
    // minimizes the total weight of those violated. Returns that objective; UsageError for a
    // negative weight.
    Objective add_soft(const Formula& f, const QNumber& weight = QNumber(1),
                       std::string_view id = {});
    // After a Sat check, nothing added, pushed or popped since: the exact optimum of `o`, or
    // std::nullopt when it is unbounded (decreases, when minimized, or increases without end;
    // the objectives after it are then not optimized). UsageError without a Sat answer, for an
    // objective popped or of another solver, and for one not optimized (the message says why).
    std::optional<QNumber> value(const Objective& o) const;
    // With strict bounds an optimum may be approached but not attained: 0 when value(o) is
    // attained, −1 when the optimum is value(o) − ε (a supremum), 1 when value(o) + ε (an
    // infimum), ε an arbitrarily small positive number. Same preconditions as value(o).
    int epsilon(const Objective& o) const;
    // How several objectives are optimized, as z3's priorities: each with those before it held
    // at their optima (Lexicographic, the default), or each on its own (Box; the model is then
    // the first objective's, and certificate(o) is refused: a block holds the earlier optima).
    enum class Priority { Lexicographic, Box };
    void set_priority(Priority p);
    // After a Sat check with objectives: why they were not optimized; empty when they were.
    std::string_view objectives_unknown() const;
    // After a Sat check made with certificates on (set_certificates), for an objective
    // optimized: its block as `vorn check --certificate` prints it after "sat"
    // (docs/certificates.md, "format optimum"): the optimum, the model over every variable made
    // (by its name) and the refutation of a better value under the assertions, the assumptions
    // and the earlier objectives at their optima (none when unbounded). UsageError as value(o),
    // and after a check without certificates. Linear in the refutation's text.
    std::string certificate(const Objective& o) const;

    // ---- reports
    // The counters of this solver's checks so far (statistics.h); linear in their number.
    std::vector<Statistic> statistics() const;
    // Keep what certificate() needs from the next check on (off by default): on problems with
    // Boolean structure a clause proof, which costs memory for every clause the search learns.
    // Switching it on or off for a Boolean problem restarts its search from its clauses.
    void set_certificates(bool on);
    // After an Unsat answer (nothing added, pushed or popped since) of a check made with
    // certificates on: the certificate exactly as `vorn check --certificate` prints it after
    // "unsat" (docs/certificates.md). UsageError otherwise. It is printed when the check
    // answers, so the check costs its size.
    std::string certificate() const;
    // The assertions of every active level as an SMT-LIB script that `vorn check` reads back: a
    // declaration per variable (a repeated name gets a suffix "!k"), a define-fun per subformula
    // or ite term that is shared, an assert per add() (a tracked one named with :named),
    // check-sat. Linear in the size of the formulas' DAG.
    std::string to_smt2() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vorn::smt
