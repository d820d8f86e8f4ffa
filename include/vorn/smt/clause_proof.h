#pragma once

// The refutation behind an unsat answer on a problem with Boolean structure: clauses over
// propositional variables, some of which are arithmetic atoms, derived step by step down to a
// clause that contradicts the assumptions of the check (the empty clause without any).
//
// Literals are written as in DIMACS: variable v (from 1) is v, its negation −v. An atom
// variable stands for  Σ coeff·x ⋈ constant  (⋈ ≤ or ≥; the negated literal is the strict
// opposite). Steps, in order:
//   Input:   a clause of the problem's encoding (its definitions say what it encodes);
//   Lemma:   a clause valid in linear arithmetic: the bounds its literals' negations state,
//            combined with the Farkas multipliers `farkas` (one per literal, 0 for one not
//            used), add up to a contradiction (docs/certificates.md); Int atoms rounded;
//   Learned: a clause that follows from the earlier ones by unit propagation (RUP).
// A Lemma may instead be justified by pigeonhole (`hall`): the negations of its literals bound
// more Int terms x + c into [low, high] than it has integers, and its positive literals include,
// for each two of the terms, a definition (an `and` of atoms) that holds when they are equal.
// The proof ends with a Learned clause made of negated assumptions only.
//
// What the other variables stand for (Definition), so that a checker reading the input can tell
// whether each input clause follows from it: a Bool variable of the problem; a definition with
// its gate (the input clauses that define it are its Tseitin clauses); the selector of a push
// level, which guards the clauses added on that level and is assumed while the level is open;
// the guard of a box of solutions (Box).

#include <cstdint>
#include <optional>
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
    struct Definition {
        enum class Kind : std::uint8_t { Bool, True, And, Xor, Ite, Select };
        std::int64_t var;
        Kind kind;
        std::vector<std::int64_t> operands;  // And, Xor, Ite (condition, then, else): literals
        int index = 0;                       // Bool: the problem variable; Select: the level
    };
    // An assumption g that guards the box −B ≤ x ≤ B on the Int variables of a check: its input
    // clauses ¬g ∨ (x ≤ B) and ¬g ∨ (x ≥ −B), x of sort Int, are premises that a checker accepts
    // when its own lra::SolutionBox bound of the proof's other input atoms (the mixed bound when
    // one names a Real variable) is at most B.
    struct Box {
        std::int64_t var;
        QNumber bound;
    };
    enum class Kind : std::uint8_t { Input, Lemma, Learned };
    struct OffsetTerm {
        int var;  // an Int variable of the problem
        QNumber offset;
    };
    struct Hall {
        QNumber low, high;
        std::vector<OffsetTerm> terms;  // var + offset, more of them than high − low + 1
    };
    struct Step {
        Kind kind;
        std::vector<std::int64_t> clause;
        std::vector<QNumber> farkas;              // Lemma: by clause position
        std::optional<Hall> hall = std::nullopt;  // Lemma: by pigeonhole instead (no multipliers)
    };

    std::vector<AtomDefinition> atoms;
    std::vector<Definition> definitions;
    std::vector<Box> boxes;
    std::vector<std::int64_t> assumptions;
    std::vector<Step> steps;

    bool empty() const { return steps.empty(); }
};

}  // namespace vorn::smt
