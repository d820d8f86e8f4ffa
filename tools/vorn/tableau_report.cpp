#include "vorn/tableau_report.h"

#include <chrono>
#include <map>

#include "vorn/la/tableau.h"

namespace vorn::cli {

namespace {

using Entries = LinearExpr::Entries;

struct Counts {
    std::size_t bounds = 0;          // atoms over one variable
    std::size_t term_atoms = 0;      // atoms over a slack
    std::size_t constant_atoms = 0;  // atoms without variables
    std::size_t disequalities = 0;
};

// The variable part of an atom scaled to a leading coefficient of 1, as a map key.
std::vector<std::pair<int, std::string>> term_key(const Entries& terms) {
    std::vector<std::pair<int, std::string>> key;
    const QNumber* lead = nullptr;
    for (const auto& e : terms) {
        if (e.var == 0) continue;
        if (lead == nullptr) lead = &e.coeff;
        key.emplace_back(e.var, (e.coeff / *lead).to_string());
    }
    return key;
}

}  // namespace

std::string tableau_report(const Problem& problem, const TableauOptions& options, double parse_ms) {
    auto start = std::chrono::steady_clock::now();
    la::Tableau t(0);
    std::map<std::vector<std::pair<int, std::string>>, int> slacks;
    Counts counts;
    int next_slack = problem.symbols.size();
    for (const Atom& atom : problem.atoms) {
        if (atom.relation == Relation::Distinct) ++counts.disequalities;
        const Entries& terms = atom.expr.entries();
        std::size_t vars = terms.size() - (!terms.empty() && terms[0].var == 0 ? 1 : 0);
        if (vars == 0) {
            ++counts.constant_atoms;
            continue;
        }
        if (vars == 1) {
            ++counts.bounds;
            continue;
        }
        ++counts.term_atoms;
        auto [it, fresh] = slacks.emplace(term_key(terms), next_slack + 1);
        if (!fresh) continue;
        int slack = ++next_slack;
        const QNumber* lead = nullptr;
        std::vector<la::Equation::VarCoeff> entries{{slack, QNumber(-1)}};
        for (const auto& e : terms) {
            if (e.var == 0) continue;
            if (lead == nullptr) lead = &e.coeff;
            entries.push_back({e.var, e.coeff / *lead});
        }
        t.add_equation(la::Equation(slack, std::move(entries)), false, nullptr);
    }
    t.check();
    double tableau_ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();

    std::string out;
    if (options.dump) {
        out += t.to_str();
        out += "\nNAMES:\n";
        for (int v = 1; v <= problem.symbols.size(); ++v)
            out += std::to_string(v) + " " + problem.symbols.name(v) + "\n";
        if (next_slack > problem.symbols.size())
            out += std::to_string(problem.symbols.size() + 1) + "-" + std::to_string(next_slack) +
                   " slack rows, in order of first use\n";
    }
    if (options.stats || !options.dump) {
        std::size_t coefficients = 0, big = 0;
        for (auto it = t.rows().begin(); it != t.rows().end(); ++it)
            for (const auto& e : it.value()->coeffs_) {
                ++coefficients;
                big += e.coeff.is_big() ? 1 : 0;
            }
        auto line = [&out](const char* key, const std::string& value) {
            out += key;
            out += ": " + value + "\n";
        };
        line("variables", std::to_string(problem.symbols.size()));
        line("atoms", std::to_string(problem.atoms.size()));
        line("rows", std::to_string(t.rows().size()));
        line("columns", std::to_string(t.cols().size()));
        line("coefficients", std::to_string(coefficients));
        line("big coefficients", std::to_string(big));
        line("bounds", std::to_string(counts.bounds));
        line("atoms on slacks", std::to_string(counts.term_atoms));
        line("constant atoms", std::to_string(counts.constant_atoms));
        line("disequalities", std::to_string(counts.disequalities));
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.3f", parse_ms);
        line("parse ms", buf);
        std::snprintf(buf, sizeof buf, "%.3f", tableau_ms);
        line("tableau ms", buf);
    }
    return out;
}

}  // namespace vorn::cli
