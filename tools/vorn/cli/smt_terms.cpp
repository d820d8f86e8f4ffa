#include "cli/smt_terms.h"

#include <algorithm>

#include "cli/input_error.h"
#include "cli/numbers.h"

namespace vorn::cli {

namespace {

[[noreturn]] void fail(SourcePos pos, const std::string& message) {
    throw InputError(pos, message);
}

// Why a known symbol cannot head a term, or null when it can.
const char* refusal(Known head) {
    switch (head) {
        case Known::Or:
        case Known::Not:
        case Known::Implies:
        case Known::Xor:
        case Known::Ite:
        case Known::Forall:
        case Known::Exists:
        case Known::Match:
            return "is not supported (assertions are conjunctions of linear atoms)";
        case Known::ToInt:
        case Known::IsInt:
        case Known::Abs:
        case Known::Div:
        case Known::Mod:
            return "is not supported (terms are linear sums over the rationals)";
        case Known::Underscore:
        case Known::As:
            return "is not supported (no indexed or qualified identifiers)";
        default:
            return nullptr;
    }
}

Relation relation_of(Known head) {
    switch (head) {
        case Known::Le:
            return Relation::Le;
        case Known::Lt:
            return Relation::Lt;
        case Known::Ge:
            return Relation::Ge;
        case Known::Gt:
            return Relation::Gt;
        case Known::Distinct:
            return Relation::Distinct;
        default:
            return Relation::Eq;
    }
}

}  // namespace

void TermEvaluator::declare_variable(std::uint32_t symbol, int var) {
    state(symbol).global = {Meaning::Variable, static_cast<std::uint32_t>(var)};
}

void TermEvaluator::define(std::uint32_t symbol, const SExprTree& tree, Id body, bool formula) {
    evaluate(tree, body);
    Value& value = values_[0];
    if (value.is_formula != formula)
        fail(tree[body].pos,
             formula ? "expected a formula, found a term" : "expected a term, found a formula");
    Meaning meaning{Meaning::Formula, value.formula};
    if (!formula) {
        (void)value.expr.entries();  // normalized once, as a let value
        meaning = {Meaning::DefinedTerm, static_cast<std::uint32_t>(defined_terms_.size())};
        defined_terms_.emplace_back().swap(value.expr);
    }
    state(symbol).global = meaning;
    persistent_ = {formulas_.size(), children_.size(), atoms_.size()};
}

void TermEvaluator::assert_formula(const SExprTree& tree, Id id) {
    evaluate(tree, id);
    if (!values_[0].is_formula) fail(tree[id].pos, "expected a formula, found a term");
    commit(values_[0].formula);
    forget_command_formulas();
}

// ---- the walk --------------------------------------------------------------------------------

void TermEvaluator::evaluate(const SExprTree& tree, Id id) {
    tree_ = &tree;
    frames_.clear();  // an error may have left a walk behind
    unbind_to(0);
    let_terms_.clear();
    top_ = 0;
    start(id);
    while (!frames_.empty()) {
        Frame& f = frames_.back();
        if (Id child = next_child(f); child != 0) {
            start(child);
            continue;
        }
        finish(f);
        frames_.pop_back();
    }
}

// A leaf becomes a value at once; a list gets a frame whose arguments the walk visits next.
void TermEvaluator::start(Id id) {
    const SNode& n = node(id);
    switch (n.kind) {
        case SNode::Kind::Numeral:
        case SNode::Kind::Decimal:
            push_value().expr.set_constant(parse_number(tree_->text(n), n.pos));
            return;
        case SNode::Kind::Symbol:
            return push_symbol(n);
        case SNode::Kind::String:
            fail(n.pos, "expected a term, found a string literal");
        case SNode::Kind::Keyword:
            fail(n.pos, "expected a term, found the keyword " + quoted(symbols_.name(n.symbol)));
        case SNode::Kind::List:
            return start_list(id);
    }
}

void TermEvaluator::start_list(Id id) {
    const SExprTree& tree = *tree_;
    const SNode& list = tree[id];
    if (list.size == 0) fail(list.pos, "expected a term, found '()'");
    const SNode& head = tree[tree.first(id)];
    Id args = tree.next(tree.first(id));
    std::size_t count = list.size - 1;
    if (head.kind != SNode::Kind::Symbol) fail(head.pos, "expected a function symbol");
    if (!is_known(head.symbol)) {
        if (meaning(head.symbol).kind != Meaning::None)
            fail(head.pos, quoted(symbols_.name(head.symbol)) +
                               " is not a function (only constants can be declared)");
        fail(head.pos, "unknown function " + quoted(symbols_.name(head.symbol)));
    }
    Known k = known(head.symbol);
    if (const char* why = refusal(k)) fail(head.pos, quoted(name(head.symbol)) + " " + why);
    auto at_least = [&](std::size_t n) {
        if (count < n)
            fail(list.pos, quoted(name(head.symbol)) + " needs at least " + std::to_string(n) +
                               " argument" + (n == 1 ? "" : "s"));
    };
    switch (k) {
        case Known::Plus:
        case Known::Times:
        case Known::Divide:
            at_least(2);
            return push_frame(id, args, list.end, Op::Arith, k);
        case Known::Minus:
            at_least(1);
            return push_frame(id, args, list.end, Op::Arith, k);
        case Known::ToReal:
            if (count != 1) fail(list.pos, "'to_real' takes 1 argument");
            return push_frame(id, args, list.end, Op::Arith, k);
        case Known::Eq:
        case Known::Le:
        case Known::Lt:
        case Known::Ge:
        case Known::Gt:
        case Known::Distinct:
            at_least(2);
            return push_frame(id, args, list.end, Op::Relation, k);
        case Known::And:
            return push_frame(id, args, list.end, Op::And, k);
        case Known::Bang:
            at_least(1);
            return push_frame(id, args, tree.next(args), Op::Annotation, k);
        case Known::Let: {
            const SNode& bindings = tree[args];
            if (count != 2 || !bindings.is_list() || bindings.size == 0)
                fail(list.pos, "malformed let: expected (let ((name term) ...) body)");
            for (Id b = tree.first(args); b != bindings.end; b = tree.next(b))
                if (!tree[b].is_list() || tree[b].size != 2 ||
                    tree[tree.first(b)].kind != SNode::Kind::Symbol)
                    fail(tree[b].pos, "malformed let binding: expected (name term)");
            return push_frame(id, tree.first(args), bindings.end, Op::Let, k);
        }
        default:
            fail(head.pos, (k == Known::True || k == Known::False)
                               ? quoted(name(head.symbol)) + " is not a function"
                               : "unknown function " + quoted(name(head.symbol)));
    }
}

void TermEvaluator::push_frame(Id id, Id args, Id end, Op op, Known head) {
    frames_.push_back(
        Frame{id, args, args, end, op, head, false, static_cast<std::uint32_t>(top_)});
}

// A let evaluates the term of every binding, then brings the names into scope and evaluates its
// body.
TermEvaluator::Id TermEvaluator::next_child(Frame& f) {
    const SExprTree& tree = *tree_;
    if (f.next != f.end) {
        Id current = f.next;
        f.next = tree.next(current);
        return f.op == Op::Let ? tree.next(tree.first(current)) : current;
    }
    if (f.op != Op::Let || f.bound) return 0;
    f.bound = true;
    f.scope = static_cast<std::uint32_t>(bindings_.size());
    f.let_terms = static_cast<std::uint32_t>(let_terms_.size());
    std::size_t i = 0;
    for (Id b = f.args; b != f.end; b = tree.next(b))
        bind(tree[tree.first(b)], values_[f.base + i++], f.scope);
    Id bindings = tree.next(tree.first(f.node));
    return tree.next(bindings);
}

SourcePos TermEvaluator::arg_pos(const Frame& f, std::size_t i) const {
    Id a = f.args;
    while (i-- > 0)
        a = tree_->next(a);
    return node(a).pos;
}

void TermEvaluator::finish(Frame& f) {
    switch (f.op) {
        case Op::Arith:
            finish_arith(f);
            break;
        case Op::Relation:
            finish_relation(f);
            break;
        case Op::And:
            finish_and(f);
            break;
        case Op::Let:
            finish_let(f);
            break;
        case Op::Annotation:
            break;
    }
    top_ = f.base + 1;
}

void TermEvaluator::finish_arith(const Frame& f) {
    expect_kind(f, false);
    Value& result = values_[f.base];
    std::size_t n = top_ - f.base;
    auto arg = [&](std::size_t i) -> LinearExpr& { return values_[f.base + i].expr; };
    switch (f.head) {
        case Known::Plus:
            for (std::size_t i = 1; i < n; ++i)
                result.expr.add(arg(i), QNumber(1));
            break;
        case Known::Minus:
            if (n == 1) result.expr.scale(QNumber(-1));
            for (std::size_t i = 1; i < n; ++i)
                result.expr.add(arg(i), QNumber(-1));
            break;
        case Known::Times: {
            QNumber factor(1);
            std::size_t linear = n;  // the one argument with variables, if any
            for (std::size_t i = 0; i < n; ++i) {
                if (!arg(i).is_constant()) {
                    if (linear != n) fail(arg_pos(f, i), "non-linear product");
                    linear = i;
                    continue;
                }
                factor *= arg(i).constant_value();
                check_number_size(factor, arg_pos(f, i));
            }
            if (linear == n) {
                result.expr.set_constant(factor);
                break;
            }
            if (linear != 0) result.expr.swap(arg(linear));
            result.expr.scale(factor);
            break;
        }
        case Known::Divide: {
            QNumber divisor(1);
            for (std::size_t i = 1; i < n; ++i) {
                if (!arg(i).is_constant()) fail(arg_pos(f, i), "division by a non-constant term");
                if (arg(i).constant_value().is_zero()) fail(arg_pos(f, i), "division by zero");
                divisor *= arg(i).constant_value();
                check_number_size(divisor, arg_pos(f, i));
            }
            result.expr.scale(QNumber(1) / divisor);
            break;
        }
        default:  // to_real
            break;
    }
    if (result.expr.has_big_coefficient())
        for (const auto& e : result.expr.entries())
            check_number_size(e.coeff, node(f.node).pos);
}

// A chain (op a b c) asserts (op a b) and (op b c); distinct stays one atom over all its terms.
void TermEvaluator::finish_relation(const Frame& f) {
    expect_kind(f, false);
    std::size_t n = top_ - f.base;
    Value& result = values_[f.base];
    Relation relation = relation_of(f.head);
    if (relation == Relation::Distinct) {
        std::uint32_t first = problem_.term_count();
        for (std::size_t i = 0; i < n; ++i)
            problem_.add_term(values_[f.base + i].expr);
        result.formula = new_atom(relation, first, static_cast<std::uint32_t>(n), node(f.node).pos);
    } else {
        scratch_ids_.clear();
        if (n == 2) {  // the common atom: lhs − rhs in place
            result.expr.add(values_[f.base + 1].expr, QNumber(-1));
            result.formula =
                new_atom(relation, problem_.add_term(result.expr), 1, node(f.node).pos);
            result.is_formula = true;
            return;
        }
        for (std::size_t i = 0; i + 1 < n; ++i) {
            scratch_.clear();
            scratch_.add(values_[f.base + i].expr, QNumber(1));
            scratch_.add(values_[f.base + i + 1].expr, QNumber(-1));
            scratch_ids_.push_back(
                new_atom(relation, problem_.add_term(scratch_), 1, node(f.node).pos));
        }
        result.formula = scratch_ids_.size() == 1 ? scratch_ids_[0] : new_and(scratch_ids_);
    }
    result.is_formula = true;
}

void TermEvaluator::finish_and(const Frame& f) {
    expect_kind(f, true);
    std::size_t n = top_ - f.base;
    scratch_ids_.clear();
    for (std::size_t i = 0; i < n; ++i)
        scratch_ids_.push_back(values_[f.base + i].formula);
    Value& result = n == 0 ? push_value() : values_[f.base];
    result.formula = n == 1 ? scratch_ids_[0] : new_and(scratch_ids_);
    result.is_formula = true;
}

void TermEvaluator::finish_let(const Frame& f) {
    values_[f.base].expr.swap(values_[top_ - 1].expr);
    values_[f.base].formula = values_[top_ - 1].formula;
    values_[f.base].is_formula = values_[top_ - 1].is_formula;
    unbind_to(f.scope);
    let_terms_.resize(f.let_terms);
}

void TermEvaluator::expect_kind(const Frame& f, bool formula) const {
    for (std::size_t i = f.base; i < top_; ++i)
        if (values_[i].is_formula != formula)
            fail(arg_pos(f, i - f.base),
                 formula ? "expected a formula, found a term" : "expected a term, found a formula");
}

// ---- names -----------------------------------------------------------------------------------

void TermEvaluator::push_symbol(const SNode& node) {
    Meaning m = meaning(node.symbol);
    Value& value = push_value();
    switch (m.kind) {
        case Meaning::Variable:
            value.expr.set_variable(static_cast<int>(m.index));
            return;
        case Meaning::LetTerm:
            value.expr.add(let_terms_[m.index], QNumber(1));
            return;
        case Meaning::DefinedTerm:
            value.expr.add(defined_terms_[m.index], QNumber(1));
            return;
        case Meaning::Formula:
            value.formula = m.index;
            value.is_formula = true;
            return;
        case Meaning::None:
            break;
    }
    if (node.symbol == symbol_of(Known::True)) {
        value.formula = 0;
        value.is_formula = true;
        return;
    }
    if (node.symbol == symbol_of(Known::False)) {
        scratch_.set_constant(QNumber(1));  // false is the atom 1 = 0
        value.formula = new_atom(Relation::Eq, problem_.add_term(scratch_), 1, node.pos);
        value.is_formula = true;
        return;
    }
    fail(node.pos, "undeclared symbol " + quoted(symbols_.name(node.symbol)));
}

// The next value slot, empty; slots keep their storage from one use to the next.
TermEvaluator::Value& TermEvaluator::push_value() {
    if (top_ == values_.size()) values_.emplace_back();
    Value& value = values_[top_++];
    value.expr.clear();
    value.is_formula = false;
    value.formula = 0;
    return value;
}

void TermEvaluator::bind(const SNode& name, Value& value, std::size_t scope_begin) {
    SymbolState& s = state(name.symbol);
    if (s.innermost > scope_begin)
        fail(name.pos, quoted(symbols_.name(name.symbol)) + " is bound twice in one let");
    Meaning m{Meaning::Formula, value.formula};
    if (!value.is_formula) {
        // Normalized once here, or every use would copy the unmerged sum and double it.
        (void)value.expr.entries();
        m = {Meaning::LetTerm, static_cast<std::uint32_t>(let_terms_.size())};
        let_terms_.emplace_back().swap(value.expr);
    }
    bindings_.push_back({name.symbol, s.innermost, m});
    s.innermost = static_cast<std::uint32_t>(bindings_.size());
}

void TermEvaluator::unbind_to(std::size_t size) {
    while (bindings_.size() > size) {
        states_[bindings_.back().symbol].innermost = bindings_.back().previous;
        bindings_.pop_back();
    }
}

TermEvaluator::Meaning TermEvaluator::meaning(std::uint32_t symbol) const {
    if (symbol >= states_.size()) return {};
    const SymbolState& s = states_[symbol];
    return s.innermost != 0 ? bindings_[s.innermost - 1].meaning : s.global;
}

TermEvaluator::SymbolState& TermEvaluator::state(std::uint32_t symbol) {
    if (states_.size() <= symbol)
        states_.resize(std::max<std::size_t>(symbol + 1, 2 * states_.size()));
    return states_[symbol];
}

// ---- formulas --------------------------------------------------------------------------------

TermEvaluator::FormulaId TermEvaluator::new_atom(Relation relation, std::uint32_t first_term,
                                                 std::uint32_t terms, SourcePos pos) {
    atoms_.push_back({relation, first_term, terms, pos});
    formulas_.push_back({FormulaNode::Atom, static_cast<std::uint32_t>(atoms_.size() - 1), 0});
    return static_cast<FormulaId>(formulas_.size() - 1);
}

TermEvaluator::FormulaId TermEvaluator::new_and(std::span<const FormulaId> children) {
    formulas_.push_back({FormulaNode::And, static_cast<std::uint32_t>(children_.size()),
                         static_cast<std::uint32_t>(children.size())});
    children_.insert(children_.end(), children.begin(), children.end());
    return static_cast<FormulaId>(formulas_.size() - 1);
}

// Adds the atoms under `root` to the problem in order, visiting every shared node once.
void TermEvaluator::commit(FormulaId root) {
    committed_.resize(formulas_.size(), false);
    commit_stack_.assign(1, root);
    while (!commit_stack_.empty()) {
        FormulaId id = commit_stack_.back();
        commit_stack_.pop_back();
        if (committed_[id]) continue;
        committed_[id] = true;
        const FormulaNode& node = formulas_[id];
        if (node.kind == FormulaNode::Atom) problem_.atoms.push_back(atoms_[node.first]);
        if (node.kind != FormulaNode::And) continue;
        for (std::uint32_t i = node.size; i-- > 0;)
            commit_stack_.push_back(children_[node.first + i]);
    }
}

// An assertion's own formula nodes are not needed once its atoms are in the problem; those of
// definitions stay.
void TermEvaluator::forget_command_formulas() {
    formulas_.resize(persistent_.formulas);
    children_.resize(persistent_.children);
    atoms_.resize(persistent_.atoms);
    committed_.resize(persistent_.formulas);
}

}  // namespace vorn::cli
