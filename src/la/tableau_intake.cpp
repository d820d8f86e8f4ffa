// Entering equations: batch entry at check(), then one at a time in solved form, restoring the
// eliminated variables an equation needs first.

#include "vorn/la/tableau.h"
#include "vorn/util/sort.h"

namespace vorn::la {

void Tableau::add_equation(const Equation& eq, bool enter_now, std::vector<int>* restored) {
    equations_.push_back(eq);  // strong guarantee: a failed copy leaves the list unchanged
    if (enter_now) do_add_equation(equations_.back(), restored);
}

bool Tableau::check() {
    if (initialized_) return true;
    build_initial_matrix();
    initialized_ = true;
    return true;
}

void Tableau::build_initial_matrix() {
    std::int64_t largest = -1;
    for (const Equation& eq : equations_)
        largest = std::max<std::int64_t>(largest, eq.get_basic_var());
    rows_.reserve(static_cast<unsigned long>(largest + 1));
    for (Equation& eq : equations_)
        do_add_equation(eq, nullptr);
}

void Tableau::do_add_equation(Equation& eq, std::vector<int>* restored) {
    int b = eq.get_basic_var();
    if (initialized_) {
        std::vector<int> substitute;
        substitute.reserve(eq.coeffs_.size());
        std::vector<int> restore;
        for (const auto& entry : eq.coeffs_) {
            int v = entry.var;
            if (b >= 1 && v == b) continue;
            if (rows_.contains(v)) {
                substitute.push_back(v);
            } else if (!elim_index_.empty() && elim_index_.find(v) != nullptr) {
                substitute.push_back(v);
                restore.push_back(v);
            }
        }
        // Latest-eliminated first: a stored equation mentions only variables that were
        // non-basic when it was stored, so restoring a later elimination never needs an
        // earlier one of this list.
        vorn::sort(restore.data(), restore.size(), Unelim_lt{elim_index_});
        if (restored != nullptr) restored->insert(restored->end(), restore.begin(), restore.end());
        for (int x : restore) {
            Equation* stored = elim_eqs_[elim_index_.find(x)->value.second].second;
            do_add_equation(*stored, restored);
            elim_index_.erase(x);
        }
        for (int v : substitute)
            eq.substitute_var(v, *rows_[v], nullptr);
    }
    add_row(b, eq);
}

}  // namespace vorn::la
