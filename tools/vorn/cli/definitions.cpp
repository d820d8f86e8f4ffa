#include "cli/definitions.h"

#include <algorithm>

namespace vorn::cli {

namespace {

using Entries = smt::LinearExpr::Entries;

// x = Σ (−c/c_x)·v over the other entries of `eq`, without the slacks above `last_var`.
Entries solved_for(const la::Equation& eq, int x, int last_var) {
    QNumber scale = QNumber(-1) / *eq.coeff_of(x);
    Entries out;
    out.reserve(eq.entries().size() - 1);
    for (const auto& e : eq.entries()) {
        if (e.var == x || e.var > last_var) continue;
        out.push_back({e.var, e.coeff});
        out.back().coeff *= scale;
    }
    return out;
}

// A sparse sum over variables 0..last_var: a dense array of coefficients and the list of those
// touched, so adding a definition costs its length and reading the sum costs its own.
class Accumulator {
  public:
    explicit Accumulator(int last_var)
        : sum_(static_cast<std::size_t>(last_var) + 1),
          touched_(static_cast<std::size_t>(last_var) + 1, false) {}

    void add(int var, const QNumber& a, const QNumber& b) {
        auto v = static_cast<std::size_t>(var);
        if (!touched_[v]) {
            touched_[v] = true;
            order_.push_back(var);
        }
        sum_[v].add_product(a, b);
    }

    // The non-zero entries in variable order; leaves the sum empty.
    Entries take() {
        std::sort(order_.begin(), order_.end());
        Entries out;
        out.reserve(order_.size());
        for (int var : order_) {
            auto v = static_cast<std::size_t>(var);
            if (!sum_[v].is_zero()) out.push_back({var, sum_[v]});
            sum_[v] = QNumber(0);
            touched_[v] = false;
        }
        order_.clear();
        return out;
    }

  private:
    std::vector<QNumber> sum_;
    std::vector<bool> touched_;
    std::vector<int> order_;
};

}  // namespace

// Latest elimination first: a definition mentions no variable eliminated before it, so each one
// is resolved by substituting the resolved definitions of the later ones it mentions.
std::vector<Definition> read_definitions(const la::Tableau& t, int last_var, bool triangular) {
    std::vector<Definition> out;
    std::vector<int> position(static_cast<std::size_t>(last_var) + 1, -1);  // in `out`
    Accumulator sum(triangular ? 0 : last_var);
    const QNumber one(1);
    const auto& records = t.elim_eqs();
    for (auto rec = records.rbegin(); rec != records.rend(); ++rec) {
        int x = rec->first;
        if (x > last_var || t.elim_index().find(x) == nullptr) continue;
        Entries stored = solved_for(*rec->second, x, last_var);
        if (!triangular) {
            for (const auto& e : stored) {
                int at = e.var == 0 ? -1 : position[static_cast<std::size_t>(e.var)];
                if (at < 0) {
                    sum.add(e.var, e.coeff, one);
                    continue;
                }
                for (const auto& d : out[static_cast<std::size_t>(at)].terms)
                    sum.add(d.var, e.coeff, d.coeff);
            }
            stored = sum.take();
        }
        position[static_cast<std::size_t>(x)] = static_cast<int>(out.size());
        out.push_back({x, std::move(stored)});
    }
    if (triangular) return out;
    // Resolved definitions depend on kept variables only: list them in variable order.
    std::vector<Definition> ordered;
    ordered.reserve(out.size());
    for (int at : position)
        if (at >= 0) ordered.push_back(std::move(out[static_cast<std::size_t>(at)]));
    return ordered;
}

}  // namespace vorn::cli
