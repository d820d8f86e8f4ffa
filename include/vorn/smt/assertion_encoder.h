#pragma once

// AssertionEncoder: a formula DAG (formula_dag.h) into the problem, and back under a model.
//
// An assertion is split at its top conjunction, negations pushed inward: its literals (atoms,
// negated atoms, disjunctions whose disjuncts are all constant false but one) become atoms of
// problem.atoms, each once, in the order the assertion lists them, so a conjunction of atoms
// keeps the conjunctive decider and its certificates. The rest (real disjunctions, xor, ite,
// Bool variables) is encoded into problem.boolean by Encoder, bottom-up, every DAG node
// once and its literal kept, so a formula shared through lets or definitions costs its size
// once. A strict encoder (solve, tableau) accepts conjunctions only and throws NotAccepted.
//
// An atom that mentions a lifted variable brings its definition along, asserted once per level:
// an ite's through the encoder (and, between two constants, the two bounds it implies, so that
// the simplex knows them before the condition is decided), a quotient's as its two atoms. A
// construct outside the fragment becomes a free proposition where it is encoded (so an unsat answer
// still holds) and is recorded, so that a sat answer becomes unknown.
//
// The encoder follows the context's levels: marks() at a push, truncate() after the context
// popped, forget_nodes() after the DAG was truncated. Its tables are indexed by DAG node, so
// each costs a byte or a word per node; evaluate_model() copies the model and walks every lifted
// ite, extend_model() only those lifted since, and holds() memoizes per node until the next
// evaluate_model().

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "vorn/smt/encoder.h"
#include "vorn/smt/formula_dag.h"
#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

// Thrown by a strict encoder at a formula that is no conjunction, with where it is.
class NotAccepted : public std::runtime_error {
  public:
    NotAccepted(SourcePos pos, const std::string& message)
        : std::runtime_error(message), pos_(pos) {}
    SourcePos pos() const { return pos_; }

  private:
    SourcePos pos_;
};

class AssertionEncoder {
  public:
    AssertionEncoder(Problem& problem, FormulaDag& dag, bool lenient)
        : problem_(problem), dag_(dag), encoder_(problem, &dag), lenient_(lenient) {}

    // Asserts `root`. True when part of it was encoded: the DAG must then keep it, as a root
    // that models are checked against.
    bool assert_formula(FormulaRef root);
    // Whether asserting `root` would add atoms only (nothing to encode).
    bool conjunctive(FormulaRef root);
    // Adds the atoms of a conjunctive `root`, like assert_formula.
    void commit_atoms(FormulaRef root) { (void)assert_formula(root); }
    // The literal of `ref`, encoded with what it needs; the constructs outside the fragment
    // that it reaches go to `reached`.
    Literal literal(FormulaRef ref, std::vector<Unsupported>& reached);
    // Asserts the definitions of the lifted variables in `term` (an objective's, which no
    // assertion may mention), once per level like an atom's.
    void define_lifted(const LinearExpr& term);

    // The formulas that assert_formula encoded, on the levels not popped.
    std::span<const FormulaRef> encoded_roots() const { return roots_; }
    // Constructs outside the fragment that assertions reached, in order.
    const std::vector<Unsupported>& unsupported_asserted() const { return unsupported_; }

    // Under a model (by problem variable): `model` with every lifted ite variable at the value
    // of its ite, for holds() and for the caller.
    const std::vector<QNumber>& evaluate_model(const std::vector<QNumber>& model);
    // The same model, with the variables added since (0) and the ites lifted since at their
    // values; what holds() knew stays. Costs the new ites only.
    const std::vector<QNumber>& extend_model();
    // 1 when `ref` holds in the last evaluate_model, 0 when not, −1 when it depends on a
    // construct outside the fragment.
    int holds(FormulaRef ref);

    struct Marks {
        std::size_t roots = 0, unsupported = 0, encoded = 0, sides = 0;
    };
    Marks marks() const {
        return {roots_.size(), unsupported_.size(), encoded_.size(), sides_.size()};
    }
    // After the context popped back to the level of `m`: what was encoded since is gone.
    void truncate(const Marks& m);
    // After reset-assertions emptied problem.boolean: nothing is encoded any more.
    void clear() { truncate({}); }
    // After the DAG was truncated: forgets what the encoder knew of the nodes gone.
    void forget_nodes();

  private:
    // The literals of `root`'s top conjunction into literals_, the rest into rest_.
    void split(FormulaRef root);
    // Encodes node `n` and the nodes under it.
    void encode(std::uint32_t n);
    // Runs visit(n, node) on the nodes under `top` that are not done(n), children first, each
    // once, with an explicit stack: a chain of connectives is as deep as it is long.
    template <class Done, class Visit>
    void post_order(std::uint32_t top, Done done, Visit visit);
    Literal make(const FormulaNode& node, std::uint32_t n);
    Literal lit(FormulaRef ref) const { return ref & 1 ? ~lit_[ref / 2] : lit_[ref / 2]; }
    // Schedules the definitions of the lifted variables in `atom`.
    void name_lifted(const Atom& atom);
    void need_definitions(const Atom& atom);
    void need_definition(int var);
    void assert_definitions();
    // The bounds between an ite's two constant branches, as atoms of problem.atoms.
    void bound_constant_branches(const LiftedIte& lifted);
    void commit_literal(FormulaRef ref);
    void grow();
    // 1 constant true, 0 constant false, −1 neither.
    int constant_truth(FormulaRef ref) const;
    int truth(FormulaRef ref) const {
        int t = truth_[ref / 2];
        return t < 0 ? t : t ^ static_cast<int>(ref & 1);
    }

    Problem& problem_;
    FormulaDag& dag_;  // marks the ites that asserted equalities name
    Encoder encoder_;
    bool lenient_;
    // By node: its literal when has_lit_, the Unsupported node under it + 1 (0: none).
    std::vector<Literal> lit_;
    std::vector<std::uint8_t> has_lit_;
    std::vector<std::uint32_t> unsup_;
    std::vector<std::uint8_t> committed_;  // by reference: its literals are in the problem
    std::vector<std::uint32_t> seen_;      // by reference: split() visit stamp
    std::uint32_t stamp_ = 0;
    std::vector<std::int8_t> truth_;       // by node: holds() memo, −2 not known yet
    std::vector<std::uint8_t> side_done_;  // by lifted ite: its definition is asserted
    // Logs for truncate(): nodes encoded and definitions asserted, in order.
    std::vector<std::uint32_t> encoded_, sides_;
    std::vector<std::uint32_t> pending_sides_;
    std::vector<FormulaRef> roots_;
    std::vector<Unsupported> unsupported_;
    std::vector<FormulaRef> stack_, visited_, literals_, rest_;
    std::vector<std::uint32_t> work_;
    std::vector<Literal> operands_;
    std::vector<QNumber> model_;
    std::size_t evaluated_lifted_ = 0;  // the lifted ites with their values in model_
    LinearExpr scratch_;
};

}  // namespace vorn::smt
