#pragma once

// Encoder: formulas into a problem's Boolean structure, one gate at a time (Tseitin): every
// connective gets a definition proposition with the clauses that make it equivalent to its
// operands, so the encoding is linear in the formula and a shared subformula, encoded once by
// its caller, is one literal wherever it occurs.
//
// Arithmetic comparisons become the two atom kinds of BooleanStructure: t ≤ 0 and t ≥ 0 are
// atoms, t < 0 is ¬(t ≥ 0), t > 0 is ¬(t ≤ 0), t = 0 is a definition of (t ≤ 0) ∧ (t ≥ 0), and
// t ≠ 0 its negation; so the arithmetic solver sees bounds only and a disequality is the split
// t < 0 ∨ t > 0 that the SAT search makes when it needs to. A comparison of a constant folds to
// a constant. Constants fold through the connectives.
//
// Bounds that state the same are one proposition: a bound's key is its term's normal form (first
// coefficient 1, lra/term_table.h), the relation turned round by a negative factor, and the
// constant moved over; so x − y ≤ 3 and −y + x ≤ 3 (or 2x − 2y ≤ 6) share one literal and
// x − y > 3 is its negation. The proposition keeps the term it was made with. A lookup costs the
// term's length, a hash and a scan of the bounds already made on that term. A gate over the same
// operands (and, xor, ite) is made once too, so formulas that are equal once their atoms share
// literals share their definitions. A bound over a term ite's variable is marked for the search
// to decide by the theory's model.
//
// The callers walk their own formula DAGs (the script reader's, the embedding API's) and call
// the encoder bottom-up; assert_true() makes a literal a fact.

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "vorn/lra/term_table.h"
#include "vorn/smt/formula_dag.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

class Encoder {
  public:
    // Bounds over the variables `dag` lifts, but for ites between two constants, are marked
    // Proposition::phase_from_model.
    explicit Encoder(Problem& problem, const FormulaDag* dag = nullptr)
        : problem_(problem), dag_(dag) {}

    // The literal of a constant: a proposition fixed true by a unit clause, made once.
    Literal constant(bool value);
    // Whether `lit` is constant(true) or constant(false); nothing when it is not a constant.
    std::optional<bool> constant_value(Literal lit) const;
    // The proposition of a Bool problem variable, made once.
    Literal variable(int var);
    // term ⋈ 0 for ⋈ one of = ≠ ≤ < ≥ >, over a problem term (constant included).
    Literal compare(Relation relation, std::uint32_t term);
    // The pairwise disequality of `count` terms from `first` on (a `distinct` atom).
    Literal distinct(std::uint32_t first, std::uint32_t count);
    // The literal of a Problem atom, any relation.
    Literal atom(const Atom& atom);

    Literal conjunction(std::span<const Literal> operands);  // empty: true
    Literal disjunction(std::span<const Literal> operands);  // empty: false
    Literal exclusive_or(Literal a, Literal b);
    Literal equivalence(Literal a, Literal b) { return ~exclusive_or(a, b); }
    Literal ite(Literal condition, Literal then, Literal otherwise);

    // Adds the clause `lits` (a fact when it has one literal).
    void add_clause(std::span<const Literal> lits);
    void assert_true(Literal lit) { add_clause({&lit, 1}); }

    // Forgets what refers to propositions from `propositions` on (a pop truncated them).
    void truncate(std::uint32_t propositions);

  private:
    Literal definition();
    // A definition d with d ↔ (a ∧ b ∧ ...), every operand not a constant.
    Literal and_gate(std::span<const Literal> operands);
    // The proposition of  term ⋈ 0  for ⋈ Le or Ge, shared by every bound that states the same.
    Literal bound(Relation relation, std::uint32_t term);

    // The definition of `gate` over `operands` when one was made; leaves the key in gate_key_
    // for remember_gate().
    std::optional<Literal> made_gate(Gate gate, std::span<const Literal> operands);
    void remember_gate(Literal definition);
    struct GateKeyHash {
        std::size_t operator()(const std::vector<std::uint32_t>& key) const;
    };

    struct SharedBound {
        Relation relation;  // on the normal form: Le or Ge
        QNumber value;      // normal form ⋈ value
        std::uint32_t prop;
    };

    Problem& problem_;
    const FormulaDag* dag_;
    std::optional<std::uint32_t> true_;  // the proposition of constant(true)
    std::unordered_map<int, std::uint32_t> variables_;
    std::vector<Literal> scratch_;
    std::vector<Literal> clause_;
    lra::TermTable normal_terms_;                   // only keys: entries stay after a pop
    std::vector<std::vector<SharedBound>> bounds_;  // by normal term, in the order made
    std::vector<std::uint32_t> bound_log_;          // the normal term of each bound, in order
    lra::TermEntries normal_;
    // Gates by their kind and operand codes; the log holds their keys in the order made.
    std::unordered_map<std::vector<std::uint32_t>, std::uint32_t, GateKeyHash> gates_;
    std::vector<const std::vector<std::uint32_t>*> gate_log_;
    std::vector<std::uint32_t> gate_key_;
};

}  // namespace vorn::smt
