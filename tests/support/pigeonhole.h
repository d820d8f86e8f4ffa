#pragma once

// Pigeonhole problems as input files: n pigeons in fewer holes are unsat, and resolution needs
// exponentially many steps to see it.

#include <cstdlib>
#include <string>
#include <vector>

namespace vorn::test {

// Pigeon i in hole j is variable v = i·holes + j + 1; in DIMACS, or as (define-fun php ...) over
// linear atoms, v true when p_v > 0. Refuted only by exponentially many conflicts.
inline std::string pigeonhole(int pigeons, int holes, bool cnf) {
    std::vector<std::vector<int>> clauses(static_cast<std::size_t>(pigeons));
    for (int i = 0; i < pigeons; ++i)
        for (int j = 0; j < holes; ++j) {
            clauses[static_cast<std::size_t>(i)].push_back(i * holes + j + 1);
            for (int k = i + 1; k < pigeons; ++k)
                clauses.push_back({-(i * holes + j + 1), -(k * holes + j + 1)});
        }
    std::string s =
        "p cnf " + std::to_string(pigeons * holes) + " " + std::to_string(clauses.size()) + "\n";
    if (!cnf) s = "(define-fun php () Bool (and";
    for (int v = 1; !cnf && v <= pigeons * holes; ++v)
        s = "(declare-const p" + std::to_string(v) + " Real)" + s;
    for (const auto& c : clauses) {
        s += cnf ? "" : " (or";
        for (int lit : c)
            s += cnf ? std::to_string(lit) + " "
                     : (lit > 0 ? " (> p" : " (<= p") + std::to_string(std::abs(lit)) + " 0)";
        s += cnf ? "0\n" : ")";
    }
    return cnf ? s : s + "))\n";
}

}  // namespace vorn::test
