#pragma once

// Reference decision procedure for small conjunctions of linear constraints: Fourier–Motzkin
// elimination over GMP rationals. Deliberately simple and exponential; for a handful of
// variables and constraints only.

#include <gmpxx.h>

#include <map>
#include <set>
#include <utility>
#include <vector>

namespace vorn::test {

// Σ coeffs·x + constant ≥ 0, or > 0 when strict.
struct Inequality {
    std::map<int, mpq_class> coeffs;
    mpq_class constant;
    bool strict = false;
};

inline bool fm_feasible(std::vector<Inequality> system) {
    while (true) {
        std::vector<Inequality> kept, pos, neg;
        int var = 0;
        for (const Inequality& q : system)
            if (!q.coeffs.empty()) var = q.coeffs.begin()->first;
        for (Inequality& q : system) {
            if (q.coeffs.empty()) {
                if (q.constant < 0 || (q.strict && q.constant == 0)) return false;
            } else if (!q.coeffs.count(var)) {
                kept.push_back(std::move(q));
            } else {
                (q.coeffs[var] > 0 ? pos : neg).push_back(std::move(q));
            }
        }
        if (var == 0) return true;
        // Combinations scaled to a leading coefficient ±1, deduplicated.
        std::set<std::pair<std::vector<std::pair<int, mpq_class>>, std::pair<mpq_class, bool>>>
            seen;
        for (const Inequality& p : pos)
            for (const Inequality& n : neg) {
                Inequality r;
                mpq_class a = p.coeffs.at(var), b = -n.coeffs.at(var);
                for (const auto& [v, c] : p.coeffs)
                    r.coeffs[v] += b * c;
                for (const auto& [v, c] : n.coeffs)
                    r.coeffs[v] += a * c;
                r.constant = b * p.constant + a * n.constant;
                r.strict = p.strict || n.strict;
                std::erase_if(r.coeffs, [](const auto& e) { return e.second == 0; });
                mpq_class scale = r.coeffs.empty() ? mpq_class(1) : abs(r.coeffs.begin()->second);
                for (auto& [v, c] : r.coeffs)
                    c /= scale;
                r.constant /= scale;
                std::vector<std::pair<int, mpq_class>> key(r.coeffs.begin(), r.coeffs.end());
                if (seen.insert({key, {r.constant, r.strict}}).second) kept.push_back(std::move(r));
            }
        system = std::move(kept);
    }
}

}  // namespace vorn::test
