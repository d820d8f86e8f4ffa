#pragma once

// Justification: decisions from the structure of the asserted formulas (sat::DecisionGuide).
// A formula is justified when the assigned values of what it reads fix its value: an atom or
// free proposition once assigned; a conjunction by one justified false operand or all operands
// justified true; xor by both operands; ite by its condition and the branch the condition
// selects. The next decision is the first unassigned proposition that an unjustified asserted
// formula (a unit or a clause of the problem's structure, in order) reads on its way down, or
// else a variable outside the structure (an asserted atom's, a theory split's). Once every
// asserted formula is justified the formulas hold in every extension that evaluates the
// unassigned gates from their operands (unit propagation keeps each assigned gate equal to its
// operands), so the search may stop: what a gate under an unselected ite branch or beside a true
// disjunct reads is never decided.
//
// Justified propositions are remembered with the decision level they were found at and
// forgotten when the search backtracks below it. Costs: per decision, the walk from the first
// unjustified formula down to a leaf, over justified subformulas once per level; the gates are
// read from the structure once.

#include <cstdint>
#include <vector>

#include "vorn/sat/decision_guide.h"
#include "vorn/sat/solver.h"
#include "vorn/smt/boolean_structure.h"
#include "vorn/smt/problem.h"

namespace vorn::smt {

class Justification : public sat::DecisionGuide {
  public:
    // `prop_var` (by proposition, its SAT variable) and `prop_of` (by SAT variable, proposition
    // + 1, 0 for none) are the decider's, read at every decision.
    Justification(const Problem& problem, const std::vector<sat::Var>& prop_var,
                  const std::vector<std::uint32_t>& prop_of)
        : problem_(problem), structure_(problem.boolean), prop_var_(prop_var), prop_of_(prop_of) {}

    // Before a check, at level 0: the asserted formulas are the first `clauses` clauses, the
    // first `atoms` of the problem's atoms and the check's assumptions.
    void prepare(std::size_t atoms, std::size_t clauses, std::span<const Literal> assumptions);
    bool next(const sat::Solver& solver, sat::Var& var) override;
    // A pop: the propositions from `props` on are gone (and may come back as others).
    void forget(std::uint32_t props);

  private:
    static constexpr std::int64_t kJustified = -1;
    static constexpr std::int64_t kOpen = -2;

    struct Memo {
        std::uint32_t prop;
        int level;
    };

    // The variable to decide under proposition `prop`, or kJustified.
    std::int64_t visit(std::uint32_t prop);
    std::int64_t visit_gate(std::uint32_t prop);
    std::int64_t visit_clause(std::size_t index);
    sat::LBool value(Literal lit) const {
        return solver_->current(sat::Lit(prop_var_[lit.prop()], lit.negative()));
    }
    void justified(std::uint32_t prop);
    bool defines_gate(std::span<const Literal> clause) const;
    std::span<const Literal> operands(std::uint32_t prop) const {
        std::size_t end = prop + 1 < gate_.size() ? first_[prop + 1] : operands_.size();
        return {operands_.data() + first_[prop], end - first_[prop]};
    }

    const Problem& problem_;
    const BooleanStructure& structure_;
    const std::vector<sat::Var>& prop_var_;
    const std::vector<std::uint32_t>& prop_of_;
    const sat::Solver* solver_ = nullptr;
    int level_ = 0;
    std::vector<std::uint32_t> units_;  // propositions asserted, by their unit clauses' order
    std::vector<std::size_t> clauses_;  // longer asserted clauses, by index
    std::vector<Gate> gate_;            // by proposition
    std::vector<std::uint32_t> first_;  // by proposition: its operands in operands_
    std::vector<Literal> operands_;
    // By atom proposition, the definitions of the lifted variables its term holds (in needs_
    // from needs_first_[p]); by proposition, whether it is such a definition.
    std::vector<std::uint32_t> needs_first_, needs_;
    std::vector<char> definition_;
    std::span<const std::uint32_t> needs(std::uint32_t prop) const {
        std::size_t end = prop + 1 < needs_first_.size() ? needs_first_[prop + 1] : needs_.size();
        return {needs_.data() + needs_first_[prop], end - needs_first_[prop]};
    }
    std::vector<char> justified_;         // by proposition
    std::vector<std::uint32_t> visited_;  // by proposition: the stamp of the walk that met it
    std::uint32_t stamp_ = 0;
    std::vector<char> on_path_;  // by proposition: on the path of the walk
    std::vector<sat::Var> candidates_;
    std::vector<Memo> memo_;
};

}  // namespace vorn::smt
