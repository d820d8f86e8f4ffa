#include "hall_lemma_check.h"

#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

namespace {

struct Range {
    std::optional<QNumber> low, high;
};

}  // namespace

// Valid when every term x + c takes an integer in [low, high] under the bounds that the
// negations of the clause's literals state, there are more terms than such integers, and for
// each two terms some positive literal of the clause is an `and` of atoms that all hold when
// the two are equal: then, whenever those bounds hold, two terms are equal and that literal true.
std::string check_hall_lemma(const Problem& problem, const ClauseProof& proof,
                             const ClauseProof::Step& step,
                             const std::unordered_map<std::int64_t, std::size_t>& atom_of) {
    const ClauseProof::Hall& h = *step.hall;
    const auto& terms = h.terms;
    if (!h.low.is_integer() || !h.high.is_integer()) return "pigeonhole: an end is no integer";
    if (terms.size() < 2 ||
        QNumber(static_cast<std::int64_t>(terms.size())) <= h.high - h.low + QNumber(1))
        return "pigeonhole: no more terms than integers in the interval";
    std::set<int> vars;
    for (const ClauseProof::OffsetTerm& t : terms)
        if (t.var < 1 || t.var > problem.variables.size() ||
            problem.variables.sort(t.var) != Sort::Int || !t.offset.is_integer() ||
            !vars.insert(t.var).second)
            return "pigeonhole: a term is no Int variable of its own plus an integer";
    std::map<int, Range> range;
    std::map<std::int64_t, const ClauseProof::Definition*> and_of;
    for (const ClauseProof::Definition& d : proof.definitions)
        if (d.kind == ClauseProof::Definition::Kind::And && !d.operands.empty()) and_of[d.var] = &d;
    auto atom = [&](std::int64_t lit) -> const ClauseProof::AtomDefinition* {
        auto at = atom_of.find(lit < 0 ? -lit : lit);
        return at == atom_of.end() ? nullptr : &proof.atoms[at->second];
    };
    // The bound that ¬lit states, when on one Int variable (¬(t ≤ c) is t > c; ¬¬A is A).
    for (std::int64_t lit : step.clause) {
        const ClauseProof::AtomDefinition* a = atom(lit);
        if (a == nullptr || a->term.size() != 1 || vars.count(a->term[0].var) == 0) continue;
        Relation r = lit > 0 ? negation(a->relation) : a->relation;
        auto rounded = lra::round_integral_bound(a->term, r, a->constant);
        if (!rounded) continue;
        const QNumber& coeff = a->term[0].coeff;
        QNumber value = rounded->constant / coeff;
        Range& x = range[a->term[0].var];
        if ((rounded->relation == Relation::Le) != (coeff.sign() < 0)) {
            if (!x.high || value < *x.high) x.high = value;
        } else if (!x.low || value > *x.low) {
            x.low = value;
        }
    }
    for (const ClauseProof::OffsetTerm& t : terms) {
        const Range& x = range[t.var];
        if (!x.low || !x.high || *x.low + t.offset < h.low || *x.high + t.offset > h.high)
            return "pigeonhole: the clause does not bound x" + std::to_string(t.var) +
                   " into the interval";
    }
    // Pairs (i, j) whose equality, x_i − x_j = c_j − c_i, makes an `and` literal true.
    std::set<std::pair<std::size_t, std::size_t>> equal;
    for (std::int64_t lit : step.clause) {
        auto d = lit > 0 ? and_of.find(lit) : and_of.end();
        if (d == and_of.end()) continue;
        std::optional<std::pair<std::size_t, std::size_t>> pair;
        bool holds = true;
        for (std::int64_t o : d->second->operands) {
            const ClauseProof::AtomDefinition* a = atom(o);
            std::optional<std::pair<std::size_t, std::size_t>> p;
            if (a != nullptr && a->term.size() == 2 && a->term[0].coeff == -a->term[1].coeff)
                for (std::size_t i = 0; i < terms.size(); ++i)
                    for (std::size_t j = 0; j < terms.size(); ++j)
                        if (terms[i].var == a->term[0].var && terms[j].var == a->term[1].var)
                            p = {i, j};
            if (!p || (pair && *pair != *p)) {
                holds = false;
                break;
            }
            pair = p;
            QNumber value = a->term[0].coeff * (terms[p->second].offset - terms[p->first].offset);
            holds = holds && relation_holds(a->relation, (value - a->constant).sign()) == (o > 0);
        }
        if (holds && pair) equal.insert(std::minmax(pair->first, pair->second));
    }
    for (std::size_t i = 0; i < terms.size(); ++i)
        for (std::size_t j = i + 1; j < terms.size(); ++j)
            if (equal.count({i, j}) == 0)
                return "pigeonhole: no literal of the clause holds when x" +
                       std::to_string(terms[i].var) + " and x" + std::to_string(terms[j].var) +
                       " meet";
    return {};
}

}  // namespace vorn::smt
