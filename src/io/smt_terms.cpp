#include "vorn/io/smt_terms.h"

#include <algorithm>

#include "vorn/io/numbers.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

[[noreturn]] void fail(smt::SourcePos pos, const std::string& message) {
    throw ParseError(pos, message);
}

// Why a known symbol cannot head a term, or null when it can.
const char* refusal(Known head) {
    switch (head) {
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

smt::Relation relation_of(Known head) {
    switch (head) {
        case Known::Le:
            return smt::Relation::Le;
        case Known::Lt:
            return smt::Relation::Lt;
        case Known::Ge:
            return smt::Relation::Ge;
        case Known::Gt:
            return smt::Relation::Gt;
        case Known::Distinct:
            return smt::Relation::Distinct;
        default:
            return smt::Relation::Eq;
    }
}

}  // namespace

void TermEvaluator::declare_variable(std::uint32_t symbol, int var) {
    state(symbol).global = {Meaning::Variable, static_cast<std::uint32_t>(var)};
}

void TermEvaluator::declare_opaque(std::uint32_t symbol, bool boolean) {
    state(symbol).global = {boolean ? Meaning::BoolConstant : Meaning::Function, 0};
}

const smt::LinearExpr* TermEvaluator::evaluate_term(const SExprTree& tree, Id node, bool* formula,
                                                    bool* real) {
    evaluate(tree, node);
    const Value& value = values_[0];
    *formula = value.is_formula && !value.unsupported;
    *real = value.real;
    forget_command_formulas();
    return value.is_formula || value.unsupported ? nullptr : &value.expr;
}

void TermEvaluator::define_function(std::uint32_t symbol, const SExprTree& tree, Id params, Id body,
                                    bool int_sort) {
    Function f{tree.copy_of(body), {}, int_sort};
    for (Id p = tree.first(params); p != tree.end(params); p = tree.next(p)) {
        if (!tree[p].is_list() || tree[p].size != 2 ||
            tree[tree.first(p)].kind != SNode::Kind::Symbol)
            fail(tree[p].pos, "malformed parameter: expected (name smt::Sort)");
        std::uint32_t name = tree[tree.first(p)].symbol;
        if (std::find(f.params.begin(), f.params.end(), name) != f.params.end())
            fail(tree[p].pos, quoted(symbols_.name(name)) + " is a parameter twice");
        f.params.push_back(name);
    }
    functions_.push_back(std::move(f));
    state(symbol).global = {Meaning::Macro, static_cast<std::uint32_t>(functions_.size() - 1)};
}

void TermEvaluator::define(std::uint32_t symbol, const SExprTree& tree, Id body, bool formula,
                           bool int_sort) {
    evaluate(tree, body);
    Value& value = values_[0];
    if (value.unsupported) {
        state(symbol).global = {Meaning::Unsupported, value.formula};
        persistent_ = {formulas_.size(), children_.size(), atoms_.size(), unsupported_.size()};
        return;
    }
    if (value.is_formula != formula)
        fail(tree[body].pos,
             formula ? "expected a formula, found a term" : "expected a term, found a formula");
    if (!formula && int_sort && value.real)
        fail(tree[body].pos, "the definition is of sort Int, its body a Real term");
    Meaning meaning{Meaning::Formula, value.formula};
    if (!formula) {
        (void)value.expr.entries();  // normalized once, as a let value
        meaning = {Meaning::DefinedTerm, static_cast<std::uint32_t>(defined_terms_.size()),
                   !int_sort};
        defined_terms_.emplace_back().swap(value.expr);
    }
    state(symbol).global = meaning;
    persistent_ = {formulas_.size(), children_.size(), atoms_.size(), unsupported_.size()};
}

void TermEvaluator::assert_formula(const SExprTree& tree, Id id) {
    evaluate(tree, id);
    if (!values_[0].is_formula && !values_[0].unsupported)
        fail(tree[id].pos, "expected a formula, found a term");
    commit(values_[0].formula);
    forget_command_formulas();
}

// ---- the walk --------------------------------------------------------------------------------

void TermEvaluator::evaluate(const SExprTree& tree, Id id) {
    tree_ = &tree;
    root_tree_ = &tree;
    frames_.clear();  // an error may have left a walk behind
    forget_command_formulas();
    barrier_ = 0;
    body_nodes_ = 0;
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
    // Nested definitions can expand exponentially; lets, which share values, cannot.
    constexpr std::uint64_t kMaxBodyNodes = 10'000'000;
    if (tree_ != root_tree_ && ++body_nodes_ > kMaxBodyNodes)
        fail(node(id).pos, "definitions expand to more than 10^7 nodes in one command");
    const SNode& n = node(id);
    switch (n.kind) {
        case SNode::Kind::Numeral:
        case SNode::Kind::Decimal: {
            Value& value = push_value();
            value.expr.set_constant(parse_number(tree_->text(n), n.pos));
            value.real = n.kind == SNode::Kind::Decimal;
            return;
        }
        case SNode::Kind::Symbol:
            return push_symbol(n);
        case SNode::Kind::String:
            fail(n.pos, "expected a term, found a string literal");
        case SNode::Kind::Keyword:
            fail(n.pos, "expected a term, found the keyword " + quoted(symbols_.name(n.symbol)));
        case SNode::Kind::Bits:
            fail(n.pos, "binary and hexadecimal literals (bit-vectors) are not supported");
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
        Meaning m = meaning(head.symbol);
        if (m.kind == Meaning::Macro) {
            if (count != functions_[m.index].params.size())
                fail(list.pos, quoted(name(head.symbol)) + " takes " +
                                   std::to_string(functions_[m.index].params.size()) +
                                   " arguments");
            push_frame(id, args, list.end, Op::Call, Known::Count);
            frames_.back().function = m.index;
            return;
        }
        if (meaning(head.symbol).kind == Meaning::Function)
            return outside(push_value(), "the uninterpreted function " + quoted(name(head.symbol)),
                           head.pos);
        if (meaning(head.symbol).kind != Meaning::None)
            fail(head.pos, quoted(symbols_.name(head.symbol)) +
                               " is not a function (only constants can be declared)");
        fail(head.pos, "unknown function " + quoted(symbols_.name(head.symbol)));
    }
    Known k = known(head.symbol);
    if (const char* why = refusal(k)) {
        if (!lenient_) fail(head.pos, quoted(name(head.symbol)) + " " + why);
        return outside(push_value(), quoted(name(head.symbol)), head.pos);
    }
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
        case Known::Or:
            return push_frame(id, args, list.end, Op::Or, k);
        case Known::Not:
            if (count != 1) fail(list.pos, "'not' takes 1 argument");
            return push_frame(id, args, list.end, Op::Not, k);
        case Known::Implies:
            at_least(2);
            return push_frame(id, args, list.end, Op::Implies, k);
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
    if (f.op == Op::Call && !f.bound) return bind_call(f);
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

smt::SourcePos TermEvaluator::arg_pos(const Frame& f, std::size_t i) const {
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
        case Op::Or:
        case Op::Not:
        case Op::Implies:
            finish_connective(f);
            break;
        case Op::Let:
            finish_let(f);
            break;
        case Op::Annotation:
            break;
        case Op::Call:
            finish_call(f);
            break;
    }
    top_ = f.base + 1;
}

void TermEvaluator::outside(Value& value, const std::string& what, smt::SourcePos pos) {
    if (!lenient_) fail(pos, what);
    value.unsupported = true;
    value.is_formula = false;
    value.formula = new_unsupported(what, pos);
}

bool TermEvaluator::propagate_unsupported(const Frame& f) {
    for (std::size_t i = f.base; i < top_; ++i) {
        if (!values_[i].unsupported) continue;
        values_[f.base].unsupported = true;
        values_[f.base].formula = values_[i].formula;
        return true;
    }
    return false;
}

void TermEvaluator::finish_arith(const Frame& f) {
    if (propagate_unsupported(f)) return;
    expect_kind(f, false);
    Value& result = values_[f.base];
    std::size_t n = top_ - f.base;
    auto arg = [&](std::size_t i) -> smt::LinearExpr& { return values_[f.base + i].expr; };
    bool real = false;
    for (std::size_t i = 0; i < n; ++i)
        real = real || values_[f.base + i].real;
    if (f.head == Known::ToReal && real)
        fail(arg_pos(f, 0), "'to_real' takes an Int term, not a Real one");
    result.real = real || f.head == Known::Divide || f.head == Known::ToReal;
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
                    if (linear != n) return outside(result, "non-linear product", arg_pos(f, i));
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
                if (!arg(i).is_constant())
                    return outside(result, "division by a non-constant term", arg_pos(f, i));
                if (arg(i).constant_value().is_zero())
                    return outside(result, "division by zero", arg_pos(f, i));
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
    if (propagate_unsupported(f)) return;
    if (lenient_ && (f.head == Known::Eq || f.head == Known::Distinct))
        for (std::size_t i = f.base; i < top_; ++i)
            if (values_[i].is_formula)
                return outside(values_[f.base],
                               "'" + name(symbol_of(f.head)) + "' between formulas",
                               node(f.node).pos);
    expect_kind(f, false);
    std::size_t n = top_ - f.base;
    Value& result = values_[f.base];
    smt::Relation relation = relation_of(f.head);
    if (relation == smt::Relation::Distinct) {
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
        result.formula = scratch_ids_.size() == 1
                             ? scratch_ids_[0]
                             : new_and(scratch_ids_, FormulaNode::And, node(f.node).pos);
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
    // Where the and stands: negated, it is the disjunction an unknown answer names.
    result.formula =
        n == 1 ? scratch_ids_[0] : new_and(scratch_ids_, FormulaNode::And, node(f.node).pos);
    result.is_formula = true;
    result.unsupported = false;
}

// (or a b) is a node of its own; (not a) flips the reference's bit; (=> a b c) is (or ¬a ¬b c).
void TermEvaluator::finish_connective(const Frame& f) {
    expect_kind(f, true);
    std::size_t n = top_ - f.base;
    Value& result = values_[f.base];
    if (f.op == Op::Not) {
        result.formula ^= 1;
    } else {
        scratch_ids_.clear();
        for (std::size_t i = 0; i < n; ++i)
            scratch_ids_.push_back(values_[f.base + i].formula ^
                                   (f.op == Op::Implies && i + 1 < n ? 1 : 0));
        result.formula = new_and(scratch_ids_, FormulaNode::Or, node(f.node).pos);
    }
    result.is_formula = true;
    result.unsupported = false;
}

void TermEvaluator::finish_let(const Frame& f) {
    values_[f.base].expr.swap(values_[top_ - 1].expr);
    values_[f.base].formula = values_[top_ - 1].formula;
    values_[f.base].is_formula = values_[top_ - 1].is_formula;
    values_[f.base].unsupported = values_[top_ - 1].unsupported;
    unbind_to(f.scope);
    let_terms_.resize(f.let_terms);
}

// The arguments are values: the parameters name them above a barrier that hides the caller's
// lets, and the walk continues in the body's own tree.
TermEvaluator::Id TermEvaluator::bind_call(Frame& f) {
    f.bound = true;
    f.scope = static_cast<std::uint32_t>(bindings_.size());
    f.let_terms = static_cast<std::uint32_t>(let_terms_.size());
    f.saved_barrier = static_cast<std::uint32_t>(barrier_);
    f.caller = tree_;
    const Function& fn = functions_[f.function];
    barrier_ = bindings_.size();
    for (std::size_t i = 0; i < fn.params.size(); ++i) {
        SNode name;
        name.kind = SNode::Kind::Symbol;
        name.symbol = fn.params[i];
        bind(name, values_[f.base + i], f.scope);
    }
    tree_ = &fn.body;
    return 1;
}

void TermEvaluator::finish_call(Frame& f) {
    tree_ = f.caller;
    barrier_ = f.saved_barrier;
    finish_let(f);
    Value& result = values_[f.base];
    if (result.is_formula || result.unsupported) return;
    bool int_sort = functions_[f.function].int_sort;
    if (int_sort && result.real)
        fail(node(f.node).pos, quoted(name(node(tree_->first(f.node)).symbol)) +
                                   " is of sort Int, its body a Real term here");
    result.real = !int_sort;
}

void TermEvaluator::expect_kind(const Frame& f, bool formula) const {
    for (std::size_t i = f.base; i < top_; ++i)
        if (values_[i].is_formula != formula && !values_[i].unsupported)
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
            value.real = problem_.variables.sort(static_cast<int>(m.index)) == smt::Sort::Real;
            return;
        case Meaning::LetTerm:
            value.expr.add(let_terms_[m.index], QNumber(1));
            value.real = m.real;
            return;
        case Meaning::DefinedTerm:
            value.expr.add(defined_terms_[m.index], QNumber(1));
            value.real = m.real;
            return;
        case Meaning::Formula:
            value.formula = m.index;
            value.is_formula = true;
            return;
        case Meaning::Unsupported:
            value.formula = m.index;
            value.unsupported = true;
            return;
        case Meaning::BoolConstant:
            return outside(value, "the Boolean variable " + quoted(symbols_.name(node.symbol)),
                           node.pos);
        case Meaning::Macro:
            fail(node.pos, quoted(symbols_.name(node.symbol)) + " takes arguments");
        case Meaning::Function:
            return outside(value,
                           "the uninterpreted function " + quoted(symbols_.name(node.symbol)),
                           node.pos);
        case Meaning::None:
            break;
    }
    if (node.symbol == symbol_of(Known::True) || node.symbol == symbol_of(Known::False)) {
        value.formula = node.symbol == symbol_of(Known::True) ? 0 : 1;  // the True node, negated
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
    value.unsupported = false;
    value.real = false;
    value.formula = 0;
    return value;
}

void TermEvaluator::bind(const SNode& name, Value& value, std::size_t scope_begin) {
    SymbolState& s = state(name.symbol);
    if (s.innermost > scope_begin)
        fail(name.pos, quoted(symbols_.name(name.symbol)) + " is bound twice in one let");
    Meaning m{value.unsupported ? Meaning::Unsupported : Meaning::Formula, value.formula};
    if (!value.is_formula && !value.unsupported) {
        // Normalized once here, or every use would copy the unmerged sum and double it.
        (void)value.expr.entries();
        m = {Meaning::LetTerm, static_cast<std::uint32_t>(let_terms_.size()), value.real};
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
    return s.innermost > barrier_ ? bindings_[s.innermost - 1].meaning : s.global;
}

TermEvaluator::SymbolState& TermEvaluator::state(std::uint32_t symbol) {
    if (states_.size() <= symbol)
        states_.resize(std::max<std::size_t>(symbol + 1, 2 * states_.size()));
    return states_[symbol];
}

// ---- formulas --------------------------------------------------------------------------------

TermEvaluator::FormulaId TermEvaluator::new_atom(smt::Relation relation, std::uint32_t first_term,
                                                 std::uint32_t terms, smt::SourcePos pos) {
    atoms_.push_back({relation, first_term, terms, pos});
    formulas_.push_back({FormulaNode::Atom, static_cast<std::uint32_t>(atoms_.size() - 1), 0, pos});
    return static_cast<FormulaId>(2 * (formulas_.size() - 1));
}

TermEvaluator::FormulaId TermEvaluator::new_and(std::span<const FormulaId> children,
                                                FormulaNode::Kind kind, smt::SourcePos pos) {
    formulas_.push_back({kind, static_cast<std::uint32_t>(children_.size()),
                         static_cast<std::uint32_t>(children.size()), pos});
    children_.insert(children_.end(), children.begin(), children.end());
    return static_cast<FormulaId>(2 * (formulas_.size() - 1));
}

TermEvaluator::FormulaId TermEvaluator::new_unsupported(const std::string& what,
                                                        smt::SourcePos pos) {
    unsupported_.push_back({what, pos});
    formulas_.push_back(
        {FormulaNode::Unsupported, static_cast<std::uint32_t>(unsupported_.size() - 1), 0, pos});
    return static_cast<FormulaId>(2 * (formulas_.size() - 1));
}

// Adds the literals under `root` to the problem in order, negations pushed inward, visiting every
// shared node once per polarity.
void TermEvaluator::commit(FormulaId root) {
    committed_.resize(2 * formulas_.size(), false);
    commit_stack_.assign(1, root);
    while (!commit_stack_.empty()) {
        FormulaId ref = commit_stack_.back();
        commit_stack_.pop_back();
        if (committed_[ref]) continue;
        committed_[ref] = true;
        const FormulaNode& node = formulas_[ref / 2];
        bool negated = (ref & 1) != 0;
        switch (node.kind) {
            case FormulaNode::True:
                if (negated) commit_atom({smt::Relation::Ne, 0, 0, node.pos}, false, node.pos);
                break;
            case FormulaNode::Atom:
                commit_atom(atoms_[node.first], negated, node.pos);
                break;
            case FormulaNode::Unsupported:
                asserted_unsupported_.push_back(unsupported_[node.first]);
                break;
            case FormulaNode::And:
            case FormulaNode::Or:
                if ((node.kind == FormulaNode::Or) != negated) {
                    commit_disjunction(node, negated);
                    break;
                }
                for (std::uint32_t i = node.size; i-- > 0;)
                    commit_stack_.push_back(children_[node.first + i] ^ (negated ? 1 : 0));
                break;
        }
    }
}

// ¬(a ≤ b) is a > b and so on; ¬(a = b) is a ≠ b; ¬(distinct a b) is a = b. `false` arrives as
// the marker {Ne, terms = 0} and becomes the atom 1 = 0.
void TermEvaluator::commit_atom(const smt::Atom& atom, bool negated, smt::SourcePos pos) {
    if (atom.terms == 0) {
        scratch_.set_constant(QNumber(1));
        problem_.atoms.push_back({smt::Relation::Eq, problem_.add_term(scratch_), 1, pos});
        return;
    }
    if (!negated) return problem_.atoms.push_back(atom);
    smt::Atom flipped = atom;
    if (atom.relation != smt::Relation::Distinct) {
        flipped.relation = smt::negation(atom.relation);
    } else {
        if (atom.terms != 2) {
            std::string what = "a negated 'distinct' of more than two terms (a disjunction)";
            if (!lenient_) fail(atom.pos, what + " is not supported");
            asserted_unsupported_.push_back({what, atom.pos});
            return;
        }
        scratch_.clear();
        for (const auto& e : problem_.term(atom.first_term))
            scratch_.add_entry(e.var, e.coeff);
        for (const auto& e : problem_.term(atom.first_term + 1))
            scratch_.add_entry(e.var, -e.coeff);
        flipped = {smt::Relation::Eq, problem_.add_term(scratch_), 1, atom.pos};
    }
    problem_.atoms.push_back(flipped);
}

int TermEvaluator::constant_truth(FormulaId ref) const {
    const FormulaNode& node = formulas_[ref / 2];
    bool negated = (ref & 1) != 0;
    if (node.kind == FormulaNode::True) return negated ? 0 : 1;
    if (node.kind == FormulaNode::Atom && atoms_[node.first].relation != smt::Relation::Distinct) {
        auto term = problem_.term(atoms_[node.first].first_term);
        if (term.size() > 1 || (term.size() == 1 && term[0].var != 0)) return -1;
        int s = term.empty() ? 0 : term[0].coeff.sign();
        bool holds = smt::relation_holds(atoms_[node.first].relation, s);
        return holds != negated ? 1 : 0;
    }
    if ((node.kind == FormulaNode::And || node.kind == FormulaNode::Or) && node.size == 0)
        return (node.kind == FormulaNode::And) != negated ? 1 : 0;
    return -1;
}

// A disjunction (an or, or a negated and) is a conjunction only when at most one disjunct is not
// constant false; one constant true disjunct makes it true.
void TermEvaluator::commit_disjunction(const FormulaNode& node, bool negated) {
    FormulaId open = 0;
    std::uint32_t open_count = 0;
    for (std::uint32_t i = 0; i < node.size; ++i) {
        FormulaId child = children_[node.first + i] ^ (negated ? 1 : 0);
        int truth = constant_truth(child);
        if (truth == 1) return;
        if (truth == 0) continue;
        open = child;
        ++open_count;
    }
    if (open_count == 1) return commit_stack_.push_back(open);
    if (open_count == 0) return commit_stack_.push_back(1);
    std::string what = "a disjunction";
    if (!lenient_) fail(node.pos, what + " is not supported");
    asserted_unsupported_.push_back({what, node.pos});
}

// An assertion's own formula nodes are not needed once its atoms are in the problem; those of
// definitions stay.
void TermEvaluator::forget_command_formulas() {
    formulas_.resize(persistent_.formulas);
    children_.resize(persistent_.children);
    atoms_.resize(persistent_.atoms);
    unsupported_.resize(persistent_.unsupported);
    committed_.resize(2 * persistent_.formulas);
}

}  // namespace vorn::io
