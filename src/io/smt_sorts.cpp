#include "vorn/io/smt_sorts.h"

#include <algorithm>
#include <string>

#include "vorn/io/parse_error.h"
#include "vorn/io/smt_symbols.h"

namespace vorn::io {

namespace {

[[noreturn]] void fail(smt::SourcePos pos, const std::string& message) {
    throw ParseError(pos, message);
}

// Abbreviations nest no deeper than this, so resolving never exhausts the machine's stack.
constexpr int kMaxDepth = 1000;

}  // namespace

const SortTable::Sort* SortTable::find(std::uint32_t symbol) const {
    for (std::size_t i = sorts_.size(); i-- > 0;)
        if (sorts_[i].symbol == symbol) return &sorts_[i];
    return nullptr;
}

void SortTable::fresh(const SNode& name) const {
    if (name.kind != SNode::Kind::Symbol) fail(name.pos, "expected a sort symbol");
    if (name.is_symbol(symbol_of(Known::Bool)) || name.is_symbol(symbol_of(Known::Int)) ||
        name.is_symbol(symbol_of(Known::Real)) || find(name.symbol) != nullptr)
        fail(name.pos, "sort " + quoted(symbols_.name(name.symbol)) + " is already declared");
}

void SortTable::declare(const SExprTree& tree, SExprTree::Id name, SExprTree::Id arity) {
    fresh(tree[name]);
    const SNode& n = tree[arity];
    if (n.kind != SNode::Kind::Numeral) fail(n.pos, "expected the sort's arity, a numeral");
    if (tree.text(n) != "0")
        fail(n.pos, "sorts with parameters are not supported (only declare-sort of arity 0)");
    sorts_.push_back({tree[name].symbol, {}, {}, true});
}

void SortTable::define(const SExprTree& tree, SExprTree::Id name, SExprTree::Id params,
                       SExprTree::Id body) {
    fresh(tree[name]);
    if (!tree[params].is_list()) fail(tree[params].pos, "expected a list of sort parameters");
    Sort sort{tree[name].symbol, {}, tree.copy_of(body), false};
    for (SExprTree::Id p = tree.first(params); p != tree.end(params); p = tree.next(p)) {
        if (tree[p].kind != SNode::Kind::Symbol) fail(tree[p].pos, "expected a sort parameter");
        if (std::find(sort.params.begin(), sort.params.end(), tree[p].symbol) != sort.params.end())
            fail(tree[p].pos, quoted(symbols_.name(tree[p].symbol)) + " is a parameter twice");
        sort.params.push_back(tree[p].symbol);
    }
    sorts_.push_back(std::move(sort));
}

SortKind SortTable::resolve(const SExprTree& tree, SExprTree::Id sort) const {
    std::uint64_t steps = 0;
    return resolve(tree, sort, {}, steps, 0);
}

SortKind SortTable::resolve(const SExprTree& tree, SExprTree::Id id,
                            const std::vector<Binding>& env, std::uint64_t& steps,
                            int depth) const {
    const SNode& n = tree[id];
    if (++steps > kMaxExpansion || depth > kMaxDepth)
        fail(n.pos, "sort abbreviations expand too far");
    const SNode& head = n.is_list() && n.size > 0 ? tree[tree.first(id)] : n;
    if (head.kind != SNode::Kind::Symbol) fail(n.pos, "expected a sort");
    std::size_t args = n.is_list() ? n.size - 1 : 0;
    bool simple = head.is_symbol(symbol_of(Known::Bool)) || head.is_symbol(symbol_of(Known::Int)) ||
                  head.is_symbol(symbol_of(Known::Real));
    for (const Binding& b : env)
        simple = simple || b.symbol == head.symbol;
    if (simple && n.is_list())
        fail(n.pos, "sort " + quoted(symbols_.name(head.symbol)) + " takes 0 parameters");
    if (simple) {
        for (std::size_t i = env.size(); i-- > 0;)
            if (env[i].symbol == head.symbol) return env[i].kind;
        if (head.is_symbol(symbol_of(Known::Bool))) return SortKind::Bool;
        return head.is_symbol(symbol_of(Known::Int)) ? SortKind::Int : SortKind::Real;
    }
    const Sort* s = find(head.symbol);
    if (s == nullptr)
        fail(n.pos, "unsupported sort " + quoted(symbols_.name(head.symbol)) +
                        " (only Real, Int, Bool and declared sorts)");
    if (s->declared && args == 0) return SortKind::Uninterpreted;
    if (s->declared || args != s->params.size())
        fail(n.pos, "sort " + quoted(symbols_.name(head.symbol)) + " takes " +
                        std::to_string(s->params.size()) + " parameter" +
                        (s->params.size() == 1 ? "" : "s"));
    std::vector<Binding> bound;
    std::size_t k = 0;
    if (n.is_list())
        for (SExprTree::Id a = tree.next(tree.first(id)); a != tree.end(id); a = tree.next(a))
            bound.push_back({s->params[k++], resolve(tree, a, env, steps, depth + 1)});
    return resolve(s->body, 1, bound, steps, depth + 1);
}

}  // namespace vorn::io
