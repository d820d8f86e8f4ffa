// Building terms and formulas: linear arithmetic on terms, and formula nodes folded as they are
// built (constants absorbed, double negations removed) so that a constant condition is seen as
// one by ite() and by the solver.

#include <algorithm>
#include <atomic>

#include "vorn/smt/solver.h"

#include "formula_node.h"

namespace vorn::smt {

using detail::Access;
using detail::Node;
using NodePtr = std::shared_ptr<const Node>;

namespace {

std::uint64_t common_owner(std::uint64_t a, std::uint64_t b) {
    if (a != 0 && b != 0 && a != b)
        throw UsageError("a term or formula of one solver combined with one of another");
    return a != 0 ? a : b;
}

Formula make(Node::Kind kind, std::uint64_t owner, std::vector<NodePtr> children) {
    auto node = std::make_shared<Node>();
    node->kind = kind;
    node->owner = owner;
    node->children = std::move(children);
    return Access::formula(std::move(node));
}

NodePtr constant_node(bool value) {
    auto node = std::make_shared<Node>();
    node->value = value;
    return node;
}

const Node& node_of(const Formula& f) {
    return *Access::node(f);
}

bool is_constant(const Formula& f, bool value) {
    return node_of(f).kind == Node::Kind::Constant && node_of(f).value == value;
}

Formula compare(const Term& a, const Term& b, Relation op) {
    Term d = a;
    d -= b;
    Access::merge(d);
    const auto& parts = Access::parts(d);
    if (Access::ites(d).empty() && (parts.empty() || (parts.size() == 1 && parts[0].var == 0)))
        return relation_holds(op, parts.empty() ? 0 : parts[0].coeff.sign());
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::Compare;
    node->compare = op;
    node->owner = Access::owner(d);
    node->terms.push_back(std::move(d));
    return Access::formula(std::move(node));
}

}  // namespace

Node::~Node() {
    std::vector<NodePtr> pending;
    // A sole owner: nobody else can reach the node (made non-const, so it may be emptied). The
    // fence orders other threads' last reads of it, before their release, before these writes.
    auto take = [&pending](Node& n) {
        std::atomic_thread_fence(std::memory_order_acquire);
        for (NodePtr& c : n.children)
            if (c.use_count() == 1) pending.push_back(std::move(c));
        for (Term& t : n.terms)
            for (auto& i : Access::ites(t))
                if (i.node.use_count() == 1) pending.push_back(std::move(i.node));
    };
    take(*this);
    while (!pending.empty()) {
        NodePtr n = std::move(pending.back());
        pending.pop_back();
        if (n.use_count() == 1) take(const_cast<Node&>(*n));
    }
}

Term::Term(const QNumber& value) {
    if (!value.is_zero()) parts_.push_back({0, value});
}

void Term::take_owner(std::uint64_t other) {
    owner_ = common_owner(owner_, other);
}

Term& Term::operator+=(const Term& other) {
    if (&other == this) return *this *= QNumber(2);
    take_owner(other.owner_);
    parts_.insert(parts_.end(), other.parts_.begin(), other.parts_.end());
    ites_.insert(ites_.end(), other.ites_.begin(), other.ites_.end());
    if (parts_.size() > 2 * merged_ + 16) merge();
    return *this;
}

Term& Term::operator-=(const Term& other) {
    if (&other == this) return *this *= QNumber(0);
    take_owner(other.owner_);
    for (const Part& p : other.parts_) {
        parts_.push_back(p);
        parts_.back().coeff.negate();
    }
    for (const Ite& i : other.ites_) {
        ites_.push_back(i);
        ites_.back().coeff.negate();
    }
    if (parts_.size() > 2 * merged_ + 16) merge();
    return *this;
}

Term& Term::operator*=(const QNumber& factor) {
    if (factor.is_zero()) {
        parts_.clear();
        ites_.clear();
        merged_ = 0;
        return *this;
    }
    for (Part& p : parts_)
        p.coeff *= factor;
    for (Ite& i : ites_)
        i.coeff *= factor;
    return *this;
}

void Term::merge() {
    std::stable_sort(parts_.begin(), parts_.end(),
                     [](const Part& a, const Part& b) { return a.var < b.var; });
    std::size_t out = 0;
    for (std::size_t i = 0; i < parts_.size();) {
        std::size_t j = i + 1;
        QNumber sum = parts_[i].coeff;
        for (; j < parts_.size() && parts_[j].var == parts_[i].var; ++j)
            sum += parts_[j].coeff;
        if (!sum.is_zero()) {
            parts_[out].var = parts_[i].var;
            parts_[out].coeff = sum;
            ++out;
        }
        i = j;
    }
    parts_.erase(parts_.begin() + static_cast<std::ptrdiff_t>(out), parts_.end());
    merged_ = out;
}

Formula operator<=(const Term& a, const Term& b) {
    return compare(a, b, Relation::Le);
}
Formula operator<(const Term& a, const Term& b) {
    return compare(a, b, Relation::Lt);
}
Formula operator>=(const Term& a, const Term& b) {
    return compare(a, b, Relation::Ge);
}
Formula operator>(const Term& a, const Term& b) {
    return compare(a, b, Relation::Gt);
}
Formula operator==(const Term& a, const Term& b) {
    return compare(a, b, Relation::Eq);
}
Formula operator!=(const Term& a, const Term& b) {
    return compare(a, b, Relation::Ne);
}

Formula Formula::constant(bool value) {
    // Two shared nodes: folding makes constants common, and they then cost no allocation.
    static const NodePtr nodes[2] = {constant_node(false), constant_node(true)};
    return Formula(nodes[value ? 1 : 0]);
}

Formula operator!(const Formula& f) {
    const Node& n = node_of(f);
    if (n.kind == Node::Kind::Constant) return !n.value;
    if (n.kind == Node::Kind::Not) return Access::formula(n.children[0]);
    return make(Node::Kind::Not, n.owner, {f.node_});
}

Formula operator&&(const Formula& a, const Formula& b) {
    std::uint64_t owner = common_owner(node_of(a).owner, node_of(b).owner);
    if (is_constant(a, true) || is_constant(b, false)) return b;
    if (is_constant(b, true) || is_constant(a, false)) return a;
    return make(Node::Kind::And, owner, {a.node_, b.node_});
}

Formula operator||(const Formula& a, const Formula& b) {
    std::uint64_t owner = common_owner(node_of(a).owner, node_of(b).owner);
    if (is_constant(a, false) || is_constant(b, true)) return b;
    if (is_constant(b, false) || is_constant(a, true)) return a;
    return make(Node::Kind::Or, owner, {a.node_, b.node_});
}

Formula implies(const Formula& a, const Formula& b) {
    std::uint64_t owner = common_owner(node_of(a).owner, node_of(b).owner);
    if (is_constant(a, true) || is_constant(b, true)) return b;
    if (is_constant(a, false)) return true;
    if (is_constant(b, false)) return !a;
    return make(Node::Kind::Implies, owner, {Access::node(a), Access::node(b)});
}

Term ite(const Formula& condition, const Term& then, const Term& otherwise) {
    const Node& c = node_of(condition);
    std::uint64_t owner =
        common_owner(c.owner, common_owner(Access::owner(then), Access::owner(otherwise)));
    if (c.kind == Node::Kind::Constant) return c.value ? then : otherwise;
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::Ite;
    node->owner = owner;
    node->children.push_back(Access::node(condition));
    node->terms = {then, otherwise};
    return Access::ite(owner, std::move(node));
}

Term Access::variable(std::uint64_t owner, int var) {
    Term t;
    t.owner_ = owner;
    t.parts_.push_back({var, QNumber(1)});
    return t;
}

Term Access::ite(std::uint64_t owner, std::shared_ptr<const Node> node) {
    Term t;
    t.owner_ = owner;
    t.ites_.push_back({std::move(node), QNumber(1)});
    return t;
}

}  // namespace vorn::smt
