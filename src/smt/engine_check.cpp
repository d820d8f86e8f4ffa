// Engine: checks under assumptions, the unsat core, and the verification of answers.

#include <algorithm>

#include "vorn/smt/certificate.h"
#include "vorn/smt/engine.h"
#include "vorn/smt/model_check.h"
#include "vorn/smt/stopwatch.h"

namespace vorn::smt {

// While the problem is a conjunction and so are the named and assumed formulas, they are
// asserted on a level of their own and the conjunctive decider answers, its proof naming the
// atoms of the core; otherwise they are encoded and assumed.
const Decision& Engine::check(std::span<const FormulaRef> assumed, const AnswerHook& answered) {
    bool boolean =
        !problem_->boolean.empty() || (context_boolean_ && !options_.fresh_solver_per_check);
    for (const Named& n : named_)
        boolean = boolean || !encoder_.conjunctive(n.formula);
    for (FormulaRef f : assumed)
        boolean = boolean || !encoder_.conjunctive(f);
    reached_.clear();
    literal_source_.clear();
    assumptions_.clear();
    atom_source_.clear();
    named_in_check_ = named_.size();
    if (boolean) {
        for (std::size_t i = 0; i < named_.size() + assumed.size(); ++i) {
            FormulaRef f = i < named_.size() ? named_[i].formula : assumed[i - named_.size()];
            assumptions_.push_back(encoder_.literal(f, reached_));
            literal_source_.push_back({assumptions_.back(), static_cast<std::int32_t>(i)});
        }
        decide(assumptions_, assumed, answered);
    } else if (named_.empty() && assumed.empty()) {
        decide({}, assumed, answered);
    } else {
        check_conjunction(assumed, answered);
    }
    return last_;
}

void Engine::check_conjunction(std::span<const FormulaRef> assumed, const AnswerHook& answered) {
    Level saved = current_level();
    context_->push();
    try {
        atom_source_.assign(problem_->atoms.size(), -1);
        for (std::size_t i = 0; i < named_.size() + assumed.size(); ++i) {
            encoder_.commit_atoms(i < named_.size() ? named_[i].formula
                                                    : assumed[i - named_.size()]);
            atom_source_.resize(problem_->atoms.size(), static_cast<std::int32_t>(i));
        }
        decide({}, assumed, answered);
    } catch (...) {
        context_->pop(1);
        truncate(saved);
        throw;
    }
    context_->pop(1);
    truncate(saved);
}

void Engine::decide(std::span<const Literal> assumptions, std::span<const FormulaRef> assumed,
                    const AnswerHook& answered) {
    bool clause_proof =
        options_.decide.certify && std::ranges::any_of(dag_.lifted(), [](const LiftedIte& l) {
            return l.kind == LiftedIte::Ite;
        });
    if (clause_proof != options_.decide.clause_proof) {
        options_.decide.clause_proof = clause_proof;
        if (context_) context_->set_options(options_.decide);
    }
    bool boolean = !problem_->boolean.empty() || !assumptions.empty() || clause_proof ||
                   (context_boolean_ && !options_.fresh_solver_per_check);
    context_boolean_ = context_boolean_ || (boolean && !options_.fresh_solver_per_check);
    auto start = Clock::now();
    std::vector<Literal> failed;
    model_evaluated_ = false;
    if (options_.fresh_solver_per_check && boolean) {
        Context fresh(*problem_, options_.decide);
        last_ = fresh.check(assumptions);
        failed = fresh.failed_assumptions();
    } else if (options_.fresh_solver_per_check) {
        last_ = smt::decide(*problem_, options_.decide);
    } else {
        last_ = context_->check(assumptions);
        if (last_.result == lra::Result::Unsat) failed = context_->failed_assumptions();
        // A conjunction that branch and bound gave up on moves the context to the Boolean search
        // for good.
        context_boolean_ = context_boolean_ || last_.boolean_search;
    }
    for (std::size_t v = 0; v < popped_.size() && v < last_.model.size(); ++v)
        if (popped_[v] != 0) last_.model[v] = QNumber();
    stats_->solve_seconds += ms_since(start) / 1000;
    ++stats_->checks;
    stats_->decide += last_.stats;
    const auto& asserted = encoder_.unsupported_asserted();
    outside_.reset();
    if (last_.result == lra::Result::Sat && (!asserted.empty() || !reached_.empty())) {
        // A model of the rest says nothing about it.
        outside_ = !asserted.empty() ? asserted[0] : reached_[0];
        last_.result = lra::Result::Unknown;
        last_.reason_unknown = outside_->what + " is outside the linear fragment";
    }
    // Optima belong to the check that found them: a later one without objectives has none.
    objective_values_.clear();
    objectives_unknown_.clear();
    if (last_.result == lra::Result::Sat && !objectives_.empty())
        optimize(!boolean && assumptions.empty());
    if (options_.verify) verify(assumed);
    collect_core(failed);
    if (answered) answered(last_);
}

// The sources of the failed assumptions; or, for a conjunction, of the atoms its proof uses.
void Engine::collect_core(const std::vector<Literal>& failed_assumptions) {
    core_.clear();
    assumed_core_.clear();
    if (last_.result == lra::Result::Unsat && last_.boolean_search) {
        std::vector<Literal> failed = failed_assumptions;
        std::sort(failed.begin(), failed.end());
        for (const auto& [lit, source] : literal_source_)
            if (std::binary_search(failed.begin(), failed.end(), lit)) add_source(source);
        // Atoms asserted on a level of their own, no assumptions: all of them.
        for (std::int32_t source : atom_source_)
            if (source >= 0) add_source(source);
    } else if (last_.result == lra::Result::Unsat) {
        auto use = [&](std::size_t atom) {
            if (atom < atom_source_.size() && atom_source_[atom] >= 0)
                add_source(atom_source_[atom]);
        };
        for (const ProofStep& step : last_.proof) {
            for (const FarkasEntry& e : step.farkas)
                if (!e.from_split) use(e.index);
            if (step.kind == ProofStep::Kind::SplitNe || step.kind == ProofStep::Kind::Gcd)
                use(step.atom);
        }
    }
    std::sort(core_.begin(), core_.end());
    core_.erase(std::unique(core_.begin(), core_.end()), core_.end());
    std::sort(assumed_core_.begin(), assumed_core_.end());
    assumed_core_.erase(std::unique(assumed_core_.begin(), assumed_core_.end()),
                        assumed_core_.end());
}

void Engine::add_source(std::int32_t source) {
    auto s = static_cast<std::size_t>(source);
    if (s < named_in_check_)
        core_.push_back(named_[s].name);
    else
        assumed_core_.push_back(static_cast<std::uint32_t>(s - named_in_check_));
}

// A model must satisfy every atom, and every formula that was encoded or assumed, with each ite
// term at the value of its ite: checked against the formulas as read, not their encoding.
void Engine::verify(std::span<const FormulaRef> assumed) {
    std::string problem;
    if (last_.result == lra::Result::Sat) {
        const std::vector<QNumber>& model = model_values();
        problem = check_model(*problem_, model);
        auto check = [&](FormulaRef f) {
            if (problem.empty() && holds(f) != 1) {
                SourcePos pos = dag_[f].pos;
                problem = "the model violates the formula at " + std::to_string(pos.line) + ":" +
                          std::to_string(pos.col);
            }
        };
        for (FormulaRef f : encoder_.encoded_roots())
            check(f);
        for (const Named& n : named_)
            check(n.formula);
        for (FormulaRef f : assumed)
            check(f);
        // The model is the certificates' witness: it attains every optimum that is attained.
        std::size_t attained =
            box() ? std::min<std::size_t>(1, objective_values_.size()) : objective_values_.size();
        for (std::size_t k = 0; k < attained && problem.empty(); ++k) {
            const ObjectiveValue& v = objective_values_[k];
            if (!v.unbounded && v.epsilon == 0 && value(objectives_[k].expr) != v.optimum)
                problem = "the model misses the optimum of objective " + std::to_string(k);
        }
    } else if (last_.result == lra::Result::Unsat) {
        problem = last_.boolean_search ? check_proof(*problem_, last_.clause_proof)
                                       : check_proof(*problem_, last_.proof);
    }
    if (!problem.empty()) throw VerificationFailure(problem);
}

}  // namespace vorn::smt
