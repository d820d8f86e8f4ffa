// The counters of CheckStats by name.

#include "vorn/smt/statistics.h"

#include "vorn/smt/engine.h"

namespace vorn::smt {

std::vector<Statistic> statistics(const CheckStats& stats) {
    const DecideStats& d = stats.decide;
    auto count = [](std::string_view name, std::uint64_t n) {
        return Statistic{name, static_cast<double>(n), false};
    };
    return {count("checks", stats.checks),
            count("decisions", d.sat.decisions),
            count("conflicts", d.sat.conflicts + d.simplex.conflicts),
            count("propagations", d.sat.propagations),
            count("theory-propagations", d.sat.theory_propagations),
            count("restarts", d.sat.restarts),
            count("learned-clauses", d.sat.learned),
            count("learned-literals", d.sat.learned_literals),
            count("learned-max-size", d.sat.learned_max),
            count("pivots", d.simplex.pivots),
            count("branch-nodes", d.branch.nodes),
            count("disequality-splits", d.splits),
            {"time", stats.solve_seconds, true}};
}

}  // namespace vorn::smt
