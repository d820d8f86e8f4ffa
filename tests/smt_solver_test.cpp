// The embedding API: a table of small problems with known answers (also read back from to_smt2()),
// incremental use, cores, tracked assertions, objectives against vertex enumeration, certificates,
// misuse, and random conjunctions decided against Fourier–Motzkin elimination.

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>

#include "support/certificate_check.h"
#include "support/fourier_motzkin.h"
#include "vorn/frontend/script_interpreter.h"
#include "vorn/smt/solver.h"

using vorn::QNumber;
using vorn::smt::Formula;
using vorn::smt::Result;
using vorn::smt::Solver;
using vorn::smt::Term;
using vorn::smt::UsageError;

namespace {

// Non-linear products and formulas from integers must not compile.
template <class A, class B>
concept Multipliable = requires(A a, B b) {
    a* b;
};
static_assert(!Multipliable<Term, Term> && Multipliable<int, Term> && Multipliable<Term, QNumber>);
static_assert(!std::is_convertible_v<int, Formula> && std::is_convertible_v<bool, Formula>);

// Each case sees Real x, y, Int n, m and a Boolean b of a fresh solver.
struct Vars {
    Term x, y, n, m;
    Formula b;
};
using Formulas = std::vector<Formula>;
using V = const Vars&;

// What `vorn check` prints for the script, with --certificate --verify when `certificate`.
std::string run_script(const std::string& script, bool certificate = false) {
    vorn::frontend::CheckOptions options;
    options.certificate = options.verify = certificate;
    vorn::smt::CheckStats stats;
    std::ostringstream out;
    vorn::frontend::run_script(script, "solver.smt2", options, out, stats);
    return out.str();
}

TEST(SolverTest, SmallProblems) {
    // clang-format off
    const std::tuple<const char*, Result, Formulas (*)(V)> cases[] = {
        {"strict bounds meet", Result::Unsat, [](V v) { return Formulas{v.x > 1, v.x <= 1}; }},
        {"closed bounds meet", Result::Sat,
         [](V v) { return Formulas{v.x >= 1, 1 >= v.x, 3 * v.x == 3}; }},
        {"open interval, Real", Result::Sat,
         [](V v) { return Formulas{0 < 2 * v.x - 2 * v.y && 2 * v.x - 2 * v.y < 2}; }},
        {"open interval, Int", Result::Unsat,
         [](V v) { return Formulas{0 < 2 * v.n - 2 * v.m && 2 * v.n - 2 * v.m < 2}; }},
        {"odd and even", Result::Unsat, [](V v) { return Formulas{2 * v.n == 1}; }},
        {"Int in between", Result::Sat,
         [](V v) { return Formulas{QNumber(7, 2) < v.n, v.n < QNumber(9, 2)}; }},
        {"disequality pins", Result::Unsat,
         [](V v) { return Formulas{v.x != 0, v.x >= 0, v.x <= 0}; }},
        {"disequality leaves room", Result::Sat,
         [](V v) { return Formulas{v.x != 1, v.x >= 1, v.x <= 2, v.n != 0, v.n >= 0, v.n <= 1}; }},
        {"negations pushed inward", Result::Unsat,
         [](V v) { return Formulas{!(v.x <= 0) || false, !(v.x != 2), !!(v.x < 2)}; }},
        {"negated equality", Result::Unsat,
         [](V v) { return Formulas{!(v.x == v.y + 1), v.x - 1 >= v.y, v.x - 1 <= v.y}; }},
        {"implication reduces", Result::Unsat,
         [](V v) { return Formulas{implies(v.x > 0, false), implies(true, v.x >= 1)}; }},
        {"negated implication", Result::Sat,
         [](V v) { return Formulas{!implies(v.x > 0, v.x > 1), !(v.x < 1)}; }},
        {"constant false", Result::Unsat, [](V v) { return Formulas{v.x - v.x > 0}; }},
        {"constant true", Result::Sat, [](V) { return Formulas{true}; }},
        {"constant ite", Result::Unsat,
         [](V v) { return Formulas{ite(v.x == v.x, v.x, v.y) == 3, v.x != 3}; }},
        {"disjunction", Result::Sat, [](V v) { return Formulas{v.x < 0 || v.x > 1}; }},
        {"disjunction refuted", Result::Unsat,
         [](V v) { return Formulas{v.x < 0 || v.x > 1, v.x >= 0, v.x <= 1}; }},
        {"Boolean variable", Result::Sat, [](V v) { return Formulas{v.b, v.x > 0}; }},
        {"Boolean both ways", Result::Unsat,
         [](V v) { return Formulas{implies(v.b, v.x > 2), implies(!v.b, v.x > 3), v.x < 1}; }},
        {"ite on a variable", Result::Sat,
         [](V v) { return Formulas{ite(v.x > 0, v.x, -v.x) >= 0}; }},
        {"absolute value negative", Result::Unsat,
         [](V v) { return Formulas{ite(v.x > 0, v.x, -v.x) < 0}; }},
        {"nested ite", Result::Sat, [](V v) {
             return Formulas{ite(v.b, ite(v.x > v.y, v.x, v.y), v.n) == 7, !v.b || v.x < 0}; }},
        {"integer disjunction", Result::Unsat, [](V v) {
             return Formulas{2 * v.n == 2 * v.m + 1 || (v.n > 0 && v.n < 1), v.m >= 0}; }},
        {"Boolean beside unsat", Result::Unsat,
         [](V v) { return Formulas{(v.x < 0 || v.x > 1) && v.b, v.x > 5, v.x < 3}; }},
    };
    // clang-format on
    for (const auto& [name, expected, build] : cases) {
        SCOPED_TRACE(name);
        Solver s;
        Formulas fs =
            build({s.real("x"), s.real("y"), s.integer("n"), s.integer("m"), s.boolean("b")});
        for (const Formula& f : fs)
            s.add(f);
        ASSERT_EQ(s.check(), expected);
        std::string script = s.to_smt2();
        EXPECT_EQ(run_script(script), expected == Result::Sat ? "sat\n" : "unsat\n") << script;
        if (expected != Result::Sat) continue;
        for (const Formula& f : fs)
            EXPECT_TRUE(s.value(f));
    }
}

// Shared subformulas and ite terms become definitions, repeated names get suffixes, tracked
// assertions keep their names: the script reads back to the same answer and core.
TEST(SolverTest, ScriptOfTheAssertions) {
    Solver s;
    Term x = s.real("x"), x2 = s.real("x"), n = s.integer("n");
    Formula b = s.boolean("b");
    Term shared = ite(b || x > x2, n, x * QNumber(1, 3));
    Formula twice = shared >= 2 && n <= 5;
    s.add(twice || x2 >= -100);
    s.add(implies(twice, !(x2 != n)), "n fits");
    s.add(shared <= 1, "low");
    s.add(n >= 2);
    s.add(b, "has b");
    ASSERT_EQ(s.check(), Result::Unsat);
    std::string script = s.to_smt2();
    for (const char* part : {"(declare-const x!2 Real)", "(define-fun _def1 () ", ":named |n fits|",
                             "(to_real n)", "(/ 1 3)"})
        EXPECT_NE(script.find(part), std::string::npos) << part << "\n" << script;
    EXPECT_EQ(run_script(script + "(get-unsat-core)\n"), "unsat\n(\nlow\n|has b|\n)\n") << script;
    EXPECT_EQ(s.unsat_core_names(), (std::vector<std::string>{"low", "has b"}));
}

// The certificate is the one the tool prints for the same assertions, conjunctive and Boolean.
TEST(SolverTest, CertificatesAsTheToolPrintsThem) {
    for (bool boolean : {false, true}) {
        SCOPED_TRACE(boolean);
        Solver s;
        Term x = s.real("x"), y = s.real("y");
        s.add(x + y >= 3);
        s.add(boolean ? (x <= 1 || x < 0) : x <= 1);
        EXPECT_EQ(s.check(), Result::Sat);
        s.add(y <= 1);
        EXPECT_THROW((void)s.certificate(), UsageError);
        s.set_certificates(true);
        ASSERT_EQ(s.check(), Result::Unsat);
        std::string certificate = s.certificate();
        EXPECT_EQ(certificate.rfind("(certificate", 0), 0u) << certificate;
        EXPECT_EQ("unsat\n" + certificate, run_script(s.to_smt2(), true));
        std::vector<vorn::smt::Statistic> stats = s.statistics();
        ASSERT_EQ(stats.front().name, "checks");
        EXPECT_EQ(stats.front().value, 2.0);
        EXPECT_EQ(stats.back().name, "time");
    }
}

// The certificate of each optimum is the block the tool prints, --verify on, for the solver's
// script with its objectives; check_certificate.py accepts it against that script and rejects it
// with the first optimum moved. Int, Real, lexicographic, unbounded and approached optima.
TEST(SolverTest, ObjectiveCertificatesAsTheToolPrintsThem) {
    using Objectives = std::vector<vorn::smt::Objective>;
    // clang-format off
    const std::tuple<const char*, const char*, Objectives (*)(Solver&, V)> cases[] = {
        {"optimum 0 min 2", "(minimize n)", [](Solver& s, V v) {
             s.add(2 * v.n >= 1 && (v.b || v.n >= 3) && (!v.b || v.n >= 2));
             return Objectives{s.minimize(v.n)}; }},
        {"optimum 0 max 11/2", "(maximize (+ x (* 2 y)))", [](Solver& s, V v) {
             s.add(v.x + v.y <= 4 && v.x - v.y >= 1);
             return Objectives{s.maximize(v.x + 2 * v.y)}; }},
        {"optimum 1 max 2", "(minimize x)(maximize y)", [](Solver& s, V v) {
             s.add(v.x >= 0 && v.y <= 3 && (v.x >= 1 || v.y <= 2));
             return Objectives{s.minimize(v.x), s.maximize(v.y)}; }},
        {"optimum 0 min unbounded", "(minimize x)", [](Solver& s, V v) {
             s.add(v.x <= 5 || v.x >= 7);
             return Objectives{s.minimize(v.x)}; }},
        {"optimum 1 min 1 epsilon", "(minimize n)(minimize x)", [](Solver& s, V v) {
             s.add(2 * v.n >= 1 && v.x > v.n && (v.b || v.x > 2 * v.n));
             return Objectives{s.minimize(v.n), s.minimize(v.x)}; }},
    };
    // clang-format on
    for (const auto& [last, objectives, build] : cases) {
        SCOPED_TRACE(last);
        Solver s;
        Vars v{s.real("x"), s.real("y"), s.integer("n"), s.integer("m"), s.boolean("b")};
        Objectives handles = build(s, v);
        ASSERT_EQ(s.check(), Result::Sat);
        EXPECT_THROW((void)s.certificate(handles[0]), UsageError);  // made without certificates
        s.set_certificates(true);
        ASSERT_EQ(s.check(), Result::Sat);
        std::string out = "sat\n";
        for (const auto& o : handles)
            out += s.certificate(o);
        EXPECT_NE(out.find(std::string(last) + "\n"), std::string::npos) << out;
        std::string script = s.to_smt2();
        script.insert(script.rfind("(check-sat)"), objectives);
        EXPECT_EQ(out, run_script(script, true));
        std::string input = vorn::test::temp_file("objectives.smt2", script);
        EXPECT_TRUE(vorn::test::certificate_checks(out, input)) << script << out;
        std::size_t at = out.find("optimum 0 ") + 14;
        EXPECT_FALSE(vorn::test::certificate_checks(
            out.substr(0, at) + "-7" + out.substr(out.find_first_of(" \n", at)), input));
    }
}

// Soft formulas (grouped by id) and objectives over ite terms optimize as the script's
// assert-soft and minimize do: the same optima, certificates that the checker accepts.
TEST(SolverTest, SoftAndIteObjectivesAsTheScriptSays) {
    using Objectives = std::vector<vorn::smt::Objective>;
    // clang-format off
    const std::tuple<const char*, const char*, Objectives (*)(Solver&, V)> cases[] = {
        {"optimum 0 min 1\noptimum 1 min 0\n", "(assert-soft b :weight 2)"
         "(assert-soft (>= n 3) :weight 3 :id g)(assert-soft (<= n 1))", [](Solver& s, V v) {
             s.add(2 * v.n >= 1 && (!v.b || v.n >= 2));
             Objectives o{s.add_soft(v.b, 2), s.add_soft(v.n >= 3, 3, "g")};
             (void)s.add_soft(v.n <= 1);  // joins the first group
             return o; }},
        {"optimum 0 min 7/2\n", "(minimize (+ x (ite b 3 0)))", [](Solver& s, V v) {
             s.add(2 * v.x >= 1 && (v.b || v.x >= 4));
             return Objectives{s.minimize(v.x + ite(v.b, 3, 0))}; }},
    };
    // clang-format on
    auto optima = [](const std::string& text) {
        std::string lines;
        for (std::size_t at = text.find("\noptimum "); at != std::string::npos;
             at = text.find("\noptimum ", at + 1))
            lines += text.substr(at + 1, text.find('\n', at + 1) - at);
        return lines;
    };
    for (const auto& [expected, objectives, build] : cases) {
        SCOPED_TRACE(objectives);
        Solver s;
        Vars v{s.real("x"), s.real("y"), s.integer("n"), s.integer("m"), s.boolean("b")};
        s.set_certificates(true);
        Objectives handles = build(s, v);
        ASSERT_EQ(s.check(), Result::Sat);
        std::string out = "sat\n";
        for (const auto& o : handles)
            out += s.certificate(o);
        std::string script = s.to_smt2();
        script.insert(script.rfind("(check-sat)"), objectives);
        EXPECT_EQ(optima(out), expected);
        EXPECT_EQ(optima(run_script(script, true)), expected);
        EXPECT_TRUE(
            vorn::test::certificate_checks(out, vorn::test::temp_file("soft.smt2", script)));
    }
    Solver s;
    EXPECT_THROW((void)s.add_soft(s.boolean("b"), -1), UsageError);
}

TEST(SolverTest, TrackedAssertionsNameTheCore) {
    Solver s;
    Term x = s.real("x"), n = s.integer("n");
    s.add(x >= 0, "nonnegative");
    s.add(n == 2 * x, "double");
    s.push();
    s.add(x < 0 || n >= 10, "negative or big");
    s.add(n <= 3, "small");
    ASSERT_EQ(s.check(), Result::Unsat);
    EXPECT_EQ(s.unsat_core_names(),
              (std::vector<std::string>{"nonnegative", "negative or big", "small"}));
    ASSERT_EQ(s.check({{2 * x == 3}}), Result::Unsat);  // with assumptions too
    EXPECT_EQ(s.unsat_core_names().back(), "small");
    s.pop();
    EXPECT_THROW((void)s.unsat_core_names(), UsageError);
    s.add(2 * n == 1);  // untracked: the core needs no name
    ASSERT_EQ(s.check(), Result::Unsat);
    EXPECT_TRUE(s.unsat_core_names().empty());
}

// The lexicographic optimum of random polygons in a box, against the best feasible vertex.
TEST(SolverTest, ObjectivesAgainstVertexEnumeration) {
    struct Line {  // a·x + b·y ⋈ c, ⋈ in <=, >=, =
        int a, b, c, relation;
    };
    auto holds = [](const Line& l, const QNumber& x, const QNumber& y) {
        QNumber v = QNumber(l.a) * x + QNumber(l.b) * y - QNumber(l.c);
        return l.relation == 0 ? v.sign() <= 0 : l.relation == 1 ? v.sign() >= 0 : v.is_zero();
    };
    for (std::uint64_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 rng(seed);
        auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
        std::vector<Line> lines = {{1, 0, 6, 0}, {1, 0, -6, 1}, {0, 1, 6, 0}, {0, 1, -6, 1}};
        for (int i = pick(5); i > 0; --i)
            lines.push_back({pick(7) - 3, pick(7) - 3, pick(13) - 6, pick(7) == 0 ? 2 : pick(2)});
        int objective[2][2] = {{pick(5) - 2, pick(5) - 2}, {pick(5) - 2, pick(5) - 2}};
        bool maximize[2] = {pick(2) == 0, pick(2) == 0};
        // Reference: the lexicographically best vertex, where two lines cross.
        std::optional<std::pair<QNumber, QNumber>> best;
        auto value = [&](int k, const QNumber& x, const QNumber& y) {
            QNumber v = QNumber(objective[k][0]) * x + QNumber(objective[k][1]) * y;
            return maximize[k] ? -v : v;
        };
        for (const Line& p : lines)
            for (const Line& q : lines) {
                QNumber det = QNumber(p.a * q.b - p.b * q.a);
                if (det.is_zero()) continue;
                QNumber x = QNumber(p.c * q.b - p.b * q.c) / det;
                QNumber y = QNumber(p.a * q.c - p.c * q.a) / det;
                if (!std::all_of(lines.begin(), lines.end(),
                                 [&](const Line& l) { return holds(l, x, y); }))
                    continue;
                std::pair<QNumber, QNumber> v{value(0, x, y), value(1, x, y)};
                if (!best || v.first < best->first ||
                    (v.first == best->first && v.second < best->second))
                    best = v;
            }
        Solver s;
        Term x = s.real("x"), y = s.real("y");
        for (const Line& l : lines) {
            Term t = l.a * x + l.b * y;
            s.add(l.relation == 0 ? t <= l.c : l.relation == 1 ? t >= l.c : t == l.c);
        }
        vorn::smt::Objective handles[2];
        for (int k = 0; k < 2; ++k) {
            Term t = objective[k][0] * x + objective[k][1] * y;
            handles[k] = maximize[k] ? s.maximize(t) : s.minimize(t);
        }
        ASSERT_EQ(s.check(), best ? Result::Sat : Result::Unsat);
        if (!best) continue;
        for (int k = 0; k < 2; ++k) {
            std::optional<QNumber> optimum = s.value(handles[k]);
            ASSERT_TRUE(optimum.has_value());
            QNumber expected = k == 0 ? best->first : best->second;
            EXPECT_EQ(*optimum, maximize[k] ? -expected : expected) << k;
            EXPECT_EQ(s.value(objective[k][0] * x + objective[k][1] * y), *optimum) << k;
        }
    }
}

TEST(SolverTest, ObjectivesUnboundedPoppedAndNotOptimized) {
    Solver s;
    Term x = s.real("x"), y = s.real("y"), z = s.real("z");
    s.add(x >= 1 && y <= 2);
    vorn::smt::Objective low = s.minimize(x), plus = s.maximize(x + y);
    s.push();
    vorn::smt::Objective down = s.maximize(z), after = s.minimize(x);
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_EQ(s.value(low), QNumber(1));
    EXPECT_EQ(s.value(plus), QNumber(3));            // with x held at 1
    EXPECT_EQ(s.value(down), std::nullopt);          // unbounded
    EXPECT_THROW((void)s.value(after), UsageError);  // after an unbounded one: not optimized
    s.pop();
    vorn::smt::Objective again = s.minimize(y);
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_THROW((void)s.value(down), UsageError);  // popped, its place taken
    EXPECT_EQ(s.value(again), QNumber(2));
    Solver t;
    Term n = t.integer("n"), r = t.real("r");
    t.add(2 * n >= 1 && (r > n || r < -n));
    vorn::smt::Objective on_int = t.minimize(n), strict = t.minimize(r);
    ASSERT_EQ(t.check(), Result::Sat);
    EXPECT_TRUE(t.objectives_unknown().empty());
    EXPECT_EQ(t.value(on_int), QNumber(1));  // 1/2 rounded up
    EXPECT_EQ(t.epsilon(on_int), 0);
    EXPECT_EQ(t.value(strict), std::nullopt);  // r < −1 has no least value
    t.add(r > n);
    ASSERT_EQ(t.check(), Result::Sat);
    EXPECT_EQ(t.value(strict), QNumber(1));  // approached from above: 1 + ε
    EXPECT_EQ(t.epsilon(strict), 1);
    EXPECT_THROW((void)s.value(on_int), UsageError);  // of another solver
    EXPECT_THROW((void)s.value(vorn::smt::Objective()), UsageError);
}

TEST(SolverTest, PushPopRedeclaresAndForgets) {
    Solver s;
    Term x = s.real("x");
    s.add(x >= 0);
    s.push(2);
    Term shadow = s.real("x");
    s.add(shadow == x + 1 && x >= 10);
    Formula b = s.boolean("b");
    s.add(b || shadow < 0);
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_TRUE(s.value(b));
    s.pop();
    EXPECT_EQ(s.level(), 1u);
    s.add(x < 0);
    EXPECT_EQ(s.check(), Result::Unsat);
    s.pop();
    Term again = s.real("x");
    s.add(again == x - 3 && x <= 1);
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_EQ(s.value(again), s.value(x) - 3);
    EXPECT_LE(s.value(x), QNumber(1));
    EXPECT_EQ(s.value(s.real("fresh") + 2), QNumber(2));  // never seen by the check: 0
}

TEST(SolverTest, AssumptionsAndCores) {
    Solver s;
    Term x = s.real("x"), y = s.real("y"), n = s.integer("n");
    s.add(y <= 100);
    Formula big = x >= 10, small = x <= 5, pos = y >= 0;
    // Assumptions, and the indices of the expected core among them.
    const std::pair<std::vector<Formula>, std::vector<std::size_t>> cases[] = {
        {{pos, big, true, small, s.boolean("b")}, {1, 3}},
        {{pos, false}, {1}},
        {{2 * n == 1, pos}, {0}},
        {{x != 0, pos, x == 0}, {0, 2}},
        {{pos, big, x < 10}, {1, 2}},
    };
    for (const auto& [assumptions, expected] : cases) {
        SCOPED_TRACE(&assumptions - &cases[0].first);
        ASSERT_EQ(s.check(assumptions), Result::Unsat);
        std::vector<Formula> core = s.unsat_core();
        ASSERT_EQ(core.size(), expected.size());
        for (std::size_t i = 0; i < core.size(); ++i)
            EXPECT_TRUE(core[i].identical(assumptions[expected[i]])) << i;
        ASSERT_EQ(s.check(), Result::Sat);  // the assumptions are gone
    }
    ASSERT_EQ(s.check(std::vector<Formula>{pos, x == 4}), Result::Sat);
    EXPECT_EQ(s.value(x), QNumber(4));
}

TEST(SolverTest, Misuse) {
    Solver other;
    Term foreign = other.real("z");
    const std::pair<const char*, std::function<void(Solver&, Term)>> misuse[] = {
        {"value before check", [](Solver& s, Term x) { s.value(x); }},
        {"value after add", [](Solver& s, Term x) { s.check(), s.add(x > 0), s.value(x); }},
        {"value after push", [](Solver& s, Term x) { s.check(), s.push(), s.value(x); }},
        {"value after pop", [](Solver& s, Term x) { s.push(), s.check(), s.pop(), s.value(x); }},
        {"value after unsat", [](Solver& s, Term x) { s.add(false), s.check(), s.value(x); }},
        {"core after sat", [](Solver& s, Term x) { s.check({{x > 0}}), s.unsat_core(); }},
        {"core without assumptions",
         [](Solver& s, Term) { s.add(false), s.check(), s.unsat_core(); }},
        {"foreign term added", [&](Solver& s, Term) { s.add(foreign > 0); }},
        {"foreign assumption", [&](Solver& s, Term) { s.check({{foreign > 0}}); }},
        {"foreign value", [&](Solver& s, Term) { s.check(), s.value(foreign); }},
        {"terms mixed", [&](Solver&, Term x) { (void)(x + foreign); }},
        {"formulas mixed", [&](Solver&, Term x) { (void)(x > 0 && foreign > 0); }},
    };
    for (const auto& [name, run] : misuse) {
        Solver s;
        EXPECT_THROW(run(s, s.real("x")), UsageError) << name;
    }
    Solver s;
    s.push();
    EXPECT_THROW(s.pop(2), std::invalid_argument);
    EXPECT_EQ(s.level(), 1u);  // unchanged by the refused pop
}

TEST(SolverTest, ValuesUnderTheModel) {
    Solver s;
    Term x = s.real("x"), y = s.real("y"), n = s.integer("n");
    s.add(x == 2 && y == QNumber(-1, 2) && n >= 3 && n <= 3);
    ASSERT_EQ(s.check(), Result::Sat);
    const std::pair<Formula, bool> formulas[] = {
        {implies(x > 0, y > 0), false}, {implies(y > 0, x > 5), true},
        {x > 0 || y > 0, true},         {!(x > 0) || y > 0, false},
        {x > 0 && !(y < 0), false},     {ite(x > y, x, y) == 2, true},
        {ite(y > x, x, y) == 2, false}, {x != 2, false},
        {2 * y + 1 == 0, true},         {n - 3 * y > QNumber(9, 2), false},
    };
    for (const auto& [f, expected] : formulas)
        EXPECT_EQ(s.value(f), expected);
    EXPECT_EQ(s.value(ite(x > 0, 3 * x, y) - ite(x < 0, x, n)), QNumber(3));
    EXPECT_EQ(s.value(-(x - y) * QNumber(2, 5) + 1), 0);
}

// One Formula value met at several levels: what a pop takes away is translated again when it
// comes back, and a value asked of a formula never added leaves nothing behind.
TEST(SolverTest, SharedFormulasAcrossLevels) {
    Solver s;
    Term x = s.real("x"), y = s.real("y");
    Term top = ite(x > y, x, y);
    Formula f = top == 5, g = f && x < 0;
    struct Step {
        std::function<void()> act;
        Result expected;
        int top_value;  // when Sat; 0: any
    };
    const Step steps[] = {
        {[&] { s.push(), s.add(g); }, Result::Sat, 5},
        {[&] { s.add(y < 5); }, Result::Unsat, 0},
        {[&] { s.pop(); }, Result::Sat, 0},
        {[&] { s.add(x == 1 && y == 7); }, Result::Sat, 7},
        {[&] { s.push(), s.add(f); }, Result::Unsat, 0},
        {[&] { s.pop(), s.push(2), s.add(!f); }, Result::Sat, 7},
        {[&] { s.pop(2), s.add(top == y); }, Result::Sat, 7},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(&step - steps);
        step.act();
        ASSERT_EQ(s.check(), step.expected);
        if (step.expected != Result::Sat) continue;
        QNumber t = s.value(top);
        EXPECT_TRUE(step.top_value == 0 || t == step.top_value) << t;
        EXPECT_EQ(s.value(f), t == 5);
        EXPECT_EQ(s.value(ite(top > 6, top, -top) + 1), (t > 6 ? t : -t) + 1);  // never added
        bool refuted = step.top_value == 7;
        ASSERT_EQ(s.check(std::vector<Formula>{g}), refuted ? Result::Unsat : Result::Sat);
    }
}

// Built as a caller's loop would: the sum by +=, the formula as a chain 200000 deep, which
// translation, evaluation and destruction must not recurse through.
TEST(SolverTest, LongChainsStayLinearAndShallow) {
    Solver s;
    std::vector<Term> vars;
    std::vector<Formula> nonnegative;
    for (int i = 0; i < 100; ++i) {
        vars.push_back(s.real("v" + std::to_string(i)));
        nonnegative.push_back(vars.back() >= 0);
    }
    Term sum;
    Formula all = true;
    for (std::size_t i = 0; i < 200000; ++i) {
        sum += vars[i % 100];
        all = all && nonnegative[i % 100];
    }
    s.add(all && sum == 2000);
    ASSERT_EQ(s.check(), Result::Sat);
    EXPECT_EQ(s.value(sum), QNumber(2000));
    EXPECT_TRUE(s.value(all));
}

// Σ coeffs·x + constant ⋈ 0 for ⋈ in <=, <, >=, >, =, ≠.
struct RandomAtom {
    std::vector<int> coeffs;
    int constant, relation;
};

Formula compare(const Term& t, int relation) {
    const std::function<Formula(const Term&)> relations[] = {
        [](const Term& u) { return u <= 0; }, [](const Term& u) { return u < 0; },
        [](const Term& u) { return u >= 0; }, [](const Term& u) { return u > 0; },
        [](const Term& u) { return u == 0; }, [](const Term& u) { return u != 0; }};
    return relations[relation](t);
}

// Feasibility by Fourier–Motzkin, each disequality tried as < and as >.
bool reference(const std::vector<RandomAtom>& atoms) {
    auto ne = std::count_if(atoms.begin(), atoms.end(), [](auto& a) { return a.relation == 5; });
    for (std::size_t sides = 0; sides < std::size_t{1} << ne; ++sides) {
        std::vector<vorn::test::Inequality> system;
        std::size_t k = 0;
        for (const RandomAtom& a : atoms) {
            vorn::test::Inequality ge, le;  // t ≥ 0, −t ≥ 0
            for (std::size_t v = 0; v < a.coeffs.size(); ++v)
                if (a.coeffs[v] != 0) {
                    ge.coeffs[static_cast<int>(v) + 1] = a.coeffs[v];
                    le.coeffs[static_cast<int>(v) + 1] = -a.coeffs[v];
                }
            ge.constant = a.constant;
            le.constant = -a.constant;
            int rel = a.relation == 5 ? (sides >> k++ & 1 ? 1 : 3) : a.relation;
            le.strict = rel == 1;
            ge.strict = rel == 3;
            if (rel == 0 || rel == 1 || rel == 4) system.push_back(le);
            if (rel == 2 || rel == 3 || rel == 4) system.push_back(ge);
        }
        if (vorn::test::fm_feasible(system)) return true;
    }
    return false;
}

TEST(SolverTest, RandomConjunctionsAgainstFourierMotzkin) {
    for (std::uint64_t seed = 1; seed <= 2000; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937_64 rng(seed);
        auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
        Solver s;
        std::vector<Term> vars;
        for (int v = 2 + pick(2); v > 0; --v)
            vars.push_back(s.real("x" + std::to_string(v)));
        std::vector<RandomAtom> atoms;
        std::vector<Formula> added, assumed;
        for (int i = 1 + pick(6); i > 0; --i) {
            RandomAtom a{{}, pick(9) - 4, pick(6)};
            Term t = a.constant;
            for (const Term& x : vars) {
                a.coeffs.push_back(pick(3) == 0 ? 0 : pick(7) - 3);
                t += a.coeffs.back() * x;
            }
            // At times the same atom as the negation of its complement.
            int complement = a.relation < 4 ? 3 - a.relation : 9 - a.relation;
            Formula f = pick(3) == 0 ? !compare(t, complement) : compare(t, a.relation);
            atoms.push_back(a);
            (pick(2) ? added : assumed).push_back(f);
        }
        for (const Formula& f : added)
            s.add(f);
        Result r = s.check(assumed);
        ASSERT_EQ(r, reference(atoms) ? Result::Sat : Result::Unsat);
        if (r == Result::Sat) {
            for (const Formula& f : added)
                EXPECT_TRUE(s.value(f));
            for (const Formula& f : assumed)
                EXPECT_TRUE(s.value(f));
        } else {
            std::vector<Formula> core = s.unsat_core();
            EXPECT_LE(core.size(), assumed.size());
            EXPECT_EQ(s.check(core), Result::Unsat);  // the core alone still refutes
        }
    }
}

}  // namespace
