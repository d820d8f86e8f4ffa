// Exact optimization against enumeration of vertices: small random LPs in a box (so that a
// feasible one has an optimal vertex), every answer's certificate checked by the library's
// checker, the optimum equal to the best feasible vertex. Unbounded problems must come with a
// ray that the checker accepts. Feasibility of larger conjunctions, which a floating-point basis
// decides when it can, against the exact simplex alone.

#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "vorn/smt/model_check.h"
#include "vorn/smt/optimize.h"

using vorn::QNumber;
using vorn::smt::Optimization;
using vorn::smt::Problem;
using vorn::smt::Relation;

namespace {

struct Row {
    std::vector<int> a;
    Relation rel;  // Le, Ge or Eq
    int b;
};

// Solves the rows taken as equalities; nothing when they are not independent.
std::optional<std::vector<QNumber>> solve(std::vector<std::vector<QNumber>> m, int n) {
    for (int c = 0; c < n; ++c) {
        int p = c;
        while (p < n && m[p][c].is_zero())
            ++p;
        if (p == n) return std::nullopt;
        std::swap(m[p], m[c]);
        for (int r = 0; r < n; ++r) {
            if (r == c || m[r][c].is_zero()) continue;
            QNumber f = m[r][c] / m[c][c];
            for (int k = c; k <= n; ++k)
                m[r][k] -= f * m[c][k];
        }
    }
    std::vector<QNumber> x(n);
    for (int c = 0; c < n; ++c)
        x[c] = m[c][n] / m[c][c];
    return x;
}

bool holds(const Row& row, const std::vector<QNumber>& x) {
    QNumber s;
    for (std::size_t j = 0; j < x.size(); ++j)
        s += QNumber(row.a[j]) * x[j];
    QNumber b(row.b);
    return row.rel == Relation::Le ? s <= b : row.rel == Relation::Ge ? b <= s : s == b;
}

// The least objective over the vertices: every choice of n rows tight.
std::optional<QNumber> best_vertex(const std::vector<Row>& rows, const std::vector<int>& c, int n,
                                   bool maximize) {
    std::optional<QNumber> best;
    std::vector<int> pick(n);
    for (int k = 0; k < n; ++k)
        pick[k] = k;
    const int m = static_cast<int>(rows.size());
    for (;;) {
        std::vector<std::vector<QNumber>> sys(n, std::vector<QNumber>(n + 1));
        for (int r = 0; r < n; ++r) {
            for (int j = 0; j < n; ++j)
                sys[r][j] = QNumber(rows[pick[r]].a[j]);
            sys[r][n] = QNumber(rows[pick[r]].b);
        }
        if (auto x = solve(sys, n)) {
            bool feasible = true;
            for (const Row& row : rows)
                feasible = feasible && holds(row, *x);
            if (feasible) {
                QNumber v;
                for (int j = 0; j < n; ++j)
                    v += QNumber(c[j]) * (*x)[j];
                if (!best || (maximize ? *best < v : v < *best)) best = v;
            }
        }
        int k = n - 1;
        while (k >= 0 && pick[k] == m - n + k)
            --k;
        if (k < 0) return best;
        ++pick[k];
        for (int t = k + 1; t < n; ++t)
            pick[t] = pick[t - 1] + 1;
    }
}

Problem problem_of(const std::vector<Row>& rows, const std::vector<int>& c, int n,
                   std::uint32_t& objective) {
    Problem p(vorn::smt::NameSyntax::SmtLib);
    for (int j = 0; j < n; ++j)
        p.variables.add("x" + std::to_string(j), vorn::smt::Sort::Real, {});
    vorn::smt::LinearExpr e;
    for (const Row& row : rows) {
        e.clear();
        for (int j = 0; j < n; ++j)
            e.add_entry(j + 1, QNumber(row.a[j]));
        e.add_entry(0, QNumber(-row.b));
        p.atoms.push_back({row.rel, p.add_term(e), 1, {}});
    }
    e.clear();
    for (int j = 0; j < n; ++j)
        e.add_entry(j + 1, QNumber(c[j]));
    e.add_entry(0, QNumber(3));
    objective = p.add_term(e);
    return p;
}

}  // namespace

TEST(Optimize, MatchesTheBestVertexWithCheckedCertificates) {
    const unsigned base_seed = 9300;
    int kinds[4] = {0, 0, 0, 0}, from_float = 0;
    for (unsigned seed = base_seed; seed < base_seed + 300; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        int n = pick(1, 3);
        bool boxed = seed % 4 != 0;
        std::vector<Row> rows;
        for (int k = pick(1, 4); k > 0; --k) {
            Row row{std::vector<int>(n),
                    pick(0, 5) == 0   ? Relation::Eq
                    : pick(0, 1) == 0 ? Relation::Le
                                      : Relation::Ge,
                    pick(-6, 6)};
            for (int& a : row.a)
                a = pick(-3, 3);
            rows.push_back(row);
        }
        for (int j = 0; boxed && j < n; ++j)
            for (Relation rel : {Relation::Ge, Relation::Le}) {
                Row row{std::vector<int>(n), rel, rel == Relation::Ge ? -pick(0, 5) : pick(0, 5)};
                row.a[j] = 1;
                rows.push_back(row);
            }
        std::vector<int> c(n);
        for (int& v : c)
            v = pick(-4, 4);
        bool maximize = pick(0, 1) == 1;
        std::uint32_t objective = 0;
        Problem p = problem_of(rows, c, n, objective);
        std::optional<QNumber> best;
        if (boxed) best = best_vertex(rows, c, n, maximize);
        // Both starts: from the floating-point basis (checked exactly) and the exact simplex's.
        for (bool float_start : {true, false}) {
            vorn::smt::DecideOptions options;
            options.float_start = float_start;
            Optimization answer = vorn::smt::optimize(p, objective, maximize, options);
            SCOPED_TRACE("seed " + std::to_string(seed) + (float_start ? " float" : " exact"));
            ASSERT_NE(answer.kind, Optimization::Kind::Unknown) << answer.reason_unknown;
            EXPECT_EQ(vorn::smt::check_optimization(p, objective, maximize, answer), "");
            ++kinds[static_cast<int>(answer.kind)];
            from_float += answer.float_basis_optimal;
            if (!boxed) continue;
            ASSERT_EQ(answer.kind == Optimization::Kind::Optimal, best.has_value());
            ASSERT_NE(answer.kind, Optimization::Kind::Unbounded);
            if (best) {
                EXPECT_EQ(answer.optimum, *best + QNumber(3));
            }
        }
    }
    EXPECT_GT(from_float, 130);  // of about 145 optima: all but constant objectives
    EXPECT_GT(kinds[0], 200);    // optimal
    EXPECT_GT(kinds[1], 40);     // infeasible
    EXPECT_GT(kinds[2], 10);     // unbounded
}

// Enough atoms for the floating-point start (over a hundred), a few variables, bounds of either
// sign on single variables and rows loose or slightly violated at a random point: both answers
// occur, and each must be the exact simplex's, its model or proof checked.
TEST(FloatStart, DecidesConjunctionsLikeTheExactSimplex) {
    const unsigned base_seed = 4100;
    int answers[2] = {0, 0}, decided = 0;
    for (unsigned seed = base_seed; seed < base_seed + 100; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        const int n = pick(3, 6);
        std::vector<QNumber> point(n);
        for (QNumber& x : point)
            x = QNumber(pick(-10, 10), pick(1, 2));
        Problem p(vorn::smt::NameSyntax::SmtLib);
        for (int j = 0; j < n; ++j)
            p.variables.add("x" + std::to_string(j), vorn::smt::Sort::Real, {});
        vorn::smt::LinearExpr e;
        for (int k = pick(100, 130); k > 0; --k) {
            e.clear();
            QNumber at;
            const bool single = pick(0, 3) == 0;
            const int first = pick(0, n - 1);
            for (int j : {first, (first + pick(1, n - 1)) % n}) {
                if (single && !e.is_constant()) continue;
                int a = pick(1, 4) * (pick(0, 1) == 0 ? 1 : -1);
                e.add_entry(j + 1, QNumber(a));
                at += QNumber(a) * point[j];
            }
            // Loose by up to 8, or broken at the point by up to a third of a unit.
            QNumber slack =
                !single && pick(0, 60) == 0 ? QNumber(-pick(1, 2), 6) : QNumber(pick(0, 8));
            Relation rel = pick(0, 15) == 0  ? Relation::Eq
                           : pick(0, 1) == 0 ? Relation::Le
                                             : Relation::Ge;
            QNumber b = rel == Relation::Eq ? at : rel == Relation::Le ? at + slack : at - slack;
            e.add_entry(0, -b);
            p.atoms.push_back({rel, p.add_term(e), 1, {}});
        }
        vorn::lra::Result expected = vorn::lra::Result::Unknown;
        for (bool float_start : {false, true}) {
            SCOPED_TRACE("seed " + std::to_string(seed) + (float_start ? " float" : " exact"));
            vorn::smt::DecideOptions options;
            options.float_start = float_start;
            vorn::smt::Decision d = vorn::smt::decide(p, options);
            ASSERT_NE(d.result, vorn::lra::Result::Unknown);
            EXPECT_EQ(vorn::smt::check_decision(p, d), "");
            if (!float_start) expected = d.result;
            EXPECT_EQ(d.result, expected);
            if (float_start) decided += static_cast<int>(d.stats.float_decided);
            if (float_start) ++answers[d.result == vorn::lra::Result::Sat ? 0 : 1];
        }
    }
    EXPECT_GT(answers[0], 20);  // of 33
    EXPECT_GT(answers[1], 50);  // of 67
    EXPECT_GT(decided, 90);     // all, when the basis is CLP's exact one
}
