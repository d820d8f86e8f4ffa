// Equation record: basic-variable encoding, deep copies in both forms, destruction.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/gmp_trace.h"
#include "vorn/la/equation.h"

using vorn::QNumber;
using vorn::la::Equation;
using vorn::test::GmpTrace;
using Calls = std::vector<std::string>;

TEST(EquationRecord, BasicWordEncodesVariablePlusOneTimesTwo) {
    Equation e(7, {{7, QNumber(-1)}});
    EXPECT_EQ(e.basic_, 16u);
    EXPECT_EQ(e.get_basic_var(), 7);
    Equation none;
    EXPECT_EQ(none.basic_, 0u);
    EXPECT_EQ(none.get_basic_var(), -1);
    Equation probe;
    probe.basic_ = std::uint64_t{0xfffffffe};  // the low 32 bits of 2(v + 1) for v = 2^31 - 2
    EXPECT_EQ(probe.get_basic_var(), INT32_MAX - 1);
}

TEST(EquationRecord, ConstructorSortsMergesAndDropsZeros) {
    Equation e(2, {{5, QNumber(1)},
                   {2, QNumber(-1)},
                   {0, QNumber(3)},
                   {5, QNumber(2)},
                   {4, QNumber(1)},
                   {4, QNumber(-1)}});
    ASSERT_EQ(e.coeffs_.size(), 3u);
    EXPECT_EQ(e.coeffs_[0].var, 0);
    EXPECT_EQ(e.coeffs_[1].var, 2);
    EXPECT_EQ(e.coeffs_[2].var, 5);
    EXPECT_EQ(e.coeffs_[2].coeff, QNumber(3));
}

TEST(EquationRecord, CopyIsDeepAndKeepsTheWord) {
    Equation source(3, {{1, QNumber(2)}, {3, QNumber::make_big(QNumber(-1, 3))}, {4, QNumber(5)}});
    GmpTrace trace;
    auto* copy = new Equation(source);
    EXPECT_EQ(trace.stop().calls, (Calls{"init_set", "init_set"}));  // the big coefficient only
    EXPECT_EQ(copy->basic_, source.basic_);
    ASSERT_EQ(copy->coeffs_.size(), 3u);
    EXPECT_EQ(copy->coeffs_.capacity(), 3u);
    EXPECT_NE(copy->coeffs_[1].coeff.big_block(), source.coeffs_[1].coeff.big_block());
    GmpTrace destroy;
    delete copy;
    EXPECT_EQ(destroy.stop().calls, (Calls{"clear", "clear"}));
    EXPECT_EQ(source.coeffs_[1].coeff, QNumber(-1, 3));
}

TEST(EquationRecord, AssignmentIsDeepAndMovesTheNumber) {
    Equation target(1, {{1, QNumber(1)}});
    {
        const Equation source = Equation::with_number(QNumber(5), {{2, QNumber::make_big(3)}});
        target = source;
        EXPECT_NE(target.number(), source.number());
        EXPECT_NE(target.coeffs_[0].coeff.big_block(), source.coeffs_[0].coeff.big_block());
    }
    EXPECT_EQ(target.to_str(true), "[5] 3*x2 = 0");
    Equation other(7, {{7, QNumber(-1)}});
    const QNumber* number = target.number();
    other = std::move(target);
    EXPECT_EQ(other.number(), number);
    EXPECT_EQ(other.to_str(true), "[5] 3*x2 = 0");
}

TEST(EquationRecord, NumberFormIsCopiedIntoItsOwnNumber) {
    auto* source = new Equation(Equation::with_number(QNumber(7, 2), {{1, QNumber(1)}}));
    ASSERT_TRUE(source->has_number());
    EXPECT_EQ(source->basic_ & 1, 1u);
    Equation copy(*source);
    EXPECT_TRUE(copy.has_number());
    EXPECT_NE(copy.basic_, source->basic_);
    EXPECT_EQ(*copy.number(), QNumber(7, 2));
    delete source;
    EXPECT_EQ(*copy.number(), QNumber(7, 2));
    EXPECT_EQ(copy.to_str(false), "[7/2] x1 = 0");
}

TEST(EquationText, SolvedFormListsVariablesAscendingThenTheConstant) {
    Equation e(3, {{3, QNumber(-1)}, {1, QNumber(2)}, {4, QNumber(-1, 3)}, {0, QNumber(5)}});
    EXPECT_EQ(e.to_str(false), "x3 = 2*x1 - 1/3*x4 + 5");
    EXPECT_EQ(e.to_str(true), "5 + 2*x1 - x3 - 1/3*x4 = 0");
    // Basic coefficient 2: 2*x3 + x1 - 4 = 0  ⇔  x3 = -1/2*x1 + 2
    Equation scaled(3, {{3, QNumber(2)}, {1, QNumber(1)}, {0, QNumber(-4)}});
    EXPECT_EQ(scaled.to_str(false), "x3 = -1/2*x1 + 2");
    Equation alone(6, {{6, QNumber(-1)}});
    EXPECT_EQ(alone.to_str(false), "x6 = 0");
    Equation negative_constant(2, {{2, QNumber(1)}, {0, QNumber(1)}});
    EXPECT_EQ(negative_constant.to_str(false), "x2 = -1");
    Equation no_basic(9, {{1, QNumber(1)}});
    EXPECT_EQ(no_basic.to_str(false), "x1 = 0");
}
