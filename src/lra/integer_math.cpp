#include "integer_math.h"

#include "vorn/lra/integer_bounds.h"

#include "../numbers/gmp_holder.h"

#include <gmp.h>

namespace vorn::lra {

namespace {

// An mpq_t and an mpz_t that clean up after themselves.
struct Rational {
    mpq_t q;
    explicit Rational(const QNumber& value) {
        mpq_init(q);
        value.get_mpq(q);
    }
    Rational(const Rational&) = delete;
    Rational& operator=(const Rational&) = delete;
    ~Rational() { mpq_clear(q); }
};

struct Integer {
    mpz_t z;
    Integer() { mpz_init(z); }
    Integer(const Integer&) = delete;
    Integer& operator=(const Integer&) = delete;
    ~Integer() { mpz_clear(z); }

    QNumber to_qnumber() const {
        detail::LocalMpq q;
        mpq_set_z(q.get(), z);
        return QNumber(q.get());
    }
};

// numerator · (lcm / denominator): the value scaled by a common multiple of denominators.
void scale_to(const Rational& value, const Integer& lcm, Integer& out) {
    mpz_divexact(out.z, lcm.z, mpq_denref(value.q));
    mpz_mul(out.z, out.z, mpq_numref(value.q));
}

// L/g for the term's variables (variable 0 skipped): the factor that turns their coefficients
// into coprime integers. False when the term has no variable.
bool integral_scale(std::span<const la::Equation::VarCoeff> term, mpq_t factor) {
    Integer lcm, gcd, scaled;
    mpz_set_ui(lcm.z, 1);
    bool any = false;
    for (const auto& e : term)
        if (e.var != 0) {
            Rational a(e.coeff);
            mpz_lcm(lcm.z, lcm.z, mpq_denref(a.q));
            any = true;
        }
    if (!any) return false;
    for (const auto& e : term)
        if (e.var != 0) {
            Rational a(e.coeff);
            scale_to(a, lcm, scaled);
            mpz_gcd(gcd.z, gcd.z, scaled.z);
        }
    mpq_set_num(factor, lcm.z);
    mpq_set_den(factor, gcd.z);
    mpq_canonicalize(factor);
    return true;
}

struct Scaled {
    mpq_t factor, c;
    Scaled() {
        mpq_init(factor);
        mpq_init(c);
    }
    Scaled(const Scaled&) = delete;
    Scaled& operator=(const Scaled&) = delete;
    ~Scaled() {
        mpq_clear(factor);
        mpq_clear(c);
    }
};

}  // namespace

std::optional<RoundedBound> round_integral_bound(std::span<const la::Equation::VarCoeff> term,
                                                 Relation relation, const QNumber& c) {
    bool upper = relation == Relation::Le || relation == Relation::Lt;
    bool lower = relation == Relation::Ge || relation == Relation::Gt;
    Scaled s;
    if (!(upper || lower) || !integral_scale(term, s.factor)) return std::nullopt;
    c.get_mpq(s.c);
    mpq_mul(s.c, s.c, s.factor);
    Integer k;
    bool floor = relation == Relation::Le || relation == Relation::Gt;
    (floor ? mpz_fdiv_q : mpz_cdiv_q)(k.z, mpq_numref(s.c), mpq_denref(s.c));
    if (relation == Relation::Lt) mpz_sub_ui(k.z, k.z, 1);  // T ≤ ⌈c⌉ − 1
    if (relation == Relation::Gt) mpz_add_ui(k.z, k.z, 1);  // T ≥ ⌊c⌋ + 1
    mpq_set_z(s.c, k.z);
    mpq_div(s.c, s.c, s.factor);
    return RoundedBound{upper ? Relation::Le : Relation::Ge, QNumber(s.c)};
}

bool integral_equation_refuted(std::span<const la::Equation::VarCoeff> term, const QNumber& c) {
    Scaled s;
    if (!integral_scale(term, s.factor)) return false;
    c.get_mpq(s.c);
    mpq_mul(s.c, s.c, s.factor);
    return mpz_cmp_ui(mpq_denref(s.c), 1) != 0;
}

std::optional<QNumber> coprime_scale(std::span<const la::Equation::VarCoeff> term) {
    Scaled s;
    if (!integral_scale(term, s.factor)) return std::nullopt;
    return QNumber(s.factor);
}

QNumber floor_of(const DeltaRational& v) {
    Rational real(v.real());
    Integer out;
    mpz_fdiv_q(out.z, mpq_numref(real.q), mpq_denref(real.q));
    if (v.real().is_integer() && v.delta().sign() < 0) mpz_sub_ui(out.z, out.z, 1);
    return out.to_qnumber();
}

std::optional<QNumber> gcd_conflict(std::span<const la::Equation::VarCoeff> coeffs,
                                    const QNumber& constant) {
    Rational c(constant);
    Integer lcm, gcd, scaled;
    mpz_set(lcm.z, mpq_denref(c.q));
    for (const auto& e : coeffs) {
        Rational a(e.coeff);
        mpz_lcm(lcm.z, lcm.z, mpq_denref(a.q));
    }
    for (const auto& e : coeffs) {
        Rational a(e.coeff);
        scale_to(a, lcm, scaled);
        mpz_gcd(gcd.z, gcd.z, scaled.z);
    }
    scale_to(c, lcm, scaled);
    if (mpz_sgn(gcd.z) == 0 || mpz_divisible_p(scaled.z, gcd.z) != 0) return std::nullopt;
    // Dividing coefficients and constant by their common factor leaves the coefficients' gcd
    // g / gcd(g, constant).
    Integer common;
    mpz_gcd(common.z, gcd.z, scaled.z);
    mpz_divexact(gcd.z, gcd.z, common.z);
    return gcd.to_qnumber();
}

}  // namespace vorn::lra
