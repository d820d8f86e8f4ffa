#include "cli/solve.h"

#include <algorithm>

#include "cli/output.h"
#include "vorn/io/parse_error.h"
#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/tableau.h"
#include "vorn/smt/stopwatch.h"

namespace vorn::cli {

namespace {

using Entries = smt::LinearExpr::Entries;

// Everything solve refuses, found before any work is done.
void check_accepted(const smt::Problem& problem) {
    for (const smt::Atom& atom : problem.atoms) {
        if (atom.relation != smt::Relation::Eq)
            throw io::ParseError(atom.pos, std::string("solve accepts only equalities, not '") +
                                               smt::relation_text(atom.relation) + "'");
        for (const auto& e : problem.term(atom.first_term)) {
            if (e.var == 0 || problem.variables.sort(e.var) != smt::Sort::Int) continue;
            throw io::ParseError(problem.variables.declared(e.var),
                                 "variable " + io::quoted(problem.variables.name(e.var)) +
                                     " is Int: solve decides systems over the rationals only");
        }
    }
}

la::VarSet chosen_variables(const smt::Problem& problem, const SolveOptions& options) {
    la::VarSet vars;
    if (!options.eliminate) {
        for (int v = 1; v <= problem.variables.size(); ++v)
            vars.insert(v);
        return vars;
    }
    for (const std::string& name : *options.eliminate) {
        int v = problem.variables.find(name);
        if (v == 0) throw UsageError("unknown variable " + io::quoted(name) + " in --eliminate");
        vars.insert(v);
    }
    return vars;
}

// Slack n+1+i for atom i: s = term, entered by check().
void enter_equations(const smt::Problem& problem, la::Tableau& t) {
    const int n = problem.variables.size();
    for (std::size_t i = 0; i < problem.atoms.size(); ++i) {
        auto term = problem.term(problem.atoms[i].first_term);
        int slack = n + 1 + static_cast<int>(i);
        std::vector<la::Equation::VarCoeff> entries;
        entries.reserve(term.size() + 1);
        entries.insert(entries.end(), term.begin(), term.end());
        entries.push_back({slack, QNumber(-1)});  // the largest variable: still sorted
        t.add_equation(la::Equation(slack, std::move(entries)), false, nullptr);
    }
    t.check();
}

// The remaining rows with the slacks at 0: equations over kept variables, and constants that
// must be 0.
void project_rows(const la::Tableau& t, int last_var, SolveResult& result) {
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it) {
        const la::Equation& row = *it.value();
        Entries terms;
        const QNumber* lead = nullptr;
        for (const auto& e : row.entries()) {
            if (e.var > last_var) continue;
            terms.push_back(e);
            if (e.var != 0 && lead == nullptr) lead = &e.coeff;
        }
        if (lead == nullptr) {
            if (!terms.empty()) result.sat = false;
            continue;
        }
        QNumber scale = QNumber(1) / *lead;
        for (auto& e : terms)
            e.coeff *= scale;
        result.equations.push_back(std::move(terms));
    }
}

// Once every variable is eliminated, a row holds slacks and a constant only: the system has a
// solution exactly when no row is left with a constant alone.
bool kept_system_is_consistent(la::Tableau& t, int last_var) {
    la::VarSet all;
    for (int v = 1; v <= last_var; ++v)
        all.insert(v);
    la::eliminate_greedy(t, all);
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it) {
        const auto& entries = it.value()->entries();
        bool constant =
            std::any_of(entries.begin(), entries.end(), [](const auto& e) { return e.var == 0; });
        bool free = std::any_of(entries.begin(), entries.end(), [last_var](const auto& e) {
            return e.var >= 1 && e.var <= last_var;
        });
        if (constant && !free) return false;
    }
    return true;
}

}  // namespace

SolveResult solve(smt::Problem& problem, const SolveOptions& options) {
    check_accepted(problem);
    const int n = problem.variables.size();
    la::VarSet vars = chosen_variables(problem, options);
    SolveResult result;
    auto start = smt::Clock::now();
    la::Tableau t(0);
    enter_equations(problem, t);
    problem.release_atoms();
    result.times.tableau_ms = smt::ms_since(start);

    start = smt::Clock::now();
    result.rounds = la::eliminate_greedy(t, vars).rounds;
    result.times.eliminate_ms = smt::ms_since(start);

    project_rows(t, n, result);
    start = smt::Clock::now();
    if (result.sat) result.definitions = read_definitions(t, n, options.triangular);
    result.times.definitions_ms = smt::ms_since(start);

    start = smt::Clock::now();
    if (result.sat && !result.equations.empty() && !kept_system_is_consistent(t, n)) {
        result.sat = false;
        result.equations.clear();
        result.definitions.clear();
    }
    result.times.decide_ms = smt::ms_since(start);
    return result;
}

}  // namespace vorn::cli
