#include "vorn/smt/problem.h"

#include <stdexcept>

namespace vorn::smt {

bool relation_holds(Relation relation, int sign) {
    switch (relation) {
        case Relation::Eq:
            return sign == 0;
        case Relation::Le:
            return sign <= 0;
        case Relation::Lt:
            return sign < 0;
        case Relation::Ge:
            return sign >= 0;
        case Relation::Gt:
            return sign > 0;
        case Relation::Distinct:
        case Relation::Ne:
            return sign != 0;
    }
    return false;
}

Relation negation(Relation relation) {
    switch (relation) {
        case Relation::Eq:
            return Relation::Ne;
        case Relation::Ne:
            return Relation::Eq;
        case Relation::Le:
            return Relation::Gt;
        case Relation::Lt:
            return Relation::Ge;
        case Relation::Ge:
            return Relation::Lt;
        case Relation::Gt:
            return Relation::Le;
        case Relation::Distinct:
            break;
    }
    throw std::invalid_argument("negation: a distinct's negation is a disjunction");
}

std::uint32_t Problem::add_term(const LinearExpr& expr) {
    expr.append_normalized_to(entries_);
    if (entries_.size() > UINT32_MAX)
        throw std::length_error("more than 2^32 coefficients in one problem");
    term_begin_.push_back(static_cast<std::uint32_t>(entries_.size()));
    return term_count() - 1;
}

QNumber Problem::disequality(const Atom& atom, std::uint32_t first, std::uint32_t second,
                             LinearExpr::Entries& out) const {
    LinearExpr diff;
    if (atom.relation == Relation::Ne) {
        for (const Entry& e : term(atom.first_term))
            diff.add_entry(e.var, e.coeff);
    } else {
        for (const Entry& e : term(atom.first_term + first))
            diff.add_entry(e.var, e.coeff);
        for (const Entry& e : term(atom.first_term + second))
            diff.add_entry(e.var, -e.coeff);
    }
    QNumber c;
    for (const Entry& e : diff.entries())
        if (e.var == 0)
            c = -e.coeff;
        else
            out.push_back(e);
    return c;
}

void Problem::reserve(std::size_t atoms_expected, std::size_t entries) {
    atoms.reserve(atoms_expected);
    term_begin_.reserve(atoms_expected + 1);
    entries_.reserve(entries);
}

void Problem::truncate_terms(std::uint32_t n) {
    if (n >= term_count()) return;
    boolean.forget_distincts_over(n);
    entries_.resize(term_begin_[n]);
    term_begin_.resize(n + 1);
}

void Problem::release_atoms() {
    std::vector<Atom>().swap(atoms);
    std::vector<Entry>().swap(entries_);
    std::vector<std::uint32_t>{0}.swap(term_begin_);
}

}  // namespace vorn::smt
