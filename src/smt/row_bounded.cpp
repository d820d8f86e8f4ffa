// Int variables bounded through rows: a quotient q of (div t d) over a term ite's variable v
// (abs) has no bound of its own, and neither has v, yet 0 ≤ t − d·q < |d| with v − a fixed at 0
// and a's variables boxed confine both as firmly as bounds would. Branching on such a variable
// ends like branching on a boxed one (every branch lies between bounds the rows already imply),
// so the integer search counts it as bounded and branches on it before any split: on dm_s56 the
// tight-row splits over them (161 of them) each added a dense row, and the pivots over those took
// the time (docs/performance.md).

#include <algorithm>

#include "arith_theory.h"
#include "vorn/lra/integer_bounds.h"

namespace vorn::smt {

// Boxed variables, and, to a fixpoint, the only summand not yet marked of a boxed slack's term.
// Only at a fractional vertex: the search needs the marks for nothing else.
void ArithTheory::mark_row_bounded() {
    row_bounded_.clear();
    if (std::all_of(integer_vars_.begin(), integer_vars_.end(),
                    [&](int s) { return lra::is_integral(simplex_.delta_value(s)); }))
        return;
    const lra::BoundTrail& bounds = simplex_.bounds();
    auto n = static_cast<std::size_t>(simplex_.num_variables()) + 1;
    row_bounded_.assign(n, 0);
    boxed_slacks_.clear();
    for (std::size_t v = 1; v < n; ++v) {
        if (!bounds.is_boxed(static_cast<int>(v))) continue;
        row_bounded_[v] = 1;
        if (simplex_.is_slack(static_cast<int>(v))) boxed_slacks_.push_back(static_cast<int>(v));
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (int s : boxed_slacks_) {
            int open = 0, last = 0;
            for (const auto& e : simplex_.slack_term(s))
                if (!row_bounded_[static_cast<std::size_t>(e.var)]) {
                    last = e.var;
                    if (++open > 1) break;
                }
            if (open != 1) continue;
            row_bounded_[static_cast<std::size_t>(last)] = 1;
            changed = true;
        }
    }
}

bool ArithTheory::is_row_bounded(int var) const {
    return static_cast<std::size_t>(var) < row_bounded_.size() &&
           row_bounded_[static_cast<std::size_t>(var)] != 0;
}

}  // namespace vorn::smt
