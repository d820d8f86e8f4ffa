// Solver: formulas translated into an smt::Problem, decided by an smt::Context.
//
// A formula is walked with an explicit stack (a chain of `&&` built in a loop is as deep as it is
// long), each node once per polarity (a DAG can be exponentially larger as a tree). Its
// conjunctive part becomes atoms; the rest (disjunctions, Boolean variables, ite terms) is
// encoded into clauses by the Encoder, each node once.

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <new>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "vorn/smt/context.h"
#include "vorn/smt/encoder.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/solver.h"

#include "formula_node.h"

namespace vorn::smt {

using detail::Access;
using detail::Node;
using NodePtr = std::shared_ptr<const Node>;

namespace {

std::atomic<std::uint64_t> next_solver_id{1};

Relation relation_of(Relation op, bool negated) {
    return negated ? negation(op) : op;
}

// A node under a polarity; `ref` points into the parent's children (or at the root), which stay
// put while the root is held.
struct Item {
    const NodePtr* ref;
    bool negated;

    const Node& node() const { return **ref; }
    std::uintptr_t key() const {
        return reinterpret_cast<std::uintptr_t>(ref->get()) | (negated ? 1 : 0);
    }
};

// Whether a binary node under this polarity is a conjunction of its (polarized) children.
bool conjunctive(Node::Kind kind, bool negated) {
    return kind == Node::Kind::And ? !negated : negated;
}

// The polarized conjuncts of a conjunctive binary node: a ∧ b, ¬(a ∨ b) = ¬a ∧ ¬b,
// ¬(a → b) = a ∧ ¬b.
std::pair<Item, Item> operands(const Item& it) {
    const Node& n = it.node();
    bool first = n.kind == Node::Kind::Implies ? !it.negated : it.negated;
    return {{&n.children[0], first}, {&n.children[1], it.negated}};
}

// Exact evaluation under a model, iterative for the same reason as the translation.
class Evaluator {
  public:
    Evaluator(const std::vector<QNumber>& model, const std::vector<int>& booleans)
        : model_(model), booleans_(booleans) {}

    QNumber term(const Term& t) {
        for (const auto& i : Access::ites(t))
            run(i.node.get());
        return sum(t);
    }
    bool formula(const Node* n) {
        run(n);
        return truth_.at(n);
    }

  private:
    QNumber sum(const Term& t) const {
        QNumber v;
        for (const auto& p : Access::parts(t)) {
            if (p.var == 0)
                v += p.coeff;
            else if (static_cast<std::size_t>(p.var) < model_.size())
                v.add_product(p.coeff, model_[static_cast<std::size_t>(p.var)]);
        }
        for (const auto& i : Access::ites(t))
            v.add_product(i.coeff, number_.at(i.node.get()));
        return v;
    }
    bool known(const Node* n) const {
        return n->kind == Node::Kind::Ite ? number_.contains(n) : truth_.contains(n);
    }
    void run(const Node* root);

    const std::vector<QNumber>& model_;
    const std::vector<int>& booleans_;  // problem variables, by Boolean number − 1
    std::unordered_map<const Node*, bool> truth_;
    std::unordered_map<const Node*, QNumber> number_;  // of ite nodes
};

void Evaluator::run(const Node* root) {
    std::vector<const Node*> todo{root};
    while (!todo.empty()) {
        const Node* n = todo.back();
        if (known(n)) {
            todo.pop_back();
            continue;
        }
        std::size_t before = todo.size();
        auto need = [&](const NodePtr& c) {
            if (!known(c.get())) todo.push_back(c.get());
        };
        auto need_term = [&](const Term& t) {
            for (const auto& i : Access::ites(t))
                need(i.node);
        };
        auto ready = [&] { return todo.size() == before; };
        switch (n->kind) {
            case Node::Kind::Constant:
                truth_[n] = n->value;
                break;
            case Node::Kind::Boolean: {
                auto v = static_cast<std::size_t>(booleans_[n->boolean - 1]);
                truth_[n] = v < model_.size() && !model_[v].is_zero();
                break;
            }
            case Node::Kind::Compare:
                need_term(n->terms[0]);
                if (ready()) truth_[n] = relation_holds(n->compare, sum(n->terms[0]).sign());
                break;
            case Node::Kind::Not:
                need(n->children[0]);
                if (ready()) truth_[n] = !truth_.at(n->children[0].get());
                break;
            case Node::Kind::And:
            case Node::Kind::Or:
            case Node::Kind::Implies: {
                need(n->children[0]);
                need(n->children[1]);
                if (!ready()) break;
                bool a = truth_.at(n->children[0].get()), b = truth_.at(n->children[1].get());
                truth_[n] = n->kind == Node::Kind::And  ? a && b
                            : n->kind == Node::Kind::Or ? a || b
                                                        : !a || b;
                break;
            }
            case Node::Kind::Ite: {
                need(n->children[0]);
                if (!ready()) break;
                const Term& branch = n->terms[truth_.at(n->children[0].get()) ? 0 : 1];
                need_term(branch);  // the branch not taken is never evaluated
                if (ready()) number_[n] = sum(branch);
                break;
            }
        }
        if (ready()) todo.pop_back();
    }
}

}  // namespace

struct Solver::Impl {
    Impl()
        : id(next_solver_id++),
          problem(NameSyntax::SmtLib),
          context(problem, options()),
          encoder(problem) {}

    DecideOptions options() {
        DecideOptions o;
        o.stop = &stop;
        o.time_limit = time_limit;
        o.conflict_limit = conflict_limit;
        return o;
    }

    void check_owner(std::uint64_t owner) const {
        if (owner != 0 && owner != id)
            throw UsageError("a term or formula of another solver given to this one");
    }
    void require_model() const {
        if (!model_valid)
            throw UsageError(
                "no model: value() needs the last check() to have answered sat, "
                "with nothing added, pushed or popped since");
    }
    void push() { context.push(); }
    void pop(std::size_t n) {
        std::size_t level = context.level();
        if (n > level)
            throw std::invalid_argument("pop of " + std::to_string(n) + " levels at level " +
                                        std::to_string(level));
        if (n == 0) return;
        context.pop(n);
        encoder.truncate(problem.boolean.propositions());
    }
    Result conclude(Decision& d) {
        reason = std::move(d.reason_unknown);
        if (d.result == lra::Result::Unsat) return Result::Unsat;
        if (d.result == lra::Result::Unknown) return Result::Unknown;
        model = std::move(d.model);
        model_valid = true;
        return Result::Sat;
    }

    void assert_formula(const NodePtr& root);
    void add_compare(const Item& it);
    Literal encode(const NodePtr& root);
    std::uint32_t linear_term(const Term& t, std::unordered_map<const Node*, int>& lifted);

    std::uint64_t id;
    util::Stop stop;  // before the context, which points to it
    std::chrono::milliseconds time_limit{0};
    std::uint64_t conflict_limit = 0;
    std::string reason;  // of the last Unknown answer
    Problem problem;
    Context context;
    Encoder encoder;
    std::vector<int> booleans;  // problem variables, by number − 1
    bool model_valid = false;
    bool core_valid = false;
    std::vector<QNumber> model;
    std::vector<Formula> core;
    LinearExpr scratch;
};

// The conjunctive part becomes atoms (the Decider's fast path); whatever else is encoded into
// clauses.
void Solver::Impl::assert_formula(const NodePtr& root) {
    std::vector<Item> stack{{&root, false}};
    std::unordered_set<std::uintptr_t> seen;
    while (!stack.empty()) {
        Item it = stack.back();
        stack.pop_back();
        if (!seen.insert(it.key()).second) continue;
        const Node& n = it.node();
        switch (n.kind) {
            case Node::Kind::Constant:
                if (n.value == it.negated) {  // 1 = 0
                    scratch.set_constant(QNumber(1));
                    problem.atoms.push_back(
                        {Relation::Eq, problem.add_term(scratch), 1, SourcePos{}});
                }
                break;
            case Node::Kind::Compare:
                add_compare(it);
                break;
            case Node::Kind::Not:
                stack.push_back({&n.children[0], !it.negated});
                break;
            case Node::Kind::And:
            case Node::Kind::Or:
            case Node::Kind::Implies:
                if (conjunctive(n.kind, it.negated)) {
                    auto [a, b] = operands(it);
                    stack.push_back(b);
                    stack.push_back(a);
                    break;
                }
                [[fallthrough]];
            default: {
                Literal lit = encode(*it.ref);
                encoder.assert_true(it.negated ? ~lit : lit);
            }
        }
    }
}

void Solver::Impl::add_compare(const Item& it) {
    const Node& n = it.node();
    const Term& term = n.terms[0];
    if (!Access::ites(term).empty()) {
        Literal lit = encode(*it.ref);
        return encoder.assert_true(it.negated ? ~lit : lit);
    }
    scratch.clear();
    for (const auto& p : Access::parts(term))
        scratch.add_entry(p.var, p.coeff);
    problem.atoms.push_back(
        {relation_of(n.compare, it.negated), problem.add_term(scratch), 1, SourcePos{}});
}

// The problem term of t, each ite summand replaced by its lifted variable.
std::uint32_t Solver::Impl::linear_term(const Term& t,
                                        std::unordered_map<const Node*, int>& lifted) {
    scratch.clear();
    for (const auto& p : Access::parts(t))
        scratch.add_entry(p.var, p.coeff);
    for (const auto& i : Access::ites(t))
        scratch.add_entry(lifted.at(i.node.get()), i.coeff);
    return problem.add_term(scratch);
}

// The literal of a formula, its subformulas encoded bottom-up with an explicit stack, each node
// once. An ite term is lifted to a fresh variable v with  c → v = then  and  ¬c → v = else;
// v is Int when both branches are integral sums of Int variables.
Literal Solver::Impl::encode(const NodePtr& root) {
    std::unordered_map<const Node*, Literal> done;
    std::unordered_map<const Node*, int> lifted;
    std::vector<const Node*> todo{root.get()};
    auto known = [&](const Node* n) {
        return n->kind == Node::Kind::Ite ? lifted.contains(n) : done.contains(n);
    };
    auto integral = [&](const Term& t) {
        for (const auto& p : Access::parts(t))
            if (!p.coeff.is_integer() || (p.var != 0 && problem.variables.sort(p.var) != Sort::Int))
                return false;
        for (const auto& i : Access::ites(t))
            if (!i.coeff.is_integer() ||
                problem.variables.sort(lifted.at(i.node.get())) != Sort::Int)
                return false;
        return true;
    };
    while (!todo.empty()) {
        const Node* n = todo.back();
        if (known(n)) {
            todo.pop_back();
            continue;
        }
        std::size_t before = todo.size();
        auto need = [&](const NodePtr& c) {
            if (!known(c.get())) todo.push_back(c.get());
        };
        auto need_term = [&](const Term& t) {
            for (const auto& i : Access::ites(t))
                need(i.node);
        };
        for (const NodePtr& c : n->children)
            need(c);
        for (const Term& t : n->terms)
            need_term(t);
        if (todo.size() != before) continue;
        todo.pop_back();
        auto child = [&](std::size_t i) { return done.at(n->children[i].get()); };
        switch (n->kind) {
            case Node::Kind::Constant:
                done.emplace(n, encoder.constant(n->value));
                break;
            case Node::Kind::Boolean:
                done.emplace(n, encoder.variable(booleans[n->boolean - 1]));
                break;
            case Node::Kind::Compare:
                done.emplace(n, encoder.compare(n->compare, linear_term(n->terms[0], lifted)));
                break;
            case Node::Kind::Not:
                done.emplace(n, ~child(0));
                break;
            case Node::Kind::And:
            case Node::Kind::Or: {
                Literal ops[] = {child(0), child(1)};
                done.emplace(n, n->kind == Node::Kind::And ? encoder.conjunction(ops)
                                                           : encoder.disjunction(ops));
                break;
            }
            case Node::Kind::Implies: {
                Literal ops[] = {~child(0), child(1)};
                done.emplace(n, encoder.disjunction(ops));
                break;
            }
            case Node::Kind::Ite: {
                Sort sort = integral(n->terms[0]) && integral(n->terms[1]) ? Sort::Int : Sort::Real;
                int v = problem.variables.add("ite", sort, {});
                Literal c = child(0);
                for (int side = 0; side < 2; ++side) {
                    std::uint32_t branch = linear_term(n->terms[side], lifted);
                    scratch.clear();
                    for (const auto& e : problem.term(branch))
                        scratch.add_entry(e.var, -e.coeff);
                    scratch.add_entry(v, QNumber(1));
                    Literal eq = encoder.compare(Relation::Eq, problem.add_term(scratch));
                    Literal clause[] = {side == 0 ? ~c : c, eq};
                    encoder.add_clause(clause);
                }
                lifted.emplace(n, v);
                break;
            }
        }
    }
    return done.at(root.get());
}

Solver::Solver() : impl_(std::make_unique<Impl>()) {}
Solver::~Solver() = default;
Solver::Solver(Solver&&) noexcept = default;
Solver& Solver::operator=(Solver&&) noexcept = default;

Term Solver::real(std::string_view name) {
    return Access::variable(impl_->id, impl_->problem.variables.add(name, Sort::Real, {}));
}

Term Solver::integer(std::string_view name) {
    return Access::variable(impl_->id, impl_->problem.variables.add(name, Sort::Int, {}));
}

Formula Solver::boolean(std::string_view name) {
    impl_->booleans.push_back(impl_->problem.variables.add(name, Sort::Bool, {}));
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::Boolean;
    node->boolean = static_cast<int>(impl_->booleans.size());
    node->owner = impl_->id;
    return Access::formula(std::move(node));
}

void Solver::add(const Formula& f) {
    Impl& s = *impl_;
    s.check_owner(Access::node(f)->owner);
    s.model_valid = s.core_valid = false;
    s.assert_formula(Access::node(f));
}

Result Solver::check() {
    Impl& s = *impl_;
    s.model_valid = s.core_valid = false;
    Decision d = s.context.check();
    return s.conclude(d);
}

Result Solver::check(std::span<const Formula> assumptions) {
    Impl& s = *impl_;
    for (const Formula& f : assumptions)
        s.check_owner(Access::node(f)->owner);
    s.model_valid = s.core_valid = false;
    s.core.clear();
    // The assumptions' encodings live on a level of their own.
    std::size_t base = s.context.level();
    Decision d;
    std::vector<Literal> lits;
    try {
        s.push();
        for (const Formula& f : assumptions)
            lits.push_back(s.encode(Access::node(f)));
        d = s.context.check(lits);
        Result r = s.conclude(d);
        if (r == Result::Unsat) {
            std::vector<Literal> failed = s.context.failed_assumptions();
            for (std::size_t i = 0; i < assumptions.size(); ++i)
                if (std::find(failed.begin(), failed.end(), lits[i]) != failed.end())
                    s.core.push_back(assumptions[i]);
            s.core_valid = true;
        }
        s.pop(1);
        return r;
    } catch (const std::bad_alloc&) {
        // Encoding the assumptions is part of the check: its memout is an answer too.
        s.pop(s.context.level() - base);
        s.model_valid = s.core_valid = false;
        s.core.clear();
        d = Decision{};
        d.reason_unknown = util::to_string(util::StopReason::Memout);
        return s.conclude(d);
    } catch (...) {
        s.pop(s.context.level() - base);
        throw;
    }
}

void Solver::push(unsigned levels) {
    impl_->model_valid = impl_->core_valid = false;
    for (unsigned i = 0; i < levels; ++i)
        impl_->push();
}

void Solver::pop(unsigned levels) {
    impl_->pop(levels);
    impl_->model_valid = impl_->core_valid = false;
}

unsigned Solver::level() const {
    return static_cast<unsigned>(impl_->context.level());
}

QNumber Solver::value(const Term& t) const {
    impl_->check_owner(Access::owner(t));
    impl_->require_model();
    return Evaluator(impl_->model, impl_->booleans).term(t);
}

bool Solver::value(const Formula& f) const {
    impl_->check_owner(Access::node(f)->owner);
    impl_->require_model();
    return Evaluator(impl_->model, impl_->booleans).formula(Access::node(f).get());
}

void Solver::set_time_limit(std::chrono::milliseconds per_check) {
    impl_->time_limit = per_check;
    impl_->context.set_options(impl_->options());
}

void Solver::set_conflict_limit(std::uint64_t per_check) {
    impl_->conflict_limit = per_check;
    impl_->context.set_options(impl_->options());
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

}  // namespace vorn::smt
