// The arithmetic the tableau calls on its rows: change of basic variable and substitution.
// Entries are kept sorted by variable, so a substitution is one linear merge of the row with the
// definition, written into the caller's scratch buffer and moved back into the row's storage.

#include <algorithm>
#include <cassert>
#include <iterator>

#include "vorn/la/equation.h"

namespace vorn::la {

namespace {

using Entries = std::vector<Equation::VarCoeff>;

bool entries_sorted(const Entries& entries) {
    return std::is_sorted(entries.begin(), entries.end(),
                          [](const auto& a, const auto& b) { return a.var < b.var; });
}

Entries::iterator find_entry(Entries& entries, int var) {
    auto it = std::lower_bound(entries.begin(), entries.end(), var,
                               [](const Equation::VarCoeff& e, int v) { return e.var < v; });
    return it != entries.end() && it->var == var ? it : entries.end();
}

Entries::const_iterator find_entry(const Entries& entries, int var) {
    return find_entry(const_cast<Entries&>(entries), var);
}

// Every variable of `def` other than x that the row does not mention: what a substitution that
// had nothing to replace must still report.
void report_absent(const Entries& row, const Entries& def, int x, std::vector<int>* dropped) {
    if (dropped == nullptr) return;
    for (const auto& e : def)
        if (e.var != x && find_entry(row, e.var) == row.end()) dropped->push_back(e.var);
}

// row + factor·def without x, merged into `out` (empty on entry).
void merge_scaled(Entries& row, const Entries& def, int x, const QNumber& factor,
                  std::vector<int>* dropped, Entries& out) {
    auto r = row.begin();
    auto d = def.begin();
    while (r != row.end() || d != def.end()) {
        if (d == def.end() || (r != row.end() && r->var < d->var)) {
            if (r->var != x) out.push_back(std::move(*r));
            ++r;
        } else if (r == row.end() || d->var < r->var) {
            if (d->var != x) out.push_back({d->var, factor * d->coeff});
            ++d;
        } else {
            if (r->var != x) {
                r->coeff.add_product(factor, d->coeff);
                if (!r->coeff.is_zero())
                    out.push_back(std::move(*r));
                else if (dropped != nullptr)
                    dropped->push_back(r->var);
            }
            ++r;
            ++d;
        }
    }
}

}  // namespace

void Equation::change_basic_var(int v) {
    sort_entries();
    auto it = find_entry(coeffs_, v);
    assert(it != coeffs_.end() && "change_basic_var: the equation does not mention v");
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
    if (!entries_sorted(def.coeffs_)) {
        Equation sorted(def);
        sorted.sort_entries();
        substitute_var(x, sorted, dropped, scratch);
        return;
    }
    sort_entries();
    auto rx = find_entry(coeffs_, x);
    if (rx == coeffs_.end()) {
        report_absent(coeffs_, def.coeffs_, x, dropped);
        return;
    }
    auto dx = find_entry(def.coeffs_, x);
    assert(dx != def.coeffs_.end() && "substitute_var: the definition does not mention x");
    QNumber factor = rx->coeff / dx->coeff;
    factor.negate();

    scratch.clear();
    scratch.reserve(coeffs_.size() + def.coeffs_.size());
    merge_scaled(coeffs_, def.coeffs_, x, factor, dropped, scratch);
    // Moving back keeps the row's storage and the scratch buffer's capacity, so neither is
    // reallocated once both have reached their working sizes.
    coeffs_.clear();
    coeffs_.insert(coeffs_.end(), std::make_move_iterator(scratch.begin()),
                   std::make_move_iterator(scratch.end()));
}

void Equation::substitute_var(int x, const Equation& def, std::vector<int>* dropped) {
    thread_local Entries scratch;
    substitute_var(x, def, dropped, scratch);
    scratch.clear();
}

}  // namespace vorn::la
