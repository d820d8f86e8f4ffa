// div, mod, abs, to_int and is_int of the lenient evaluator (smt_terms.h), each reduced exactly
// to linear atoms: abs to an ite, the others to a Euclidean quotient over a fresh Int variable
// whose definition follows every atom that mentions it (formula_dag.h).

#include <string>
#include <vector>

#include "vorn/io/numbers.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/smt_terms.h"

namespace vorn::io {

namespace {

[[noreturn]] void fail(smt::SourcePos pos, const std::string& message) {
    throw ParseError(pos, message);
}

}  // namespace

void TermEvaluator::append_key(std::string& key, const smt::LinearExpr& e) {
    for (const auto& entry : e.entries()) {
        key += ' ';
        key += std::to_string(entry.var);
        key += ':';
        key += entry.coeff.to_string();
    }
}

void TermEvaluator::quotient(Value& result, const smt::LinearExpr& dividend, const QNumber& divisor,
                             smt::SourcePos pos) {
    if (dividend.is_constant()) {
        QNumber q = smt::euclidean_quotient(dividend.constant_value(), divisor);
        result.expr.set_constant(q);
        return;
    }
    std::string key = divisor.to_string();
    append_key(key, dividend);
    if (reuse_lifted(quotients_, key, result)) return;
    int q = problem_.variables.add("div@" + std::to_string(++lifted_names_), smt::Sort::Int, pos);
    quotients_.emplace(std::move(key), SharedLifted{q, std::string(problem_.variables.name(q))});
    std::uint32_t dividend_term = problem_.add_term(dividend);
    scratch_.set_constant(divisor);
    std::uint32_t divisor_term = problem_.add_term(scratch_);
    // 0 <= t − d·q, and t − d·q − |d| < 0.
    scratch_.clear();
    scratch_.add(dividend, QNumber(1));
    scratch_.add_entry(q, -divisor);
    FormulaId bounds[2];
    bounds[0] = new_atom(smt::Relation::Ge, problem_.add_term(scratch_), 1, pos);
    scratch_.add_entry(0, divisor.sign() > 0 ? -divisor : divisor);
    bounds[1] = new_atom(smt::Relation::Lt, problem_.add_term(scratch_), 1, pos);
    dag_.lift({q, 0, dividend_term, divisor_term, new_node(FormulaNode::And, bounds, pos),
               smt::LiftedIte::Quotient});
    result.expr.set_variable(q);
}

bool TermEvaluator::reuse_lifted(std::unordered_map<std::string, SharedLifted>& made,
                                 const std::string& key, Value& result) {
    auto known = made.find(key);
    if (known == made.end()) return false;
    const SharedLifted& s = known->second;
    if (stale(s.var, s.name, true)) {
        made.erase(known);
        return false;
    }
    result.expr.set_variable(s.var);
    return true;
}

bool TermEvaluator::stale(int var, const std::string& name, bool lifted) const {
    return var > static_cast<int>(problem_.variables.size()) ||
           problem_.variables.name(var) != name || (lifted && dag_.lifted_index(var) < 0);
}

void TermEvaluator::by_zero(Value& result, Known op, bool real, smt::SourcePos pos) {
    std::erase_if(by_zero_, [&](const ByZero& e) { return stale(e.value, e.name, e.lifted); });
    Value value;
    value.expr.set_variable(problem_.variables.add("by0@" + std::to_string(++lifted_names_),
                                                   real ? smt::Sort::Real : smt::Sort::Int, pos));
    for (auto e = by_zero_.rbegin(); e != by_zero_.rend(); ++e) {
        if (e->op != op) continue;
        negated_.clear();
        negated_.add(result.expr, QNumber(1));
        negated_.add(e->argument, QNumber(-1));
        smt::LinearExpr earlier = smt::LinearExpr::variable(e->value);
        if (negated_.is_constant()) {
            if (!negated_.constant_value().is_zero()) continue;
            result.expr.swap(earlier);  // the same argument: that application's value
            return;
        }
        FormulaId same = new_atom(smt::Relation::Eq, problem_.add_term(negated_), 1, pos);
        smt::LinearExpr otherwise = value.expr;
        lift_ite(value, same, earlier, otherwise, real, pos);
    }
    if (!value.expr.is_constant() && value.expr.entries().size() == 1) {
        int v = value.expr.entries().front().var;
        by_zero_.push_back({op, result.expr, v, std::string(problem_.variables.name(v)),
                            dag_.lifted_index(v) >= 0});
    }
    result.expr.swap(value.expr);
}

// ((_ divisible k) t) for a numeral k; any other indexed or qualified head (bit-vectors, arrays)
// is outside the fragment, so that the assertion stays and check-sat answers unknown.
void TermEvaluator::start_indexed(Id id) {
    const SExprTree& tree = *tree_;
    Id head = tree.first(id);
    const SNode& h = tree[head];
    if (!lenient_) fail(h.pos, "indexed and qualified identifiers are not supported");
    bool divisible = h.size == 3 &&
                     tree[tree.first(head)].is_symbol(symbol_of(Known::Underscore)) &&
                     tree[tree.child(head, 1)].kind == SNode::Kind::Symbol &&
                     symbols_.name(tree[tree.child(head, 1)].symbol) == "divisible" &&
                     tree[tree.child(head, 2)].kind == SNode::Kind::Numeral;
    if (!divisible) return outside(push_value(), "the indexed or qualified identifier", h.pos);
    if (tree[id].size != 2) fail(tree[id].pos, "'divisible' takes 1 argument");
    push_frame(id, tree.next(head), tree[id].end, Op::IntegerOp, Known::Underscore);
}

// A divisor must be a nonzero constant: any other is outside the fragment, never an error, so
// that the assertion stays and check-sat answers unknown.
void TermEvaluator::finish_integer_op(const Frame& f) {
    if (propagate_unsupported(f)) return;
    expect_kind(f, false);
    Value& result = values_[f.base];
    smt::SourcePos pos = node(f.node).pos;
    std::string op = f.head == Known::Div ? "'div'" : "'mod'";
    for (std::size_t i = f.base + 1; i < top_; ++i) {
        if (!values_[i].expr.is_constant())
            return outside(result, op + " by a non-constant term", arg_pos(f, i - f.base));
    }
    switch (f.head) {
        case Known::Div:
            for (std::size_t i = f.base + 1; i < top_; ++i) {
                const QNumber& divisor = values_[i].expr.constant_value();
                if (divisor.is_zero()) {
                    by_zero(result, Known::Div, false, pos);
                } else {
                    quotient(result, result.expr, divisor, pos);
                }
            }
            result.real = false;
            break;
        case Known::Mod: {  // t − d·(div t d)
            QNumber divisor = values_[f.base + 1].expr.constant_value();
            if (divisor.is_zero()) {
                by_zero(result, Known::Mod, false, pos);
                result.real = false;
                break;
            }
            negated_.clear();
            negated_.add(result.expr, QNumber(1));
            quotient(result, negated_, divisor, pos);
            result.expr.scale(-divisor);
            result.expr.add(negated_, QNumber(1));
            result.real = false;
            break;
        }
        case Known::Abs: {
            if (result.expr.is_constant()) {
                if (result.expr.constant_value().sign() < 0) result.expr.scale(QNumber(-1));
                break;
            }
            FormulaId nonnegative =
                new_atom(smt::Relation::Ge, problem_.add_term(result.expr), 1, pos);
            negated_.clear();
            negated_.add(result.expr, QNumber(-1));
            shared_ite(result, nonnegative, result.expr, negated_, result.real, pos);
            break;
        }
        case Known::ToInt:
            quotient(result, result.expr, QNumber(1), pos);
            result.real = false;
            break;
        default: {  // is_int: t = to_int t; divisible by k: t = k·(div t k)
            QNumber k(1);
            if (f.head == Known::Underscore) {
                const SNode& numeral = node(tree_->child(tree_->first(f.node), 2));
                k = parse_number(tree_->text(numeral), numeral.pos);
                if (k.is_zero()) return outside(result, "'divisible' by zero", numeral.pos);
            }
            negated_.clear();
            negated_.add(result.expr, QNumber(1));
            quotient(result, negated_, k, pos);
            negated_.add(result.expr, -k);
            if (negated_.is_constant()) {
                result.formula = negated_.constant_value().is_zero() ? 0 : 1;
            } else {
                result.formula = new_atom(smt::Relation::Eq, problem_.add_term(negated_), 1, pos);
            }
            result.is_formula = true;
            break;
        }
    }
    if (result.expr.has_big_coefficient())
        for (const auto& e : result.expr.entries())
            check_number_size(e.coeff, pos);
}

}  // namespace vorn::io
