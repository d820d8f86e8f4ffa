#pragma once

// Random sparse systems in the shape a simplex solver builds: slack rows s = Σ a·x over
// structural variables 1..structurals, slack variables numbered after them.

#include <random>
#include <vector>

#include <memory>

#include "vorn/la/equation.h"
#include "vorn/la/tableau.h"

namespace vorn::bench {

struct SparseSystem {
    int structurals = 0;
    std::vector<la::Equation> equations;  // basic variable = the slack
};

inline SparseSystem make_sparse_system(int rows, int structurals, int min_entries, int max_entries,
                                       unsigned seed, double big_share = 0) {
    std::mt19937_64 rng(seed);
    SparseSystem system;
    system.structurals = structurals;
    system.equations.reserve(static_cast<std::size_t>(rows));
    const QNumber big = QNumber::from_string("340282366920938463463374607431768211507");
    for (int k = 0; k < rows; ++k) {
        int slack = structurals + 1 + k;
        std::vector<la::Equation::VarCoeff> entries{{slack, QNumber(-1)}};
        int n = min_entries + static_cast<int>(rng() % (max_entries - min_entries + 1));
        for (int i = 1; i < n; ++i) {
            QNumber c(static_cast<std::int64_t>(rng() % 19) - 9);
            if (c.is_zero()) c = QNumber(1);
            if (std::uniform_real_distribution<>(0, 1)(rng) < big_share) c *= big;
            entries.push_back({1 + static_cast<int>(rng() % structurals), c});
        }
        system.equations.emplace_back(slack, std::move(entries));
    }
    return system;
}

// A tableau holding the system's equations, entered by check().
inline std::unique_ptr<la::Tableau> checked_tableau(const SparseSystem& system) {
    auto t = std::make_unique<la::Tableau>(0);
    for (const auto& eq : system.equations)
        t->add_equation(eq, false, nullptr);
    t->check();
    return t;
}

}  // namespace vorn::bench
