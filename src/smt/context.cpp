#include "vorn/smt/context.h"

#include <stdexcept>
#include <vector>

#include "boolean_decider.h"
#include "decider.h"

namespace vorn::smt {

// Conjunctions go to the Decider. The first check that meets Boolean structure moves the
// context to a BooleanDecider for good: it is built by replaying the levels, and the Decider
// is dropped.
struct Context::State {
    State(Problem& p, const DecideOptions& o)
        : problem(p), options(o), decider(std::make_unique<Decider>(p, o)) {}

    struct Level {
        std::size_t atoms, clauses;
        std::uint32_t props, terms;
    };

    void to_boolean() {
        boolean = std::make_unique<BooleanDecider>(problem, options);
        for (const Level& l : levels)
            boolean->push(l.atoms, l.props, l.clauses);
        decider.reset();
    }

    Problem& problem;
    DecideOptions options;
    std::unique_ptr<Decider> decider;
    std::unique_ptr<BooleanDecider> boolean;
    DecideStats stats;
    std::vector<Level> levels;
};

Context::Context(Problem& problem, DecideOptions options)
    : state_(std::make_unique<State>(problem, options)) {}

Context::~Context() = default;

void Context::push() {
    State& s = *state_;
    s.levels.push_back({s.problem.atoms.size(), s.problem.boolean.clauses(),
                        s.problem.boolean.propositions(), s.problem.term_count()});
    if (s.boolean)
        s.boolean->push();
    else
        s.decider->push();
}

void Context::pop(std::size_t n) {
    State& s = *state_;
    if (n > s.levels.size()) throw std::invalid_argument("pop below level 0");
    if (n == 0) return;
    if (s.boolean)
        s.boolean->pop(n);
    else
        s.decider->pop(n);
    State::Level l = s.levels[s.levels.size() - n];
    s.levels.resize(s.levels.size() - n);
    if (s.problem.atoms.size() > l.atoms) s.problem.atoms.resize(l.atoms);
    s.problem.boolean.truncate(l.props, l.clauses);
    // Terms made since the push belong to popped atoms: a long push/pop loop stays in bounds.
    s.problem.truncate_terms(l.terms);
}

std::size_t Context::level() const {
    return state_->levels.size();
}

Decision Context::check() {
    return check({});
}

Decision Context::check(std::span<const Literal> assumptions) {
    State& s = *state_;
    if (!s.boolean && (!s.problem.boolean.empty() || !assumptions.empty())) s.to_boolean();
    Decision d = s.boolean ? s.boolean->check(assumptions) : s.decider->check();
    s.stats += d.stats;
    return d;
}

std::vector<Literal> Context::failed_assumptions() const {
    return state_->boolean ? state_->boolean->failed() : std::vector<Literal>{};
}

void Context::set_options(const DecideOptions& options) {
    State& s = *state_;
    s.options = options;
    if (s.boolean)
        s.boolean->set_options(options);
    else
        s.decider->set_options(options);
}

const DecideStats& Context::stats() const {
    return state_->stats;
}

}  // namespace vorn::smt
