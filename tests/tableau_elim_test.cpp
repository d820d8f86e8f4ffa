// Elimination, removal and on-demand restoration of variables.

#include <gtest/gtest.h>

#include <random>

#include "support/row_space.h"
#include "support/tableau_builders.h"
#include "support/tableau_checker.h"
#include "vorn/la/eliminate_greedy.h"

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

namespace {

// Rows 1: x3 + x4 and 2: x3 + x5, entered by check().
void worked_example(Tableau& t) {
    t.add_equation(row_of(1, {3, 4}), false, nullptr);
    t.add_equation(row_of(2, {3, 5}), false, nullptr);
    t.check();
}

}  // namespace

TEST(TableauEliminate, WorkedExample) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({3}));
    EXPECT_EQ(basics_of(t), std::vector<int>{2});
    EXPECT_EQ(columns_of(t), (Cols{{1, {2}}, {4, {2}}, {5, {2}}}));
    EXPECT_EQ(t.elim_index().find(3)->value.second, 0u);
    ASSERT_EQ(t.elim_eqs().size(), 1u);
    EXPECT_EQ(t.elim_eqs()[0].first, 3);
    EXPECT_EQ(t.elim_eqs()[0].second->to_str(false), "x3 = x1 - x4");
    EXPECT_EQ(t.get_num_variables(), 4u);
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauEliminate, BasicVariableLeavesWithItsRowUnchanged) {
    Tableau t(0);
    worked_example(t);
    Equation* row = t.rows().at(2);
    t.eliminate_variables(set_of({2}));
    EXPECT_EQ(t.get_eliminated_equation(2), row);
    EXPECT_EQ(row->to_str(false), "x2 = x3 + x5");
    EXPECT_EQ(columns_of(t), (Cols{{3, {1}}, {4, {1}}}));
}

TEST(TableauEliminate, PivotsIntoTheShortestRowSmallestOnTies) {
    Tableau t(0);
    t.add_equation(row_of(9, {1, 6}), false, nullptr);
    t.add_equation(row_of(4, {1, 7}), false, nullptr);
    t.add_equation(row_of(2, {8, 10, 11, 12}), false, nullptr);
    t.add_equation(row_of(7 + 100, {8}), false, nullptr);
    t.check();
    t.eliminate_variables(set_of({1}));  // rows 4 and 9 both have three entries
    EXPECT_EQ(basics_of(t), (std::vector<int>{2, 9, 107}));
    EXPECT_FALSE(t.rows().contains(4));
    EXPECT_EQ(t.rows().at(9)->to_str(false), "x9 = x4 + x6 - x7");
    // Lengths 5 (row 2) and 2 (row 107): the shorter wins although its variable is larger.
    t.eliminate_variables(set_of({8}));
    EXPECT_TRUE(t.rows().contains(2));
    EXPECT_FALSE(t.rows().contains(107));
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauEliminate, AbsentAndEliminatedVariablesRecordNothing) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({3, 77}));
    t.eliminate_variables(set_of({3}));
    EXPECT_EQ(t.elim_eqs().size(), 1u);
    EXPECT_EQ(t.cols().find(77), nullptr);
    EXPECT_EQ(t.cols().find(3), nullptr);
    t.eliminate_variables(VarSet());
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauEliminate, ElimEqsCapacityRaisedOnceToTheSetSize) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({1, 2, 50, 60, 70}));
    EXPECT_EQ(t.elim_eqs().capacity(), 5u);
    EXPECT_EQ(t.elim_eqs().size(), 2u);
    EXPECT_EQ(t.elim_index().find(1)->value.second, 0u);  // ascending order of the set
    EXPECT_EQ(t.elim_index().find(2)->value.second, 1u);
}

TEST(TableauEliminate, IntegralityFlagClearsOnceAndStaysClear) {
    Tableau t(0);
    t.add_equation(Equation(1, {{1, QNumber(-1)}, {5, QNumber::make_big(QNumber(3))}}), false,
                   nullptr);
    t.add_equation(Equation(2, {{2, QNumber(-2)}, {6, QNumber(1)}}), false, nullptr);
    t.add_equation(row_of(3, {7}), false, nullptr);
    t.check();
    t.eliminate_variables(set_of({1}));  // big coefficient with denominator 1
    EXPECT_TRUE(t.elim_integral());
    t.eliminate_variables(set_of({6}));  // x6 = 2*x2: integral after the pivot
    EXPECT_TRUE(t.elim_integral());
    Tableau u(0);
    u.add_equation(Equation(2, {{2, QNumber(-2)}, {6, QNumber(1)}}), false, nullptr);
    u.add_equation(row_of(3, {7}), false, nullptr);
    u.check();
    u.eliminate_variables(set_of({2}));  // stored as it stands: -2 and 1
    EXPECT_TRUE(u.elim_integral());
    u.add_equation(Equation(4, {{4, QNumber(-1)}, {8, QNumber(1, 2)}}), true, nullptr);
    u.eliminate_variables(set_of({4}));
    EXPECT_FALSE(u.elim_integral());
    u.eliminate_variables(set_of({3}));
    std::vector<int> out;
    u.uneliminate(4, &out);
    EXPECT_FALSE(u.elim_integral());
}

TEST(TableauEliminate, ReEliminationAppendsASecondRecord) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({3}));
    t.uneliminate(3, nullptr);
    EXPECT_TRUE(t.rows().contains(3));
    t.eliminate_variables(set_of({3}));
    EXPECT_EQ(t.elim_eqs().size(), 2u);
    EXPECT_EQ(t.elim_index().find(3)->value.second, 1u);
    EXPECT_EQ(t.get_eliminated_equation(3), t.elim_eqs()[1].second);
}

TEST(TableauRemove, BasicVariableDropsItsEquation) {
    Tableau t(0);
    worked_example(t);
    t.remove_variable(1);
    EXPECT_EQ(t.equations().size(), 1u);
    EXPECT_EQ(basics_of(t), std::vector<int>{2});
    EXPECT_EQ(columns_of(t), (Cols{{3, {2}}, {5, {2}}}));
}

TEST(TableauRemove, NonBasicVariablePivotsIntoTheShortestRowFirst) {
    Tableau t(0);
    t.add_equation(row_of(9, {1, 6}), false, nullptr);
    t.add_equation(row_of(4, {1, 7}), false, nullptr);
    t.check();
    const Equation* row4 = t.rows().at(4);
    t.remove_variable(1);
    EXPECT_EQ(basics_of(t), std::vector<int>{9});
    EXPECT_EQ(t.rows().at(9)->to_str(false), "x9 = x4 + x6 - x7");
    ASSERT_EQ(t.equations().size(), 1u);
    EXPECT_NE(&t.equations().front(), row4);
    EXPECT_EQ(t.cols().find(1), nullptr);
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauRemove, AbsentOrEliminatedVariableOnlyDropsEmptyColumns) {
    Tableau t(0);
    worked_example(t);
    t.eliminate_variables(set_of({3}));
    Equation* stored = t.get_eliminated_equation(3);
    t.remove_variable(3);
    t.remove_variable(99);
    EXPECT_EQ(t.equations().size(), 2u);
    EXPECT_EQ(t.get_eliminated_equation(3), stored);
    EXPECT_EQ(t.cols().find(99), nullptr);
    EXPECT_TRUE(tableau_is_valid(t));
}

TEST(TableauRestore, UneliminateRestoresWhatTheEquationNeedsAndNotItself) {
    Tableau t(0);
    t.add_equation(row_of(1, {2, 3}), false, nullptr);
    t.add_equation(row_of(4, {2, 5}), false, nullptr);
    t.check();
    t.eliminate_variables(set_of({1}));  // E1 = x2 + x3
    t.eliminate_variables(set_of({2}));  // pivots into row 4: E2 = x4 - x5
    Equation* e1 = t.get_eliminated_equation(1);
    std::vector<int> out;
    t.uneliminate(1, &out);
    EXPECT_EQ(out, std::vector<int>{2});
    EXPECT_EQ(t.rows().at(1), e1);
    EXPECT_EQ(e1->to_str(false), "x1 = x3 + x4 - x5");
    EXPECT_EQ(t.get_eliminated_equation(1), nullptr);
    EXPECT_TRUE(t.elim_index().empty());
    EXPECT_TRUE(tableau_is_valid(t));
    t.uneliminate(1, &out);  // not eliminated: nothing
    EXPECT_EQ(out.size(), 1u);
}

TEST(EliminateGreedy, EliminatesEverythingPresentAndKeepsTheSpan) {
    std::mt19937_64 rng(8);
    for (int trial = 0; trial < 20; ++trial) {
        Tableau greedy(0), plain(0);
        int structurals = 30;
        for (int k = 0; k < 20; ++k) {
            int slack = 100 + k;
            std::vector<Equation::VarCoeff> entries{{slack, QNumber(-1)}};
            for (int i = 0; i < 3; ++i)
                entries.push_back({1 + static_cast<int>(rng() % structurals),
                                   QNumber(static_cast<std::int64_t>(rng() % 5) + 1)});
            Equation eq(slack, std::move(entries));
            greedy.add_equation(eq, false, nullptr);
            plain.add_equation(eq, false, nullptr);
        }
        greedy.check();
        plain.check();
        VarSet vars;
        for (int v = 1; v <= structurals; v += 1 + trial % 3)
            vars.insert(v);
        auto stats = vorn::la::eliminate_greedy(greedy, vars);
        plain.eliminate_variables(vars);
        ASSERT_TRUE(tableau_is_valid(greedy));
        EXPECT_EQ(stats.eliminated, plain.elim_eqs().size());
        EXPECT_EQ(greedy.rows().size(), plain.rows().size());
        vorn::test::RowSpace plain_rows;
        for (auto it = plain.rows().begin(); it != plain.rows().end(); ++it)
            plain_rows.add(vorn::test::form_of(*it.value()));
        for (auto it = greedy.rows().begin(); it != greedy.rows().end(); ++it)
            EXPECT_TRUE(plain_rows.contains(vorn::test::form_of(*it.value())));
        for (int v : vars) {
            EXPECT_FALSE(greedy.rows().contains(v));
            EXPECT_EQ(greedy.cols().find(v), nullptr);
        }
    }
}
