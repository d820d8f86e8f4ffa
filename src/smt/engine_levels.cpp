// Engine: construction, limits and the assertion levels.

#include <algorithm>
#include <stdexcept>
#include <string>

#include "vorn/smt/engine.h"

namespace vorn::smt {

Engine::Engine(const EngineOptions& options, CheckStats* stats)
    : options_(options),
      stats_(stats != nullptr ? stats : &own_stats_),
      problem_(std::make_unique<Problem>(NameSyntax::SmtLib)),
      encoder_(*problem_, dag_, options.lenient) {
    if (options_.lenient) context_ = std::make_unique<Context>(*problem_, options_.decide);
}

Engine::~Engine() = default;

void Engine::set_limits(const DecideOptions& decide) {
    options_.decide = decide;
    if (context_) context_->set_options(decide);
}

Problem Engine::take_problem() {
    context_.reset();
    return std::move(*problem_);
}

void Engine::push(std::size_t levels) {
    for (std::size_t i = 0; i < levels; ++i) {
        // Out of memory, the levels stay as they were.
        levels_.reserve(levels_.size() + 1);
        context_->push();
        levels_.push_back(current_level());
    }
}

void Engine::pop(std::size_t levels) {
    if (levels > levels_.size())
        throw std::invalid_argument("cannot pop " + std::to_string(levels) +
                                    " levels: " + std::to_string(levels_.size()) + " pushed");
    if (levels == 0) return;
    Level level = levels_[levels_.size() - levels];
    levels_.resize(levels_.size() - levels);
    context_->pop(levels);
    truncate(level);
}

void Engine::truncate(const Level& level) {
    problem_->atoms.resize(level.atoms);
    named_.resize(std::min(named_.size(), level.named));
    objectives_.resize(std::min(objectives_.size(), level.objectives));
    drop_formulas(level.dag);
    encoder_.truncate(level.encoded);
    // Proofs name the atoms of popped levels, and so the variables of their terms.
    if (options_.keep_popped_variables) return;
    if (context_ && !options_.decide.certify) {
        context_->truncate_variables(level.variables);
        return;
    }
    // Kept for the proofs, they mean nothing more: models give them 0 (an Int one may hold any
    // value).
    popped_.resize(static_cast<std::size_t>(problem_->variables.size()) + 1, 0);
    for (int v = level.variables + 1; v <= problem_->variables.size(); ++v)
        popped_[static_cast<std::size_t>(v)] = 1;
}

void Engine::drop_formulas(const FormulaDag::Marks& marks) {
    dag_.truncate(marks);
    encoder_.forget_nodes();
    model_evaluated_ = false;
}

// Level 0's declarations and formulas stay; its assertions go too, and a context never forgets
// those: a new one starts empty.
void Engine::reset_assertions() {
    if (!levels_.empty()) {
        Level first = levels_[0];
        levels_.clear();
        context_->pop(context_->level());
        truncate(first);
    }
    problem_->atoms.clear();
    problem_->boolean.truncate(0, 0);
    named_.clear();
    objectives_.clear();
    encoder_.clear();
    context_ = std::make_unique<Context>(*problem_, options_.decide);
    context_boolean_ = false;
}

}  // namespace vorn::smt
