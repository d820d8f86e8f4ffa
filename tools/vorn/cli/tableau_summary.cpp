#include "cli/tableau_summary.h"

#include "vorn/lra/term_table.h"
#include "vorn/smt/stopwatch.h"

namespace vorn::cli {

namespace {

using Entries = smt::LinearExpr::Entries;

void count_coefficients(TableauSummary& s) {
    const la::Tableau& t = *s.tableau;
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
        for (const auto& e : it.value()->entries()) {
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
    lra::TermTable terms;  // one slack per term up to a factor, as the simplex has it
    lra::TermEntries normal;
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
        normal.clear();
        for (const auto& e : term)
            if (e.var != 0) normal.push_back(e);
        lra::normalize_term(normal);
        if (!terms.intern(normal).fresh) continue;
        int slack = ++s.last_slack;
        Entries entries = normal;
        entries.push_back({slack, QNumber(-1)});
        s.tableau->add_equation(la::Equation(slack, std::move(entries)), false, nullptr);
    }
    s.tableau->check();
    s.tableau_ms = smt::ms_since(start);
    count_coefficients(s);
    return s;
}

}  // namespace vorn::cli
