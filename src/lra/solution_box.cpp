#include "vorn/lra/solution_box.h"

#include <gmp.h>

#include <optional>

#include "integer_math.h"

namespace vorn::lra {

namespace {

QNumber magnitude(const QNumber& x) {
    return x.sign() < 0 ? -x : x;
}

// ⌈x⌉ for x ≥ 0.
QNumber ceiling(const QNumber& x) {
    mpq_t q;
    mpz_t z;
    mpq_init(q);
    mpz_init(z);
    x.get_mpq(q);
    mpz_cdiv_q(z, mpq_numref(q), mpq_denref(q));
    mpq_set_z(q, z);
    QNumber result(q);
    mpz_clear(z);
    mpq_clear(q);
    return result;
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
}

QNumber SolutionBox::bound() const {
    if (rows_ == 0) return {};
    mpq_t a;
    mpz_t base, power;
    mpq_init(a);
    mpz_init(base);
    mpz_init(power);
    largest_.get_mpq(a);  // an integer
    mpz_mul_ui(base, mpq_numref(a), rows_);
    mpz_pow_ui(power, base, 2 * rows_ + 1);
    mpz_mul_ui(power, power, 2 * variables_.size() + rows_);
    mpq_set_z(a, power);
    QNumber b(a);
    mpz_clear(power);
    mpz_clear(base);
    mpq_clear(a);
    return b;
}

}  // namespace vorn::lra
