#include "cli/tableau_summary.h"

#include <map>

#include "vorn/smt/stopwatch.h"

namespace vorn::cli {

namespace {

using Entries = smt::LinearExpr::Entries;

// Lexicographic on (variable, coefficient): the key of a scaled term.
struct TermLess {
    bool operator()(const Entries& a, const Entries& b) const {
        return std::lexicographical_compare(
            a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
                return x.var != y.var ? x.var < y.var : x.coeff < y.coeff;
            });
    }
};

// The variable part of a term scaled to a leading coefficient of 1.
Entries scaled_variable_part(std::span<const smt::LinearExpr::Entry> term) {
    Entries out;
    out.reserve(term.size());
    const QNumber* lead = nullptr;
    for (const auto& e : term) {
        if (e.var == 0) continue;
        if (lead == nullptr) lead = &e.coeff;
        out.push_back({e.var, e.coeff / *lead});
    }
    return out;
}

void count_coefficients(TableauSummary& s) {
    const la::Tableau& t = *s.tableau;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        for (const auto& e : it.value()->coeffs_) {
            ++s.coefficients;
            s.big_coefficients += e.coeff.is_big() ? 1 : 0;
        }
}

}  // namespace

TableauSummary build_tableau(const smt::Problem& problem) {
    auto start = smt::Clock::now();
    TableauSummary s;
    s.tableau = std::make_unique<la::Tableau>(0);
    s.variables = s.last_slack = problem.variables.size();
    s.atoms = problem.atoms.size();
    std::map<Entries, int, TermLess> slacks;
    for (const smt::Atom& atom : problem.atoms) {
        if (atom.relation == smt::Relation::Distinct) {
            s.disequalities += std::uint64_t{atom.terms} * (atom.terms - 1) / 2;
            continue;
        }
        if (atom.relation == smt::Relation::Ne) {
            ++s.disequalities;
            continue;
        }
        auto term = problem.term(atom.first_term);
        std::size_t vars = term.size() - (!term.empty() && term[0].var == 0 ? 1 : 0);
        if (vars <= 1) {
            ++(vars == 0 ? s.constant_atoms : s.bounds);
            continue;
        }
        ++s.term_atoms;
        auto [it, fresh] = slacks.emplace(scaled_variable_part(term), s.last_slack + 1);
        if (!fresh) continue;
        int slack = ++s.last_slack;
        Entries entries = it->first;
        entries.push_back({slack, QNumber(-1)});
        s.tableau->add_equation(la::Equation(slack, std::move(entries)), false, nullptr);
    }
    s.tableau->check();
    s.tableau_ms = smt::ms_since(start);
    count_coefficients(s);
    return s;
}

}  // namespace vorn::cli
