// Rephasing: now and then every saved and target phase is reset, so that a long search leaves
// the corner its phases hold it in (Biere, Fleury 2020).

#include "vorn/sat/solver.h"

namespace vorn::sat {

// Before a conflict's backjump, with the length of the trail below the conflict's level: the
// longest such trail since the last reset to it is the one a rephase returns to.
void Solver::note_best(std::size_t size) {
    if (size <= best_size_) return;
    best_size_ = size;
    for (std::size_t i = 0; i < size; ++i)
        best_[trail_[i].var()] = trail_[i].negative();
}

// At a restart (level 0). In turns: the best trail's signs (none yet: nothing changes), all
// negative as at the start, the best trail's again, all positive. The k-th waits k intervals,
// so that a search settles between resets.
void Solver::rephase() {
    ++rephases_;
    next_rephase_ =
        stats_.conflicts + static_cast<std::uint64_t>(options_.rephase_interval) * rephases_;
    bool best = rephases_ % 2 == 1;
    if (best && best_size_ == 0) return;
    bool negative = rephases_ % 4 == 2;
    for (Var v = 0; v < num_vars(); ++v)
        phase_[v] = target_[v] = best ? static_cast<bool>(best_[v]) : negative;
    if (best) best_size_ = 0;
}

}  // namespace vorn::sat
