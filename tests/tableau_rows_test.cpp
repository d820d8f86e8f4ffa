// Tableau rows and columns: installing, removing, substituting and pivoting, the variable
// queries, and the text dump.

#include <gtest/gtest.h>

#include "support/tableau_builders.h"
#include "support/tableau_checker.h"

using vorn::QNumber;
using vorn::la::Equation;
using vorn::la::Tableau;
using vorn::test::basics_of;
using vorn::test::columns_of;
using vorn::test::row_of;
using vorn::test::tableau_is_valid;
using Cols = std::map<int, std::set<int>>;

TEST(TableauState, NewTableauIsEmpty) {
    Tableau t(-17);
    EXPECT_EQ(t.get_num_variables(), 0u);
    EXPECT_TRUE(t.get_all_variables().empty());
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
    EXPECT_EQ(columns_of(t), (Cols{{3, {2, 5}}, {7, {5}}}));
    EXPECT_EQ(t.get_num_variables(), 4u);
    std::vector<int> all = t.get_all_variables();
    EXPECT_EQ(all, (std::vector<int>{2, 5, 3, 7}));
    EXPECT_EQ(all.capacity(), 4u);
}

TEST(TableauRows, AddRowFilesOnlyMentions) {
    Tableau t(0);
    Equation e(4, {{4, QNumber(-1)}, {0, QNumber(3)}});
    t.add_row(4, e);
    EXPECT_TRUE(columns_of(t).empty());
    EXPECT_EQ(t.get_all_variables(), std::vector<int>{4});
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauRows, RemoveRowReturnsTheInstalledEquationUnchanged) {
    Tableau t(0);
    Equation a = row_of(1, {3, 4});
    Equation b = row_of(2, {3, 5});
    a.coeffs_.insert(a.coeffs_.begin(), {0, QNumber(9)});  // constant: never a column
    t.add_row(1, a);
    t.add_row(2, b);
    std::string before = a.to_str(true);
    Equation* removed = t.remove_row(1);
    EXPECT_EQ(removed, &a);
    EXPECT_EQ(a.to_str(true), before);
    EXPECT_EQ(t.rows().size(), 1u);
    EXPECT_EQ(columns_of(t), (Cols{{3, {2}}, {5, {2}}}));
    EXPECT_EQ(t.cols().find(0), nullptr);
    t.remove_row(2);
    EXPECT_EQ(t.cols().size(), 0u);
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauRows, SubstituteOfUnmentionedVariableChangesNothing) {
    Tableau t(0);
    Equation a = row_of(1, {3});
    t.add_row(1, a);
    Equation def = row_of(9, {3});
    t.substitute_var(9, def);
    EXPECT_EQ(columns_of(t), (Cols{{3, {1}}}));
    EXPECT_EQ(a.to_str(false), "x1 = x3");
}

TEST(TableauRows, SubstituteUnfilesCancelledVariables) {
    Tableau t(0);
    // x1 = x3 - x4, x2 = x3 + x4 + x5, x6 = x4 ; substitute x3 := x4 + x7.
    Equation r1(1, {{1, QNumber(-1)}, {3, QNumber(1)}, {4, QNumber(-1)}});
    Equation r2(2, {{2, QNumber(-1)}, {3, QNumber(1)}, {4, QNumber(1)}, {5, QNumber(1)}});
    Equation r6 = row_of(6, {4});
    t.add_row(1, r1);
    t.add_row(2, r2);
    t.add_row(6, r6);
    Equation def = row_of(3, {4, 7});
    t.substitute_var(3, def);
    EXPECT_EQ(r1.to_str(false), "x1 = x7");
    EXPECT_EQ(r2.to_str(false), "x2 = 2*x4 + x5 + x7");
    EXPECT_EQ(columns_of(t), (Cols{{4, {2, 6}}, {5, {2}}, {7, {1, 2}}}));
    EXPECT_TRUE(tableau_is_valid(t));
    // Without the other mention, x4's column disappears.
    Tableau u(0);
    Equation s1(1, {{1, QNumber(-1)}, {3, QNumber(1)}, {4, QNumber(-1)}});
    u.add_row(1, s1);
    u.substitute_var(3, def);
    EXPECT_EQ(columns_of(u), (Cols{{7, {1}}}));
}

TEST(TableauRows, PivotWorkedExample) {
    Tableau t(0);
    t.add_equation(row_of(1, {3, 4}), false, nullptr);
    t.add_equation(row_of(2, {3, 5}), false, nullptr);
    t.check();
    EXPECT_EQ(columns_of(t), (Cols{{3, {1, 2}}, {4, {1}}, {5, {2}}}));
    t.pivot(1, 3);
    EXPECT_EQ(basics_of(t), (std::vector<int>{2, 3}));
    EXPECT_EQ(columns_of(t), (Cols{{1, {2, 3}}, {4, {2, 3}}, {5, {2}}}));
    EXPECT_EQ(t.get_num_variables(), 5u);
    EXPECT_EQ(t.rows().at(3)->to_str(false), "x3 = x1 - x4");
    EXPECT_EQ(t.rows().at(2)->to_str(false), "x2 = x1 - x4 + x5");
    EXPECT_TRUE(tableau_is_valid(t));
    std::vector<int> all = t.get_all_variables();
    EXPECT_EQ(std::vector<int>(all.begin(), all.begin() + 2), (std::vector<int>{2, 3}));
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
    Tableau n(0);
    Equation* none = nullptr;
    Equation r5 = row_of(5, {});
    n.add_row(5, r5);
    const_cast<Equation*&>(n.rows().values()[5]) = none;  // a present slot without a row
    EXPECT_EQ(n.to_str(), "ROWS:\ns: 5 <-->  NULL! \n\nCOLS:\n");
}
