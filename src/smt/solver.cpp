// Solver: formulas translated into the atoms of an smt::Problem, decided by an smt::Context.
//
// A formula is walked with an explicit stack (a chain of `&&` built in a loop is as deep as it is
// long), each node once per polarity (a DAG can be exponentially larger as a tree). Whatever lies
// outside the conjunctive fragment is kept in `unsupported`, per push level, for the Boolean
// engine to come; its conjunctive parts still become atoms, which keeps an Unsat answer sound.
// A disjunction with all disjuncts but one constant false was reduced to that one when it was
// built (formula.cpp), so every disjunction met here is a real one.

#include <atomic>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "vorn/smt/context.h"
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
    explicit Evaluator(const std::vector<QNumber>& model) : model_(model) {}

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
            case Node::Kind::Boolean:
                throw UsageError(
                    "Boolean variables have no values yet: Boolean structure is not "
                    "decided by this version");
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
    Impl() : id(next_solver_id++), problem(NameSyntax::SmtLib), context(problem) {}

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
    void push() {
        context.push();
        unsupported_at.push_back(unsupported.size());
    }
    void pop(std::size_t n) {
        std::size_t level = context.level();
        if (n > level)
            throw std::invalid_argument("pop of " + std::to_string(n) + " levels at level " +
                                        std::to_string(level));
        if (n == 0) return;
        context.pop(n);
        std::size_t kept = unsupported_at[level - n];
        unsupported.erase(unsupported.begin() + static_cast<std::ptrdiff_t>(kept),
                          unsupported.end());
        unsupported_at.resize(level - n);
    }
    Result conclude(Decision& d) {
        if (d.result == lra::Result::Unsat) return Result::Unsat;
        // A model of the linear part says nothing about what was set aside.
        if (d.result == lra::Result::Unknown || !unsupported.empty()) return Result::Unknown;
        model = std::move(d.model);
        model_valid = true;
        return Result::Sat;
    }

    void assert_formula(const NodePtr& root);
    void add_compare(const Item& it);
    void add_false();
    void set_aside(const Item& it) {
        Formula f = Access::formula(*it.ref);
        unsupported.push_back(it.negated ? !f : f);
    }

    std::uint64_t id;
    Problem problem;
    Context context;
    std::vector<std::string> booleans;  // names, by number − 1
    std::vector<Formula> unsupported;
    std::vector<std::size_t> unsupported_at;  // by level: unsupported.size() at its push
    bool model_valid = false;
    bool core_valid = false;
    std::vector<QNumber> model;
    std::vector<Formula> core;
    LinearExpr scratch;
};

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
                if (n.value == it.negated) add_false();
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
                } else {
                    set_aside(it);  // folded when built: no disjunct is constant
                }
                break;
            case Node::Kind::Boolean:
            case Node::Kind::Ite:
                set_aside(it);
                break;
        }
    }
}

void Solver::Impl::add_compare(const Item& it) {
    const Node& n = it.node();
    const Term& term = n.terms[0];
    if (!Access::ites(term).empty()) return set_aside(it);
    scratch.clear();
    for (const auto& p : Access::parts(term))
        scratch.add_entry(p.var, p.coeff);
    problem.atoms.push_back(
        {relation_of(n.compare, it.negated), problem.add_term(scratch), 1, SourcePos{}});
}

// 1 = 0.
void Solver::Impl::add_false() {
    scratch.set_constant(QNumber(1));
    problem.atoms.push_back({Relation::Eq, problem.add_term(scratch), 1, SourcePos{}});
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
    impl_->booleans.emplace_back(name);
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
    s.push();
    std::size_t first = s.problem.atoms.size();
    std::vector<std::size_t> ends;  // the atoms of assumption i end at ends[i]
    Decision d;
    try {
        for (const Formula& f : assumptions) {
            s.assert_formula(Access::node(f));
            ends.push_back(s.problem.atoms.size());
        }
        d = s.context.check();
    } catch (...) {
        s.pop(1);
        throw;
    }
    Result r = s.conclude(d);
    if (r == Result::Unsat) {
        std::vector<bool> used(s.problem.atoms.size() - first, false);
        auto use = [&](std::size_t atom) {
            if (atom >= first && atom < s.problem.atoms.size()) used[atom - first] = true;
        };
        for (const ProofStep& step : d.proof) {
            for (const FarkasEntry& e : step.farkas)
                if (!e.from_split) use(e.index);
            if (step.kind == ProofStep::Kind::SplitNe || step.kind == ProofStep::Kind::Gcd)
                use(step.atom);
        }
        std::size_t begin = first;
        for (std::size_t i = 0; i < assumptions.size(); begin = ends[i++]) {
            for (std::size_t a = begin; a < ends[i]; ++a)
                if (used[a - first]) {
                    s.core.push_back(assumptions[i]);
                    break;
                }
        }
        s.core_valid = true;
    }
    s.pop(1);
    return r;
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
    return Evaluator(impl_->model).term(t);
}

bool Solver::value(const Formula& f) const {
    impl_->check_owner(Access::node(f)->owner);
    impl_->require_model();
    return Evaluator(impl_->model).formula(Access::node(f).get());
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
