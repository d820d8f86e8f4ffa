#include "integer_math.h"

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
        mpq_t q;
        mpq_init(q);
        mpq_set_z(q, z);
        QNumber out(q);
        mpq_clear(q);
        return out;
    }
};

// numerator · (lcm / denominator): the value scaled by a common multiple of denominators.
void scale_to(const Rational& value, const Integer& lcm, Integer& out) {
    mpz_divexact(out.z, lcm.z, mpq_denref(value.q));
    mpz_mul(out.z, out.z, mpq_numref(value.q));
}

}  // namespace

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
