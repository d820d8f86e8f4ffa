// QNumber arithmetic against GMP's own rationals, with operands around every 64-bit overflow
// boundary, in both forms. Every result must be exact and normalized; a fresh result is small
// exactly when it fits, and an in-place result in a big destination stays in its block.

#include <gmpxx.h>
#include <gtest/gtest.h>

#include <random>

#include "support/gmp_reference.h"
#include "support/random_rational.h"

using vorn::QNumber;
using vorn::test::to_mpq;

namespace {

bool fits_small(const mpq_class& q) {
    return q.get_num().fits_slong_p() && q.get_den().fits_slong_p();
}

// `into_big`: the result was computed in place into a number that was big before.
::testing::AssertionResult matches(const QNumber& got, const mpq_class& want,
                                   bool into_big = false) {
    if (to_mpq(got) != want)
        return ::testing::AssertionFailure() << "got " << got << ", want " << want.get_str();
    if ((into_big || !fits_small(want)) != got.is_big())
        return ::testing::AssertionFailure()
               << want.get_str() << " came out " << (got.is_big() ? "big" : "small");
    if (!got.is_big() && (got.den_word() <= 0 || want.get_den() != got.den_word()))
        return ::testing::AssertionFailure()
               << "not normalized: " << got.num_word() << "/" << got.den_word();
    return ::testing::AssertionSuccess();
}

}  // namespace

TEST(QNumberArith, RandomOperationsMatchGmp) {
    const unsigned seed = 20261123;
    std::mt19937_64 rng(seed);
    for (int i = 0; i < 40000; ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " step " + std::to_string(i));
        QNumber a = vorn::test::random_rational(rng);
        QNumber b = vorn::test::random_rational(rng);
        mpq_class qa = to_mpq(a), qb = to_mpq(b);
        ASSERT_TRUE(matches(a + b, qa + qb));
        ASSERT_TRUE(matches(a - b, qa - qb));
        ASSERT_TRUE(matches(a * b, qa * qb));
        ASSERT_TRUE(matches(-a, -qa));
        if (!b.is_zero()) {
            ASSERT_TRUE(matches(a / b, qa / qb));
        }
        ASSERT_EQ(a == b, qa == qb);
        ASSERT_EQ(a < b, qa < qb);
        ASSERT_EQ(a.sign(), sgn(qa));
        ASSERT_EQ(a.is_integer(), qa.get_den() == 1);

        QNumber acc = vorn::test::random_rational(rng);
        mpq_class qacc = to_mpq(acc);
        bool was_big = acc.is_big();
        acc.add_product(a, b);
        ASSERT_TRUE(matches(acc, qacc + qa * qb, was_big));
        QNumber c = a;
        c -= b;
        ASSERT_TRUE(matches(c, qa - qb, a.is_big()));
        was_big = c.is_big();
        c *= b;
        ASSERT_TRUE(matches(c, (qa - qb) * qb, was_big));
        if (!b.is_zero()) {
            was_big = c.is_big();
            c /= b;
            ASSERT_TRUE(matches(c, qa - qb, was_big));
        } else {
            c = a - b;
        }
        was_big = c.is_big();
        c += a;
        ASSERT_TRUE(matches(c, 2 * qa - qb, was_big));
        was_big = c.is_big();
        c.set_product(a, b);
        ASSERT_TRUE(matches(c, qa * qb, was_big));
        c.negate();
        ASSERT_TRUE(matches(c, -(qa * qb), c.is_big()));
    }
}
