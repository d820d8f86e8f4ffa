// Decisions: the most active unassigned variable (VSIDS), in the phase it last had unless the
// theory chooses the sign.

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
    if (heap_.contains(v)) heap_.increased(v);
}

Lit Solver::pick_branch() {
    while (!heap_.empty()) {
        Var v = heap_.pop();
        if (value_of(pos(v)) != LBool::Undef) continue;
        return Lit(v, theory_ ? theory_->decision_negative(v, phase_[v]) : phase_[v]);
    }
    return Lit();
}

}  // namespace vorn::sat
