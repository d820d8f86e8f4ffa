#include "vorn/smt/context.h"

#include <algorithm>
#include <new>
#include <optional>
#include <stdexcept>
#include <vector>

#include "boolean_decider.h"
#include "decider.h"
#include "difference_theory.h"
#include "hall_interval.h"
#include "integer_system.h"

namespace vorn::smt {

// Conjunctions go to the Decider. The first check that meets Boolean structure, or that the
// Decider cannot settle, moves the context to a BooleanDecider for good: it is built by
// replaying the levels, and the Decider is dropped.
struct Context::State {
    State(Problem& p, const DecideOptions& o) : problem(p), options(with_stop(o)) {
        decider = std::make_unique<Decider>(p, options);
        decider->hand_off_term_splits();
    }

    DecideOptions with_stop(DecideOptions o) {
        if (o.stop == nullptr) o.stop = &own_stop;
        return o;
    }

    struct Level {
        std::size_t atoms, clauses;
        std::uint32_t props, terms;
    };

    void to_boolean(bool difference) {
        decider.reset();
        boolean.reset();
        boolean = std::make_unique<BooleanDecider>(problem, options, difference);
        uses_difference = difference;
        for (const Level& l : levels)
            boolean->push(l.atoms, l.props, l.clauses);
    }

    // After a check ran out of memory its engine is dropped; the next check builds the same
    // kind again from the problem, replaying the levels.
    void rebuild() {
        if (!lost_boolean) {
            decider = std::make_unique<Decider>(problem, options);
            decider->hand_off_term_splits();
            for (const Level& l : levels)
                decider->push(l.atoms);
        } else {
            to_boolean(uses_difference);
        }
    }

    Decision check(std::span<const Literal> assumptions);

    template <class F>
    void guarded(F&& f) {
        try {
            f();
        } catch (const std::bad_alloc&) {
            drop();
        }
    }
    void drop() noexcept {
        lost_boolean = boolean != nullptr;
        decider.reset();
        boolean.reset();
    }

    // Whether the terms met since the last call are all differences over variables of one
    // sort, as every earlier one was.
    bool still_difference() {
        auto fits = [&](std::span<const LinearExpr::Entry> term) {
            for (const auto& e : term) {
                if (e.var == 0) continue;
                Sort s = problem.variables.sort(e.var);
                if (!sort) sort = s;
                if (*sort != s) return false;
            }
            return DifferenceTheory::is_difference(term);
        };
        for (; seen_atoms < problem.atoms.size(); ++seen_atoms) {
            const Atom& a = problem.atoms[seen_atoms];
            for (std::uint32_t t = 0; t < a.terms; ++t)
                for (std::uint32_t u = t + 1; u < a.terms; ++u) {
                    LinearExpr::Entries diff;
                    (void)problem.disequality(a, t, u, diff);
                    if (!fits(diff)) return false;
                }
            if (a.relation != Relation::Distinct && !fits(problem.term(a.first_term))) return false;
        }
        const BooleanStructure& b = problem.boolean;
        for (; seen_props < b.propositions(); ++seen_props) {
            const Proposition& p = b.proposition(seen_props);
            if (p.kind == Proposition::Kind::Atom && !fits(problem.term(p.term))) return false;
        }
        return true;
    }

    util::Stop own_stop;  // before options, which may point to it
    Problem& problem;
    DecideOptions options;
    std::unique_ptr<Decider> decider;
    std::unique_ptr<BooleanDecider> boolean;
    DecideStats stats;
    std::vector<Level> levels;
    bool difference = true;  // every term so far a difference, over one sort
    bool uses_difference = false;
    bool lost_boolean = false;      // the dropped engine was a BooleanDecider
    bool lattice_answered = false;  // the last check: refuted by the integer equalities
    // The atom count the integer equalities were last solved at without a refutation.
    std::size_t lattice_checked = static_cast<std::size_t>(-1);
    std::optional<Sort> sort;
    std::size_t seen_atoms = 0;
    std::uint32_t seen_props = 0;
};

Context::Context(Problem& problem, DecideOptions options)
    : state_(std::make_unique<State>(problem, options)) {}

Context::~Context() = default;

// Levels stay right when memory runs out: an engine whose push or pop fails is dropped, and the
// next check builds it again from the levels.
void Context::push() {
    State& s = *state_;
    s.levels.reserve(s.levels.size() + 1);
    s.guarded([&] {
        if (s.boolean)
            s.boolean->push();
        else if (s.decider)
            s.decider->push();
    });
    s.levels.push_back({s.problem.atoms.size(), s.problem.boolean.clauses(),
                        s.problem.boolean.propositions(), s.problem.term_count()});
}

void Context::pop(std::size_t n) {
    State& s = *state_;
    if (n > s.levels.size()) throw std::invalid_argument("pop below level 0");
    if (n == 0) return;
    s.guarded([&] {
        if (s.boolean)
            s.boolean->pop(n);
        else if (s.decider)
            s.decider->pop(n);
    });
    State::Level l = s.levels[s.levels.size() - n];
    s.levels.resize(s.levels.size() - n);
    if (s.problem.atoms.size() > l.atoms) s.problem.atoms.resize(l.atoms);
    s.problem.boolean.truncate(l.props, l.clauses);
    s.seen_atoms = std::min(s.seen_atoms, l.atoms);
    s.lattice_checked = static_cast<std::size_t>(-1);
    s.seen_props = std::min(s.seen_props, l.props);
    // Terms made since the push belong to popped atoms: a long push/pop loop stays in bounds.
    s.problem.truncate_terms(l.terms);
}

void Context::truncate_variables(int n) {
    State& s = *state_;
    if (s.problem.variables.size() <= n) return;
    // The engines read the sorts of the variables they forget.
    if (s.boolean) s.boolean->truncate_variables(n);
    if (s.decider) s.decider->truncate_variables(n);
    s.problem.variables.truncate(n);
}

std::size_t Context::level() const {
    return state_->levels.size();
}

Decision Context::check() {
    return check({});
}

Decision Context::check(std::span<const Literal> assumptions) {
    State& s = *state_;
    util::Stop& stop = *s.options.stop;
    return util::run_checked(
        stop, s.options.time_limit,
        [&] {
            // An interrupt that came before the check, or during the last one after it had its
            // answer, is for this one.
            if (!stop.requested()) return s.check(assumptions);
            Decision d;
            d.reason_unknown = util::to_string(stop.reason());
            return d;
        },
        [&] {
            // What the check built goes with its engine; the problem itself is as it was.
            s.drop();
            Decision d;
            d.reason_unknown = util::to_string(util::StopReason::Memout);
            return d;
        },
        [](const Decision& d) { return d.result == lra::Result::Unknown; });
}

Decision Context::State::check(std::span<const Literal> assumptions) {
    if (!decider && !boolean) rebuild();
    // Difference constraints get their own theory; the first other term moves the problem to
    // the simplex for good.
    if (difference) difference = still_difference();
    bool clause_proof = options.certify && options.clause_proof;
    bool has_structure = !problem.boolean.empty() || !assumptions.empty() || clause_proof;
    // A conjunction whose distinct an overfull interval refutes: the Boolean search answers it
    // by one pigeonhole lemma (BooleanDecider::add_hall_lemmas), the disequality splits never.
    if ((!boolean && (has_structure || hall_refutes(problem))) ||
        (boolean && uses_difference && !difference))
        to_boolean(difference);
    lattice_answered = false;
    if (boolean && !clause_proof && problem.atoms.size() != lattice_checked) {
        // The asserted atoms hold in every model, Boolean structure or not: equalities among
        // them off their integer lattice refute the problem before any search (in a proof
        // tree). Once per new atom list (a pop or new atoms change its size).
        lattice_checked = problem.atoms.size();
        IntegerSystem sys = solve_integer_equalities(problem, problem.atoms.size(), false);
        if (sys.refuted()) {
            lattice_answered = true;
            lattice_checked = static_cast<std::size_t>(-1);  // refuted again next time
            Decision d;
            d.result = lra::Result::Unsat;
            d.proof.push_back(sys.lattice_leaf());
            return d;
        }
    }
    Decision d = boolean ? boolean->check(assumptions) : decider->check();
    stats += d.stats;
    // Branch and bound on its own gives up on unbounded integer problems; the SAT search over
    // branch atoms, which tries the nearer integer first and rotates the variables, often does
    // not. A stopped check stays stopped.
    if (d.result == lra::Result::Unknown && !boolean &&
        options.stop->reason() == util::StopReason::None) {
        to_boolean(difference);
        d = boolean->check(assumptions);
        stats += d.stats;
    }
    return d;
}

std::vector<Literal> Context::failed_assumptions() const {
    const State& s = *state_;
    return s.boolean && !s.lattice_answered ? s.boolean->failed() : std::vector<Literal>{};
}

void Context::set_options(const DecideOptions& options) {
    State& s = *state_;
    DecideOptions o = s.with_stop(options);
    bool certify_changed = o.certify != s.options.certify;
    s.options = o;
    if (s.decider) return s.decider->set_options(o);
    if (!s.boolean) return;
    // Proofs are recorded from the first clause on or not at all.
    if (certify_changed)
        s.to_boolean(s.uses_difference);
    else
        s.boolean->set_options(o);
}

SearchSize Context::search_size() const {
    return state_->boolean ? state_->boolean->search_size() : SearchSize{};
}

const DecideStats& Context::stats() const {
    return state_->stats;
}

}  // namespace vorn::smt
