// Phase 2: from the feasible basis of a Sat check, primal simplex steps on the objective's row
// until no non-basic variable can improve it, or one improves it without limit.

#include "row_search.h"
#include "vorn/lra/simplex.h"

namespace vorn::lra {

namespace {

struct Step {
    int entering = 0;
    bool up = false;  // the entering variable increases
    int leaving = 0;  // 0: the entering variable reaches its own bound
    DeltaRational theta;
    bool limited = false;
};

}  // namespace

Optimum Simplex::minimize(int objective, bool maximize) {
    if (!sat_) throw std::logic_error("minimize needs a Sat check just before");
    Optimum out;
    model_ready_ = false;
    std::vector<std::pair<int, QNumber>> row;  // the objective over non-basic variables
    constexpr unsigned kDegenerateRun = 50;
    unsigned degenerate = 0;
    for (;;) {
        if (stop_requested()) {
            out.kind = Optimum::Kind::Stopped;
            return out;
        }
        row.clear();
        if (tableau_->rows().contains(objective)) {
            for (const auto& e : tableau_->rows().at(objective)->entries())
                if (e.var != objective) row.push_back({e.var, e.coeff});
        } else {
            row.push_back({objective, QNumber(1)});
        }
        // Dantzig's rule (the steepest reduced cost enters) while steps make progress; after a
        // run of degenerate steps Bland's rule (the smallest improving variable enters, the
        // smallest limiting one leaves), under which degenerate steps cannot cycle, until the
        // objective moves again.
        Step s;
        const QNumber* steepest = nullptr;
        bool bland = degenerate >= kDegenerateRun;
        for (const auto& [var, d] : row) {
            bool up = (d.sign() < 0) != maximize;
            if (!can_move(var, up)) continue;
            bool better = s.entering == 0;
            if (!better && bland) better = var < s.entering;
            if (!better && !bland) {
                QNumber gain = d.sign() < 0 ? -d : d, best = *steepest;
                if (best.sign() < 0) best = -best;
                better = best < gain || (gain == best && var < s.entering);
            }
            if (better) {
                s.entering = var;
                s.up = up;
                steepest = &d;
            }
        }
        if (s.entering == 0) break;
        int j = s.entering;
        if (s.up ? bounds_.has_upper(j) : bounds_.has_lower(j)) {
            s.theta = s.up ? bounds_.upper_value(j) : bounds_.lower_value(j);
            s.theta -= values_[j];
            if (!s.up) s.theta *= QNumber(-1);
            s.limited = true;
        }
        if (auto* column = tableau_->cols().find(j)) {
            for (int b : column->value.second) {
                const QNumber& a = coefficient_of(*tableau_->rows().at(b), j);
                bool b_up = (a.sign() > 0) == s.up;
                if (b_up ? !bounds_.has_upper(b) : !bounds_.has_lower(b)) continue;
                DeltaRational room = b_up ? bounds_.upper_value(b) : bounds_.lower_value(b);
                room -= values_[b];
                room /= a.sign() > 0 ? a : -a;
                if (!b_up) room *= QNumber(-1);
                if (!s.limited || room < s.theta ||
                    (room == s.theta && s.leaving != 0 && b < s.leaving)) {
                    s.theta = room;
                    s.leaving = b;
                    s.limited = true;
                }
            }
        }
        if (!s.limited) {
            out.kind = Optimum::Kind::Unbounded;
            out.ray_variable = j;
            out.ray_up = s.up;
            return out;
        }
        ++stats_.pivots;
        degenerate = s.theta.real().is_zero() && s.theta.delta().is_zero() ? degenerate + 1 : 0;
        if (s.leaving == 0) {
            update_non_basic(j, s.up ? bounds_.upper_value(j) : bounds_.lower_value(j));
        } else {
            bool b_up = (coefficient_of(*tableau_->rows().at(s.leaving), j).sign() > 0) == s.up;
            pivot_and_update(
                s.leaving, j,
                b_up ? bounds_.upper_value(s.leaving) : bounds_.lower_value(s.leaving));
        }
    }
    out.kind = Optimum::Kind::Optimal;
    if (tableau_->rows().contains(objective)) compute_row_value(objective);
    out.value = values_[objective];
    return out;
}

}  // namespace vorn::lra
