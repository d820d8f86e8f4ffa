#include "vorn/smt/optimize.h"

#include <new>
#include <optional>

#include "vorn/lra/simplex.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/milp.h"
#include "vorn/smt/model_check.h"
#include "vorn/smt/problem_text.h"

#include "decider.h"
#include "float_start.h"
#include "optimum_atoms.h"
#include "simplex_vars.h"

namespace vorn::smt {

namespace {

using Entry = LinearExpr::Entry;

QNumber evaluate(std::span<const Entry> term, const std::vector<QNumber>& point, bool constant) {
    QNumber sum;
    for (const Entry& e : term)
        if (e.var == 0) {
            if (constant) sum += e.coeff;
        } else {
            sum.add_product(e.coeff, point[static_cast<std::size_t>(e.var)]);
        }
    return sum;
}

}  // namespace

void copy_atoms(const Problem& from, Problem& to, bool relax_to_real) {
    // The names as read: the printers quote them where SMT-LIB needs it.
    for (int v = 1; v <= from.variables.size(); ++v)
        to.variables.add(from.variables.name(v),
                         relax_to_real ? Sort::Real : from.variables.sort(v), {});
    // Every term at its index: the lifted quotients and ites of the formula DAG name `from`'s
    // terms by index, and a certificate prints them from `to`.
    LinearExpr e;
    for (std::uint32_t t = 0; t < from.term_count(); ++t) {
        e.clear();
        for (const Entry& x : from.term(t))
            e.add_entry(x.var, x.coeff);
        to.add_term(e);
    }
    to.atoms.insert(to.atoms.end(), from.atoms.begin(), from.atoms.end());
}

std::size_t append_better_atom(const Problem& p, std::uint32_t objective, bool maximize,
                               const QNumber& optimum, Problem& to) {
    LinearExpr e;
    for (const Entry& x : p.term(objective))
        e.add_entry(x.var, x.coeff);
    e.add_entry(0, -optimum);
    Relation better = maximize ? Relation::Gt : Relation::Lt;
    to.atoms.push_back({better, to.add_term(e), 1, {}});
    return to.atoms.size() - 1;
}

namespace {

class Optimizer {
  public:
    Optimizer(const Problem& p, std::uint32_t objective, bool maximize, const DecideOptions& o)
        : p_(p), objective_(objective), maximize_(maximize), options_(o) {}

    Optimization run();

  private:
    int simplex_var(int v) {
        return map_simplex_var(simplex_, v, false, var_of_, nullptr, nullptr, [](int) {});
    }
    lra::TermVar term_var(std::span<const Entry> term) {
        lra::TermEntries entries;
        for (const Entry& e : term)
            if (e.var != 0) entries.push_back({simplex_var(e.var), e.coeff});
        return simplex_.term_variable(entries);
    }
    void read_model(Optimization& out);
    // The atom "objective < optimum" (">" when maximizing) appended to out.bounded: its index.
    std::size_t append_better_atom(Optimization& out) const {
        return smt::append_better_atom(p_, objective_, maximize_, out.optimum, out.bounded);
    }
    bool stopped() const {
        return options_.stop != nullptr && options_.stop->reason() != util::StopReason::None;
    }
    // The optimum straight from a floating-point basis that checks exactly; false otherwise.
    bool from_float_basis(Optimization& out);

    const Problem& p_;
    std::optional<LpForm> lp_;
    std::optional<Basis> basis_;  // from floating point, not exactly optimal as it stood
    std::uint32_t objective_;
    bool maximize_;
    DecideOptions options_;
    lra::Simplex simplex_{lra::SimplexOptions{16, 0, false, nullptr}};
    std::vector<int> var_of_;
};

void Optimizer::read_model(Optimization& out) {
    out.model.assign(static_cast<std::size_t>(p_.variables.size()) + 1, QNumber());
    for (std::size_t v = 1; v < var_of_.size(); ++v)
        if (var_of_[v] != 0) out.model[v] = simplex_.value(var_of_[v]);
}

bool Optimizer::from_float_basis(Optimization& out) {
    lp_ = lp_form(p_, objective_, maximize_);
    if (!lp_) return false;
    basis_ = float_basis(p_, *lp_, options_.stop);
    if (!basis_) {
        out.float_basis_note = "no optimal basis in floating point";
        return false;
    }
    auto found = check_basis(p_, objective_, *lp_, *basis_, options_.stop, out.float_basis_note);
    if (!found) return false;
    basis_.reset();
    out.kind = Optimization::Kind::Optimal;
    out.float_basis_optimal = true;
    out.optimum = std::move(found->optimum);
    out.model = std::move(found->model);
    ProofStep leaf;
    leaf.farkas = std::move(found->farkas);
    // "objective < optimum" read as its upper half (">": its lower half), multiplier 1.
    leaf.farkas.push_back({false, append_better_atom(out), !maximize_, QNumber(1)});
    out.proof.push_back(std::move(leaf));
    return true;
}

Optimization Optimizer::run() {
    Optimization out;
    copy_atoms(p_, out.bounded, true);
    for (const Atom& a : p_.atoms)
        if (a.relation == Relation::Ne || a.relation == Relation::Distinct) {
            out.reason_unknown = "disequalities in an optimization problem";
            return out;
        }
    if (!p_.boolean.empty()) {
        out.reason_unknown = "Boolean structure in an optimization problem";
        return out;
    }
    bool integral = false;
    for (const Atom& a : p_.atoms)
        for (std::uint32_t t = 0; t < a.terms; ++t)
            for (const Entry& e : p_.term(a.first_term + t))
                integral = integral || (e.var != 0 && p_.variables.sort(e.var) == Sort::Int);
    for (const Entry& e : p_.term(objective_))
        integral = integral || (e.var != 0 && p_.variables.sort(e.var) == Sort::Int);
    if (integral) return optimize_integer(p_, objective_, maximize_, options_);
    bool constant_objective = true;
    for (const Entry& e : p_.term(objective_))
        constant_objective = constant_objective && e.var == 0;
    if (options_.float_start && !constant_objective && from_float_basis(out)) return out;
    simplex_.set_stop(options_.stop);
    bool constant_false = false;
    const std::vector<QNumber> var_of_zero(static_cast<std::size_t>(p_.variables.size()) + 1);
    var_of_.assign(static_cast<std::size_t>(p_.variables.size()) + 1, 0);
    for (std::size_t i = 0; i < p_.atoms.size(); ++i) {
        const Atom& a = p_.atoms[i];
        auto term = p_.term(a.first_term);
        QNumber c = !term.empty() && term[0].var == 0 ? -term[0].coeff : QNumber();
        bool any = false;
        for (const Entry& e : term)
            any = any || e.var != 0;
        if (!any) {
            constant_false = constant_false || !atom_holds(p_, a, var_of_zero);
            continue;
        }
        simplex_.assert_term(term_var(term), a.relation, c, static_cast<lra::Reason>(i));
    }
    auto objective = p_.term(objective_);
    lra::TermEntries entries;
    for (const Entry& e : objective)
        if (e.var != 0) entries.push_back({simplex_var(e.var), e.coeff});
    // The objective's row exists before the first check, which a new row would undo.
    std::optional<lra::TermVar> t;
    if (!entries.empty()) t = simplex_.term_variable(entries);
    // A floating-point basis that did not check: the exact search starts from it.
    if (basis_) {
        std::vector<int> keep;
        if (t) keep.push_back(t->var);
        warm_start(simplex_, p_, *lp_, *basis_, var_of_, keep);
    }
    if (constant_false || simplex_.check() != lra::Result::Sat) {
        // Infeasible (or stopped): the ordinary decision procedure gives the proof.
        if (stopped()) {
            out.reason_unknown = util::to_string(options_.stop->reason());
            return out;
        }
        Decision feasible = Decider(out.bounded, options_).check();
        out.stats = feasible.stats;
        if (feasible.result == lra::Result::Unsat) {
            out.kind = Optimization::Kind::Infeasible;
            out.proof = std::move(feasible.proof);
        } else {
            out.reason_unknown = feasible.result == lra::Result::Unknown
                                     ? feasible.reason_unknown
                                     : "the optimizing simplex disagrees on feasibility";
        }
        return out;
    }
    QNumber constant = !objective.empty() && objective[0].var == 0 ? objective[0].coeff : QNumber();
    if (entries.empty()) {  // a constant objective: every model is optimal
        out.kind = Optimization::Kind::Optimal;
        out.optimum = constant;
        read_model(out);
        // Its proof: "objective < optimum" is the false constant atom 0 < 0 by itself.
        ProofStep leaf;
        leaf.farkas.push_back({false, append_better_atom(out), !maximize_, QNumber(1)});
        out.proof.push_back(std::move(leaf));
        return out;
    }
    // objective = scale·var + constant: minimizing it minimizes var when the scale is positive.
    bool least = maximize_ == (t->scale.sign() < 0);
    lra::Optimum best = simplex_.minimize(t->var, !least);
    if (best.kind == lra::Optimum::Kind::Stopped) {
        out.reason_unknown = util::to_string(options_.stop->reason());
        return out;
    }
    if (simplex_.check() != lra::Result::Sat) {
        out.reason_unknown = "the optimal vertex does not check";
        return out;
    }
    read_model(out);
    if (best.kind == lra::Optimum::Kind::Unbounded) {
        out.kind = Optimization::Kind::Unbounded;
        out.ray.assign(out.model.size(), QNumber());
        int j = best.ray_variable;
        QNumber step(best.ray_up ? 1 : -1);
        // The entering variable moves by ±1, every basic one by its row's coefficient.
        std::vector<QNumber> by_simplex_var(static_cast<std::size_t>(simplex_.num_variables()) + 1);
        by_simplex_var[static_cast<std::size_t>(j)] = step;
        for (const auto& [basic, row] : simplex_.tableau().rows())
            if (const QNumber* coeff = row->coeff_of(j); coeff != nullptr && basic != j)
                by_simplex_var[basic] = *coeff * step;
        for (std::size_t v = 1; v < var_of_.size(); ++v)
            if (var_of_[v] != 0) out.ray[v] = by_simplex_var[static_cast<std::size_t>(var_of_[v])];
        return out;
    }
    if (!best.value.delta().is_zero()) {
        out.reason_unknown = "the optimum is approached but not attained (strict bounds)";
        out.approached = true;
        out.optimum = best.value.real() * t->scale + constant;
        return out;
    }
    out.kind = Optimization::Kind::Optimal;
    out.optimum = evaluate(objective, out.model, true);
    // The dual side: nothing better exists. At an optimal basis the objective's row blocks every
    // improving direction, so asserting "objective < optimum" makes the next check explain that
    // row at once: its Farkas multipliers are the optimal duals.
    std::size_t bound_atom = append_better_atom(out);
    Relation better = maximize_ ? Relation::Gt : Relation::Lt;
    simplex_.push();
    simplex_.assert_term(*t, better, out.optimum - constant, static_cast<lra::Reason>(bound_atom));
    if (simplex_.check() == lra::Result::Unsat) {
        ProofStep leaf;
        for (const lra::Explanation& x : simplex_.conflict())
            leaf.farkas.push_back(
                {false, static_cast<std::size_t>(x.reason), x.upper, x.multiplier});
        out.proof.push_back(std::move(leaf));
    } else {  // not expected: the ordinary decision procedure then
        Decision refuted = Decider(out.bounded, options_).check();
        out.stats += refuted.stats;
        if (refuted.result != lra::Result::Unsat) {
            out.kind = Optimization::Kind::Unknown;
            out.reason_unknown = "no proof that the optimum cannot be improved";
            return out;
        }
        out.proof = std::move(refuted.proof);
    }
    simplex_.pop();
    out.stats.simplex = simplex_.stats();
    return out;
}

}  // namespace

static bool is_unknown(const Optimization& answer) {
    return answer.kind == Optimization::Kind::Unknown;
}

Optimization optimize(const Problem& problem, std::uint32_t objective, bool maximize,
                      const DecideOptions& options) {
    // One deadline for the whole optimization, feasibility and proofs included.
    return under_stop(options, [&](const DecideOptions& o) {
        return Optimizer(problem, objective, maximize, o).run();
    });
}

namespace {

// The model against the problem's atoms as relaxed in `answer.bounded` (its extra bound on the
// objective left out).
std::string check_relaxed_model(const Problem& problem, const Optimization& answer) {
    if (answer.model.size() != static_cast<std::size_t>(problem.variables.size()) + 1)
        return "a model of the wrong size";
    for (std::size_t i = 0; i < problem.atoms.size(); ++i)
        if (!atom_holds(answer.bounded, answer.bounded.atoms[i], answer.model))
            return "the model violates atom " + std::to_string(i);
    return {};
}

}  // namespace

std::string check_optimization(const Problem& problem, std::uint32_t objective, bool maximize,
                               const Optimization& answer) {
    auto term = problem.term(objective);
    switch (answer.kind) {
        case Optimization::Kind::Infeasible:
            return check_proof(problem, answer.proof);
        case Optimization::Kind::Optimal: {
            if (std::string bad = check_relaxed_model(problem, answer); !bad.empty()) return bad;
            if (std::string bad = check_model(problem, answer.model); !bad.empty()) return bad;
            if (evaluate(term, answer.model, true) != answer.optimum)
                return "the model does not attain the optimum";
            if (answer.bounded.atoms.size() != problem.atoms.size() + 1)
                return "no bound on the objective to refute";
            return check_proof(answer.bounded, answer.proof);
        }
        case Optimization::Kind::Unbounded: {
            if (std::string bad = check_relaxed_model(problem, answer); !bad.empty()) return bad;
            for (const Atom& a : problem.atoms) {
                QNumber d = evaluate(problem.term(a.first_term), answer.ray, false);
                bool keeps = a.relation == Relation::Eq   ? d.is_zero()
                             : a.relation == Relation::Le ? d.sign() <= 0
                             : a.relation == Relation::Lt ? d.sign() <= 0
                                                          : d.sign() >= 0;
                if (!keeps) return "the ray leaves an atom";
            }
            QNumber gain = evaluate(term, answer.ray, false);
            if (maximize ? gain.sign() <= 0 : gain.sign() >= 0)
                return "the ray does not improve the objective";
            return {};
        }
        case Optimization::Kind::Unknown:
            if (!answer.incumbent) return {};
            if (std::string bad = check_model(problem, answer.model); !bad.empty()) return bad;
            if (evaluate(term, answer.model, true) != answer.optimum)
                return "the model does not attain the best value found";
            return {};
    }
    return {};
}

}  // namespace vorn::smt
