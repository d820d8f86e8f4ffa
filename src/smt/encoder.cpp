#include "vorn/smt/encoder.h"

#include <algorithm>

namespace vorn::smt {

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
    auto bound = [&](Relation r) {
        Proposition p;
        p.kind = Proposition::Kind::Atom;
        p.relation = r;
        p.term = term;
        return Literal{problem_.boolean.add(p), false};
    };
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
    return conjunction(pairs);
}

Literal Encoder::atom(const Atom& a) {
    if (a.relation == Relation::Distinct) return distinct(a.first_term, a.terms);
    return compare(a.relation, a.first_term);
}

Literal Encoder::and_gate(std::span<const Literal> operands) {
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
    Literal d = definition();
    Literal operands[] = {a, b};
    problem_.boolean.define(d.prop(), Gate::Xor, operands);
    Literal clauses[4][3] = {{~d, a, b}, {~d, ~a, ~b}, {d, ~a, b}, {d, a, ~b}};
    for (auto& c : clauses)
        problem_.boolean.add_clause(c);
    return d;
}

Literal Encoder::ite(Literal condition, Literal then, Literal otherwise) {
    if (std::optional<bool> c = constant_value(condition)) return *c ? then : otherwise;
    if (then == otherwise) return then;
    Literal d = definition();
    Literal operands[] = {condition, then, otherwise};
    problem_.boolean.define(d.prop(), Gate::Ite, operands);
    Literal clauses[4][3] = {{~condition, ~then, d},
                             {~condition, then, ~d},
                             {condition, ~otherwise, d},
                             {condition, otherwise, ~d}};
    for (auto& c : clauses)
        problem_.boolean.add_clause(c);
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
}

}  // namespace vorn::smt
