#include "vorn/lra/solution_box.h"

#include <gmp.h>

#include <optional>

#include "integer_math.h"

namespace vorn::lra {

namespace {

QNumber magnitude(const QNumber& x) {
    return x.sign() < 0 ? -x : x;
}

// ⌈x⌉, through the floor that branch and bound takes.
QNumber ceiling(const QNumber& x) {
    return -floor_of(DeltaRational(-x));
}

// L/g: the factor that turns the term's coefficients and c together into coprime integers (L the
// lcm of their denominators, g the gcd of the scaled entries), so that a row measures the same
// however it is written.
QNumber primitive_scale(std::span<const la::Equation::VarCoeff> term, const QNumber& c) {
    mpq_t q;
    mpz_t lcm, gcd, entry;
    mpq_init(q);
    mpz_init_set_ui(lcm, 1);
    mpz_init(gcd);
    mpz_init(entry);
    auto each = [&](auto&& take) {
        c.get_mpq(q);
        take();
        for (const auto& e : term)
            if (e.var != 0) {
                e.coeff.get_mpq(q);
                take();
            }
    };
    each([&] { mpz_lcm(lcm, lcm, mpq_denref(q)); });
    each([&] {
        mpz_divexact(entry, lcm, mpq_denref(q));
        mpz_mul(entry, entry, mpq_numref(q));
        mpz_gcd(gcd, gcd, entry);
    });
    mpq_set_num(q, lcm);
    mpq_set_den(q, gcd);
    mpq_canonicalize(q);
    QNumber result(q);
    mpz_clears(entry, gcd, lcm, nullptr);
    mpq_clear(q);
    return result;
}

QNumber power_bound(const QNumber& a, std::size_t rows, std::size_t exponent, std::size_t factor) {
    mpq_t q;
    mpz_t base, power;
    mpq_init(q);
    mpz_init(base);
    mpz_init(power);
    a.get_mpq(q);  // an integer
    mpz_mul_ui(base, mpq_numref(q), rows);
    mpz_pow_ui(power, base, exponent);
    mpz_mul_ui(power, power, factor);
    mpq_set_z(q, power);
    QNumber b(q);
    mpz_clear(power);
    mpz_clear(base);
    mpq_clear(q);
    return b;
}

}  // namespace

void SolutionBox::add_row(std::span<const la::Equation::VarCoeff> term, const QNumber& c) {
    std::optional<QNumber> scale = coprime_scale(term);
    if (!scale) return;
    ++rows_;
    QNumber measure = ceiling(magnitude(c * *scale)) + QNumber(1);
    for (const auto& e : term)
        if (e.var != 0) {
            variables_.insert(e.var);
            QNumber a = magnitude(e.coeff * *scale);
            if (measure < a) measure = a;
        }
    if (largest_ < measure) largest_ = measure;
    QNumber whole = primitive_scale(term, c);
    QNumber mixed = magnitude(c * whole);
    for (const auto& e : term)
        if (e.var != 0 && mixed < magnitude(e.coeff * whole)) mixed = magnitude(e.coeff * whole);
    if (largest_mixed_ < mixed) largest_mixed_ = mixed;
}

QNumber SolutionBox::bound() const {
    if (rows_ == 0) return {};
    return power_bound(largest_, rows_, 2 * rows_ + 1, 2 * variables_.size() + rows_);
}

// Two rows more than counted (ε ≤ 1 and one to spare), the columns of x⁺, x⁻, the slacks and ε.
QNumber SolutionBox::mixed_bound() const {
    if (rows_ == 0) return {};
    std::size_t m = rows_ + 2;
    std::size_t columns = 2 * variables_.size() + m + 1;
    return power_bound(largest_mixed_, m, m, columns + 1);
}

}  // namespace vorn::lra
