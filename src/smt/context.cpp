#include "vorn/smt/context.h"

#include <stdexcept>
#include <vector>

#include "decider.h"

namespace vorn::smt {

struct Context::State {
    State(Problem& p, const DecideOptions& options) : problem(p), decider(p, options) {}

    Problem& problem;
    Decider decider;
    DecideStats stats;
    std::vector<std::uint32_t> terms;  // the problem's term count at each push
};

Context::Context(Problem& problem, DecideOptions options)
    : state_(std::make_unique<State>(problem, options)) {}

Context::~Context() = default;

void Context::push() {
    state_->decider.push();
    state_->terms.push_back(state_->problem.term_count());
}

void Context::pop(std::size_t n) {
    Decider& d = state_->decider;
    if (n > d.level()) throw std::invalid_argument("pop below level 0");
    if (n == 0) return;
    std::size_t atoms = d.atoms_at(d.level() - n);
    d.pop(n);
    if (state_->problem.atoms.size() > atoms) state_->problem.atoms.resize(atoms);
    // Terms made since the push belong to popped atoms: a long push/pop loop stays in bounds.
    std::vector<std::uint32_t>& terms = state_->terms;
    state_->problem.truncate_terms(terms[terms.size() - n]);
    terms.resize(terms.size() - n);
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
