#include "vorn/smt/context.h"

#include <stdexcept>
#include <vector>

namespace vorn::smt {

struct Context::State {
    Problem& problem;
    DecideOptions options;
    std::vector<std::size_t> levels;  // atom counts at each push
    DecideStats stats;
};

Context::Context(Problem& problem, DecideOptions options)
    : state_(std::make_unique<State>(State{problem, options, {}, {}})) {}

Context::~Context() = default;

void Context::push() {
    state_->levels.push_back(state_->problem.atoms.size());
}

void Context::pop(std::size_t n) {
    if (n > state_->levels.size()) throw std::logic_error("pop below level 0");
    if (n == 0) return;
    std::size_t atoms = state_->levels[state_->levels.size() - n];
    state_->levels.resize(state_->levels.size() - n);
    if (state_->problem.atoms.size() > atoms) state_->problem.atoms.resize(atoms);
}

std::size_t Context::level() const {
    return state_->levels.size();
}

Decision Context::check() {
    Decision d = decide(state_->problem, state_->options);
    state_->stats += d.stats;
    return d;
}

void Context::set_options(const DecideOptions& options) {
    state_->options = options;
}

const DecideStats& Context::stats() const {
    return state_->stats;
}

}  // namespace vorn::smt
