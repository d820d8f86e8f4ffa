#pragma once

// The counters of a solver's checks by name, as (get-info :all-statistics) and the embedding
// API report them: "checks", "decisions", "conflicts" (of the Boolean search and the simplex),
// "propagations" (Boolean), "theory-propagations", "restarts", "learned-clauses",
// "learned-literals" (their summed sizes), "learned-max-size", "pivots", "branch-nodes",
// "disequality-splits", and "time" (seconds spent deciding). Counts are exact below 2^53.

#include <string_view>
#include <vector>

namespace vorn::smt {

struct CheckStats;

struct Statistic {
    std::string_view name;  // one of the names above, static
    double value;
    bool seconds;  // "time"; the others count
};

std::vector<Statistic> statistics(const CheckStats& stats);

}  // namespace vorn::smt
