#pragma once

// A deliberately simple tableau for side-by-side measurements: rows as std::map<int, mpq_class>,
// columns as std::map<int, std::set<int>>, every touched row unfiled and refiled in full.

#include <gmpxx.h>

#include <chrono>
#include <map>
#include <set>
#include <vector>

#include "support/gmp_reference.h"
#include "vorn/la/equation.h"

namespace vorn::bench {

using MapRow = test::Form;
using test::substitute;

class ReferenceTableau {
  public:
    using Row = MapRow;

    static Row row_of(const la::Equation& e) { return test::form_of(e); }

    // Enters `r` as b's row after restoring what it needs and substituting basic variables.
    void add_equation(int b, Row r) {
        std::vector<int> vars;
        for (const auto& [v, c] : r)
            if (v != b) vars.push_back(v);
        for (int v : vars)
            if (auto it = elim_.find(v); it != elim_.end()) restore(v);
        for (int v : vars)
            if (auto it = rows_.find(v); it != rows_.end()) substitute(r, v, it->second);
        file(b, r);
        rows_[b] = std::move(r);
    }

    void pivot(int leaving, int entering) {
        Row r = std::move(rows_[leaving]);
        rows_.erase(leaving);
        unfile(leaving, r);
        mpq_class scale = -1 / r[entering];
        for (auto& [v, c] : r)
            c *= scale;
        std::set<int> col = cols_[entering];
        for (int b : col) {
            Row& other = rows_[b];
            unfile(b, other);
            substitute(other, entering, r);
            file(b, other);
        }
        cols_.erase(entering);
        file(entering, r);
        rows_[entering] = std::move(r);
    }

    void eliminate(int x) {
        if (!rows_.count(x)) {
            auto col = cols_.find(x);
            if (col == cols_.end()) return;
            int best = *col->second.begin();
            for (int b : col->second)
                if (rows_[b].size() < rows_[best].size()) best = b;
            pivot(best, x);
        }
        Row r = std::move(rows_[x]);
        rows_.erase(x);
        unfile(x, r);
        elim_[x] = std::move(r);
    }

    void restore(int x) {
        Row r = std::move(elim_[x]);
        elim_.erase(x);
        add_equation(x, std::move(r));
    }

    void restore_if_eliminated(int x) {
        if (elim_.count(x)) restore(x);
    }

    const std::map<int, Row>& rows() const { return rows_; }
    const std::map<int, std::set<int>>& cols() const { return cols_; }

  private:
    void file(int b, const Row& r) {
        for (const auto& [v, c] : r)
            if (v >= 1 && v != b) cols_[v].insert(b);
    }
    void unfile(int b, const Row& r) {
        for (const auto& [v, c] : r) {
            if (v < 1 || v == b) continue;
            auto it = cols_.find(v);
            it->second.erase(b);
            if (it->second.empty()) cols_.erase(it);
        }
    }

    std::map<int, Row> rows_;
    std::map<int, std::set<int>> cols_;
    std::map<int, Row> elim_;
};

}  // namespace vorn::bench
