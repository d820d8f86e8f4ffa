#pragma once

// The arithmetic of one Gomory mixed-integer cut, shared by the cuts of the CDCL search
// (gomory_cut.cpp) and those at the root of MILP branch and bound (milp_cuts.cpp); what each
// makes of the result (lemmas or proof-tree splits) differs. Exact; a few QNumber operations per
// row entry.

#include "vorn/lra/integer_bounds.h"
#include "vorn/lra/simplex.h"

namespace vorn::smt {

inline QNumber floor_q(const QNumber& q) {
    return lra::floor_of(lra::DeltaRational(q));
}

// σⱼ of a non-basic variable: 1 at its lower bound, −1 at its upper one, 0 strictly between
// (then the row gives no cut).
inline int bound_side(const lra::Simplex& simplex, int var) {
    const lra::DeltaRational& v = simplex.delta_value(var);
    const lra::BoundTrail& bounds = simplex.bounds();
    if (bounds.has_lower(var) && bounds.lower_value(var) == v) return 1;
    if (bounds.has_upper(var) && bounds.upper_value(var) == v) return -1;
    return 0;
}

// A non-basic entry of the row of x_b (coefficient `coeff`, x_b's own `basic_coeff`) as a cut
// reads it: the bound it sits at and a = σⱼ·a'ⱼ, its coefficient in x_b = x* + Σ a'ⱼ·tⱼ over the
// distances tⱼ from that bound. `sigma` 0 (no bound) when the variable is strictly inside.
struct EntryAtBound {
    int sigma = 0;
    const lra::BoundRecord* bound = nullptr;
    QNumber a;
};

inline EntryAtBound entry_at_bound(const lra::Simplex& simplex, int var, const QNumber& coeff,
                                   const QNumber& basic_coeff) {
    EntryAtBound at;
    at.sigma = bound_side(simplex, var);
    if (at.sigma == 0) return at;
    const lra::BoundTrail& bounds = simplex.bounds();
    at.bound = at.sigma > 0 ? &bounds.lower(var) : &bounds.upper(var);
    at.a = at.sigma > 0 ? -coeff / basic_coeff : coeff / basic_coeff;
    return at;
}

// One entry tⱼ of the row x_b = x* + Σ a'ⱼ·tⱼ, with f₀ = x* − ⌊x*⌋ and f₁ = 1 − f₀. `r` is the
// integer part moved into the split term (zero unless tⱼ is integral: ⌊a'ⱼ⌋, or ⌈a'ⱼ⌉ when
// frac(a'ⱼ) > f₀), `g` = a'ⱼ − r what stays, `c` = max(g/f₁, −g/f₀) the cut's coefficient.
struct GomoryTerm {
    QNumber r, g, c;
};

inline GomoryTerm gomory_term(const QNumber& a, bool integral, const QNumber& f0,
                              const QNumber& f1) {
    GomoryTerm t;
    if (integral) {
        t.r = floor_q(a);
        t.g = a - t.r;
        if (t.g > f0) {
            t.r += QNumber(1);
            t.g -= QNumber(1);
        }
    } else {
        t.g = a;
    }
    if (!t.g.is_zero()) t.c = t.g.sign() > 0 ? t.g / f1 : -t.g / f0;
    return t;
}

}  // namespace vorn::smt
