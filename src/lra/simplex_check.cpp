// The search: repair violated basic variables by pivoting, explain the row that cannot be
// repaired.

#include <algorithm>
#include <cassert>
#include <chrono>
#include <limits>

#include "row_search.h"
#include "vorn/lra/simplex.h"

namespace vorn::lra {

Result Simplex::check() {
    auto start = std::chrono::steady_clock::now();
    ++stats_.checks;
    sat_ = false;
    model_ready_ = false;
    Result result = Result::Unsat;
    if (!in_conflict()) {
        if (!initialized_) initialize();
        result = search();
    }
    sat_ = result == Result::Sat;
    stats_.check_seconds +=
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    assert((result != Result::Unsat || conflict_is_valid()) && "invalid Farkas certificate");
    assert((result != Result::Sat || model_is_valid()) && "invalid model");
    return result;
}

Result Simplex::search() {
    for (int v : left_)
        leaves_[v] = 0;
    left_.clear();
    bland_ = false;
    if (ranked_) reset_priorities();
    std::uint64_t pivots = 0;
    while (true) {
        int basic = next_violated();
        if (basic == 0) return Result::Sat;
        // Only before a pivot: a check with nothing to repair still answers Sat.
        if (stop_requested()) {
            queue_if_violated(basic);
            return Result::Unknown;
        }
        bool increase = bounds_.has_lower(basic) && values_[basic] < bounds_.lower_value(basic);
        if (repair_by_own_columns(basic, increase)) continue;
        int entering = choose_entering(basic, increase);
        if (entering == 0 || (options_.pivot_limit != 0 && pivots == options_.pivot_limit)) {
            queue_if_violated(basic);  // still violated: the next check starts here
            if (entering != 0) return Result::Unknown;
            explain_row(basic, increase);
            return Result::Unsat;
        }
        pivot_and_update(basic, entering,
                         increase ? bounds_.lower_value(basic) : bounds_.upper_value(basic));
        ++pivots;
        ++stats_.pivots;
        note_leaving(basic);
    }
}

int Simplex::next_violated() {
    while (!violated_.empty()) {
        std::pop_heap(violated_.begin(), violated_.end(),
                      [this](int a, int b) { return before(b, a); });
        int v = violated_.back();
        violated_.pop_back();
        queued_[v] = 0;
        if (tableau_->rows().contains(v) && is_violated(v)) return v;
    }
    return 0;
}

bool Simplex::can_move(int var, bool up) const {
    return up ? !bounds_.has_upper(var) || values_[var] < bounds_.upper_value(var)
              : !bounds_.has_lower(var) || values_[var] > bounds_.lower_value(var);
}

int Simplex::choose_entering(int basic, bool increase) const {
    if (guide_ != 0 && !bland_ && guide_ != basic && tableau_->rows().contains(guide_))
        return choose_entering_dual(basic, increase);
    int best = 0;
    std::size_t best_column = std::numeric_limits<std::size_t>::max();
    for (const auto& e : tableau_->rows().at(basic)->entries()) {
        if (e.var == basic || !can_move(e.var, increase == (e.coeff.sign() > 0))) continue;
        if (bland_) {
            if (best == 0 || before(e.var, best)) best = e.var;
            continue;
        }
        std::size_t column = tableau_->cols().find(e.var)->value.second.size();
        if (column < best_column) {
            best = e.var;
            best_column = column;
        }
    }
    return best;
}

// The dual simplex's ratio test: the least |g|/|a| over the candidates, g a candidate's
// coefficient in the guide's row (0 when absent), a its coefficient in the repaired row. Both
// rows are sorted by variable, so one merged pass reads g.
int Simplex::choose_entering_dual(int basic, bool increase) const {
    const auto& guide = tableau_->rows().at(guide_)->entries();
    auto g = guide.begin();
    int best = 0;
    QNumber best_g, best_a;
    std::size_t best_column = 0;
    for (const auto& e : tableau_->rows().at(basic)->entries()) {
        if (e.var == basic || !can_move(e.var, increase == (e.coeff.sign() > 0))) continue;
        while (g != guide.end() && g->var < e.var)
            ++g;
        QNumber gj = g != guide.end() && g->var == e.var ? g->coeff : QNumber();
        if (gj.sign() < 0) gj = -gj;
        QNumber aj = e.coeff.sign() < 0 ? -e.coeff : e.coeff;
        std::size_t column = tableau_->cols().find(e.var)->value.second.size();
        if (best != 0) {
            QNumber left = gj * best_a, right = best_g * aj;
            if (right < left || (left == right && column >= best_column)) continue;
        }
        best = e.var;
        best_g = std::move(gj);
        best_a = std::move(aj);
        best_column = column;
    }
    return best;
}

// Only long rows (an objective over many soft assertions) are repaired so: on short rows the
// repair's other vertex sent the search elsewhere for no pivot saved (sched 11 862 to 19 600
// conflicts, bmc 63 134 to 67 405).
constexpr std::size_t kOwnColumnsRow = 16;

// A non-basic variable in this row alone moves only the basic one: within its bounds, such
// variables take up the violation without a pivot. An objective's row over 150 soft
// assertions, each a variable of its own, was pivoted at most checks of a MaxSAT search, and
// each pivot rewrote the whole row (a fifth of the search's time).
bool Simplex::repair_by_own_columns(int basic, bool increase) {
    const auto& entries = tableau_->rows().at(basic)->entries();
    if (entries.size() < kOwnColumnsRow) return false;
    const DeltaRational& target =
        increase ? bounds_.lower_value(basic) : bounds_.upper_value(basic);
    for (const auto& e : entries) {
        if (e.var == basic) continue;
        bool up = increase == (e.coeff.sign() > 0);
        if (!can_move(e.var, up) || tableau_->cols().find(e.var)->value.second.size() != 1)
            continue;
        step_ = target;
        step_ -= values_[basic];
        step_ /= e.coeff;  // the move that would repair the row alone
        DeltaRational to = values_[e.var];
        to += step_;
        bool beyond = up ? bounds_.has_upper(e.var) && to > bounds_.upper_value(e.var)
                         : bounds_.has_lower(e.var) && to < bounds_.lower_value(e.var);
        if (beyond) {
            to = up ? bounds_.upper_value(e.var) : bounds_.lower_value(e.var);
            step_ = to;
            step_ -= values_[e.var];
        }
        values_[basic].add_product(e.coeff, step_);
        values_[e.var] = std::move(to);
        if (!beyond) return true;
    }
    return !is_violated(basic);
}

void Simplex::pivot_and_update(int leaving, int entering, const DeltaRational& target) {
    // The entering variable moves by θ = (target − leaving's value) / coefficient, which brings
    // the leaving variable exactly to its target; every row of its column follows.
    step_ = target;
    step_ -= values_[leaving];
    step_ /= coefficient_of(*tableau_->rows().at(leaving), entering);
    for (int row : tableau_->cols().find(entering)->value.second) {
        values_[row].add_product(coefficient_of(*tableau_->rows().at(row), entering), step_);
        if (row != leaving) queue_if_violated(row);
    }
    values_[entering] += step_;
    tableau_->pivot(leaving, entering);
    queue_if_violated(entering);
}

void Simplex::note_leaving(int var) {
    if (bland_) return;
    if (leaves_[var]++ == 0) left_.push_back(var);
    if (leaves_[var] >= options_.bland_after) {
        bland_ = true;
        ++stats_.bland_switches;
        rank_for_bland();
    }
}

void Simplex::rank_for_bland() {
    // Any fixed order makes Bland's rule terminate; this one prefers, as the heuristic does,
    // variables tied to few others: non-basic ones by column size, basic ones by row length.
    std::vector<std::pair<std::size_t, int>> keyed;
    keyed.reserve(values_.size());
    for (int v = 1; v <= num_variables(); ++v) {
        const auto& rows = tableau_->rows();
        auto* column = tableau_->cols().find(v);
        std::size_t key = rows.contains(v)    ? rows.at(v)->entries().size() - 1
                          : column != nullptr ? column->value.second.size()
                                              : 0;
        keyed.emplace_back(key, v);
    }
    std::sort(keyed.begin(), keyed.end());
    for (std::size_t i = 0; i < keyed.size(); ++i)
        priority_[keyed[i].second] = static_cast<std::uint32_t>(i + 1);
    ranked_ = true;
    std::make_heap(violated_.begin(), violated_.end(),
                   [this](int a, int b) { return before(b, a); });
}

void Simplex::reset_priorities() {
    for (std::size_t v = 0; v < priority_.size(); ++v)
        priority_[v] = static_cast<std::uint32_t>(v);
    ranked_ = false;
    std::make_heap(violated_.begin(), violated_.end(),
                   [this](int a, int b) { return before(b, a); });
}

void Simplex::explain_row(int basic, bool increase) {
    // Row b = Σ a·x with b below its lower bound l and every x stuck at the bound that keeps b
    // low: 1·(b − l) + Σ |a|·(bound terms of x) cancels every variable and leaves
    // (value of b at those bounds) − l < 0. Symmetric for an upper bound.
    conflict_.clear();
    conflict_bounds_.clear();
    add_to_conflict(increase ? bounds_.lower(basic) : bounds_.upper(basic), QNumber(1));
    for (const auto& e : tableau_->rows().at(basic)->entries()) {
        if (e.var == basic) continue;
        bool stuck_at_upper = increase == (e.coeff.sign() > 0);
        QNumber magnitude = e.coeff.sign() > 0 ? e.coeff : -e.coeff;
        add_to_conflict(stuck_at_upper ? bounds_.upper(e.var) : bounds_.lower(e.var), magnitude);
    }
    ++stats_.conflicts;
}

void Simplex::add_to_conflict(const BoundRecord& bound, const QNumber& multiplier) {
    conflict_bounds_.push_back({bound.var, bound.upper, bound.value, multiplier});
    conflict_.push_back({bound.reason, bound.caller_upper, multiplier / bound.caller_scale});
}

}  // namespace vorn::lra
