#pragma once

// The DIMACS CNF format of SAT solvers:
//
//   c a comment line
//   p cnf VARIABLES CLAUSES
//   1 -3 0
//   2 3 -1 0
//
// Comment lines (starting with 'c') may appear anywhere; the header comes before the first
// clause. A clause is a sequence of nonzero integers ended by 0 and may span lines. Literal
// k > 0 is variable k, −k its negation; |k| must not exceed VARIABLES, and exactly CLAUSES
// clauses must follow. A line "%" ends the input early, as in the SATLIB benchmark files.
// Everything else is a ParseError at the offending token.

#include <string_view>
#include <vector>

#include "vorn/util/stop.h"

namespace vorn::io {

struct Cnf {
    int variables = 0;
    std::vector<std::vector<int>> clauses;  // DIMACS literals, without the closing 0
};

// `stop` (may be null): an interrupt throws Interrupted (interrupted.h).
Cnf read_dimacs(std::string_view text, const util::Stop* stop = nullptr);

}  // namespace vorn::io
