#pragma once

// Reference model for tableau tests: a space of linear forms over exact rationals, kept in
// reduced row-echelon form. Deliberately simple: dense maps and GMP rationals throughout.

#include <gmpxx.h>

#include <map>
#include <vector>

#include "vorn/la/equation.h"

namespace vorn::test {

using Form = std::map<int, mpq_class>;

inline Form form_of(const la::Equation& e) {
    Form f;
    for (const auto& entry : e.coeffs_) {
        mpq_class c;
        entry.coeff.get_mpq(c.get_mpq_t());
        if (c != 0) f[entry.var] += c;
    }
    return f;
}

class RowSpace {
  public:
    // Adds `f` to the span; returns false when it was already in it.
    bool add(Form f) {
        reduce(f);
        if (f.empty()) return false;
        auto [pivot, coeff] = *f.begin();
        mpq_class inv = 1 / coeff;
        for (auto& [v, c] : f)
            c *= inv;
        for (auto& [p, row] : basis_)
            eliminate(row, pivot, f);
        basis_[pivot] = std::move(f);
        return true;
    }

    bool contains(Form f) const {
        reduce(f);
        return f.empty();
    }

    std::size_t rank() const { return basis_.size(); }

    // The forms of the span whose coefficient of `x` is 0.
    void intersect_without(int x) {
        std::vector<Form> rows;
        for (auto& [p, row] : basis_)
            rows.push_back(row);
        const Form* pivot = nullptr;
        for (const Form& row : rows)
            if (row.count(x)) {
                pivot = &row;
                break;
            }
        if (pivot == nullptr) return;
        Form p = *pivot;
        basis_.clear();
        for (Form row : rows) {
            if (row == p) continue;
            eliminate(row, x, p);
            add(row);
        }
    }

  private:
    // row -= row[v] / by[v] · by
    static void eliminate(Form& row, int v, const Form& by) {
        auto it = row.find(v);
        if (it == row.end()) return;
        mpq_class factor = it->second / by.at(v);
        for (const auto& [w, c] : by) {
            mpq_class& target = row[w];
            target -= factor * c;
            if (target == 0) row.erase(w);
        }
    }
    void reduce(Form& f) const {
        for (const auto& [p, row] : basis_)
            eliminate(f, p, row);
    }

    std::map<int, Form> basis_;
};

}  // namespace vorn::test
