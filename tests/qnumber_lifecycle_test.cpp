// QNumber forms: construction, parsing, printing, and the copy/assign/destroy rules with their
// GMP allocation counts.

#include <gtest/gtest.h>

#include <stdexcept>

#include "support/gmp_counter.h"
#include "vorn/numbers/qnumber.h"

using vorn::QNumber;
using vorn::test::GmpCounter;

namespace {

void expect_small(const QNumber& q, std::int64_t num, std::int64_t den) {
    EXPECT_FALSE(q.is_big()) << q;
    EXPECT_EQ(q.num_word(), num);
    EXPECT_EQ(q.den_word(), den);
}

}  // namespace

TEST(QNumberConstruction, NormalizesToLowestTermsWithPositiveDenominator) {
    expect_small(QNumber(), 0, 1);
    expect_small(QNumber(6, -4), -3, 2);
    expect_small(QNumber(0, -7), 0, 1);
    expect_small(QNumber(INT64_MIN, 2), INT64_MIN / 2, 1);
    expect_small(QNumber(INT64_MIN), INT64_MIN, 1);
    expect_small(QNumber(-5, INT64_MIN + 1), 5, INT64_MAX);
}

TEST(QNumberConstruction, AcceptsEveryIntegerType) {
    expect_small(QNumber(0), 0, 1);
    expect_small(QNumber(7u), 7, 1);
    expect_small(QNumber(static_cast<short>(-3)), -3, 1);
    expect_small(QNumber(std::uint64_t{INT64_MAX}), INT64_MAX, 1);
    QNumber beyond(std::uint64_t{1} << 63);
    EXPECT_TRUE(beyond.is_big());
    EXPECT_EQ(beyond.to_string(), "9223372036854775808");
}

TEST(QNumberConstruction, PromotesWhenTheNormalFormDoesNotFit) {
    QNumber negated(INT64_MIN, -1);  // 2^63
    EXPECT_TRUE(negated.is_big());
    EXPECT_EQ(negated.to_string(), "9223372036854775808");
    QNumber tiny(1, INT64_MIN);  // -1/2^63
    EXPECT_TRUE(tiny.is_big());
    EXPECT_EQ(tiny.to_string(), "-1/9223372036854775808");
}

TEST(QNumberParse, AcceptsIntegersFractionsAndDecimals) {
    expect_small(QNumber::from_string("-12"), -12, 1);
    expect_small(QNumber::from_string("+7"), 7, 1);
    expect_small(QNumber::from_string("6/8"), 3, 4);
    expect_small(QNumber::from_string("-0.125"), -1, 8);
    expect_small(QNumber::from_string(".5"), 1, 2);
    expect_small(QNumber::from_string("3."), 3, 1);
    expect_small(QNumber::from_string("9223372036854775807"), INT64_MAX, 1);
    expect_small(QNumber::from_string("-9223372036854775808"), INT64_MIN, 1);
    expect_small(QNumber::from_string("00000000000000000000000012/0000000000000000000000018"), 2,
                 3);
    QNumber big = QNumber::from_string("-123456789012345678901234567891/7");
    EXPECT_TRUE(big.is_big());
    EXPECT_EQ(big.to_string(), "-123456789012345678901234567891/7");
    EXPECT_TRUE(QNumber::from_string("9223372036854775808").is_big());
}

TEST(QNumberParse, RejectsMalformedTextNamingIt) {
    for (const char* bad :
         {"", "-", "1/", "/2", "1.2.3", "abc", "1/0", " 1", "1e5", "--1", ".", "1/-2", "0x10"}) {
        try {
            (void)QNumber::from_string(bad);
            ADD_FAILURE() << "accepted '" << bad << "'";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find("'" + std::string(bad) + "'"), std::string::npos)
                << e.what();
        }
    }
}

TEST(QNumberPrint, WritesLowestTerms) {
    EXPECT_EQ(QNumber(-3, 4).to_string(), "-3/4");
    EXPECT_EQ(QNumber(5).to_string(), "5");
    EXPECT_EQ(QNumber::make_big(QNumber(10, 4)).to_string(), "5/2");
    EXPECT_EQ(QNumber::make_big(QNumber(-7)).to_string(), "-7");
}

TEST(QNumberForms, SelfAssignmentTouchesNothing) {
    QNumber small(3, 4);
    QNumber big = QNumber::make_big(QNumber(5, 6));
    GmpCounter counter;
    QNumber& s = small;
    QNumber& b = big;
    small = s;
    big = b;
    EXPECT_EQ(counter.counts().allocs + counter.counts().frees + counter.counts().reallocs, 0);
    expect_small(small, 3, 4);
    EXPECT_TRUE(big.is_big());
    EXPECT_EQ(big, QNumber(5, 6));
}

TEST(QNumberForms, SmallIntoBigStaysBig) {
    QNumber big = QNumber::make_big(QNumber(2));
    const QNumber three_quarters(3, 4);
    big = three_quarters;
    EXPECT_TRUE(big.is_big());
    EXPECT_EQ(big.to_string(), "3/4");
    EXPECT_FALSE(big.is_integer());
    big = QNumber(5);  // a temporary source follows the same rule
    EXPECT_TRUE(big.is_big());
    EXPECT_TRUE(big.is_integer());
    EXPECT_EQ(big, QNumber(5));
}

TEST(QNumberForms, CopyOfBigOwnsItsOwnBlock) {
    auto* source = new QNumber(QNumber::make_big(QNumber(2)));
    QNumber copy(*source);
    EXPECT_TRUE(copy.is_big());
    EXPECT_NE(copy.big_block(), source->big_block());
    delete source;
    EXPECT_EQ(copy, QNumber(2));
    EXPECT_TRUE(copy.is_integer());
}

TEST(QNumberForms, BigIntoSmallAllocatesOnceThenReuses) {
    const QNumber big = QNumber::make_big(QNumber(7, 9));
    const QNumber other = QNumber::make_big(QNumber(-8, 11));
    QNumber dest(1);
    {
        GmpCounter counter;
        dest = big;
        EXPECT_TRUE(dest.is_big());
        EXPECT_EQ(counter.counts().allocs, 2);  // one limb array per integer
        const mpq_srcptr block = dest.big_block();
        dest = other;
        EXPECT_EQ(dest.big_block(), block);
        EXPECT_EQ(counter.counts().allocs, 2);
        EXPECT_EQ(counter.counts().frees, 0);
    }
    EXPECT_EQ(dest, QNumber(-8, 11));
}

TEST(QNumberForms, SmallNumbersNeverReachGmp) {
    GmpCounter counter;
    {
        QNumber a(3, 4);
        QNumber b(a);
        QNumber c;
        c = b;
        c += QNumber(1, 4);
        c *= QNumber(-5, 3);
        EXPECT_EQ(c, QNumber(-5, 3));
    }
    EXPECT_EQ(counter.counts().allocs + counter.counts().frees, 0);
}

TEST(QNumberForms, DestroyingBigFreesBothIntegers) {
    GmpCounter counter;
    { QNumber big = QNumber::make_big(QNumber(INT64_MAX, 3)); }
    EXPECT_EQ(counter.counts().allocs, counter.counts().frees);
    EXPECT_EQ(counter.counts().allocs, 2);
}

TEST(QNumberForms, MoveLeavesSourceZeroAndKeepsForm) {
    QNumber big = QNumber::make_big(QNumber(4));
    QNumber moved(std::move(big));
    EXPECT_TRUE(moved.is_big());
    EXPECT_TRUE(big.is_zero());  // NOLINT(bugprone-use-after-move): documented state
    EXPECT_FALSE(big.is_big());
}

TEST(QNumberConversion, RoundTripsThroughGmp) {
    mpq_t q;
    mpq_init(q);
    mpq_set_str(q, "-84/6", 10);  // not canonical on purpose
    QNumber value(q);
    EXPECT_EQ(value, QNumber(-14));
    EXPECT_FALSE(value.is_big());
    mpq_set_str(q, "1/36893488147419103232", 10);
    QNumber tiny(q);
    EXPECT_TRUE(tiny.is_big());
    mpq_t back;
    mpq_init(back);
    tiny.get_mpq(back);
    EXPECT_TRUE(mpq_equal(q, back));
    QNumber(-3, 7).get_mpq(back);
    EXPECT_EQ(mpq_cmp_si(back, -3, 7), 0);
    mpq_clear(back);
    mpq_clear(q);
}
