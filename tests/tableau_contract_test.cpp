// Exact tableau contracts that the random model does not pin down: the worked examples with
// their rows and columns, reservations and growth points, the ≥16-element restoration sort, the
// variable listing order and the text dump.

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "support/tableau_builders.h"
#include "support/tableau_checker.h"

using vorn::QNumber;
using vorn::la::Equation;
using vorn::la::Tableau;
using vorn::test::basics_of;
using vorn::test::columns_of;
using vorn::test::row_of;
using vorn::test::set_of;
using vorn::test::tableau_fault;
using Cols = std::map<int, std::set<int>>;

namespace {

// Rows 1: x3 + x4 and 2: x3 + x5, entered by check().
void worked_example(Tableau& t) {
    t.add_equation(row_of(1, {3, 4}), false, nullptr);
    t.add_equation(row_of(2, {3, 5}), false, nullptr);
    t.check();
    ASSERT_EQ(columns_of(t), (Cols{{3, {1, 2}}, {4, {1}}, {5, {2}}}));
}

}  // namespace

TEST(TableauState, NewTableauIsEmpty) {
    Tableau t(-17);
    EXPECT_EQ(t.get_num_variables(), 0u);
    EXPECT_TRUE(t.assert_valid());
    EXPECT_EQ(t.cols().bucket_count(), 31u);
    EXPECT_EQ(t.elim_index().bucket_count(), 31u);
    EXPECT_TRUE(t.elim_integral());
    EXPECT_FALSE(t.initialized());
    EXPECT_EQ(t.param(), -17);
    EXPECT_EQ(t.to_str(), "ROWS:\n\nCOLS:\n");
}

TEST(TableauState, AllVariablesListsBasicsAscendingThenColumnsInBucketOrder) {
    Tableau t(0);
    Equation r5 = row_of(5, {7, 3});
    Equation r2 = row_of(2, {3});
    t.add_row(5, r5);
    t.add_row(2, r2);
    EXPECT_EQ(t.get_num_variables(), 4u);
    std::vector<int> all = t.get_all_variables();
    EXPECT_EQ(all, (std::vector<int>{2, 5, 3, 7}));
    EXPECT_EQ(all.capacity(), 4u);
}

TEST(TableauWorkedExamples, EliminationThenRestorationByANewEquation) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({3}));
    EXPECT_EQ(basics_of(t), std::vector<int>{2});
    EXPECT_EQ(columns_of(t), (Cols{{1, {2}}, {4, {2}}, {5, {2}}}));
    EXPECT_EQ(t.elim_index().find(3)->value.second, 0u);
    Equation* stored = t.get_eliminated_equation(3);
    ASSERT_EQ(t.elim_eqs(), (std::vector<std::pair<int, Equation*>>{{3, stored}}));
    EXPECT_EQ(stored->to_str(false), "x3 = x1 - x4");

    std::vector<int> out;
    t.add_equation(row_of(6, {3, 5}), true, &out);
    EXPECT_EQ(out, std::vector<int>{3});
    EXPECT_EQ(t.rows().at(3), stored);
    EXPECT_EQ(t.rows().at(6)->to_str(false), "x6 = x1 - x4 + x5");
    EXPECT_EQ(columns_of(t), (Cols{{1, {2, 3, 6}}, {4, {2, 3, 6}}, {5, {2, 6}}}));
    EXPECT_EQ(t.elim_index().find(3), nullptr);
    EXPECT_EQ(t.elim_eqs().size(), 1u);  // the record stays behind
    EXPECT_EQ(tableau_fault(t), "");
}

TEST(TableauWorkedExamples, RestoresLatestFirstInBlocks) {
    // x (11) eliminated at position 2, y (12) at 5 with an equation mentioning z (13), z at 6:
    // y, x, then z (inside y's restoration).
    Tableau t(0);
    for (int f : {21, 22, 23, 24})
        t.add_equation(row_of(f, {30}), false, nullptr);
    t.add_equation(row_of(11, {31}), false, nullptr);
    t.add_equation(row_of(12, {13, 32}), false, nullptr);
    t.add_equation(row_of(14, {13, 33}), false, nullptr);
    t.check();
    for (int v : {21, 22, 11, 23, 24, 12, 13})
        t.eliminate_variables(set_of({v}));
    std::vector<int> out;
    t.add_equation(row_of(40, {11, 12}), true, &out);
    EXPECT_EQ(out, (std::vector<int>{12, 11, 13}));
    EXPECT_EQ(t.rows().at(40)->to_str(false), "x40 = x14 + x31 + x32 - x33");
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
        EXPECT_EQ(out, std::vector<int>(order.rbegin(), order.rend())) << n;
    }
}

TEST(TableauIntake, WaitingEquationsEnterUnchangedAtCheckInOrder) {
    Tableau t(0);
    EXPECT_TRUE(Tableau(0).check());  // nothing stored: nothing reserved
    t.add_equation(row_of(3, {1}), false, nullptr);
    t.add_equation(row_of(9, {1, 2}), false, nullptr);
    t.add_equation(row_of(4, {3}), true, nullptr);  // before check: installed as it is
    EXPECT_EQ(t.rows().at(4)->to_str(false), "x4 = x3");
    EXPECT_EQ(t.rows().size(), 1u);
    EXPECT_TRUE(t.check());
    EXPECT_EQ(basics_of(t), (std::vector<int>{3, 4, 9}));
    EXPECT_EQ(t.rows().values().capacity(), 10u);  // reserved for the largest basic variable
    EXPECT_EQ(t.rows().at(3), &t.equations().front());
    std::string dump = t.to_str();
    EXPECT_TRUE(t.check());
    EXPECT_EQ(t.to_str(), dump);
}

TEST(TableauEliminate, RecordCapacityRisesOnceToTheSetSize) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({1, 2, 50, 60, 70}));
    EXPECT_EQ(t.elim_eqs().capacity(), 5u);
    EXPECT_EQ(t.elim_index().find(1)->value.second, 0u);  // ascending order of the set
    EXPECT_EQ(t.elim_index().find(2)->value.second, 1u);
}

TEST(TableauRows, RemoveRowCanGrowTheColumnBucketArray) {
    // 22 columns fill 31 buckets to the growth point; the lookups of a removal grow it.
    Tableau t(0);
    std::vector<Equation> rows;
    rows.reserve(22);
    for (int i = 0; i < 22; ++i)
        rows.push_back(row_of(100 + i, {i + 1}));
    for (int i = 0; i < 22; ++i)
        t.add_row(100 + i, rows[i]);
    EXPECT_EQ(t.cols().bucket_count(), 31u);
    t.remove_row(100);
    EXPECT_EQ(t.cols().bucket_count(), 73u);
    EXPECT_EQ(t.cols().size(), 21u);
}

TEST(TableauDump, ListsPresentRowsAscendingThenTheHeader) {
    Tableau t(0);
    Equation r7 = row_of(7, {1});
    Equation r3(3, {{3, QNumber(-1)}, {1, QNumber(1, 2)}, {0, QNumber(-4)}});
    t.add_row(7, r7);
    t.add_row(3, r3);
    EXPECT_EQ(t.to_str(), "ROWS:\ns: 3 <--> x3 = 1/2*x1 - 4\ns: 7 <--> x7 = x1\n\nCOLS:\n");
}
