#pragma once

// The Boolean structure of a problem: propositions and clauses over their literals, beside the
// atoms that must all hold (Problem::atoms). A proposition is a Bool variable of the problem, an
// arithmetic atom `term ≤ 0` or `term ≥ 0` over a problem term (its negation is `term > 0` or
// `term < 0`), or a definition that an encoding introduced (a Tseitin variable). Every other
// relation is encoded through these two (Encoder), so the arithmetic solver sees bounds only.
//
// Clauses are stored back to back; propositions and clauses are appended, and a pop truncates
// both back to their sizes at the matching push.
//
// A definition also records the gate it stands for (define()), which clause certificates print
// so that a checker can verify the definition clauses against the input's formulas: a word per
// operand beside the clauses, which take two or three.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "vorn/lra/relation.h"

namespace vorn::smt {

using lra::Relation;

// Proposition `prop()` (numbered from 0), negated when `negative()`.
class Literal {
  public:
    constexpr Literal() = default;
    constexpr Literal(std::uint32_t prop, bool negative) : code_(2 * prop + (negative ? 1 : 0)) {}
    static constexpr Literal from_code(std::uint32_t code) {
        Literal l;
        l.code_ = code;
        return l;
    }
    constexpr std::uint32_t prop() const { return code_ >> 1; }
    constexpr bool negative() const { return (code_ & 1) != 0; }
    constexpr std::uint32_t code() const { return code_; }
    constexpr Literal operator~() const { return from_code(code_ ^ 1); }
    friend constexpr bool operator==(Literal, Literal) = default;
    friend constexpr auto operator<=>(Literal, Literal) = default;

  private:
    std::uint32_t code_ = 0;
};

struct Proposition {
    enum class Kind : std::uint8_t { Definition, Variable, Atom };
    Kind kind = Kind::Definition;
    Relation relation = Relation::Le;  // Atom: Le or Ge
    int variable = 0;                  // Variable: a problem variable of sort Bool
    std::uint32_t term = 0;            // Atom: `term ⋈ 0`, a problem term (constant included)
    // Atom over a lifted variable (a term ite's or a quotient's): decided before the others, on
    // the side the theory's current model takes, so that the bounds of an ite's unselected
    // branch cost no pivot and no conflict. Not over an ite between two constants, which its
    // bounds keep between them: its atoms only choose a constant.
    bool phase_from_model = false;
};

// The connective of a definition d: And d ↔ (a ∧ b ∧ ...); Xor d ↔ (a ⊕ b); Ite d ↔ (c ? t : e)
// over operands (c, t, e); True d, the constant; None, a free proposition.
enum class Gate : std::uint8_t { None, True, And, Xor, Ite };

class BooleanStructure {
  public:
    std::uint32_t add(const Proposition& p) {
        props_.push_back(p);
        return static_cast<std::uint32_t>(props_.size() - 1);
    }
    const Proposition& proposition(std::uint32_t p) const { return props_[p]; }
    std::uint32_t propositions() const { return static_cast<std::uint32_t>(props_.size()); }

    void add_clause(std::span<const Literal> lits) {
        lits_.insert(lits_.end(), lits.begin(), lits.end());
        clause_end_.push_back(lits_.size());
    }
    std::size_t clauses() const { return clause_end_.size(); }
    std::span<const Literal> clause(std::size_t i) const {
        std::size_t begin = i == 0 ? 0 : clause_end_[i - 1];
        return {lits_.data() + begin, lits_.data() + clause_end_[i]};
    }
    bool empty() const { return clause_end_.empty(); }

    // Records what definition `prop`, the last proposition added, stands for.
    void define(std::uint32_t prop, Gate gate, std::span<const Literal> operands) {
        gates_.push_back({prop, gate, static_cast<std::uint32_t>(gate_operands_.size())});
        gate_operands_.insert(gate_operands_.end(), operands.begin(), operands.end());
    }
    // The gate of `prop` (None when it is no recorded definition) and its operands.
    Gate gate(std::uint32_t prop, std::span<const Literal>& operands) const {
        auto at = std::lower_bound(gates_.begin(), gates_.end(), prop,
                                   [](const GateRecord& g, std::uint32_t p) { return g.prop < p; });
        if (at == gates_.end() || at->prop != prop) return Gate::None;
        std::size_t end = at + 1 == gates_.end() ? gate_operands_.size() : (at + 1)->first;
        operands = {gate_operands_.data() + at->first, end - at->first};
        return at->gate;
    }

    // Records that the asserted literal `definition` defines the lifted variable `var` (a term
    // ite's): the search needs it only where an atom over `var` counts (smt/justification.h).
    void define_variable(int var, Literal definition) { variables_.push_back({var, definition}); }
    struct VariableDefinition {
        int var;
        Literal definition;
    };
    const std::vector<VariableDefinition>& variable_definitions() const { return variables_; }
    // A definition that counts wherever atoms do not need it (an objective's term ite's, and
    // one that an asserted equality names: assertion_encoder.h).
    void require(Literal definition) { required_.push_back(definition); }
    const std::vector<Literal>& required() const { return required_; }

    // A distinct of `terms` terms from `first_term` on, encoded as a conjunction of negated
    // equalities whose literals `equal` lists pair by pair ((a, b), a < b, row by row): the
    // pigeonhole lemmas of the search name them (smt/hall_interval.h).
    struct DistinctPairs {
        std::uint32_t first_term, terms;
        std::vector<Literal> equal;
    };
    void add_distinct(DistinctPairs d) { distincts_.push_back(std::move(d)); }
    const std::vector<DistinctPairs>& distincts() const { return distincts_; }
    // Forgets the distincts over terms from `first_gone` on: their indices are reused after a
    // pop, while the pair literals, shared with older atoms, may outlive them.
    void forget_distincts_over(std::uint32_t first_gone) {
        std::erase_if(distincts_,
                      [&](const DistinctPairs& d) { return d.first_term + d.terms > first_gone; });
    }

    // Forgets the propositions from `propositions` on and the clauses from `clauses` on.
    void truncate(std::uint32_t propositions, std::size_t clauses) {
        std::erase_if(distincts_, [&](const DistinctPairs& d) {
            return std::any_of(d.equal.begin(), d.equal.end(),
                               [&](Literal l) { return l.prop() >= propositions; });
        });
        std::erase_if(variables_, [&](const VariableDefinition& d) {
            return d.definition.prop() >= propositions;
        });
        std::erase_if(required_, [&](Literal d) { return d.prop() >= propositions; });
        if (props_.size() > propositions) props_.resize(propositions);
        while (!gates_.empty() && gates_.back().prop >= propositions) {
            gate_operands_.resize(gates_.back().first);
            gates_.pop_back();
        }
        if (clause_end_.size() > clauses) {
            clause_end_.resize(clauses);
            lits_.resize(clauses == 0 ? 0 : clause_end_.back());
        }
    }

  private:
    struct GateRecord {
        std::uint32_t prop;
        Gate gate;
        std::uint32_t first;  // in gate_operands_
    };

    std::vector<Proposition> props_;
    std::vector<Literal> lits_;
    std::vector<std::size_t> clause_end_;
    std::vector<GateRecord> gates_;  // by proposition, ascending
    std::vector<Literal> gate_operands_;
    std::vector<VariableDefinition> variables_;
    std::vector<Literal> required_;
    std::vector<DistinctPairs> distincts_;
};

}  // namespace vorn::smt
