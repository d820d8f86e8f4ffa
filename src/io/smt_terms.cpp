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
const char* refusal(Known head, bool lenient) {
    switch (head) {
        case Known::Xor:
        case Known::Ite:
            return lenient ? nullptr
                           : "is not supported (assertions are conjunctions of linear atoms)";
        case Known::Forall:
        case Known::Exists:
        case Known::Match:
            return "is not supported (assertions are conjunctions of linear atoms)";
        case Known::ToInt:
        case Known::IsInt:
        case Known::Abs:
        case Known::Div:
        case Known::Mod:
            return lenient ? nullptr
                           : "is not supported (terms are linear sums over the rationals)";
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

void TermEvaluator::declare_function(std::uint32_t symbol, bool uninterpreted_constant) {
    state(symbol).global = {Meaning::Function, uninterpreted_constant ? 1U : 0U};
}

const smt::LinearExpr* TermEvaluator::evaluate_term(const SExprTree& tree, Id node, bool* formula,
                                                    bool* real, FormulaRef* ref) {
    evaluate(tree, node);
    const Value& value = values_[0];
    *formula = value.is_formula && !value.unsupported;
    *real = value.real;
    if (ref != nullptr) *ref = value.formula;
    return value.is_formula || value.unsupported ? nullptr : &value.expr;
}

void TermEvaluator::define_function(std::uint32_t symbol, const SExprTree& tree, Id params, Id body,
                                    bool int_sort) {
    Function f{tree.copy_of(body), {}, int_sort};
    for (Id p = params == 0 ? 0 : tree.first(params); p != (params == 0 ? 0 : tree.end(params));
         p = tree.next(p)) {
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
    as_declared([&] { evaluate(tree, body); });
    Value& value = values_[0];
    if (value.unsupported) {
        state(symbol).global = {Meaning::Unsupported, value.formula};
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
}

FormulaRef TermEvaluator::formula(const SExprTree& tree, Id id) {
    evaluate(tree, id);
    if (!values_[0].is_formula && !values_[0].unsupported)
        fail(tree[id].pos, "expected a formula, found a term");
    return values_[0].formula;
}

int TermEvaluator::define_by_equality(const SExprTree& tree, Id node, FormulaRef* atom) {
    if (!tree[node].is_list() || tree[node].size != 3) return 0;
    Id head = tree.first(node), lhs = tree.next(head), rhs = tree.next(lhs);
    if (!tree[head].is_symbol(io::symbol_of(Known::Eq)) || tree[lhs].kind != SNode::Kind::Symbol ||
        tree[lhs].symbol >= states_.size() || states_[tree[lhs].symbol].innermost != 0)
        return 0;
    Meaning m = meaning(tree[lhs].symbol);
    auto var = static_cast<int>(m.index);
    if (m.kind != Meaning::Variable || problem_.variables.sort(var) == smt::Sort::Bool) return 0;
    evaluate(tree, rhs);
    Value& value = values_[0];
    if (value.is_formula || value.unsupported) return 0;
    // The atom as finish_relation builds it, so that t is evaluated (and lifted) once.
    scratch_.clear();
    scratch_.add_entry(var, QNumber(1));
    scratch_.add(value.expr, QNumber(-1));
    auto folded = ite_values_.equality(dag_, scratch_.entries(), tree[node].pos);
    *atom = folded ? *folded
                   : new_atom(smt::Relation::Eq, problem_.add_term(scratch_), 1, tree[node].pos);
    // t's text must not name x either (an ite's condition may, its lifted variable hides it).
    bool names_x = tree.any_node(rhs, [&](const SNode& n) {
        return n.kind == SNode::Kind::Symbol && n.symbol == tree[lhs].symbol;
    });
    if (names_x ||
        std::ranges::any_of(value.expr.entries(), [&](const auto& e) { return e.var == var; }) ||
        !ite_values_.finite_term(dag_, value.expr.entries()))
        return -1;
    state(tree[lhs].symbol).global = {
        Meaning::DefinedTerm, static_cast<std::uint32_t>(defined_terms_.size()),
        problem_.variables.sort(var) == smt::Sort::Real};  // x's sort: 16 is 16.0 for a Real x
    defined_terms_.emplace_back().swap(value.expr);
    by_equality_.emplace_back(tree[lhs].symbol, var);
    return var;
}

// ---- the walk --------------------------------------------------------------------------------

void TermEvaluator::evaluate(const SExprTree& tree, Id id) {
    tree_ = &tree;
    root_tree_ = &tree;
    ite_values_.new_evaluation();
    frames_.clear();  // an error may have left a walk behind
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
            if (Meaning m = meaning(n.symbol);
                m.kind == Meaning::Macro && functions_[m.index].params.empty()) {
                push_frame(id, tree_->next(id), tree_->next(id), Op::Call, Known::Count);
                frames_.back().function = m.index;
                return;
            }
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
    if (head.kind == SNode::Kind::List) return start_indexed(id);
    if (head.kind != SNode::Kind::Symbol) fail(head.pos, "expected a function symbol");
    if (!is_predefined(head.symbol)) {
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
    if (const char* why = refusal(k, lenient_)) {
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
            at_least(1);  // (+ x) is x, as z3 reads it
            return push_frame(id, args, list.end, Op::Arith, k);
        case Known::Divide:
            at_least(2);
            return push_frame(id, args, list.end, Op::Arith, k);
        case Known::Div:
            at_least(2);
            return push_frame(id, args, list.end, Op::IntegerOp, k);
        case Known::Mod:
            if (count != 2) fail(list.pos, "'mod' takes 2 arguments");
            return push_frame(id, args, list.end, Op::IntegerOp, k);
        case Known::Abs:
        case Known::ToInt:
        case Known::IsInt:
            if (count != 1) fail(list.pos, quoted(name(head.symbol)) + " takes 1 argument");
            return push_frame(id, args, list.end, Op::IntegerOp, k);
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
        case Known::Xor:
            at_least(2);
            return push_frame(id, args, list.end, Op::Xor, k);
        case Known::Ite:
            if (count != 3) fail(list.pos, "'ite' takes 3 arguments");
            return push_frame(id, args, list.end, Op::Ite, k);
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
        case Op::Xor:
            finish_connective(f);
            break;
        case Op::Ite:
            finish_ite(f);
            break;
        case Op::Let:
            finish_let(f);
            break;
        case Op::Annotation:
            finish_annotation(f);
            break;
        case Op::Call:
            finish_call(f);
            break;
        case Op::IntegerOp:
            finish_integer_op(f);
            break;
    }
    top_ = f.base + 1;
}

void TermEvaluator::outside(Value& value, const std::string& what, smt::SourcePos pos) {
    if (!lenient_) fail(pos, what);
    value.unsupported = true;
    value.is_formula = false;
    value.formula = dag_.unsupported(what, pos);
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
    // z3 reads (to_real t) of a Real t as t: failing would drop the assertion.
    if (f.head == Known::ToReal && real && !lenient_)
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
                if (arg(i).constant_value().is_zero()) {
                    if (!lenient_) return outside(result, "division by zero", arg_pos(f, i));
                    result.expr.scale(QNumber(1) / divisor);
                    by_zero(result, Known::Divide, true, node(f.node).pos);
                    divisor = QNumber(1);
                    continue;
                }
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
// Between formulas, = is ¬xor pairwise, and distinct is xor for two and false for more.
void TermEvaluator::finish_relation(const Frame& f) {
    if (propagate_unsupported(f)) return;
    std::size_t n = top_ - f.base;
    Value& result = values_[f.base];
    if (lenient_ && (f.head == Known::Eq || f.head == Known::Distinct) &&
        std::any_of(values_.begin() + static_cast<std::ptrdiff_t>(f.base),
                    values_.begin() + static_cast<std::ptrdiff_t>(top_),
                    [](const Value& v) { return v.is_formula; })) {
        expect_kind(f, true);
        smt::SourcePos pos = node(f.node).pos;
        scratch_ids_.clear();
        for (std::size_t i = 0; i + 1 < n && (f.head == Known::Eq || n == 2); ++i) {
            FormulaId pair[] = {values_[f.base + i].formula, values_[f.base + i + 1].formula};
            scratch_ids_.push_back(new_connective(FormulaNode::Xor, pair, pos) ^
                                   (f.head == Known::Eq ? 1 : 0));
        }
        result.formula = scratch_ids_.empty() ? 1
                         : scratch_ids_.size() == 1
                             ? scratch_ids_[0]
                             : new_connective(FormulaNode::And, scratch_ids_, pos);
        return;
    }
    expect_kind(f, false);
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
            if (relation == smt::Relation::Eq) {
                if (auto folded =
                        ite_values_.equality(dag_, result.expr.entries(), node(f.node).pos)) {
                    result.formula = *folded;
                    result.is_formula = true;
                    return;
                }
            }
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
                             : new_connective(FormulaNode::And, scratch_ids_, node(f.node).pos);
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
        n == 1 ? scratch_ids_[0] : new_connective(FormulaNode::And, scratch_ids_, node(f.node).pos);
    result.is_formula = true;
    result.unsupported = false;
}

// (or a b) and (xor a b) are nodes of their own; (not a) flips the reference's bit; (=> a b c)
// is (or ¬a ¬b c).
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
        result.formula = new_connective(f.op == Op::Xor ? FormulaNode::Xor : FormulaNode::Or,
                                        scratch_ids_, node(f.node).pos);
    }
    result.is_formula = true;
    result.unsupported = false;
}

// An ite between formulas is a node; between terms, a fresh variable. An unsupported branch
// makes a term ite unsupported, but stays a part of a formula ite, as in a connective.
void TermEvaluator::finish_ite(const Frame& f) {
    const Value& then = values_[f.base + 1];
    const Value& otherwise = values_[f.base + 2];
    bool term = (!then.is_formula && !then.unsupported) ||
                (!otherwise.is_formula && !otherwise.unsupported);
    if ((term || (then.unsupported && otherwise.unsupported)) && propagate_unsupported(f)) return;
    if (!values_[f.base].is_formula && !values_[f.base].unsupported)
        fail(arg_pos(f, 0), "expected a formula, found a term");
    for (std::size_t i = 1; i < 3; ++i)
        if (values_[f.base + i].is_formula == term && !values_[f.base + i].unsupported)
            fail(arg_pos(f, i),
                 term ? "expected a term, found a formula" : "expected a formula, found a term");
    Value& result = values_[f.base];
    FormulaId condition = result.formula;
    smt::SourcePos pos = node(f.node).pos;
    if (!term) {
        result.formula = smt::folded_ite(dag_, condition, then.formula, otherwise.formula, pos);
        result.is_formula = true;
        result.unsupported = false;
        return;
    }
    bool real = then.real || otherwise.real;
    if (condition <= 1 || smt::same_expr(then.expr, otherwise.expr)) {  // the branch itself
        result.expr.swap(values_[f.base + (condition == 1 ? 2 : 1)].expr);
    } else {
        shared_ite(result, condition, then.expr, otherwise.expr, real, pos);
    }
    result.is_formula = false;
    result.real = real;
}

const smt::LinearExpr& TermEvaluator::penalty(FormulaRef condition, const QNumber& weight,
                                              bool real, smt::SourcePos pos) {
    penalty_.expr.clear();
    if (condition == 1) {  // false: violated in every model
        penalty_.expr.set_constant(weight);
    } else if (condition != 0 && !weight.is_zero()) {
        smt::LinearExpr kept, violated;
        violated.set_constant(weight);
        lift_ite(penalty_, condition, kept, violated, real, pos);
    }
    return penalty_.expr;
}

void TermEvaluator::lift_ite(Value& result, FormulaId condition, const smt::LinearExpr& then,
                             const smt::LinearExpr& otherwise, bool real, smt::SourcePos pos) {
    int v = problem_.variables.add("ite@" + std::to_string(++lifted_names_),
                                   real ? smt::Sort::Real : smt::Sort::Int, pos);
    std::uint32_t then_term = problem_.add_term(then);
    std::uint32_t otherwise_term = problem_.add_term(otherwise);
    FormulaId branches[2];
    for (int i = 0; i < 2; ++i) {  // then − v = 0, otherwise − v = 0
        scratch_.clear();
        scratch_.add(i == 0 ? then : otherwise, QNumber(1));
        scratch_.add_entry(v, QNumber(-1));
        branches[i] = new_atom(smt::Relation::Eq, problem_.add_term(scratch_), 1, pos);
    }
    FormulaId args[] = {condition, branches[0], branches[1]};
    FormulaId definition = new_node(FormulaNode::Ite, args, pos);
    dag_.lift({v, condition, then_term, otherwise_term, definition});
    ite_values_.lifted(v, definition, condition, then, otherwise);
    result.expr.set_variable(v);
}

void TermEvaluator::shared_ite(Value& result, FormulaId condition, const smt::LinearExpr& then,
                               const smt::LinearExpr& otherwise, bool real, smt::SourcePos pos) {
    std::string key = std::to_string(condition) + (real ? " r" : " i");
    append_key(key, then);
    key += " |";
    append_key(key, otherwise);
    if (reuse_lifted(ites_, key, result)) return;
    lift_ite(result, condition, then, otherwise, real, pos);
    int v = result.expr.entries().front().var;
    ites_.emplace(std::move(key), SharedLifted{v, std::string(problem_.variables.name(v))});
}

// A name is a definition from where its term ends: later terms of the same command may use it.
// Definitions' bodies name nothing: they are evaluated anew at every use.
void TermEvaluator::finish_annotation(const Frame& f) {
    if (tree_ != root_tree_) return;
    const Value& value = values_[f.base];
    for (Id a = f.end; a != node(f.node).end; a = tree_->next(a)) {
        if (node(a).kind != SNode::Kind::Keyword || symbols_.name(node(a).symbol) != ":named")
            continue;
        Id next = tree_->next(a);
        if (next == node(f.node).end || node(next).kind != SNode::Kind::Symbol)
            fail(node(a).pos, "expected a symbol after :named");
        std::uint32_t symbol = node(next).symbol;
        if (is_predefined(symbol))
            fail(node(next).pos, quoted(name(symbol)) + " is a predefined symbol");
        if (is_defined(symbol))
            fail(node(next).pos, "symbol " + quoted(name(symbol)) + " is already declared");
        Meaning m{Meaning::Formula, value.formula, false, true};
        if (value.unsupported) {
            m = {Meaning::Unsupported, value.formula};
        } else if (!value.is_formula) {
            m = {Meaning::DefinedTerm, static_cast<std::uint32_t>(defined_terms_.size()),
                 value.real};
            defined_terms_.emplace_back().add(value.expr, QNumber(1));
        }
        state(symbol).global = m;
        new_names_.push_back(symbol);
    }
}

void TermEvaluator::finish_let(const Frame& f) {
    values_[f.base].expr.swap(values_[top_ - 1].expr);
    values_[f.base].formula = values_[top_ - 1].formula;
    values_[f.base].is_formula = values_[top_ - 1].is_formula;
    values_[f.base].unsupported = values_[top_ - 1].unsupported;
    values_[f.base].real = values_[top_ - 1].real;
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
    const SNode& head = node(f.node).is_list() ? node(tree_->first(f.node)) : node(f.node);
    if (int_sort && result.real)
        fail(node(f.node).pos,
             quoted(name(head.symbol)) + " is of sort Int, its body a Real term here");
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
        case Meaning::Variable: {
            smt::Sort sort = problem_.variables.sort(static_cast<int>(m.index));
            if (sort == smt::Sort::Bool) {
                value.formula = dag_.variable(static_cast<int>(m.index), node.pos);
                value.is_formula = true;
                return;
            }
            value.expr.set_variable(static_cast<int>(m.index));
            value.real = sort == smt::Sort::Real;
            return;
        }
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
        case Meaning::Macro:
            fail(node.pos, quoted(symbols_.name(node.symbol)) + " takes arguments");
        case Meaning::Function:
            return outside(value,
                           (m.index == 1 ? "the constant " : "the uninterpreted function ") +
                               quoted(symbols_.name(node.symbol)) +
                               (m.index == 1 ? " of an uninterpreted sort" : ""),
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

}  // namespace vorn::io
