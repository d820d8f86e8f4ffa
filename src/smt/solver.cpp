// Solver: a facade over smt::Engine, the solver of every front end.
//
// A formula's node DAG is translated into the engine's FormulaDag bottom-up with an explicit
// stack (a chain of `&&` built in a loop is as deep as it is long), each node once: the memo
// maps a node to its reference (an ite term node to its lifted variable) and holds the node, so
// that no other node can take its address while the entry lives. The memo follows the engine's
// levels: entries made after a push go at its pop, as the DAG's nodes do. An ite term becomes a
// lifted ite with its definition, as the SMT-LIB evaluator makes it; its variable is Int when
// both branches are integral sums of Int variables. Values and cores come from the engine; a
// value asked of a formula or term not translated yet is translated for the question only.
// Tracked assertions are the engine's named ones, objectives its objectives; what the solver keeps
// beside them (names, objective handles, the formulas added, for to_smt2) follows the levels too.

#include <atomic>
#include <cstdint>
#include <new>
#include <sstream>
#include <string>
#include <unordered_map>

#include "vorn/smt/certificate.h"
#include "vorn/smt/engine.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/solver.h"

#include "formula_node.h"
#include "smt2_writer.h"

namespace vorn::smt {

using detail::Access;
using detail::Node;
using NodePtr = std::shared_ptr<const Node>;

namespace {

std::atomic<std::uint64_t> next_solver_id{1};

// Room for one more element, so that the push_back after a change to the engine cannot throw;
// geometric, so that a long run of calls stays linear.
template <class Vector>
void make_room(Vector& v) {
    if (v.size() == v.capacity()) v.reserve(2 * v.size() + 8);
}

}  // namespace

struct Solver::Impl {
    Impl() : id(next_solver_id++), engine(engine_options()) {}

    EngineOptions engine_options() {
        EngineOptions o;
        o.decide = options();
        o.keep_popped_variables = true;  // Var handles outlive the level they were made on
        return o;
    }
    DecideOptions options() {
        DecideOptions o;
        o.stop = &stop;
        o.time_limit = time_limit;
        o.conflict_limit = conflict_limit;
        o.certify = certificates;
        return o;
    }

    void check_owner(std::uint64_t owner) const {
        if (owner != 0 && owner != id)
            throw UsageError("a term or formula of another solver given to this one");
    }
    // The optimization of `o` in the last check, with value()'s checks.
    const ObjectiveValue& optimized(const Objective& o) const;
    void require_model() const {
        if (!model_valid)
            throw UsageError(
                "no model: value() needs the last check() to have answered sat, "
                "with nothing added, pushed or popped since");
    }
    void push() {
        levels.reserve(levels.size() + 1);
        engine.push();
        levels.push_back({translated.size(), names.size(), added.size()});
    }
    void pop(std::size_t n) {
        std::size_t level = engine.level();
        if (n > level)
            throw std::invalid_argument("pop of " + std::to_string(n) + " levels at level " +
                                        std::to_string(level));
        if (n == 0) return;
        engine.pop(n);
        const Level& back = levels[levels.size() - n];
        forget_translated(back.translated);
        names.resize(back.names);
        added.erase(added.begin() + static_cast<std::ptrdiff_t>(back.added), added.end());
        objectives.resize(engine.objective_count(), ObjectiveEntry{});
        levels.resize(levels.size() - n);
    }
    // Called by the engine while the problem still holds what the check asserted.
    Engine::AnswerHook answer_hook() {
        certificate_text.clear();
        if (!certificates) return {};
        return [this](const Decision& d) {
            if (d.result != lra::Result::Unsat) return;
            std::ostringstream out;
            print_certificate(out, engine.problem(), d, &engine.dag());
            certificate_text = out.str();
        };
    }
    Result conclude(const Decision& d) {
        reason = d.reason_unknown;
        certified = certificates;
        unsat_valid = d.result == lra::Result::Unsat;
        if (d.result == lra::Result::Unsat) {
            core_names.clear();
            for (std::int32_t n : engine.core())
                core_names.push_back(names[static_cast<std::size_t>(n)]);
            return Result::Unsat;
        }
        if (d.result == lra::Result::Unknown) return Result::Unknown;
        model_valid = true;
        return Result::Sat;
    }

    // The reference of a formula node (the lifted variable of an ite term node), translating
    // what is not in the memo yet.
    std::uint32_t translate(const NodePtr& root);
    std::uint32_t make(const Node& n);
    int lift(const Node& ite);
    std::uint32_t linear_term(const Term& t);
    // scratch = t, each ite summand replaced by its lifted variable (translated before).
    const LinearExpr& expression(const Term& t);
    void forget_translated(std::size_t size);
    // Runs `ask` on what it translates, then forgets that again (a question about the model).
    template <class F>
    auto question(F&& ask);

    void invalidate_answers() { model_valid = core_valid = unsat_valid = false; }
    Objective add_objective(const Term& t, bool maximize);
    Objective add_soft(const Formula& f, const QNumber& weight, std::string_view id);
    Objective handle(std::size_t index) const;

    struct Level {
        std::size_t translated, names, added;
    };

    std::uint64_t id;
    util::Stop stop;  // before the engine, which points to it
    std::chrono::milliseconds time_limit{0};
    std::uint64_t conflict_limit = 0;
    bool certificates = false;
    bool certified = false;  // the last check was made with certificates on
    std::string reason;      // of the last Unknown answer
    Engine engine;
    std::vector<int> booleans;  // problem variables, by number − 1
    bool model_valid = false;
    bool core_valid = false;
    bool unsat_valid = false;  // the last check answered Unsat, nothing changed since
    std::vector<Formula> core;
    std::vector<std::string> core_names;
    std::string certificate_text;  // of the last Unsat answer, with certificates on
    std::unordered_map<const Node*, std::uint32_t> memo;
    std::vector<NodePtr> translated;  // the memo's nodes in the order met
    std::vector<Level> levels;
    std::vector<std::string> names;   // of the tracked assertions, by the engine's name number
    std::vector<AddedFormula> added;  // every add(), for to_smt2()
    std::vector<int> declared;        // the variables real(), integer(), boolean() made
    struct ObjectiveEntry {
        std::uint64_t serial;  // unique within the solver, so that a popped handle is told apart
        bool soft;             // a group of soft formulas, extended by add_soft() of its id
        std::string id;
        std::size_t level;
    };
    std::vector<ObjectiveEntry> objectives;  // the engine's objectives, in order
    std::uint64_t next_objective = 1;
    std::uint64_t lifted_ites = 0;  // for their names
    LinearExpr scratch;
};

std::uint32_t Solver::Impl::translate(const NodePtr& root) {
    std::vector<const NodePtr*> todo{&root};
    while (!todo.empty()) {
        const NodePtr& node = *todo.back();
        if (memo.contains(node.get())) {
            todo.pop_back();
            continue;
        }
        std::size_t before = todo.size();
        for (const NodePtr& c : node->children)
            if (!memo.contains(c.get())) todo.push_back(&c);
        for (const Term& t : node->terms)
            for (const auto& i : Access::ites(t))
                if (!memo.contains(i.node.get())) todo.push_back(&i.node);
        if (todo.size() != before) continue;
        todo.pop_back();
        // Out of memory, the memo holds no entry that forget_translated() cannot see.
        std::uint32_t ref = make(*node);
        translated.push_back(node);
        memo.emplace(node.get(), ref);
    }
    return memo.at(root.get());
}

std::uint32_t Solver::Impl::make(const Node& n) {
    FormulaDag& dag = engine.dag();
    auto child = [&](std::size_t i) { return memo.at(n.children[i].get()); };
    switch (n.kind) {
        case Node::Kind::Constant:
            return n.value ? 0 : 1;
        case Node::Kind::Boolean:
            return dag.variable(booleans[static_cast<std::size_t>(n.boolean - 1)], {});
        case Node::Kind::Compare:
            return dag.atom({n.compare, linear_term(n.terms[0]), 1, {}});
        case Node::Kind::Not:
            return child(0) ^ 1;
        case Node::Kind::And:
        case Node::Kind::Or:
        case Node::Kind::Implies: {
            FormulaRef operands[] = {n.kind == Node::Kind::Implies ? child(0) ^ 1 : child(0),
                                     child(1)};
            return dag.node(n.kind == Node::Kind::And ? FormulaNode::And : FormulaNode::Or,
                            operands, {});
        }
        case Node::Kind::Ite:
            return static_cast<std::uint32_t>(lift(n));
    }
    return 0;
}

// A fresh variable v with the definition (ite c (= v then) (= v otherwise)).
int Solver::Impl::lift(const Node& ite) {
    Problem& problem = engine.problem();
    auto integral = [&](const Term& t) {
        for (const auto& p : Access::parts(t))
            if (!p.coeff.is_integer() || (p.var != 0 && problem.variables.sort(p.var) != Sort::Int))
                return false;
        for (const auto& i : Access::ites(t))
            if (!i.coeff.is_integer() ||
                problem.variables.sort(static_cast<int>(memo.at(i.node.get()))) != Sort::Int)
                return false;
        return true;
    };
    Sort sort = integral(ite.terms[0]) && integral(ite.terms[1]) ? Sort::Int : Sort::Real;
    // "@" marks a variable the solver made, as the script reader names its lifted ites.
    int v = problem.variables.add("ite@" + std::to_string(++lifted_ites), sort, {});
    std::uint32_t branch[2];
    FormulaRef operands[3] = {memo.at(ite.children[0].get()), 0, 0};
    for (int side = 0; side < 2; ++side) {  // branch − v = 0
        branch[side] = linear_term(ite.terms[static_cast<std::size_t>(side)]);
        scratch.clear();
        for (const auto& e : problem.term(branch[side]))
            scratch.add_entry(e.var, e.coeff);
        scratch.add_entry(v, QNumber(-1));
        operands[side + 1] = engine.dag().atom({Relation::Eq, problem.add_term(scratch), 1, {}});
    }
    FormulaRef definition = engine.dag().node(FormulaNode::Ite, operands, {});
    engine.dag().lift({v, operands[0], branch[0], branch[1], definition});
    return v;
}

// The problem term of t, each ite summand replaced by its lifted variable.
std::uint32_t Solver::Impl::linear_term(const Term& t) {
    return engine.problem().add_term(expression(t));
}

const LinearExpr& Solver::Impl::expression(const Term& t) {
    scratch.clear();
    for (const auto& p : Access::parts(t))
        scratch.add_entry(p.var, p.coeff);
    for (const auto& i : Access::ites(t))
        scratch.add_entry(static_cast<int>(memo.at(i.node.get())), i.coeff);
    return scratch;
}

void Solver::Impl::forget_translated(std::size_t size) {
    for (std::size_t i = size; i < translated.size(); ++i)
        memo.erase(translated[i].get());
    translated.resize(size);
}

// The DAG's nodes and the problem's terms made for the question go again; the variables of ites
// lifted for it stay (variables are never removed).
template <class F>
auto Solver::Impl::question(F&& ask) {
    FormulaDag::Marks marks = engine.dag().marks();
    std::uint32_t terms = engine.problem().term_count();
    std::size_t memo_size = translated.size();
    auto forget = [&] {
        forget_translated(memo_size);
        engine.drop_formulas(marks);
        engine.problem().truncate_terms(terms);
    };
    try {
        auto answer = ask();
        forget();
        return answer;
    } catch (...) {
        forget();
        throw;
    }
}

Solver::Solver() : impl_(std::make_unique<Impl>()) {}
Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

Term Solver::real(std::string_view name) {
    make_room(impl_->declared);
    impl_->declared.push_back(impl_->engine.problem().variables.add(name, Sort::Real, {}));
    return Access::variable(impl_->id, impl_->declared.back());
}

Term Solver::integer(std::string_view name) {
    make_room(impl_->declared);
    impl_->declared.push_back(impl_->engine.problem().variables.add(name, Sort::Int, {}));
    return Access::variable(impl_->id, impl_->declared.back());
}

Formula Solver::boolean(std::string_view name) {
    make_room(impl_->declared);
    make_room(impl_->booleans);
    impl_->booleans.push_back(impl_->engine.problem().variables.add(name, Sort::Bool, {}));
    impl_->declared.push_back(impl_->booleans.back());
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::Boolean;
    node->boolean = static_cast<int>(impl_->booleans.size());
    node->owner = impl_->id;
    return Access::formula(std::move(node));
}

void Solver::add(const Formula& f) {
    Impl& s = *impl_;
    s.check_owner(Access::node(f)->owner);
    s.invalidate_answers();
    make_room(s.added);
    (void)s.engine.assert_formula(s.translate(Access::node(f)));
    s.added.push_back({f, {}, false});
}

void Solver::add(const Formula& f, std::string_view name) {
    Impl& s = *impl_;
    s.check_owner(Access::node(f)->owner);
    s.invalidate_answers();
    make_room(s.names);
    make_room(s.added);
    std::uint32_t ref = s.translate(Access::node(f));
    s.engine.assume_named(ref, static_cast<std::int32_t>(s.names.size()));
    s.names.emplace_back(name);
    s.added.push_back({f, std::string(name), true});
}

Result Solver::check() {
    Impl& s = *impl_;
    s.invalidate_answers();
    return s.conclude(s.engine.check({}, s.answer_hook()));
}

Result Solver::check(std::span<const Formula> assumptions) {
    Impl& s = *impl_;
    for (const Formula& f : assumptions)
        s.check_owner(Access::node(f)->owner);
    s.invalidate_answers();
    s.core.clear();
    // The assumptions' translations live on a level of their own.
    std::size_t base = s.engine.level();
    try {
        s.push();
        std::vector<FormulaRef> assumed;
        for (const Formula& f : assumptions)
            assumed.push_back(s.translate(Access::node(f)));
        Result r = s.conclude(s.engine.check(assumed, s.answer_hook()));
        if (r == Result::Unsat) {
            for (std::uint32_t i : s.engine.assumed_core())
                s.core.push_back(assumptions[i]);
            s.core_valid = true;
        }
        s.pop(1);
        return r;
    } catch (const std::bad_alloc&) {
        // Translating the assumptions is part of the check: its memout is an answer too.
        s.pop(s.engine.level() - base);
        s.invalidate_answers();
        s.core.clear();
        s.reason = util::to_string(util::StopReason::Memout);
        return Result::Unknown;
    } catch (...) {
        s.pop(s.engine.level() - base);
        throw;
    }
}

void Solver::push(unsigned levels) {
    impl_->invalidate_answers();
    for (unsigned i = 0; i < levels; ++i)
        impl_->push();
}

void Solver::pop(unsigned levels) {
    impl_->pop(levels);
    impl_->invalidate_answers();
}

unsigned Solver::level() const {
    return static_cast<unsigned>(impl_->engine.level());
}

QNumber Solver::value(const Term& t) const {
    Impl& s = *impl_;
    s.check_owner(Access::owner(t));
    s.require_model();
    if (Access::ites(t).empty()) {  // no need to evaluate the ites the model decides
        const std::vector<QNumber>& model = s.engine.last().model;
        QNumber v;
        for (const auto& p : Access::parts(t)) {
            if (p.var == 0)
                v += p.coeff;
            else if (static_cast<std::size_t>(p.var) < model.size())
                v.add_product(p.coeff, model[static_cast<std::size_t>(p.var)]);
        }
        return v;
    }
    return s.question([&] {
        for (const auto& i : Access::ites(t))
            (void)s.translate(i.node);
        return s.engine.value(s.expression(t));
    });
}

bool Solver::value(const Formula& f) const {
    Impl& s = *impl_;
    s.check_owner(Access::node(f)->owner);
    s.require_model();
    return s.question([&] { return s.engine.holds(s.translate(Access::node(f))) == 1; });
}

void Solver::set_time_limit(std::chrono::milliseconds per_check) {
    impl_->time_limit = per_check;
    impl_->engine.set_limits(impl_->options());
}

void Solver::set_conflict_limit(std::uint64_t per_check) {
    impl_->conflict_limit = per_check;
    impl_->engine.set_limits(impl_->options());
}

void Solver::interrupt() {
    impl_->stop.interrupt();
}

std::string_view Solver::reason_unknown() const {
    return impl_->reason;
}

std::vector<Formula> Solver::unsat_core() const {
    if (!impl_->core_valid)
        throw UsageError(
            "no unsat core: unsat_core() needs the last check to have been a check "
            "under assumptions that answered unsat, with nothing added, pushed or "
            "popped since");
    return impl_->core;
}

std::vector<std::string> Solver::unsat_core_names() const {
    if (!impl_->unsat_valid)
        throw UsageError(
            "no unsat core: unsat_core_names() needs the last check to have answered unsat, "
            "with nothing added, pushed or popped since");
    return impl_->core_names;
}

Objective Solver::Impl::add_objective(const Term& t, bool maximize) {
    check_owner(Access::owner(t));
    invalidate_answers();
    make_room(objectives);
    for (const auto& i : Access::ites(t))
        (void)translate(i.node);
    engine.add_objective(expression(t), maximize);
    objectives.push_back({next_objective++, false, {}, engine.level()});  // room made: no throw
    return handle(objectives.size() - 1);
}

// The soft formulas of one id on one level are one objective, placed where the first of them
// was added: the weight of those violated, minimized (weighted MaxSAT, as z3 groups them).
Objective Solver::Impl::add_soft(const Formula& f, const QNumber& weight, std::string_view id) {
    check_owner(Access::node(f)->owner);
    if (weight.sign() < 0)
        throw UsageError("the weight of a soft formula is a number of at least 0");
    invalidate_answers();
    make_room(objectives);
    Term penalty = ite(f, Term(), Term(weight));
    for (const auto& i : Access::ites(penalty))
        (void)translate(i.node);
    for (std::size_t k = 0; k < objectives.size(); ++k)
        if (objectives[k].soft && objectives[k].id == id && objectives[k].level == engine.level()) {
            engine.extend_objective(k, expression(penalty));
            return handle(k);
        }
    ObjectiveEntry entry{next_objective, true, std::string(id), engine.level()};
    engine.add_objective(expression(penalty), false);
    objectives.push_back(std::move(entry));
    ++next_objective;
    return handle(objectives.size() - 1);
}

Objective Solver::Impl::handle(std::size_t index) const {
    Objective o;
    o.owner_ = id;
    o.serial_ = objectives[index].serial;
    o.index_ = index;
    return o;
}

Objective Solver::minimize(const Term& t) {
    return impl_->add_objective(t, false);
}

Objective Solver::maximize(const Term& t) {
    return impl_->add_objective(t, true);
}

Objective Solver::add_soft(const Formula& f, const QNumber& weight, std::string_view id) {
    return impl_->add_soft(f, weight, id);
}

const ObjectiveValue& Solver::Impl::optimized(const Objective& o) const {
    check_owner(o.owner_);
    if (o.owner_ == 0 || o.index_ >= objectives.size() || objectives[o.index_].serial != o.serial_)
        throw UsageError("the objective was popped, or is no objective of this solver");
    require_model();
    const std::vector<ObjectiveValue>& values = engine.objective_values();
    if (!engine.objectives_unknown().empty())
        throw UsageError("the objectives were not optimized: " + engine.objectives_unknown());
    if (o.index_ >= values.size())
        throw UsageError("the objective was not optimized: one before it is unbounded");
    return values[o.index_];
}

std::optional<QNumber> Solver::value(const Objective& o) const {
    const ObjectiveValue& v = impl_->optimized(o);
    if (v.unbounded) return std::nullopt;
    return v.optimum;
}

int Solver::epsilon(const Objective& o) const {
    return impl_->optimized(o).epsilon;
}

void Solver::set_priority(Priority p) {
    impl_->invalidate_answers();
    impl_->engine.set_box(p == Priority::Box);
}

std::string_view Solver::objectives_unknown() const {
    return impl_->engine.objectives_unknown();
}

std::vector<Statistic> Solver::statistics() const {
    return smt::statistics(impl_->engine.stats());
}

void Solver::set_certificates(bool on) {
    impl_->certificates = on;
    impl_->engine.set_limits(impl_->options());
}

std::string Solver::certificate() const {
    if (!impl_->unsat_valid || impl_->certificate_text.empty())
        throw UsageError(
            "no certificate: certificate() needs the last check to have answered unsat with "
            "certificates on (set_certificates), nothing added, pushed or popped since");
    return impl_->certificate_text;
}

std::string Solver::certificate(const Objective& o) const {
    const Impl& s = *impl_;
    (void)s.optimized(o);  // its preconditions
    if (s.engine.box())
        throw UsageError(
            "no certificate: under box priority an objective's proof would need the others' "
            "optima held");
    if (!s.certified)
        throw UsageError(
            "no certificate: certificate(objective) needs the last check to have been made with "
            "certificates on (set_certificates)");
    return s.engine.optimum_certificate(o.index_, s.declared);
}

std::string Solver::to_smt2() const {
    const Impl& s = *impl_;
    return write_smt2_script(s.engine.problem().variables, s.declared, s.booleans, s.added);
}

}  // namespace vorn::smt
