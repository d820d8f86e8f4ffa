#include "vorn/smt/context.h"

#include <stdexcept>

#include "decider.h"

namespace vorn::smt {

struct Context::State {
    State(Problem& p, const DecideOptions& options) : problem(p), decider(p, options) {}

    Problem& problem;
    Decider decider;
    DecideStats stats;
};

Context::Context(Problem& problem, DecideOptions options)
    : state_(std::make_unique<State>(problem, options)) {}

Context::~Context() = default;

void Context::push() {
    state_->decider.push();
}

void Context::pop(std::size_t n) {
    Decider& d = state_->decider;
    if (n > d.level()) throw std::invalid_argument("pop below level 0");
    if (n == 0) return;
    std::size_t atoms = d.atoms_at(d.level() - n);
    d.pop(n);
    if (state_->problem.atoms.size() > atoms) state_->problem.atoms.resize(atoms);
}

std::size_t Context::level() const {
    return state_->decider.level();
}

Decision Context::check() {
    Decision d = state_->decider.check();
    state_->stats += d.stats;
    return d;
}

void Context::set_options(const DecideOptions& options) {
    state_->decider.set_options(options);
}

const DecideStats& Context::stats() const {
    return state_->stats;
}

}  // namespace vorn::smt
