#include "vorn/smt/integral_bound.h"

#include <gmpxx.h>

#include <algorithm>

namespace vorn::smt {

namespace {

mpq_class to_mpq(const QNumber& q) {
    mpq_class out;
    q.get_mpq(out.get_mpq_t());
    return out;
}

// L/g: the factor that turns the term's coefficients into coprime integers.
mpq_class integral_scale(std::span<const LinearExpr::Entry> term) {
    mpz_class lcm = 1, gcd = 0;
    for (const auto& e : term)
        if (e.var != 0) lcm = ::lcm(lcm, to_mpq(e.coeff).get_den());
    for (const auto& e : term)
        if (e.var != 0) gcd = ::gcd(gcd, mpz_class(to_mpq(e.coeff) * lcm));
    return mpq_class(lcm, gcd);
}

}  // namespace

bool integral_equation_refuted(std::span<const LinearExpr::Entry> term, const QNumber& c) {
    bool any = std::any_of(term.begin(), term.end(), [](const auto& e) { return e.var != 0; });
    return any && mpq_class(to_mpq(c) * integral_scale(term)).get_den() != 1;
}

std::optional<RoundedBound> round_integral_bound(std::span<const LinearExpr::Entry> term,
                                                 Relation relation, const QNumber& c,
                                                 const Variables& variables) {
    bool upper = relation == Relation::Le || relation == Relation::Lt;
    bool lower = relation == Relation::Ge || relation == Relation::Gt;
    bool any = false;
    for (const auto& e : term) {
        if (e.var == 0) continue;
        if (variables.sort(e.var) != Sort::Int) return std::nullopt;
        any = true;
    }
    if (!any || !(upper || lower)) return std::nullopt;
    mpq_class scale = integral_scale(term);
    mpq_class scaled = to_mpq(c) * scale;
    mpz_class k;
    if (upper) {  // T ≤ ⌊c⌋, or T ≤ ⌈c⌉ − 1 when strict
        relation == Relation::Le
            ? mpz_fdiv_q(k.get_mpz_t(), scaled.get_num_mpz_t(), scaled.get_den_mpz_t())
            : mpz_cdiv_q(k.get_mpz_t(), scaled.get_num_mpz_t(), scaled.get_den_mpz_t());
        if (relation == Relation::Lt) k -= 1;
    } else {  // T ≥ ⌈c⌉, or T ≥ ⌊c⌋ + 1 when strict
        relation == Relation::Ge
            ? mpz_cdiv_q(k.get_mpz_t(), scaled.get_num_mpz_t(), scaled.get_den_mpz_t())
            : mpz_fdiv_q(k.get_mpz_t(), scaled.get_num_mpz_t(), scaled.get_den_mpz_t());
        if (relation == Relation::Gt) k += 1;
    }
    mpq_class bound = mpq_class(k) / scale;
    return RoundedBound{upper ? Relation::Le : Relation::Ge, QNumber(bound.get_mpq_t())};
}

}  // namespace vorn::smt
