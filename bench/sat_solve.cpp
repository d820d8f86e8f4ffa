// Decides a DIMACS CNF file with vorn's SAT engine and answers as SAT solvers do: "s
// SATISFIABLE" (exit 10) or "s UNSATISFIABLE" (exit 20); statistics go to stderr. The model is
// checked against the clauses before it is claimed.
//
// usage: sat_solve FILE.cnf

#include <cstdio>
#include <string>
#include <vector>

#include "vorn/io/dimacs_reader.h"
#include "vorn/io/parse_error.h"
#include "vorn/io/source.h"
#include "vorn/sat/solver.h"

namespace {

vorn::sat::Lit to_lit(int dimacs) {
    return vorn::sat::Lit(static_cast<vorn::sat::Var>(dimacs < 0 ? -dimacs : dimacs) - 1,
                          dimacs < 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: sat_solve FILE.cnf\n");
        return 2;
    }
    vorn::io::Cnf cnf;
    try {
        cnf = vorn::io::read_dimacs(vorn::io::SourceText::read(argv[1]).text);
    } catch (const vorn::io::ParseError& e) {
        std::fprintf(stderr, "%s\n", vorn::io::format_error(argv[1], e).c_str());
        return 2;
    }
    vorn::sat::Solver solver;
    for (int i = 0; i < cnf.variables; ++i)
        solver.new_var();
    std::vector<vorn::sat::Lit> clause;
    for (const std::vector<int>& c : cnf.clauses) {
        clause.clear();
        for (int lit : c)
            clause.push_back(to_lit(lit));
        solver.add_clause(clause);
    }
    vorn::sat::Result result = solver.solve();
    const vorn::sat::Stats& s = solver.stats();
    std::fprintf(
        stderr,
        "c decisions %llu propagations %llu conflicts %llu restarts %llu learned %llu "
        "deleted %llu\n",
        static_cast<unsigned long long>(s.decisions),
        static_cast<unsigned long long>(s.propagations),
        static_cast<unsigned long long>(s.conflicts), static_cast<unsigned long long>(s.restarts),
        static_cast<unsigned long long>(s.learned), static_cast<unsigned long long>(s.deleted));
    if (result == vorn::sat::Result::Sat) {
        for (const std::vector<int>& c : cnf.clauses) {
            bool satisfied = false;
            for (int lit : c)
                satisfied = satisfied || solver.value(to_lit(lit));
            if (!satisfied) {
                std::fprintf(stderr, "c model violates a clause\n");
                return 3;
            }
        }
        std::printf("s SATISFIABLE\n");
        return 10;
    }
    std::printf(result == vorn::sat::Result::Unsat ? "s UNSATISFIABLE\n" : "s UNKNOWN\n");
    return result == vorn::sat::Result::Unsat ? 20 : 0;
}
