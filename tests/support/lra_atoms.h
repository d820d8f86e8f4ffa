#pragma once

// Atoms as the simplex tests assert them (reason = index), read back as inequalities for the
// references: models are evaluated on them, Farkas certificates are combined over them.

#include <gmpxx.h>

#include <optional>
#include <string>
#include <vector>

#include "support/fourier_motzkin.h"
#include "support/gmp_reference.h"
#include "vorn/lra/simplex.h"

namespace vorn::test {

struct Atom {
    lra::TermEntries term;
    lra::Relation relation;
    QNumber constant;
    std::size_t level = 0;
};

inline bool has_side(const Atom& a, bool upper) {
    return upper ? a.relation != lra::Relation::Ge && a.relation != lra::Relation::Gt
                 : a.relation != lra::Relation::Le && a.relation != lra::Relation::Lt;
}

// The atom's side "c − term ≥ 0" (upper) or "term − c ≥ 0", strict as the atom is.
inline Inequality side_of(const Atom& a, bool upper) {
    Inequality q;
    mpq_class sign = upper ? -1 : 1;
    for (const auto& e : a.term)
        q.coeffs[e.var] += sign * to_mpq(e.coeff);
    std::erase_if(q.coeffs, [](const auto& e) { return e.second == 0; });
    q.constant = -sign * to_mpq(a.constant);
    q.strict = a.relation == lra::Relation::Lt || a.relation == lra::Relation::Gt;
    return q;
}

inline std::vector<Inequality> inequalities(const std::vector<Atom>& atoms) {
    std::vector<Inequality> out;
    for (const Atom& a : atoms)
        for (bool upper : {true, false})
            if (has_side(a, upper)) out.push_back(side_of(a, upper));
    return out;
}

// "" when every atom holds at the values value(var).
template <class Value>
std::string check_model(Value value, const std::vector<Atom>& atoms) {
    for (const Inequality& q : inequalities(atoms)) {
        mpq_class sum = q.constant;
        for (const auto& [v, c] : q.coeffs)
            sum += c * value(v);
        if (sum < 0 || (q.strict && sum == 0)) return "model violates an atom";
    }
    return "";
}

// "" when Σ multiplier·side(entry) is a contradiction; side(entry) gives nothing for an entry
// that names no bound it could use.
template <class Side>
std::string check_certificate(const std::vector<lra::Explanation>& conflict, Side side) {
    Inequality total;
    if (conflict.empty()) return "empty conflict";
    for (const lra::Explanation& e : conflict) {
        std::optional<Inequality> q = side(e);
        if (!q || e.multiplier.sign() <= 0) return "unknown reason, wrong side or multiplier";
        mpq_class m = to_mpq(e.multiplier);
        for (const auto& [v, c] : q->coeffs)
            total.coeffs[v] += m * c;
        total.constant += m * q->constant;
        total.strict = total.strict || q->strict;
    }
    for (const auto& [v, c] : total.coeffs)
        if (c != 0) return "variables do not cancel";
    return total.constant < 0 || (total.constant == 0 && total.strict) ? "" : "no contradiction";
}

}  // namespace vorn::test
