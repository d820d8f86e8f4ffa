// Learned-clause reduction by LBD (Audemard, Simon 2009) and arena garbage collection.

#include <algorithm>

#include "vorn/sat/solver.h"

namespace vorn::sat {

// Reasons of current assignments must stay.
bool Solver::locked(CRef c) const {
    Lit first = arena_.lits(c)[0];
    return value_of(first) == LBool::True && reason_[first.var()] == c;
}

// Deletes the worse half of the learned clauses. Kept regardless: glue clauses (LBD ≤ 2),
// reasons, and clauses used in an analysis since the last reduction (which lose that mark).
void Solver::reduce_learned() {
    std::vector<CRef> candidates;
    for (CRef c = arena_.first(); c != arena_.end(); c = arena_.next(c)) {
        if (arena_.garbage(c) || !arena_.learned(c) || arena_.lbd(c) <= 2 || locked(c)) continue;
        if (arena_.used(c)) {
            arena_.set_used(c, false);
            continue;
        }
        candidates.push_back(c);
    }
    std::sort(candidates.begin(), candidates.end(), [&](CRef a, CRef b) {
        if (arena_.lbd(a) != arena_.lbd(b)) return arena_.lbd(a) > arena_.lbd(b);
        return arena_.size(a) > arena_.size(b);
    });
    for (std::size_t i = 0; i < candidates.size() / 2; ++i) {
        arena_.remove(candidates[i]);
        ++stats_.deleted;
    }
    collect_garbage();
}

// Compacts the arena and rebuilds every watch list from the first two literals of each clause.
void Solver::collect_garbage() {
    arena_.compact(reason_);
    for (std::vector<Watch>& ws : watches_)
        ws.clear();
    for (CRef c = arena_.first(); c != arena_.end(); c = arena_.next(c)) {
        std::span<const Lit> lits = arena_.lits(c);
        if (lits.size() < 2) continue;
        watches_[lits[0].code()].push_back({c, lits[1]});
        watches_[lits[1].code()].push_back({c, lits[0]});
    }
}

}  // namespace vorn::sat
