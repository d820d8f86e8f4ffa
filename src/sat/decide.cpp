// Decisions: the most active unassigned variable (VSIDS), those marked decide_first before the
// others, in its target phase (the sign in the longest conflict-free trail since the last restart;
// a variable off that trail keeps the sign of an earlier one, or set_phase's) unless the theory
// chooses the sign.

#include "vorn/sat/solver.h"

namespace vorn::sat {

namespace {

// Activities are scaled down together before they overflow; a common factor keeps the heap
// order.
constexpr double kRescaleAbove = 1e100;

}  // namespace

void Solver::bump(Var v) {
    if ((activity_[v] += var_inc_) > kRescaleAbove) {
        for (double& a : activity_)
            a /= kRescaleAbove;
        var_inc_ /= kRescaleAbove;
    }
    if (heap_of(v).contains(v)) heap_of(v).increased(v);
}

void Solver::decide_first(Var v) {
    first_[v] = true;
    if (value_of(pos(v)) == LBool::Undef) first_heap_.insert(v);
}

Lit Solver::pick_branch() {
    guide_done_ = false;
    if (guide_ != nullptr && !guide_resting_) {
        Var v = 0;
        if (!guide_->next(*this, v)) {
            guide_done_ = true;
            return Lit();
        }
        return Lit(v, theory_ != nullptr ? theory_->phase(v, phase_[v]) : phase_[v]);
    }
    for (VarHeap* heap : {&first_heap_, &heap_})
        while (!heap->empty()) {
            Var v = heap->pop();
            if (value_of(pos(v)) != LBool::Undef || (heap == &heap_ && first_[v])) continue;
            return Lit(v, theory_ != nullptr ? theory_->phase(v, target_[v]) : target_[v]);
        }
    return Lit();
}

}  // namespace vorn::sat
