// The assignment: initial values, updates along columns, the queue of violated basic variables,
// and the elimination done once before the first search.

#include <algorithm>

#include "row_search.h"
#include "vorn/la/eliminate_greedy.h"
#include "vorn/lra/simplex.h"

namespace vorn::lra {

bool Simplex::is_violated(int var) const {
    const DeltaRational& v = values_[var];
    return (bounds_.has_lower(var) && v < bounds_.lower_value(var)) ||
           (bounds_.has_upper(var) && v > bounds_.upper_value(var));
}

void Simplex::queue_if_violated(int var) {
    if (queued_[var] != 0 || !is_violated(var)) return;
    queued_[var] = 1;
    violated_.push_back(var);
    std::push_heap(violated_.begin(), violated_.end(),
                   [this](int a, int b) { return before(b, a); });
}

void Simplex::compute_row_value(int basic) {
    DeltaRational& v = values_[basic];
    v.set_zero();
    for (const auto& e : tableau_->rows().at(basic)->entries())
        if (e.var != basic) v.add_product(e.coeff, values_[e.var]);
}

void Simplex::update_non_basic(int var, const DeltaRational& target) {
    step_ = target;
    step_ -= values_[var];
    if (auto* column = tableau_->cols().find(var)) {
        for (int row : column->value.second) {
            values_[row].add_product(coefficient_of(*tableau_->rows().at(row), var), step_);
            queue_if_violated(row);
        }
    }
    values_[var] = target;
}

void Simplex::initialize() {
    tableau_->check();
    if (options_.eliminate) eliminate_equality_variables();
    // Every value is 0 so far: move each non-basic variable to the bound nearest to 0.
    for (int v = 1; v <= num_variables(); ++v) {
        if (tableau_->rows().contains(v)) continue;
        if (bounds_.has_lower(v) && values_[v] < bounds_.lower_value(v))
            values_[v] = bounds_.lower_value(v);
        else if (bounds_.has_upper(v) && values_[v] > bounds_.upper_value(v))
            values_[v] = bounds_.upper_value(v);
    }
    for (auto it = tableau_->rows().begin(); it != tableau_->rows().end(); ++it) {
        compute_row_value(it.index());
        queue_if_violated(it.index());
    }
    initialized_ = true;
    terms_at_first_check_ = terms_.size();
}

void Simplex::eliminate_equality_variables() {
    // Before the first pivot every row's basic variable is its slack.
    la::VarSet vars;
    for (int v = 1; v <= num_variables(); ++v) {
        if (is_slack(v) || bounds_.has_lower(v) || bounds_.has_upper(v)) continue;
        auto* column = tableau_->cols().find(v);
        if (column == nullptr) continue;
        const la::VarSet& rows = column->value.second;
        if (std::all_of(rows.begin(), rows.end(), [&](int b) { return bounds_.is_fixed(b); }))
            vars.insert(v);  // ascending: appends
    }
    if (vars.empty()) return;
    stats_.eliminated += la::eliminate_greedy(*tableau_, vars).eliminated;
}

}  // namespace vorn::lra
