// Engine: objectives, optimized lexicographically after a Sat check.

#include "vorn/smt/engine.h"
#include "vorn/smt/optimize.h"

namespace vorn::smt {

void Engine::add_objective(const LinearExpr& expr, bool maximize) {
    Objective& o = objectives_.emplace_back(Objective{{}, maximize});
    o.expr.add(expr, QNumber(1));
}

// Lexicographic: each objective optimized with the ones before it held at their optima. A
// conjunction of atoms over Real variables only; the model of the check becomes the optimal
// one, checked with its proof under verify.
void Engine::optimize(bool conjunctive) {
    objective_values_.clear();
    objectives_unknown_.clear();
    bool integral = false;
    for (int v = 1; v <= problem_->variables.size(); ++v)
        integral = integral || problem_->variables.sort(v) == Sort::Int;
    if (!conjunctive || !named_.empty() || integral) {
        objectives_unknown_ =
            "objectives are optimized over conjunctions of atoms on Real variables only";
        return;
    }
    std::size_t atoms = problem_->atoms.size();
    std::uint32_t terms = problem_->term_count();
    LinearExpr fixed;
    for (const Objective& o : objectives_) {
        std::uint32_t term = problem_->add_term(o.expr);
        Optimization answer = smt::optimize(*problem_, term, o.maximize, options_.decide);
        if (options_.verify) {
            if (std::string bad = check_optimization(*problem_, term, o.maximize, answer);
                !bad.empty())
                throw VerificationFailure(bad);
        }
        if (answer.kind == Optimization::Kind::Unbounded) {
            objective_values_.push_back({true, {}});
            last_.model = std::move(answer.model);
            break;
        }
        if (answer.kind != Optimization::Kind::Optimal) {
            objectives_unknown_ = answer.reason_unknown;
            break;
        }
        objective_values_.push_back({false, answer.optimum});
        last_.model = std::move(answer.model);
        fixed.clear();
        fixed.add(o.expr, QNumber(1));
        fixed.add_entry(0, -answer.optimum);
        problem_->atoms.push_back({Relation::Eq, problem_->add_term(fixed), 1, {}});
    }
    problem_->atoms.resize(atoms);
    problem_->truncate_terms(terms);
}

}  // namespace vorn::smt
