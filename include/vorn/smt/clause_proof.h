#pragma once

// The refutation behind an unsat answer on a problem with Boolean structure: clauses over
// propositional variables, some of which are arithmetic atoms, derived step by step down to a
// clause that contradicts the assumptions of the check (the empty clause without any).
//
// Literals are written as in DIMACS: variable v (from 1) is v, its negation −v. An atom
// variable stands for  Σ coeff·x ⋈ constant  (⋈ ≤ or ≥; the negated literal is the strict
// opposite). Steps, in order:
//   Input:   a clause of the problem's encoding, taken as given;
//   Lemma:   a clause valid in linear arithmetic: the bounds its literals' negations state,
//            combined with the Farkas multipliers `farkas` (one per literal, 0 for one not
//            used), add up to a contradiction (docs/certificates.md); Int atoms rounded;
//   Learned: a clause that follows from the earlier ones by unit propagation (RUP).
// The proof ends with a Learned clause made of negated assumptions only.

#include <cstdint>
#include <vector>

#include "vorn/smt/linear_expr.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

struct ClauseProof {
    struct AtomDefinition {
        std::int64_t var;          // from 1
        Relation relation;         // Le or Ge
        LinearExpr::Entries term;  // over problem variables, no constant
        QNumber constant;
    };
    enum class Kind : std::uint8_t { Input, Lemma, Learned };
    struct Step {
        Kind kind;
        std::vector<std::int64_t> clause;
        std::vector<QNumber> farkas;  // Lemma: by clause position
    };

    std::vector<AtomDefinition> atoms;
    std::vector<std::int64_t> assumptions;
    std::vector<Step> steps;

    bool empty() const { return steps.empty(); }
};

}  // namespace vorn::smt
