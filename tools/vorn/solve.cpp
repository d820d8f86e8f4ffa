#include "vorn/solve.h"

#include <algorithm>
#include <chrono>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <unordered_map>

#include "vorn/format.h"
#include "vorn/la/eliminate_greedy.h"
#include "vorn/la/tableau.h"

namespace vorn::cli {

namespace {

using Entries = LinearExpr::Entries;
using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// basic = Σ (−c/c_basic)·v over the equation's other entries, slacks (> last user variable)
// fixed to 0.
Entries solved_for(const la::Equation& eq, int basic, int last_user_var) {
    QNumber scale = QNumber(-1) / *eq.coeff_of(basic);
    Entries out;
    for (const auto& e : eq.coeffs_)
        if (e.var != basic && e.var <= last_user_var) out.push_back({e.var, e.coeff * scale});
    return out;
}

la::VarSet chosen_variables(const Problem& problem, const SolveOptions& options) {
    la::VarSet vars;
    if (!options.eliminate) {
        for (int v = 1; v <= problem.symbols.size(); ++v)
            vars.insert(v);
        return vars;
    }
    for (const std::string& name : *options.eliminate) {
        int id = problem.symbols.find(name);
        if (id == 0) throw std::invalid_argument("unknown variable '" + name + "' in --eliminate");
        vars.insert(id);
    }
    return vars;
}

void project_rows(const la::Tableau& t, int last_user_var, SolveResult& result) {
    for (auto it = t.rows().begin(); it != t.rows().end(); ++it) {
        int b = it.index();
        Entries terms = solved_for(*it.value(), b, last_user_var);
        if (b <= last_user_var) {
            result.equations.push_back({b, std::move(terms)});
            continue;
        }
        // A slack row: 0 = terms. Scale to a leading coefficient of 1 for a canonical form.
        bool constant_only = terms.empty() || (terms.size() == 1 && terms[0].var == 0);
        if (constant_only) {
            if (!terms.empty()) result.sat = false;
            continue;
        }
        auto lead =
            std::find_if(terms.begin(), terms.end(), [](const auto& e) { return e.var != 0; });
        QNumber scale = QNumber(1) / lead->coeff;
        for (auto& e : terms)
            e.coeff *= scale;
        result.equations.push_back({0, std::move(terms)});
    }
}

// Latest elimination first: its definition mentions no variable eliminated before it, so the
// earlier ones can substitute the later ones' resolved definitions.
void collect_definitions(const la::Tableau& t, int last_user_var, bool triangular,
                         SolveResult& result) {
    std::unordered_map<int, la::Equation> resolved;
    const auto& records = t.elim_eqs();
    for (auto rec = records.rbegin(); rec != records.rend(); ++rec) {
        auto [x, stored] = *rec;
        if (x > last_user_var || t.elim_index().find(x) == nullptr) continue;
        std::vector<la::Equation::VarCoeff> entries{{x, QNumber(-1)}};
        for (auto& e : solved_for(*stored, x, last_user_var))
            entries.push_back(std::move(e));
        la::Equation def(x, std::move(entries));
        if (!triangular) {
            std::vector<int> mentioned;
            for (const auto& e : def.coeffs_)
                if (e.var != x && resolved.count(e.var)) mentioned.push_back(e.var);
            for (int v : mentioned)
                def.substitute_var(v, resolved.at(v), nullptr);
        }
        result.definitions.push_back({x, solved_for(def, x, last_user_var)});
        if (!triangular) resolved.emplace(x, std::move(def));
    }
    // Resolved definitions depend on kept variables only: list them in the input's order.
    if (!triangular)
        std::sort(result.definitions.begin(), result.definitions.end(),
                  [](const Definition& a, const Definition& b) { return a.var < b.var; });
}

}  // namespace

SolveResult solve(const Problem& problem, const SolveOptions& options) {
    const int last_user_var = problem.symbols.size();
    la::VarSet vars = chosen_variables(problem, options);
    SolveResult result;
    auto start = Clock::now();
    la::Tableau t(0);
    int slack = last_user_var;
    for (const Atom& atom : problem.atoms) {
        if (atom.relation != Relation::Eq)
            throw InputError(atom.pos, std::string("solve accepts only equalities, not '") +
                                           relation_text(atom.relation) + "'");
        std::vector<la::Equation::VarCoeff> entries{{++slack, QNumber(-1)}};
        for (const auto& e : atom.expr.entries())
            entries.push_back(e);
        t.add_equation(la::Equation(slack, std::move(entries)), false, nullptr);
    }
    t.check();
    result.tableau_ms = ms_since(start);
    start = Clock::now();
    result.rounds = la::eliminate_greedy(t, vars).rounds;
    result.eliminate_ms = ms_since(start);
    project_rows(t, last_user_var, result);
    collect_definitions(t, last_user_var, options.triangular, result);
    return result;
}

namespace {

std::string equation_text(const ProjectedEquation& eq, const Symbols& names) {
    if (eq.basic != 0) return names.name(eq.basic) + " = " + format_sum(eq.terms, names);
    Entries lhs;
    QNumber rhs(0);
    for (const auto& e : eq.terms) {
        if (e.var == 0)
            rhs = -e.coeff;
        else
            lhs.push_back(e);
    }
    return format_sum(lhs, names) + " = " + rhs.to_string();
}

nlohmann::ordered_json terms_json(const Entries& terms, const Symbols& names, QNumber* constant) {
    nlohmann::ordered_json out = nlohmann::ordered_json::object();
    for (const auto& e : terms) {
        if (e.var == 0)
            *constant = e.coeff;
        else
            out[names.name(e.var)] = e.coeff.to_string();
    }
    return out;
}

}  // namespace

std::string solve_text(const SolveResult& result, const Symbols& names) {
    std::string out = result.sat ? "sat\n" : "unsat\n";
    if (!result.sat) return out;
    out += "equations:\n";
    for (const auto& eq : result.equations)
        out += "  " + equation_text(eq, names) + "\n";
    out += "definitions:\n";
    for (const auto& d : result.definitions)
        out += "  " + names.name(d.var) + " = " + format_sum(d.terms, names) + "\n";
    return out;
}

std::string solve_json(const SolveResult& result, const Symbols& names) {
    nlohmann::ordered_json out;
    out["status"] = result.sat ? "sat" : "unsat";
    if (result.sat) {
        out["equations"] = nlohmann::ordered_json::array();
        for (const auto& eq : result.equations) {
            QNumber constant(0);
            nlohmann::ordered_json item;
            item["text"] = equation_text(eq, names);
            if (eq.basic != 0) item["var"] = names.name(eq.basic);
            item["terms"] = terms_json(eq.terms, names, &constant);
            item["constant"] = constant.to_string();
            out["equations"].push_back(std::move(item));
        }
        out["definitions"] = nlohmann::ordered_json::array();
        for (const auto& d : result.definitions) {
            QNumber constant(0);
            nlohmann::ordered_json item;
            item["var"] = names.name(d.var);
            item["terms"] = terms_json(d.terms, names, &constant);
            item["constant"] = constant.to_string();
            item["text"] = names.name(d.var) + " = " + format_sum(d.terms, names);
            out["definitions"].push_back(std::move(item));
        }
    }
    return out.dump(2) + "\n";
}

const char* relation_text(Relation r) {
    switch (r) {
        case Relation::Eq:
            return "=";
        case Relation::Le:
            return "<=";
        case Relation::Lt:
            return "<";
        case Relation::Ge:
            return ">=";
        case Relation::Gt:
            return ">";
        case Relation::Distinct:
            return "distinct";
    }
    return "?";
}

}  // namespace vorn::cli
