// Solver::to_smt2: the added formulas as an SMT-LIB script.
//
// One post-order walk over the formulas' node DAG counts the uses of every node and finds which
// ite terms are integral; a node used more than once becomes a define-fun, written before its
// first use, so that the text stays linear in the DAG. Terms are written in the sort they have:
// Int when every variable is Int and every number integral, Real otherwise, an Int part of a
// Real term under to_real. Every item is written from an explicit stack.

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "vorn/smt/problem_text.h"

#include "formula_node.h"
#include "smt2_writer.h"

namespace vorn::smt {

namespace {

using detail::Access;
using detail::Node;

class ScriptWriter {
  public:
    ScriptWriter(const Variables& vars, std::span<const int> booleans)
        : vars_(vars), booleans_(booleans) {}

    std::string write(std::span<const int> declared, std::span<const AddedFormula> added);

  private:
    struct Item {
        const Node* node = nullptr;  // a node, else a term, else `text`
        const Term* term = nullptr;
        std::string text;
        bool real = false;  // node: an integral ite in Real arithmetic; term: its arithmetic
    };

    std::string fresh_name(const std::string& base);
    // Post-order: the uses of every node and whether each ite is integral.
    void walk(const Node* root);
    bool integral(const Term& t) const;
    // `defining`: the node a define-fun states, written out although it has a name.
    void write_node(const Node* root, const Node* defining);
    void expand(const Node& n);
    // Pushes the sum of `t` in `real` arithmetic, its constant too when `with_constant`.
    void push_term(const Term& t, bool real, bool with_constant);
    std::string number(const QNumber& q, bool real) const;
    std::string variable(int var, bool real) const;
    void push_text(std::string text) { stack_.push_back({nullptr, nullptr, std::move(text)}); }

    const Variables& vars_;
    std::span<const int> booleans_;
    std::string out_;
    std::unordered_map<int, std::string> names_;  // by variable, quoted
    std::unordered_set<std::string> used_;
    std::unordered_map<const Node*, int> uses_;
    std::unordered_set<const Node*> walked_;
    std::unordered_map<const Node*, bool> integral_ite_;
    std::unordered_map<const Node*, std::string> defined_;
    std::vector<const Node*> order_;  // post-order of the walks
    std::vector<Item> stack_;
};

std::string ScriptWriter::fresh_name(const std::string& base) {
    std::string name = base;
    for (int k = 2; used_.contains(name); ++k)
        name = base + "!" + std::to_string(k);
    used_.insert(name);
    std::string quoted;
    append_symbol(quoted, name);
    return quoted;
}

bool ScriptWriter::integral(const Term& t) const {
    for (const auto& p : Access::parts(t))
        if (!p.coeff.is_integer() || (p.var != 0 && vars_.sort(p.var) != Sort::Int)) return false;
    for (const auto& i : Access::ites(t))
        if (!i.coeff.is_integer() || !integral_ite_.at(i.node.get())) return false;
    return true;
}

void ScriptWriter::walk(const Node* root) {
    ++uses_[root];
    auto children = [](const Node& n, auto&& visit) {
        for (const auto& c : n.children)
            visit(c.get());
        for (const Term& t : n.terms)
            for (const auto& i : Access::ites(t))
                visit(i.node.get());
    };
    std::vector<std::pair<const Node*, bool>> todo{{root, false}};  // node, children pushed
    while (!todo.empty()) {
        auto [n, expanded] = todo.back();
        if (walked_.contains(n)) {
            todo.pop_back();
        } else if (!expanded) {
            todo.back().second = true;
            children(*n, [&](const Node* c) {
                if (!walked_.contains(c)) todo.push_back({c, false});
            });
        } else {
            todo.pop_back();
            walked_.insert(n);
            children(*n, [&](const Node* c) { ++uses_[c]; });
            if (n->kind == Node::Kind::Ite)
                integral_ite_[n] = integral(n->terms[0]) && integral(n->terms[1]);
            order_.push_back(n);
        }
    }
}

std::string ScriptWriter::number(const QNumber& q, bool real) const {
    QNumber magnitude = q.sign() < 0 ? -q : q;
    std::string text = magnitude.to_string();
    if (!magnitude.is_integer()) {
        std::size_t slash = text.find('/');
        text = "(/ " + text.substr(0, slash) + " " + text.substr(slash + 1) + ")";
    } else if (real) {
        text += ".0";
    }
    return q.sign() < 0 ? "(- " + text + ")" : text;
}

std::string ScriptWriter::variable(int var, bool real) const {
    const std::string& name = names_.at(var);
    return real && vars_.sort(var) == Sort::Int ? "(to_real " + name + ")" : name;
}

void ScriptWriter::push_term(const Term& t, bool real, bool with_constant) {
    std::vector<Item> sum;  // in writing order
    int monomials = 0;
    auto next = [&] {
        if (monomials++ > 0) sum.push_back({nullptr, nullptr, " "});
    };
    QNumber constant;
    for (const auto& p : Access::parts(t)) {
        if (p.var == 0) {
            constant = p.coeff;
            continue;
        }
        next();
        std::string x = variable(p.var, real);
        sum.push_back({nullptr, nullptr,
                       p.coeff.is_one()         ? x
                       : p.coeff.is_minus_one() ? "(- " + x + ")"
                                                : "(* " + number(p.coeff, real) + " " + x + ")"});
    }
    for (const auto& i : Access::ites(t)) {
        next();
        bool wrap = !i.coeff.is_one();
        if (wrap) sum.push_back({nullptr, nullptr, "(* " + number(i.coeff, real) + " "});
        sum.push_back({i.node.get(), nullptr, {}, real && integral_ite_.at(i.node.get())});
        if (wrap) sum.push_back({nullptr, nullptr, ")"});
    }
    if (with_constant && (!constant.is_zero() || monomials == 0)) {
        next();
        sum.push_back({nullptr, nullptr, number(constant, real)});
    }
    if (monomials == 0) sum.push_back({nullptr, nullptr, number(QNumber(0), real)});
    bool plus = monomials > 1;
    if (plus) push_text(")");
    for (auto it = sum.rbegin(); it != sum.rend(); ++it)
        stack_.push_back(std::move(*it));
    if (plus) push_text("(+ ");
}

void ScriptWriter::expand(const Node& n) {
    auto push_node = [&](const Node* c) { stack_.push_back({c, nullptr, {}}); };
    switch (n.kind) {
        case Node::Kind::Constant:
            out_ += n.value ? "true" : "false";
            return;
        case Node::Kind::Boolean:
            out_ += names_.at(booleans_[static_cast<std::size_t>(n.boolean - 1)]);
            return;
        case Node::Kind::Not:
            out_ += "(not ";
            push_text(")");
            push_node(n.children[0].get());
            return;
        case Node::Kind::And:
        case Node::Kind::Or:
        case Node::Kind::Implies:
            out_ += n.kind == Node::Kind::And  ? "(and "
                    : n.kind == Node::Kind::Or ? "(or "
                                               : "(=> ";
            push_text(")");
            push_node(n.children[1].get());
            push_text(" ");
            push_node(n.children[0].get());
            return;
        case Node::Kind::Ite: {
            bool real = !integral_ite_.at(&n);
            out_ += "(ite ";
            push_text(")");
            stack_.push_back({nullptr, &n.terms[1], {}, real});
            push_text(" ");
            stack_.push_back({nullptr, &n.terms[0], {}, real});
            push_text(" ");
            push_node(n.children[0].get());
            return;
        }
        case Node::Kind::Compare: {
            const Term& t = n.terms[0];
            bool real = !integral(t);
            QNumber rhs;
            for (const auto& p : Access::parts(t))
                if (p.var == 0) rhs = -p.coeff;
            out_ += n.compare == Relation::Ne ? "(not (= " : "(";
            if (n.compare != Relation::Ne) out_ += std::string(relation_text(n.compare)) + " ";
            push_text(n.compare == Relation::Ne ? "))" : ")");
            push_text(number(rhs, real));
            push_text(" ");
            push_term(t, real, false);
            return;
        }
    }
}

void ScriptWriter::write_node(const Node* root, const Node* defining) {
    stack_.push_back({root, nullptr, {}});
    while (!stack_.empty()) {
        Item item = std::move(stack_.back());
        stack_.pop_back();
        if (item.term != nullptr) {
            push_term(*item.term, item.real, true);
        } else if (item.node == nullptr) {
            out_ += item.text;
        } else {
            if (item.real) {
                out_ += "(to_real ";
                push_text(")");
            }
            auto name = defined_.find(item.node);
            if (name != defined_.end() && item.node != defining)
                out_ += name->second;
            else
                expand(*item.node);
        }
    }
}

std::string ScriptWriter::write(std::span<const int> declared,
                                std::span<const AddedFormula> added) {
    for (int v : declared)
        names_[v] = fresh_name(std::string(vars_.name(v)));
    std::vector<std::string> tracked_names;  // before the definitions take names
    for (const AddedFormula& a : added)
        if (a.tracked) tracked_names.push_back(fresh_name(a.name));
    bool tracked = false;
    for (const AddedFormula& a : added) {
        walk(Access::node(a.formula).get());
        tracked = tracked || a.tracked;
    }
    out_ = "(set-logic ALL)\n";
    if (tracked) out_ += "(set-option :produce-unsat-cores true)\n";
    static constexpr const char* kSorts[] = {"Real", "Int", "Bool"};
    for (int v : declared)
        out_ +=
            "(declare-const " + names_[v] + " " + kSorts[static_cast<int>(vars_.sort(v))] + ")\n";
    for (const Node* n : order_) {
        if (uses_[n] < 2 || n->kind == Node::Kind::Constant || n->kind == Node::Kind::Boolean)
            continue;
        std::string name = fresh_name("_def" + std::to_string(defined_.size() + 1));
        const char* sort = n->kind != Node::Kind::Ite ? "Bool" : integral_ite_[n] ? "Int" : "Real";
        out_ += "(define-fun " + name + " () " + sort + " ";
        write_node(n, n);
        out_ += ")\n";
        defined_[n] = std::move(name);
    }
    std::size_t next_name = 0;
    for (const AddedFormula& a : added) {
        out_ += a.tracked ? "(assert (! " : "(assert ";
        write_node(Access::node(a.formula).get(), nullptr);
        if (a.tracked) {
            out_ += " :named " + tracked_names[next_name++];
            out_ += ")";
        }
        out_ += ")\n";
    }
    out_ += "(check-sat)\n";
    return std::move(out_);
}

}  // namespace

std::string write_smt2_script(const Variables& vars, std::span<const int> declared,
                              std::span<const int> booleans, std::span<const AddedFormula> added) {
    return ScriptWriter(vars, booleans).write(declared, added);
}

}  // namespace vorn::smt
