// Engine: objectives, optimized lexicographically after a Sat check.

#include <sstream>

#include "vorn/smt/certificate.h"
#include "vorn/smt/context.h"
#include "vorn/smt/engine.h"
#include "vorn/smt/optimize.h"
#include "vorn/smt/problem_text.h"

#include "fixed_conjunction.h"
#include "gomory_rounding.h"
#include "optimum_atoms.h"

namespace vorn::smt {

void Engine::add_objective(const LinearExpr& expr, bool maximize) {
    // A term ite or quotient of the objective is a variable only its definition pins down.
    encoder_.define_lifted(expr);
    Objective& o = objectives_.emplace_back(Objective{{}, maximize});
    o.expr.add(expr, QNumber(1));
}

void Engine::extend_objective(std::size_t k, const LinearExpr& expr) {
    encoder_.define_lifted(expr);
    objectives_.at(k).expr.add(expr, QNumber(1));
}

// Lexicographic: each objective optimized with the ones before it held at their optima. A
// conjunction without named assertions is optimized at once (an LP, or a MILP with Int
// variables); anything else by search (optimize_by_search). The model of the check becomes the
// optimal one, checked with its proof under verify.
void Engine::optimize(bool conjunctive) {
    objective_values_.clear();
    objectives_unknown_.clear();
    // Disequalities are disjunctions: the search fixes the side each model is on.
    bool disequalities = false;
    for (const Atom& a : problem_->atoms)
        disequalities =
            disequalities || a.relation == Relation::Ne || a.relation == Relation::Distinct;
    if (!conjunctive || !named_.empty() || disequalities) {
        optimize_by_search();
        return;
    }
    std::size_t atoms = problem_->atoms.size();
    std::uint32_t terms = problem_->term_count();
    LinearExpr fixed;
    for (const Objective& o : objectives_) {
        bool first = &o == &objectives_.front();
        std::uint32_t term = problem_->add_term(o.expr);
        Optimization answer = smt::optimize(*problem_, term, o.maximize, options_.decide);
        if (options_.verify) {
            if (std::string bad = check_optimization(*problem_, term, o.maximize, answer);
                !bad.empty())
                throw VerificationFailure(bad);
        }
        if (answer.kind == Optimization::Kind::Unbounded) {
            objective_values_.push_back({true, {}, 0, {}});
            if (first || !box()) last_.model = std::move(answer.model);
            if (box()) continue;
            break;
        }
        if (answer.approached) {
            objective_values_.push_back({false, answer.optimum, o.maximize ? -1 : 1, {}});
            if (options_.decide.certify) certify_conjunction(o, objective_values_.back());
            if (box()) continue;
            break;
        }
        if (answer.kind != Optimization::Kind::Optimal) {
            objectives_unknown_ = answer.reason_unknown;
            break;
        }
        objective_values_.push_back({false, answer.optimum, 0, {}});
        if (options_.decide.certify) {
            std::ostringstream text;
            print_certificate(text, answer.bounded, answer.proof, &dag_);
            objective_values_.back().certificate = text.str();
        }
        if (first || !box()) last_.model = std::move(answer.model);
        if (box()) continue;
        fixed.clear();
        fixed.add(o.expr, QNumber(1));
        fixed.add_entry(0, -answer.optimum);
        problem_->atoms.push_back({Relation::Eq, problem_->add_term(fixed), 1, {}});
    }
    problem_->atoms.resize(atoms);
    problem_->truncate_terms(terms);
}

std::string Engine::optimum_certificate(std::size_t k, std::span<const int> shown) const {
    const ObjectiveValue& value = objective_values_.at(k);
    const Variables& vars = problem_->variables;
    const std::vector<QNumber>& model = last_.model;
    std::string text = "(certificate\nformat optimum\noptimum " + std::to_string(k) +
                       (objectives_[k].maximize ? " max " : " min ");
    text += value.unbounded ? "unbounded" : value.optimum.to_string();
    if (value.epsilon != 0) text += " epsilon";
    text += '\n';
    for (int v : shown) {
        QNumber x = static_cast<std::size_t>(v) < model.size() ? model[v] : QNumber();
        text += "value ";
        if (vars.sort(v) == Sort::Bool)
            text += x.is_zero() ? "false" : "true";
        else
            text += x.to_string();
        text += ' ';
        append_name(text, vars, v);
        text += '\n';
    }
    // The refutation's own block, its opening line dropped: it closes this one.
    const std::string& proof = value.certificate;
    return text + (proof.empty() ? std::string(")\n") : proof.substr(proof.find('\n') + 1));
}

// Optimization modulo theories (Sebastiani–Tomasi's linear search, as in νZ): the conjunction
// that the model fixes is optimized exactly; then "objective better than that" is asserted and
// the context checks again, on a level of its own. Each round excludes the conjunction it
// optimized, so the rounds end; at Unsat the last value is the optimum.
void Engine::optimize_by_search() {
    if (!context_) {
        objectives_unknown_ = "objectives need a solver context";
        return;
    }
    const std::vector<QNumber> checked = last_.model;
    std::vector<QNumber> model = checked, first;
    context_->push();
    try {
        for (std::size_t k = 0; k < objectives_.size(); ++k) {
            if (box()) model = checked;  // each from the check's model
            bool more = search_objective(k, model, !box());
            if (k == 0) first = model;
            // An unbounded or approached optimum ends the lexicographic order, not the box.
            if (!more && !(box() && objective_values_.size() == k + 1)) break;
        }
        if (box()) model = std::move(first);
    } catch (...) {
        context_->pop(1);
        context_->set_options(options_.decide);
        throw;
    }
    context_->pop(1);
    last_.model = std::move(model);
    model_evaluated_ = false;
}

namespace {

// "objective better than `value`": beyond it, or reaching it when it is only approached.
void append_better(Problem& problem, const LinearExpr& objective, bool maximize,
                   const ObjectiveValue& value) {
    LinearExpr bound;
    bound.add(objective, QNumber(1));
    bound.add_entry(0, -value.optimum);
    Relation better = value.epsilon != 0 ? (maximize ? Relation::Ge : Relation::Le)
                                         : (maximize ? Relation::Gt : Relation::Lt);
    problem.atoms.push_back({better, problem.add_term(bound), 1, {}});
}

}  // namespace

// An approached optimum has no proof from the optimizer: the atoms with "objective reaching it"
// are decided on their own, a conjunction whose proof tree is the refutation.
void Engine::certify_conjunction(const Objective& o, ObjectiveValue& value) {
    Problem bounded(problem_->variables.syntax());
    copy_atoms(*problem_, bounded, false);
    append_better(bounded, o.expr, o.maximize, value);
    Decision refuted = smt::decide(bounded, options_.decide);
    if (refuted.result != lra::Result::Unsat) return;
    if (options_.verify) {
        if (std::string bad = check_proof(bounded, refuted.proof); !bad.empty())
            throw VerificationFailure(bad);
    }
    std::ostringstream text;
    print_certificate(text, bounded, refuted.proof, &dag_);
    value.certificate = text.str();
}

// The rounds leave each earlier, weaker bound on the objective in the problem; the certificate
// refutes the final one alone, so it is checked once more on a level of its own.
void Engine::certify_search_step(const Objective& o, ObjectiveValue& value) {
    context_->pop(1);
    context_->push();
    append_better(*problem_, o.expr, o.maximize, value);
    Decision refuted = context_->check(assumptions_);
    ++stats_->checks;
    stats_->decide += refuted.stats;
    if (refuted.result != lra::Result::Unsat) return;
    if (options_.verify) {
        std::string bad = refuted.boolean_search ? check_proof(*problem_, refuted.clause_proof)
                                                 : check_proof(*problem_, refuted.proof);
        if (!bad.empty()) throw VerificationFailure(bad);
    }
    std::ostringstream text;
    print_certificate(text, *problem_, refuted, &dag_);
    value.certificate = text.str();
}

namespace {

// The constant of a term without variables.
std::optional<QNumber> constant_term(std::span<const LinearExpr::Entry> term) {
    QNumber c;
    for (const LinearExpr::Entry& e : term) {
        if (e.var != 0) return std::nullopt;
        c += e.coeff;
    }
    return c;
}

// A bound on the objective from the atoms that must hold, the Boolean structure left out, and
// the range of each term ite between constants (a weighted choice): no model does better.
// Nothing when that relaxation is unbounded or undecided.
std::optional<QNumber> relaxation_bound(const Problem& problem, const FormulaDag& dag,
                                        const LinearExpr& objective, bool maximize,
                                        const DecideOptions& options) {
    Problem atoms(problem.variables.syntax());
    copy_atoms(problem, atoms, false);
    for (Atom& a : atoms.atoms)
        if (a.relation == Relation::Ne || a.relation == Relation::Distinct) return std::nullopt;
    LinearExpr range;
    for (const LiftedIte& l : dag.lifted()) {
        std::optional<QNumber> a = constant_term(problem.term(l.then_term));
        std::optional<QNumber> b = constant_term(problem.term(l.otherwise_term));
        if (l.kind != LiftedIte::Ite || !a || !b || l.var > problem.variables.size()) continue;
        for (bool upper : {false, true}) {
            range.clear();
            range.add_entry(l.var, QNumber(1));
            range.add_entry(0, -(upper == (*a < *b) ? *b : *a));
            atoms.atoms.push_back(
                {upper ? Relation::Le : Relation::Ge, atoms.add_term(range), 1, {}});
        }
    }
    Optimization answer = smt::optimize(atoms, atoms.add_term(objective), maximize, options);
    if (answer.kind != Optimization::Kind::Optimal && !answer.approached) return std::nullopt;
    return answer.optimum;
}

// Whether every arithmetic variable is a term ite between constants (a weighted choice): weighted
// MaxSAT, the soft assertions' weights under Boolean clauses.
bool choices_only(const Problem& problem, const FormulaDag& dag) {
    std::vector<char> choice(static_cast<std::size_t>(problem.variables.size()) + 1, 0);
    for (const LiftedIte& l : dag.lifted())
        if (l.kind == LiftedIte::Ite && l.var <= problem.variables.size() &&
            constant_term(problem.term(l.then_term)) &&
            constant_term(problem.term(l.otherwise_term)))
            choice[static_cast<std::size_t>(l.var)] = 1;
    for (int v = 1; v <= problem.variables.size(); ++v)
        if (problem.variables.sort(v) != Sort::Bool && choice[static_cast<std::size_t>(v)] == 0)
            return false;
    return true;
}

// Whether the objective takes integer values only: Int variables, integer coefficients.
bool integral_values(const Problem& problem, const LinearExpr& objective) {
    for (const LinearExpr::Entry& e : objective.entries())
        if (!e.coeff.is_integer() || (e.var != 0 && problem.variables.sort(e.var) != Sort::Int))
            return false;
    return true;
}

// Where to probe between the bound `lower` and the best value so far: halfway, or after a probe
// failed three quarters of the way to the best value (a probe that fails near the optimum costs
// as much as the final refutation; one that succeeds, about a linear step); on an integer below
// it for an integral objective (above it when maximizing); nothing when that probe would ask no
// more than the next linear step does.
std::optional<QNumber> probe_point(const QNumber& lower, const QNumber& best, bool maximize,
                                   bool integral, bool failed_before) {
    QNumber half =
        failed_before ? lower + (best - lower) * QNumber(3, 4) : (lower + best) / QNumber(2);
    if (!integral) return lower == best ? std::nullopt : std::optional<QNumber>(half);
    QNumber step(maximize ? -1 : 1);
    half = maximize ? -floor_q(-half) : floor_q(half);
    QNumber last = best - step;  // the linear step's "objective at most best − 1"
    if (half == last || (maximize ? half < last : half > last)) return std::nullopt;
    return half;
}

}  // namespace

bool Engine::search_objective(std::size_t k, std::vector<QNumber>& model, bool hold) {
    const Objective& o = objectives_[k];
    context_->push();
    std::optional<ObjectiveValue> best;
    LinearExpr bound;
    // Binary steps between the relaxation's bound and the best value while they pay: a probe
    // "objective at most halfway" on a level of its own; unsat raises the bound. Linear steps
    // after the second probe that fails, which also end the search on the rationals: a failed
    // probe says the optimum is near, and each probe below it costs a refutation about as hard
    // as the last step's (js10x10 s3: six failed probes 7.6 s, one 4.5 s; two, the second
    // nearer the best value, 0.75 s against 1.7 s; docs/performance.md).
    std::optional<QNumber> lower =
        relaxation_bound(*problem_, dag_, o.expr, o.maximize, options_.decide);
    bool integral = integral_values(*problem_, o.expr);
    if (lower && integral) lower = o.maximize ? floor_q(*lower) : -floor_q(-*lower);
    int failed_probes = 0;
    constexpr int kMaxFailedProbes = 2;
    // Weighted MaxSAT: linear steps from the start, each check starting from the best model's
    // phases after every restart. Probes refute bounds far below the optimum there (the
    // relaxation's bound is no soft assertion violated), each as hard as the final step, and
    // cost a third more conflicts in all (docs/performance.md).
    bool choices = choices_only(*problem_, dag_);
    if (choices) {
        DecideOptions near_best = options_.decide;
        near_best.model_phase = true;
        context_->set_options(near_best);
    }
    while (true) {
        Problem conjunction(problem_->variables.syntax());
        fixed_conjunction(*problem_, model, conjunction);
        std::uint32_t term = conjunction.add_term(o.expr);
        Optimization answer = smt::optimize(conjunction, term, o.maximize, options_.decide);
        stats_->decide += answer.stats;
        if (options_.verify) {
            if (std::string bad = check_optimization(conjunction, term, o.maximize, answer);
                !bad.empty())
                throw VerificationFailure(bad);
        }
        // The conjunction's model over the arithmetic variables, the Bool ones as they were.
        auto take_model = [&] {
            for (int v = 1; v <= problem_->variables.size(); ++v)
                if (problem_->variables.sort(v) != Sort::Bool)
                    model[static_cast<std::size_t>(v)] = answer.model[static_cast<std::size_t>(v)];
        };
        if (answer.kind == Optimization::Kind::Unbounded) {
            best = ObjectiveValue{true, {}, 0, {}};
            take_model();
            break;
        }
        if (answer.kind != Optimization::Kind::Optimal && !answer.approached) {
            objectives_unknown_ = answer.reason_unknown;
            best.reset();
            break;
        }
        best = ObjectiveValue{
            false, answer.optimum, answer.approached ? (o.maximize ? -1 : 1) : 0, {}};
        if (!answer.approached) take_model();
        // Better: beyond the optimum, or reaching it where this conjunction only approaches it.
        bound.clear();
        bound.add(o.expr, QNumber(1));
        bound.add_entry(0, -answer.optimum);
        Relation better = answer.approached ? (o.maximize ? Relation::Ge : Relation::Le)
                                            : (o.maximize ? Relation::Gt : Relation::Lt);
        problem_->atoms.push_back({better, problem_->add_term(bound), 1, {}});
        Decision next;
        while (true) {
            std::optional<QNumber> half;
            if (lower && failed_probes < kMaxFailedProbes && !answer.approached && !choices)
                half = probe_point(*lower, answer.optimum, o.maximize, integral, failed_probes > 0);
            bool probe = half.has_value();
            if (probe) {
                context_->push();
                bound.clear();
                bound.add(o.expr, QNumber(1));
                bound.add_entry(0, -*half);
                problem_->atoms.push_back(
                    {o.maximize ? Relation::Ge : Relation::Le, problem_->add_term(bound), 1, {}});
            }
            next = context_->check(assumptions_);
            ++stats_->checks;
            stats_->decide += next.stats;
            if (probe) context_->pop(1);
            if (!probe || next.result != lra::Result::Unsat) break;
            // Nothing reaches halfway: the optimum lies beyond it (on an integral objective, the
            // next integer beyond it).
            lower = integral ? *half + QNumber(o.maximize ? -1 : 1) : *half;
            // Learned for the search's level: the bound propagates in every check after this.
            bound.clear();
            bound.add(o.expr, QNumber(1));
            bound.add_entry(0, -*lower);
            Relation beyond = integral ? (o.maximize ? Relation::Le : Relation::Ge)
                                       : (o.maximize ? Relation::Lt : Relation::Gt);
            problem_->atoms.push_back({beyond, problem_->add_term(bound), 1, {}});
            ++failed_probes;
        }
        if (next.result == lra::Result::Unsat) {
            if (options_.decide.certify) certify_search_step(o, *best);
            break;
        }
        if (next.result != lra::Result::Sat) {
            objectives_unknown_ = next.reason_unknown;
            best.reset();
            break;
        }
        model = std::move(next.model);
    }
    context_->pop(1);
    if (choices) context_->set_options(options_.decide);
    if (!best) return false;
    objective_values_.push_back(*best);
    if (best->unbounded || best->epsilon != 0) return false;
    if (!hold) return true;
    // The next objectives keep this one at its optimum.
    bound.clear();
    bound.add(o.expr, QNumber(1));
    bound.add_entry(0, -best->optimum);
    problem_->atoms.push_back({Relation::Eq, problem_->add_term(bound), 1, {}});
    return true;
}

}  // namespace vorn::smt
