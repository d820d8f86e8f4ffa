// Warm starts: a basis chosen elsewhere, brought into the tableau by pivots that move no value
// (a variable that leaves the basis outside a bound asserted since then goes to that bound).

#include <algorithm>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

void Simplex::warm_start(std::span<const int> basic,
                         std::span<const std::pair<int, bool>> at_bound) {
    if (!initialized_) initialize();
    std::vector<char> wanted(values_.size(), 0);
    for (int v : basic)
        if (v >= 1 && v <= num_variables()) wanted[v] = 1;
    // Sparse columns first: their pivots fill in least.
    std::vector<std::pair<std::size_t, int>> order;
    for (int v : basic) {
        if (v < 1 || v > num_variables() || tableau_->rows().contains(v)) continue;
        if (auto* column = tableau_->cols().find(v))
            order.emplace_back(column->value.second.size(), v);
    }
    std::sort(order.begin(), order.end());
    std::vector<int> out_of_basis;
    for (auto [size, v] : order) {
        // A partial warm start is still a basis; the next check() sees the stop too.
        if (stop_requested()) break;
        auto* column = tableau_->cols().find(v);
        if (column == nullptr) continue;
        int leaving = 0;
        std::size_t shortest = 0;
        for (int row : column->value.second) {
            std::size_t length = tableau_->rows().at(row)->entries().size();
            if (!wanted[row] && (leaving == 0 || length < shortest))
                leaving = row, shortest = length;
        }
        if (leaving == 0) continue;
        // The leaving variable keeps its value, so nothing moves: only the basis changes.
        DeltaRational same = values_[leaving];
        pivot_and_update(leaving, v, same);
        ++stats_.pivots;
        out_of_basis.push_back(leaving);
    }
    // A basic variable may have violated a bound asserted since: out of the basis, nothing would
    // repair it, so it goes to that bound and the rows it moves are queued.
    for (int v : out_of_basis) {
        if (tableau_->rows().contains(v)) continue;
        if (bounds_.has_lower(v) && values_[v] < bounds_.lower_value(v))
            update_non_basic(v, bounds_.lower_value(v));
        else if (bounds_.has_upper(v) && bounds_.upper_value(v) < values_[v])
            update_non_basic(v, bounds_.upper_value(v));
    }
    for (auto [v, upper] : at_bound) {
        if (v < 1 || v > num_variables() || tableau_->rows().contains(v)) continue;
        bool use_upper = upper ? bounds_.has_upper(v) : !bounds_.has_lower(v);
        if (use_upper && bounds_.has_upper(v))
            update_non_basic(v, bounds_.upper_value(v));
        else if (!use_upper && bounds_.has_lower(v))
            update_non_basic(v, bounds_.lower_value(v));
    }
    model_ready_ = false;
    sat_ = false;
}

}  // namespace vorn::lra
