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
// The callers walk their own formula DAGs (the script reader's, the embedding API's) and call
// the encoder bottom-up; assert_true() makes a literal a fact.

#include <cstdint>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "vorn/smt/problem.h"

namespace vorn::smt {

class Encoder {
  public:
    explicit Encoder(Problem& problem) : problem_(problem) {}

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

    Problem& problem_;
    std::optional<std::uint32_t> true_;  // the proposition of constant(true)
    std::unordered_map<int, std::uint32_t> variables_;
    std::vector<Literal> scratch_;
    std::vector<Literal> clause_;
};

}  // namespace vorn::smt
