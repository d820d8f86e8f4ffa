// Writes one generated instance (lra_instances.h) as an SMT-LIB check-sat script and as a free
// MPS file, for the solvers that bench/solvers.py runs on the same problems, and prints the
// answer it has by construction.
//
// usage: write_lra_instances sparse|square M feasible|infeasible SEED OUT_PREFIX
//        (writes OUT_PREFIX.smt2 and OUT_PREFIX.mps; the square family is always feasible)

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "lra_instances.h"

using vorn::bench::LinearConstraint;
using vorn::bench::LraInstance;

namespace {

std::string smt_number(std::int64_t n) {
    return n < 0 ? "(- " + std::to_string(-n) + ")" : std::to_string(n);
}

std::string smt_sum(const LinearConstraint& c) {
    std::string out = c.terms.size() > 1 ? "(+" : "";
    for (const auto& [v, a] : c.terms)
        out += (c.terms.size() > 1 ? " " : "") +
               (a == 1 ? "x" + std::to_string(v)
                       : "(* " + smt_number(a) + " x" + std::to_string(v) + ")");
    return c.terms.size() > 1 ? out + ")" : out;
}

void write_smt(const LraInstance& inst, std::ostream& out) {
    out << "(set-logic QF_LRA)\n";
    for (int v = 1; v <= inst.variables; ++v)
        out << "(declare-fun x" << v << " () Real)\n";
    for (int v = 1; inst.boxed && v <= inst.variables; ++v)
        out << "(assert (>= x" << v << ' ' << smt_number(inst.boxes[v].first) << "))\n(assert (<= x"
            << v << ' ' << smt_number(inst.boxes[v].second) << "))\n";
    for (const LinearConstraint& c : inst.constraints) {
        std::string sum = smt_sum(c);
        if (c.has_lower && c.has_upper && c.lower == c.upper) {
            out << "(assert (= " << sum << ' ' << smt_number(c.lower) << "))\n";
            continue;
        }
        if (c.has_lower) out << "(assert (>= " << sum << ' ' << smt_number(c.lower) << "))\n";
        if (c.has_upper) out << "(assert (<= " << sum << ' ' << smt_number(c.upper) << "))\n";
    }
    out << "(check-sat)\n(exit)\n";
}

// Free MPS: rows c1..cm (E, L, or G with a range for two-sided ones), an empty objective, and
// bounds for every column (MPS's default lower bound is 0, so unboxed columns are FR).
void write_mps(const LraInstance& inst, std::ostream& out) {
    std::vector<std::vector<std::pair<std::size_t, std::int64_t>>> columns(inst.variables + 1);
    out << "NAME lra\nROWS\n N obj\n";
    for (std::size_t r = 0; r < inst.constraints.size(); ++r) {
        const LinearConstraint& c = inst.constraints[r];
        char type = c.has_lower && c.has_upper && c.lower == c.upper ? 'E'
                    : c.has_lower                                    ? 'G'
                                                                     : 'L';
        out << ' ' << type << " c" << r + 1 << '\n';
        for (const auto& [v, a] : c.terms)
            columns[v].emplace_back(r + 1, a);
    }
    out << "COLUMNS\n";
    for (int v = 1; v <= inst.variables; ++v)
        for (const auto& [r, a] : columns[v])
            out << " x" << v << " c" << r << ' ' << a << '\n';
    out << "RHS\n";
    for (std::size_t r = 0; r < inst.constraints.size(); ++r) {
        const LinearConstraint& c = inst.constraints[r];
        out << " rhs c" << r + 1 << ' ' << (c.has_lower ? c.lower : c.upper) << '\n';
    }
    out << "RANGES\n";
    for (std::size_t r = 0; r < inst.constraints.size(); ++r) {
        const LinearConstraint& c = inst.constraints[r];
        if (c.has_lower && c.has_upper && c.lower != c.upper)
            out << " rng c" << r + 1 << ' ' << c.upper - c.lower << '\n';
    }
    out << "BOUNDS\n";
    for (int v = 1; v <= inst.variables; ++v) {
        if (columns[v].empty()) continue;  // in no row: irrelevant, and unknown to MPS
        if (!inst.boxed) {
            out << " FR bnd x" << v << '\n';
            continue;
        }
        out << " LO bnd x" << v << ' ' << inst.boxes[v].first << "\n UP bnd x" << v << ' '
            << inst.boxes[v].second << '\n';
    }
    out << "ENDATA\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) {
        std::cerr << "usage: write_lra_instances sparse|square M feasible|infeasible SEED "
                     "OUT_PREFIX\n";
        return 2;
    }
    std::string family = argv[1];
    int m = std::atoi(argv[2]);
    bool feasible = std::string(argv[3]) == "feasible";
    auto seed = static_cast<unsigned>(std::atoi(argv[4]));
    LraInstance inst = family == "square" ? vorn::bench::make_square_instance(m, seed)
                                          : vorn::bench::make_sparse_instance(m, feasible, seed);
    std::ofstream smt(std::string(argv[5]) + ".smt2"), mps(std::string(argv[5]) + ".mps");
    write_smt(inst, smt);
    write_mps(inst, mps);
    std::cout << (inst.feasible ? "sat" : "unsat") << '\n';
    return smt && mps ? 0 : 1;
}
