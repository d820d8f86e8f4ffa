#include "cli/output.h"

#include <gmp.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numeric>
#include <ostream>
#include <string_view>
#include <vector>

#include "vorn/io/smt_values.h"
#include "vorn/smt/certificate.h"

namespace vorn::cli {

namespace {

std::string approximately(const QNumber& value) {
    mpq_t q;
    mpq_init(q);
    value.get_mpq(q);
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", mpq_get_d(q));
    mpq_clear(q);
    return text;
}

void append_rational(std::string& out, const QNumber& q) {
    out += q.to_string();
}

// Σ terms = c as "terms without the constant = −c".
void append_equation(std::string& out, const smt::LinearExpr::Entries& terms,
                     const smt::Variables& vars) {
    bool has_constant = !terms.empty() && terms[0].var == 0;
    std::span<const smt::LinearExpr::Entry> variables(terms);
    smt::append_sum(out, variables.subspan(has_constant ? 1 : 0), vars);
    out += " = ";
    append_rational(out, has_constant ? -terms[0].coeff : QNumber(0));
}

void append_definition(std::string& out, const Definition& d, const smt::Variables& vars) {
    smt::append_name(out, vars, d.var);
    out += " = ";
    smt::append_sum(out, d.terms, vars);
}

using Json = nlohmann::ordered_json;

// {"name": "coeff", ...} over the variables; the constant (variable 0) goes to `constant`.
Json terms_json(const smt::LinearExpr::Entries& terms, const smt::Variables& vars,
                QNumber& constant) {
    Json out = Json::object();
    for (const auto& e : terms) {
        if (e.var == 0)
            constant = e.coeff;
        else
            out[std::string(vars.name(e.var))] = e.coeff.to_string();
    }
    return out;
}

// `,\n  "key": [` then one item per line: a large answer never exists as one JSON document.
template <class Item>
void write_json_items(std::ostream& out, const char* key, std::size_t count, Item item) {
    out << ",\n  \"" << key << "\": [";
    for (std::size_t i = 0; i < count; ++i)
        out << (i == 0 ? "\n    " : ",\n    ") << item(i).dump();
    out << (count == 0 ? "]" : "\n  ]");
}

}  // namespace

void print_solve_text(std::ostream& out, const SolveResult& result, const smt::Variables& vars) {
    if (!result.sat) {
        out << "unsat\n";
        return;
    }
    out << "sat\nequations:\n";
    std::string line;
    for (const auto& eq : result.equations) {
        line.assign("  ");
        append_equation(line, eq, vars);
        line += '\n';
        out << line;
    }
    out << "definitions:\n";
    for (const auto& d : result.definitions) {
        line.assign("  ");
        append_definition(line, d, vars);
        line += '\n';
        out << line;
    }
}

void print_solve_json(std::ostream& out, const SolveResult& result, const smt::Variables& vars) {
    out << "{\n  \"status\": \"" << (result.sat ? "sat" : "unsat") << "\"";
    if (result.sat) {
        write_json_items(out, "equations", result.equations.size(), [&](std::size_t i) {
            Json item;
            std::string text;
            append_equation(text, result.equations[i], vars);
            item["text"] = text;
            QNumber constant(0);
            item["terms"] = terms_json(result.equations[i], vars, constant);
            item["constant"] = constant.to_string();
            return item;
        });
        write_json_items(out, "definitions", result.definitions.size(), [&](std::size_t i) {
            const Definition& d = result.definitions[i];
            Json item;
            item["var"] = std::string(vars.name(d.var));
            QNumber constant(0);
            item["terms"] = terms_json(d.terms, vars, constant);
            item["constant"] = constant.to_string();
            std::string text;
            append_definition(text, d, vars);
            item["text"] = text;
            return item;
        });
    }
    out << "\n}\n";
}

std::string solve_stats(double read_ms, const SolveResult& result) {
    char buf[320];
    std::snprintf(buf, sizeof buf,
                  "stats: read %.3f ms, tableau %.3f ms, eliminate %.3f ms (%zu rounds), "
                  "definitions %.3f ms, decide %.3f ms, %zu equations, %zu definitions\n",
                  read_ms, result.times.tableau_ms, result.times.eliminate_ms, result.rounds,
                  result.times.definitions_ms, result.times.decide_ms, result.equations.size(),
                  result.definitions.size());
    return buf;
}

void print_tableau(std::ostream& out, const TableauSummary& s, const smt::Variables& vars,
                   double read_ms, bool dump, bool stats) {
    if (dump) {
        out << s.tableau->to_str() << "\n" << names_legend(vars);
        if (s.last_slack > s.variables)
            out << s.variables + 1 << "-" << s.last_slack << " slack rows, in order of first use\n";
    }
    if (!stats && dump) return;
    auto line = [&out](const char* key, auto value) { out << key << ": " << value << "\n"; };
    line("variables", s.variables);
    line("atoms", s.atoms);
    line("rows", s.tableau->rows().size());
    line("columns", s.tableau->cols().size());
    line("coefficients", s.coefficients);
    line("big coefficients", s.big_coefficients);
    line("bounds", s.bounds);
    line("atoms on slacks", s.term_atoms);
    line("constant atoms", s.constant_atoms);
    line("disequalities", s.disequalities);
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.3f", read_ms);
    line("parse ms", buf);
    std::snprintf(buf, sizeof buf, "%.3f", s.tableau_ms);
    line("tableau ms", buf);
}

std::string names_legend(const smt::Variables& vars) {
    std::string out = "NAMES:\n";
    for (int v = 1; v <= vars.size(); ++v) {
        out += std::to_string(v);
        out += ' ';
        smt::append_name(out, vars, v);
        out += '\n';
    }
    return out;
}

std::string tableau_counts(const la::Tableau& t) {
    return "rows: " + std::to_string(t.rows().size()) +
           "\ncolumns: " + std::to_string(t.cols().size()) +
           "\neliminated: " + std::to_string(t.elim_index().size()) +
           "\nequations: " + std::to_string(t.equations().size()) + "\n";
}

void print_decision(std::ostream& out, const smt::Problem& problem, const smt::Decision& d,
                    bool model, bool certificate) {
    switch (d.result) {
        case lra::Result::Sat:
            out << "sat\n";
            if (model) {
                std::vector<int> all(static_cast<std::size_t>(problem.variables.size()));
                std::iota(all.begin(), all.end(), 1);
                io::write_model(out, problem.variables, d.model, all);
            }
            break;
        case lra::Result::Unsat:
            out << "unsat\n";
            if (certificate) smt::print_certificate(out, problem, d.proof);
            break;
        case lra::Result::Unknown:
            out << "unknown\n";
            break;
    }
}

void print_cnf_answer(std::ostream& out, sat::Result r, const std::vector<int>* model) {
    out << (r == sat::Result::Sat ? "sat\n" : r == sat::Result::Unsat ? "unsat\n" : "unknown\n");
    if (r == sat::Result::Sat && model != nullptr) {
        std::string line = "v";
        for (int lit : *model)
            line += " " + std::to_string(lit);
        out << line << " 0\n";
    }
}

void print_optimization(std::ostream& out, const smt::Problem& problem,
                        const smt::Optimization& answer, bool maximize, bool model,
                        bool certificate) {
    std::vector<int> shown;
    for (int v = 1; v <= problem.variables.size(); ++v)
        shown.push_back(v);
    switch (answer.kind) {
        case smt::Optimization::Kind::Optimal:
            out << "optimal\nobjective " << answer.optimum.to_string() << "\nobjective ≈ "
                << approximately(answer.optimum) << "\n";
            if (model) io::write_model(out, answer.bounded.variables, answer.model, shown);
            if (certificate) smt::print_certificate(out, answer.bounded, answer.proof);
            break;
        case smt::Optimization::Kind::Infeasible:
            out << "infeasible\n";
            if (certificate) smt::print_certificate(out, problem, answer.proof);
            break;
        case smt::Optimization::Kind::Unbounded:
            out << "unbounded\n";
            if (model) io::write_model(out, answer.bounded.variables, answer.model, shown);
            if (certificate)
                smt::print_ray_certificate(out, problem, *problem.objective, maximize, answer.model,
                                           answer.ray);
            break;
        case smt::Optimization::Kind::Unknown:
            out << "unknown\n";
            // Branch and bound stopped: the best solution found and the proven bound (the gap).
            if (answer.incumbent)
                out << "best objective " << answer.optimum.to_string() << "\nbest objective ≈ "
                    << approximately(answer.optimum) << "\n";
            if (answer.bound)
                out << "bound " << answer.bound->to_string() << "\nbound ≈ "
                    << approximately(*answer.bound) << "\n";
            if (answer.incumbent && model)
                io::write_model(out, problem.variables, answer.model, shown);
            break;
    }
}

std::string check_stats(double read_ms, const smt::CheckStats& s) {
    const lra::SimplexStats& x = s.decide.simplex;
    const sat::Stats& b = s.decide.sat;
    auto n = [](std::uint64_t v) { return static_cast<unsigned long long>(v); };
    double mean_learned =
        b.learned == 0 ? 0
                       : static_cast<double>(b.learned_literals) / static_cast<double>(b.learned);
    char line[768];
    std::snprintf(line, sizeof line,
                  "vorn: read %.3f ms, solve %.3f ms; %llu checks, %llu pivots, %llu Bland "
                  "switches, %llu conflicts, %llu eliminated, %llu restored, %llu disequality "
                  "splits, %llu branch-and-bound nodes (%llu closed by floating-point LP), %llu "
                  "cuts, %llu lattice splits, %llu "
                  "relaxed literals, %llu "
                  "SAT decisions, %llu SAT conflicts, %llu Boolean propagations, %llu theory "
                  "propagations, %llu restarts, %llu learned clauses (mean %.1f, max %llu "
                  "literals)\n",
                  read_ms, s.solve_seconds * 1000, n(s.checks), n(x.pivots), n(x.bland_switches),
                  n(x.conflicts), n(x.eliminated), n(x.restored), n(s.decide.splits),
                  n(s.decide.branch.nodes), n(s.decide.float_decided), n(s.decide.cuts),
                  n(s.decide.lattice_splits), n(s.decide.relaxed_literals), n(b.decisions),
                  n(b.conflicts), n(b.propagations), n(b.theory_propagations), n(b.restarts),
                  n(b.learned), mean_learned, n(b.learned_max));
    return line;
}

}  // namespace vorn::cli
