#pragma once

// Reference model for tableau tests: a space of linear forms over exact rationals, kept in
// reduced row-echelon form. Deliberately simple: dense maps and GMP rationals throughout.

#include <map>
#include <vector>

#include "support/gmp_reference.h"

namespace vorn::test {

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
            substitute(row, pivot, f);
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
            substitute(row, x, p);
            add(row);
        }
    }

  private:
    void reduce(Form& f) const {
        for (const auto& [p, row] : basis_)
            substitute(f, p, row);
    }

    std::map<int, Form> basis_;
};

}  // namespace vorn::test
