// Equation intake: waiting equations, check(), entry in solved form, restoration of eliminated
// variables and the order in which they are reported.

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "support/tableau_builders.h"
#include "support/tableau_checker.h"

using vorn::QNumber;
using vorn::la::Equation;
using vorn::la::Tableau;
using vorn::la::VarSet;
using vorn::test::basics_of;
using vorn::test::columns_of;
using vorn::test::row_of;
using vorn::test::set_of;
using vorn::test::tableau_is_valid;
using Cols = std::map<int, std::set<int>>;

TEST(TableauIntake, WaitingEquationsEnterAtCheckInOrder) {
    Tableau t(0);
    std::vector<int> out{42};
    t.add_equation(row_of(3, {1}), false, &out);
    t.add_equation(row_of(9, {1, 2}), false, &out);
    EXPECT_EQ(t.rows().size(), 0u);
    EXPECT_EQ(t.equations().size(), 2u);
    EXPECT_EQ(out, std::vector<int>{42});
    EXPECT_TRUE(t.check());
    EXPECT_TRUE(t.initialized());
    EXPECT_EQ(basics_of(t), (std::vector<int>{3, 9}));
    EXPECT_EQ(t.rows().values().capacity(), 10u);       // reserved for the largest basic variable
    EXPECT_EQ(t.rows().at(3), &t.equations().front());  // rows are the stored copies
    std::string dump = t.to_str();
    EXPECT_TRUE(t.check());
    EXPECT_EQ(t.to_str(), dump);
}

TEST(TableauIntake, CheckWithNothingStoredReservesNothing) {
    Tableau t(0);
    EXPECT_TRUE(t.check());
    EXPECT_EQ(t.rows().values().capacity(), 0u);
    EXPECT_TRUE(t.initialized());
}

TEST(TableauIntake, BeforeCheckImmediateEntryIsUnchanged) {
    Tableau t(0);
    std::vector<int> out;
    t.add_equation(row_of(1, {2}), true, &out);
    t.add_equation(row_of(3, {1}), true, &out);  // mentions basic 1: still not substituted
    EXPECT_EQ(t.rows().at(3)->to_str(false), "x3 = x1");
    EXPECT_TRUE(out.empty());
}

TEST(TableauIntake, AfterCheckEquationsEnterInSolvedForm) {
    Tableau t(0);
    t.add_equation(row_of(1, {2, 3}), false, nullptr);
    t.check();
    std::vector<int> out;
    t.add_equation(Equation(4, {{4, QNumber(-1)}, {1, QNumber(2)}, {3, QNumber(-2)}}), true, &out);
    EXPECT_EQ(t.rows().at(4)->to_str(false), "x4 = 2*x2");
    EXPECT_EQ(columns_of(t), (Cols{{2, {1, 4}}, {3, {1}}}));
    EXPECT_TRUE(out.empty());
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauIntake, RestorationWorkedExample) {
    Tableau t(0);
    t.add_equation(row_of(1, {3, 4}), false, nullptr);
    t.add_equation(row_of(2, {3, 5}), false, nullptr);
    t.check();
    t.eliminate_variables(set_of({3}));
    Equation* stored = t.get_eliminated_equation(3);
    ASSERT_NE(stored, nullptr);
    std::vector<int> out;
    t.add_equation(row_of(6, {3, 5}), true, &out);
    EXPECT_EQ(out, std::vector<int>{3});
    EXPECT_EQ(t.rows().at(3), stored);
    EXPECT_EQ(t.rows().at(6)->to_str(false), "x6 = x1 - x4 + x5");
    EXPECT_EQ(columns_of(t), (Cols{{1, {2, 3, 6}}, {4, {2, 3, 6}}, {5, {2, 6}}}));
    EXPECT_EQ(t.elim_index().find(3), nullptr);
    ASSERT_EQ(t.elim_eqs().size(), 1u);
    EXPECT_EQ(t.elim_eqs()[0], std::make_pair(3, stored));
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauIntake, RestoresLatestFirstInBlocks) {
    // x (11) eliminated at position 2, y (12) at 5 with an equation mentioning z (13), z at 6.
    Tableau t(0);
    for (int f : {21, 22, 23, 24})
        t.add_equation(row_of(f, {30}), false, nullptr);
    t.add_equation(row_of(11, {31}), false, nullptr);
    t.add_equation(row_of(12, {13, 32}), false, nullptr);
    t.add_equation(row_of(14, {13, 33}), false, nullptr);
    t.check();
    for (int v : {21, 22, 11, 23, 24, 12, 13})
        t.eliminate_variables(set_of({v}));
    EXPECT_EQ(t.elim_index().find(11)->value.second, 2u);
    EXPECT_EQ(t.elim_index().find(12)->value.second, 5u);
    EXPECT_EQ(t.elim_index().find(13)->value.second, 6u);
    std::vector<int> out;
    t.add_equation(row_of(40, {11, 12}), true, &out);
    EXPECT_EQ(out, (std::vector<int>{12, 11, 13}));
    EXPECT_EQ(t.rows().at(12)->to_str(false), "x12 = x14 + x32 - x33");
    EXPECT_EQ(t.rows().at(40)->to_str(false), "x40 = x14 + x31 + x32 - x33");
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauIntake, SixteenOrMoreRestorationsSortLatestFirst) {
    for (int n : {15, 16, 40}) {
        Tableau t(0);
        for (int v = 1; v <= n; ++v)
            t.add_equation(row_of(v, {100 + v}), false, nullptr);
        t.check();
        std::vector<int> order(n);
        std::iota(order.begin(), order.end(), 1);
        std::shuffle(order.begin(), order.end(), std::mt19937(n));
        for (int v : order)
            t.eliminate_variables(set_of({v}));
        std::vector<Equation::VarCoeff> entries{{500, QNumber(-1)}};
        for (int v = 1; v <= n; ++v)
            entries.push_back({v, QNumber(v)});
        std::vector<int> out;
        t.add_equation(Equation(500, std::move(entries)), true, &out);
        std::vector<int> want(order.rbegin(), order.rend());
        EXPECT_EQ(out, want) << n;
        EXPECT_TRUE(tableau_is_valid(t));
    }
}

TEST(TableauIntake, NullListStillRestores) {
    Tableau t(0);
    t.add_equation(row_of(1, {2}), false, nullptr);
    t.check();
    t.eliminate_variables(set_of({1}));
    t.add_equation(row_of(3, {1}), true, nullptr);
    EXPECT_EQ(basics_of(t), (std::vector<int>{1, 3}));
    EXPECT_EQ(t.rows().at(3)->to_str(false), "x3 = x2");
}
