// The arithmetic the tableau calls on its rows: change of basic variable and substitution.
// Entries are kept sorted by variable, so a substitution is one linear merge of the row with the
// definition, done in the row's own storage: no buffer is needed and nothing is allocated unless
// the row outgrows its capacity.

#include <algorithm>
#include <cassert>

#include "entries.h"
#include "vorn/la/equation.h"

namespace vorn::la {

namespace {

using entries::Entries;

// The entry of `var` in a sorted list, or the end.
template <class List>
auto find_entry(List& list, int var) {
    auto it = std::lower_bound(list.begin(), list.end(), var,
                               [](const Equation::VarCoeff& e, int v) { return e.var < v; });
    return it != list.end() && it->var == var ? it : list.end();
}

// Every variable of `def` other than x that the row does not mention: what a substitution that
// had nothing to replace must still report.
void report_absent(const Entries& row, const Entries& def, int x, std::vector<int>* dropped) {
    if (dropped == nullptr) return;
    for (const auto& e : def)
        if (e.var != x && find_entry(row, e.var) == row.end()) dropped->push_back(e.var);
}

// What one joint walk over a row and a definition finds out before a substitution.
struct MergePlan {
    bool sorted = true;  // both lists ascending by variable
    const QNumber* row_x = nullptr;
    const QNumber* def_x = nullptr;
    std::size_t new_vars = 0;  // entries of def, other than x, for variables the row lacks
};

MergePlan plan_merge(const Entries& row, const Entries& def, int x) {
    MergePlan plan;
    auto r = row.begin();
    int last_def = INT32_MIN;
    int last_row = INT32_MIN;
    auto step_row = [&] {
        if (r->var <= last_row && r != row.begin()) plan.sorted = false;
        last_row = r->var;
        if (r->var == x) plan.row_x = &r->coeff;
        ++r;
    };
    for (auto d = def.begin(); d != def.end(); ++d) {
        if (d != def.begin() && d->var <= last_def) plan.sorted = false;
        last_def = d->var;
        while (r != row.end() && r->var < d->var)
            step_row();
        if (d->var == x) {
            plan.def_x = &d->coeff;
        } else if (r == row.end() || r->var != d->var) {
            ++plan.new_vars;
        }
    }
    while (r != row.end())
        step_row();
    return plan;
}

// row ← row + factor·def without x, merged in place from the back: the row is first widened by
// the number of new variables, and every entry is relocated at most once (writes never overtake
// the unread part of the row). Gaps left by x and by cancellations are closed at the end; a new
// entry is computed in whatever gap slot it lands on, reusing a block a cancellation left there.
void merge_scaled(Entries& row, const Entries& def, int x, const QNumber& factor,
                  std::size_t new_vars, std::vector<int>* dropped) {
    const auto n = static_cast<std::ptrdiff_t>(row.size());
    entries::resize(row, row.size() + new_vars);
    Equation::VarCoeff* base = row.data();
    std::ptrdiff_t r = n - 1;
    auto w = static_cast<std::ptrdiff_t>(row.size());  // one past the next write
    auto place = [&](std::ptrdiff_t from) {
        if (--w != from) entries::relocate(base[w], base[from]);
    };
    for (auto d = def.rbegin(); d != def.rend(); ++d) {
        while (r >= 0 && base[r].var > d->var)
            place(r--);
        if (d->var == x) {
            // The row mentions x (a substitution without it never gets here): it is next.
            assert(r >= 0 && base[r].var == x);
            --r;
            continue;
        }
        if (r >= 0 && base[r].var == d->var) {
            base[r].coeff.add_product(factor, d->coeff);
            if (!base[r].coeff.is_zero())
                place(r);
            else if (dropped != nullptr)
                dropped->push_back(d->var);
            --r;
            continue;
        }
        --w;
        base[w].var = d->var;
        base[w].coeff.set_product(factor, d->coeff);
    }
    if (w == r + 1) return;  // no gap: the unread prefix is already in place
    while (r >= 0)
        place(r--);
    const auto size = static_cast<std::ptrdiff_t>(row.size());
    for (std::ptrdiff_t i = w; i < size; ++i)
        entries::relocate(base[i - w], base[i]);
    row.resize(static_cast<std::size_t>(size - w));
}

// row ← row − (row[x] / def[x])·def for sorted lists that both mention x.
void substitute_sorted(Entries& row, int x, const Entries& def, const MergePlan& plan,
                       std::vector<int>* dropped) {
    assert(plan.def_x != nullptr && "substitute_var: the definition does not mention x");
    QNumber factor = *plan.row_x / *plan.def_x;  // before the merge moves the row's entries
    factor.negate();
    merge_scaled(row, def, x, factor, plan.new_vars, dropped);
}

}  // namespace

void Equation::change_basic_var(int v) {
    sort_entries();
    auto it = find_entry(coeffs_, v);
    assert(it != coeffs_.end() && "change_basic_var: the equation does not mention v");
    assert(!it->coeff.is_zero() && "change_basic_var: v's coefficient is zero");
    if (!it->coeff.is_minus_one()) {
        if (it->coeff.is_one()) {
            for (auto& e : coeffs_)
                e.coeff.negate();
        } else {
            QNumber factor = QNumber(-1) / it->coeff;
            for (auto& e : coeffs_)
                e.coeff *= factor;
        }
    }
    if (has_number()) delete owned_number();
    basic_ = encode_var(v);
}

void Equation::substitute_var(int x, const Equation& def, std::vector<int>* dropped,
                              Entries& scratch) {
    MergePlan plan = plan_merge(coeffs_, def.coeffs_, x);
    if (!plan.sorted) {  // hand-built equations: sort copies of the lists and start again
        Equation sorted(def);
        sorted.sort_entries();
        sort_entries();
        plan = plan_merge(coeffs_, sorted.coeffs_, x);
        if (plan.row_x != nullptr)
            substitute_sorted(coeffs_, x, sorted.coeffs_, plan, dropped);
        else
            report_absent(coeffs_, sorted.coeffs_, x, dropped);
        return;
    }
    (void)scratch;
    if (plan.row_x == nullptr) {
        report_absent(coeffs_, def.coeffs_, x, dropped);
        return;
    }
    substitute_sorted(coeffs_, x, def.coeffs_, plan, dropped);
}

void Equation::substitute_var(int x, const Equation& def, std::vector<int>* dropped) {
    Entries unused;
    substitute_var(x, def, dropped, unused);
}

}  // namespace vorn::la
