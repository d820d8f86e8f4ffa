#pragma once

// GMP rationals as the reference of differential tests, fuzz targets and benchmarks: a linear
// form is a map from variable to mpq_class (variable 0 the constant), deliberately simple.

#include <gmpxx.h>

#include <map>

#include "vorn/la/equation.h"
#include "vorn/numbers/qnumber.h"

namespace vorn::test {

using Form = std::map<int, mpq_class>;

inline mpq_class to_mpq(const QNumber& q) {
    mpq_class r;
    q.get_mpq(r.get_mpq_t());
    return r;
}

// The equation's entries as a form: repeated variables summed, zeros dropped.
inline Form form_of(const la::Equation& e) {
    Form f;
    for (const auto& entry : e.coeffs_)
        f[entry.var] += to_mpq(entry.coeff);
    std::erase_if(f, [](const auto& entry) { return entry.second == 0; });
    return f;
}

// row ← row − (row[x] / def[x])·def, cancelled entries erased; nothing when the row lacks x.
inline void substitute(Form& row, int x, const Form& def) {
    auto it = row.find(x);
    if (it == row.end()) return;
    mpq_class factor = -it->second / def.at(x);
    for (const auto& [v, c] : def) {
        mpq_class& target = row[v];
        target += factor * c;
        if (sgn(target) == 0) row.erase(v);
    }
}

}  // namespace vorn::test
