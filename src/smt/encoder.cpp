#include "vorn/smt/encoder.h"

#include <algorithm>

namespace vorn::smt {

namespace {

// Makes the next push_back unable to fail, growing geometrically.
template <class T>
void room_for_one(std::vector<T>& v) {
    if (v.size() == v.capacity()) v.reserve(2 * v.size() + 4);
}

}  // namespace

Literal Encoder::definition() {
    return {problem_.boolean.add({}), false};
}

Literal Encoder::constant(bool value) {
    if (!true_) {
        true_ = problem_.boolean.add({});
        problem_.boolean.define(*true_, Gate::True, {});
        Literal t{*true_, false};
        problem_.boolean.add_clause({&t, 1});
    }
    return {*true_, !value};
}

std::optional<bool> Encoder::constant_value(Literal lit) const {
    if (!true_ || lit.prop() != *true_) return std::nullopt;
    return !lit.negative();
}

Literal Encoder::variable(int var) {
    auto [at, made] = variables_.try_emplace(var, 0);
    if (made) {
        Proposition p;
        p.kind = Proposition::Kind::Variable;
        p.variable = var;
        at->second = problem_.boolean.add(p);
    }
    return {at->second, false};
}

Literal Encoder::compare(Relation relation, std::uint32_t term) {
    auto entries = problem_.term(term);
    if (entries.empty() || (entries.size() == 1 && entries[0].var == 0)) {
        int sign = entries.empty() ? 0 : entries[0].coeff.sign();
        return constant(relation_holds(relation, sign));
    }
    auto bound = [&](Relation r) { return this->bound(r, term); };
    switch (relation) {
        case Relation::Le:
            return bound(Relation::Le);
        case Relation::Gt:
            return ~bound(Relation::Le);
        case Relation::Ge:
            return bound(Relation::Ge);
        case Relation::Lt:
            return ~bound(Relation::Ge);
        case Relation::Eq:
        case Relation::Ne:
        case Relation::Distinct: {
            Literal halves[] = {bound(Relation::Le), bound(Relation::Ge)};
            Literal eq = and_gate(halves);
            return relation == Relation::Eq ? eq : ~eq;
        }
    }
    return constant(false);
}

Literal Encoder::bound(Relation relation, std::uint32_t term) {
    // term = factor · normal + c, so term ⋈ 0 is normal ⋈' −c/factor (⋈ turned round when the
    // factor is negative).
    normal_.clear();
    QNumber constant;
    for (const auto& e : problem_.term(term)) {
        if (e.var == 0)
            constant = e.coeff;
        else
            normal_.push_back(e);
    }
    QNumber factor = lra::normalize_term(normal_);
    Relation shared =
        factor.sign() < 0 ? (relation == Relation::Le ? Relation::Ge : Relation::Le) : relation;
    QNumber value = -constant / factor;
    auto index = static_cast<std::size_t>(normal_terms_.intern(normal_).index);
    if (bounds_.size() <= index) bounds_.resize(index + 1);
    for (const SharedBound& b : bounds_[index])
        if (b.relation == shared && b.value == value) return {b.prop, false};
    // Room first: a failing allocation must not leave a bound that truncate() cannot find.
    room_for_one(bounds_[index]);
    room_for_one(bound_log_);
    Proposition p;
    p.kind = Proposition::Kind::Atom;
    p.relation = relation;
    p.term = term;
    // Not over an ite between constants: bounded by them (AssertionEncoder), its atoms only
    // say which constant, a choice the search's own order and phase make better.
    if (dag_)
        for (const auto& e : normal_)
            if (std::int64_t i = dag_->lifted_index(e.var); i >= 0) {
                const LiftedIte& l = dag_->lifted()[static_cast<std::size_t>(i)];
                p.phase_from_model =
                    p.phase_from_model || (!l.named && !constant_branches(problem_, l));
            }
    std::uint32_t prop = problem_.boolean.add(p);
    bounds_[index].push_back({shared, std::move(value), prop});
    bound_log_.push_back(static_cast<std::uint32_t>(index));
    return {prop, false};
}

Literal Encoder::distinct(std::uint32_t first, std::uint32_t count) {
    std::vector<Literal> pairs;
    LinearExpr diff;
    for (std::uint32_t a = 0; a < count; ++a)
        for (std::uint32_t b = a + 1; b < count; ++b) {
            diff.clear();
            for (const auto& e : problem_.term(first + a))
                diff.add_entry(e.var, e.coeff);
            for (const auto& e : problem_.term(first + b))
                diff.add_entry(e.var, -e.coeff);
            pairs.push_back(compare(Relation::Ne, problem_.add_term(diff)));
        }
    const auto& known = problem_.boolean.distincts();
    if (std::none_of(pairs.begin(), pairs.end(), [&](Literal l) { return constant_value(l); }) &&
        std::none_of(known.begin(), known.end(),
                     [&](const auto& d) { return d.first_term == first && d.terms == count; })) {
        BooleanStructure::DistinctPairs d{first, count, {}};
        for (Literal l : pairs)
            d.equal.push_back(~l);
        problem_.boolean.add_distinct(std::move(d));
    }
    return conjunction(pairs);
}

Literal Encoder::atom(const Atom& a) {
    if (a.relation == Relation::Distinct) return distinct(a.first_term, a.terms);
    return compare(a.relation, a.first_term);
}

// ---- gates made once ----------------------------------------------------------------------

std::size_t Encoder::GateKeyHash::operator()(const std::vector<std::uint32_t>& key) const {
    std::uint64_t h = 1469598103934665603ull;
    for (std::uint32_t w : key)
        h = (h ^ w) * 1099511628211ull;
    return static_cast<std::size_t>(h);
}

std::optional<Literal> Encoder::made_gate(Gate gate, std::span<const Literal> operands) {
    gate_key_.assign(1, static_cast<std::uint32_t>(gate));
    for (Literal x : operands)
        gate_key_.push_back(x.code());
    auto at = gates_.find(gate_key_);
    if (at == gates_.end()) return std::nullopt;
    return Literal{at->second, false};
}

// After made_gate() left the key in gate_key_. Room first: a failing allocation must not leave
// a gate that truncate() cannot find.
void Encoder::remember_gate(Literal d) {
    room_for_one(gate_log_);
    auto [at, fresh] = gates_.try_emplace(gate_key_, d.prop());
    if (fresh) gate_log_.push_back(&at->first);
}

Literal Encoder::and_gate(std::span<const Literal> operands) {
    if (std::optional<Literal> made = made_gate(Gate::And, operands)) return *made;
    Literal d = definition();
    problem_.boolean.define(d.prop(), Gate::And, operands);
    clause_.clear();
    clause_.push_back(d);
    for (Literal x : operands) {
        Literal two[] = {~d, x};
        problem_.boolean.add_clause(two);
        clause_.push_back(~x);
    }
    problem_.boolean.add_clause(clause_);
    made_gate(Gate::And, operands);
    remember_gate(d);
    return d;
}

Literal Encoder::conjunction(std::span<const Literal> operands) {
    scratch_.clear();
    for (Literal x : operands) {
        std::optional<bool> c = constant_value(x);
        if (c == false) return constant(false);
        if (!c) scratch_.push_back(x);
    }
    std::sort(scratch_.begin(), scratch_.end());
    scratch_.erase(std::unique(scratch_.begin(), scratch_.end()), scratch_.end());
    for (std::size_t i = 1; i < scratch_.size(); ++i)
        if (scratch_[i] == ~scratch_[i - 1]) return constant(false);
    if (scratch_.empty()) return constant(true);
    if (scratch_.size() == 1) return scratch_[0];
    std::vector<Literal> kept(scratch_);  // and_gate reuses the scratch of the callers
    return and_gate(kept);
}

Literal Encoder::disjunction(std::span<const Literal> operands) {
    std::vector<Literal> negated;
    negated.reserve(operands.size());
    for (Literal x : operands)
        negated.push_back(~x);
    return ~conjunction(negated);
}

Literal Encoder::exclusive_or(Literal a, Literal b) {
    std::optional<bool> ca = constant_value(a), cb = constant_value(b);
    if (ca) return *ca ? ~b : b;
    if (cb) return *cb ? ~a : a;
    if (a == b) return constant(false);
    if (a == ~b) return constant(true);
    Literal operands[] = {std::min(a, b), std::max(a, b)};
    if (std::optional<Literal> made = made_gate(Gate::Xor, operands)) return *made;
    Literal d = definition();
    problem_.boolean.define(d.prop(), Gate::Xor, operands);
    Literal clauses[4][3] = {{~d, a, b}, {~d, ~a, ~b}, {d, ~a, b}, {d, a, ~b}};
    for (auto& c : clauses)
        problem_.boolean.add_clause(c);
    made_gate(Gate::Xor, operands);
    remember_gate(d);
    return d;
}

Literal Encoder::ite(Literal condition, Literal then, Literal otherwise) {
    if (std::optional<bool> c = constant_value(condition)) return *c ? then : otherwise;
    if (then == otherwise) return then;
    Literal operands[] = {condition, then, otherwise};
    if (std::optional<Literal> made = made_gate(Gate::Ite, operands)) return *made;
    Literal d = definition();
    problem_.boolean.define(d.prop(), Gate::Ite, operands);
    Literal clauses[4][3] = {{~condition, ~then, d},
                             {~condition, then, ~d},
                             {condition, ~otherwise, d},
                             {condition, otherwise, ~d}};
    for (auto& c : clauses)
        problem_.boolean.add_clause(c);
    made_gate(Gate::Ite, operands);
    remember_gate(d);
    return d;
}

void Encoder::add_clause(std::span<const Literal> lits) {
    clause_.clear();
    for (Literal x : lits) {
        std::optional<bool> c = constant_value(x);
        if (c == true) return;
        if (!c) clause_.push_back(x);
    }
    if (clause_.empty()) clause_.push_back(constant(false));
    problem_.boolean.add_clause(clause_);
}

void Encoder::truncate(std::uint32_t propositions) {
    if (true_ && *true_ >= propositions) true_.reset();
    std::erase_if(variables_, [&](const auto& kv) { return kv.second >= propositions; });
    while (!gate_log_.empty()) {
        auto at = gates_.find(*gate_log_.back());
        if (at->second < propositions) break;
        gates_.erase(at);
        gate_log_.pop_back();
    }
    // Bounds and gates are made in the order of their propositions: the latest are the ones to
    // go.
    while (!bound_log_.empty() && bounds_[bound_log_.back()].back().prop >= propositions) {
        bounds_[bound_log_.back()].pop_back();
        bound_log_.pop_back();
    }
}

}  // namespace vorn::smt
