#include "hall_interval.h"

#include <algorithm>
#include <unordered_map>

#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

std::optional<std::vector<OffsetTerm>> offset_terms(const Problem& problem, const Atom& atom) {
    if (atom.relation != Relation::Distinct) return std::nullopt;
    std::vector<OffsetTerm> terms;
    for (std::uint32_t t = 0; t < atom.terms; ++t) {
        OffsetTerm o{0, QNumber()};
        for (const auto& e : problem.term(atom.first_term + t)) {
            if (e.var == 0) {
                o.offset = e.coeff;
            } else {
                if (o.var != 0 || !e.coeff.is_one() || problem.variables.sort(e.var) != Sort::Int)
                    return std::nullopt;
                o.var = e.var;
            }
        }
        if (o.var == 0 || !o.offset.is_integer()) return std::nullopt;
        for (const OffsetTerm& seen : terms)
            if (seen.var == o.var) return std::nullopt;
        terms.push_back(std::move(o));
    }
    return terms;
}

std::optional<IntegerBound> integer_bound(const Problem& problem, std::uint32_t term,
                                          Relation relation) {
    LinearExpr::Entries x;
    QNumber k;
    for (const auto& e : problem.term(term)) {
        if (e.var == 0)
            k = e.coeff;
        else
            x.push_back(e);
    }
    if (x.size() != 1 || problem.variables.sort(x[0].var) != Sort::Int) return std::nullopt;
    auto rounded = lra::round_integral_bound(x, relation, -k);
    if (!rounded) return std::nullopt;
    bool negative = x[0].coeff.sign() < 0;
    return IntegerBound{x[0].var, (rounded->relation == Relation::Le) != negative,
                        rounded->constant / x[0].coeff};
}

// For each lower end a, the terms whose range starts at a or above, by their upper ends: the
// first j + 1 of them lie in [a, high of the j-th].
std::optional<HallInterval> overfull_interval(std::span<const TermRange> ranges) {
    std::vector<std::size_t> bounded;
    for (std::size_t i = 0; i < ranges.size(); ++i)
        if (ranges[i].low && ranges[i].high && *ranges[i].low <= *ranges[i].high)
            bounded.push_back(i);
    std::vector<std::size_t> inside;
    for (std::size_t at : bounded) {
        const QNumber& a = *ranges[at].low;
        inside.clear();
        for (std::size_t i : bounded)
            if (*ranges[i].low >= a) inside.push_back(i);
        std::sort(inside.begin(), inside.end(),
                  [&](std::size_t i, std::size_t j) { return *ranges[i].high < *ranges[j].high; });
        for (std::size_t j = 1; j < inside.size(); ++j) {
            const QNumber& b = *ranges[inside[j]].high;
            if (QNumber(static_cast<std::int64_t>(j + 1)) > b - a + QNumber(1))
                return HallInterval{a, b, {inside.begin(), inside.begin() + j + 1}};
        }
    }
    return std::nullopt;
}

bool hall_refutes(const Problem& problem) {
    if (std::none_of(problem.atoms.begin(), problem.atoms.end(),
                     [](const Atom& a) { return a.relation == Relation::Distinct; }))
        return false;
    std::unordered_map<int, TermRange> range;  // by variable
    for (const Atom& a : problem.atoms) {
        for (Relation r : {Relation::Le, Relation::Ge}) {
            bool both = a.relation == Relation::Eq;
            if (!both && a.relation != r &&
                a.relation != (r == Relation::Le ? Relation::Lt : Relation::Gt))
                continue;
            auto b = integer_bound(problem, a.first_term, both ? r : a.relation);
            if (!b) continue;
            std::optional<QNumber>& end = b->upper ? range[b->var].high : range[b->var].low;
            if (!end || (b->upper ? b->value < *end : b->value > *end)) end = b->value;
        }
    }
    std::vector<TermRange> ranges;
    for (const Atom& a : problem.atoms) {
        auto terms = offset_terms(problem, a);
        if (!terms) continue;
        ranges.clear();
        for (const OffsetTerm& t : *terms) {
            TermRange r = range[t.var];
            if (r.low) *r.low += t.offset;
            if (r.high) *r.high += t.offset;
            ranges.push_back(std::move(r));
        }
        if (overfull_interval(ranges)) return true;
    }
    return false;
}

}  // namespace vorn::smt
