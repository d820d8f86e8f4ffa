// vorn check on Int problems without bounds: the cases where branching on single variables never
// ends (even coefficients against odd constants, equalities to substitute, disequalities), and
// random such problems against brute force over a box. Every answer is checked (--verify) and
// certified; none may be unknown.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "support/cli_run.h"
#include "support/temp_dir.h"

using vorn::test::run_tool;
using vorn::test::temp_dir;

namespace {

// The first line vorn check --verify --certificate prints for `script`, after checking that it
// exited normally (a model or certificate that --verify rejects exits with 3).
std::string answer(const std::string& script, const std::string& options = "") {
    std::string path = temp_dir() + "unbounded.smt2";
    std::ofstream(path) << script;
    auto run = run_tool("check --verify --certificate " + options + " " + path);
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out.substr(0, run.out.find('\n'));
}

std::string numeral(long k) {
    return k < 0 ? "(- " + std::to_string(-k) + ")" : std::to_string(k);
}

const char* const kXyz = "(declare-fun x () Int)(declare-fun y () Int)(declare-fun z () Int)";

}  // namespace

TEST(UnboundedInt, DecidedWithoutBranchLimit) {
    struct Case {
        const char* name;
        const char* body;
        const char* expected;
    };
    // clang-format off
    const Case cases[] = {
        {"2x - 2y >= 1 once z = 0, assumed",
         "(check-sat-assuming ((and (= z 0) (>= (+ (- (* 2 x) (* 2 y)) z) 1))))", "sat"},
        {"2x - 2y >= 1 once z = 0, asserted",
         "(assert (= z 0))(assert (>= (+ (- (* 2 x) (* 2 y)) z) 1))(check-sat)", "sat"},
        {"x - y between 1/2 and 1/2 once z = 0",
         "(assert (= z 0))(assert (>= (+ (- (* 2 x) (* 2 y)) z) 1))"
         "(assert (<= (+ (- (* 2 x) (* 2 y)) (* 3 z)) 1))(check-sat)", "unsat"},
        {"z = x + y substituted",
         "(assert (= (+ x y) z))(assert (>= (+ (* 6 x) (* 2 y) (* (- 2) z)) 1))"
         "(assert (<= (+ (* 6 x) (* 2 y) (* (- 2) z)) 3))(assert (distinct x 0))(check-sat)",
         "unsat"},
        {"disequalities with even coefficients",
         "(assert (distinct (* (- 2) y) 4))(assert (distinct (+ (* 2 z) (* (- 2) y) (* 3 x)) (- 6)))"
         "(check-sat)", "sat"},
        {"parity between a disjunction's sides",
         "(assert (or (= (* 2 x) (+ (* 2 y) 1)) (= (+ (* 4 x) (* 2 z)) 3)))(check-sat)", "unsat"},
        {"odd row through an equality",
         "(assert (= (+ x (* 2 y)) (* 2 z)))(assert (>= (+ (* 2 x) (* 4 z)) 1))"
         "(assert (<= (+ (* 2 x) (* 4 z)) 1))(check-sat)", "unsat"},
    };
    // clang-format on
    for (const Case& c : cases)
        for (const char* limit : {"", "--bb-limit 1000000"}) {
            SCOPED_TRACE(std::string(c.name) + " " + limit);
            EXPECT_EQ(answer(std::string("(set-logic QF_LIA)") + kXyz + c.body, limit), c.expected);
        }
}

// Mixed Int/Real problems with ite terms (found by tests/python/test_z3_differential.py and
// unbounded_int.py --mixed, answered unknown at the branch limit before): the vertex is defined
// by rows through Real variables, which branching on single Int variables never leaves.
TEST(UnboundedInt, MixedRowsDecided) {
    struct Case {
        const char* name;
        const char* body;
        const char* expected;
        const char* options = "";
    };
    const std::string declarations =
        "(set-logic QF_LIRA)(declare-const p Bool)(declare-const q Bool)(declare-const n Int)"
        "(declare-const k Int)(declare-const x Real)(declare-const y Real)(declare-const r0 Real)"
        "(declare-const r1 Real)(declare-const x0 Int)(declare-const x1 Int)"
        "(declare-const x2 Int)(declare-const x3 Int)(declare-const x4 Int)";
    // clang-format off
    const Case cases[] = {
        {"ite over a mixed row: 5n - k < -1/3 only through the Reals",
         "(assert p)(assert (and (and q (> (+ (* 3.0 (to_real n)) (* 2.0 y) (* (- 3.0) (to_real k)"
         ")) (/ 10 3))) (= (+ (to_real n) (ite (= (+ (* 2.0 (to_real n)) x y) (- (/ 16 3))) (+ (- "
         "x) (- (to_real k)) 2.0) (+ (to_real n) (- y) (- 3.0)))) 2.0)))(check-sat)",
         "sat"},
        {"a strict row through Reals pins an Int term to c - delta",
         "(assert (and (and (not (= (+ (* (- 3.0) x) (* 3.0 (to_real n)) (- y)) (- 10.0))) (not (="
         " (+ (* (- 2.0) x) (* (- 2.0) y)) (- (/ 7 3))))) (not (= (+ x (* (- 3.0) (to_real n)) (- "
         "y)) (/ 23 3)))))(assert (< (+ (* 3.0 x) (- (to_real n)) (to_real k) (ite q (+ (* 2.0 y) "
         "(* (- 3.0) (to_real n)) (- x) (/ 2 3)) 1.0)) 0.0))(check-sat)",
         "sat"},
        {"an equality that a free Real absorbs (cube test)",
         "(assert (and (= (+ (+ (* 2 r0) 0) (to_real (+ (* 6 x1) (* (- 6) x2) (* 4 x3) 0))) (- 15)"
         ") (< (+ (* 6 x1) 0) 40)))(assert (< (+ (+ (* (- 6) r0) 0) (to_real (+ (* (- 6) x4) 0))) "
         "1))(check-sat)",
         "sat"},
        {"branch bounds combined with the tight rows",
         "(assert (= (ite (and (> (+ (* 2 x0) 0) 15) (distinct (+ (+ (* 4 r1) (* 6 r0) 0) (to_real"
         " (+ (* 4 x1) (* 3 x0) (* (- 1) x2) 0))) 6)) (ite (<= (to_real (+ (* (- 6) x1) 0)) (/ (- "
         "9) 2)) (+ (* (- 6) x0) (* 2 x1) (* 3 x2) 0) (+ (* 6 x0) 0)) (div (+ (* 4 x1) 0) 2)) (- 2"
         "0)))(check-sat)",
         "sat"},
        // Long splits on the problem's own rows (coefficients past 100, from the Real columns'
        // elimination): limiting every split's length left both at the node budget.
        {"a long split of the own rows, from is_int over Reals",
         "(assert (or (or (= (* (- 6) r1) 122) (= (* 3 r0) 125)) (and (or (= (* (- 1) r1) (/ 433 3"
         ")) (= (+ (* (- 1) r1) (to_real (* (- 4) x0))) (/ 430 3))) (is_int (+ (* 6 r1) (* 4 r0))) "
         "(or (= (+ (+ (* 3 r0) (* (- 3) r1)) (to_real (+ (* 2 x2) (* (- 6) x1)))) 19) (= (to_real "
         "(* 2 x3)) 16)))))(check-sat)",
         "sat", "--bb-limit 50"},
        {"a long split of the own rows, from to_int and ite",
         "(assert (not (>= (to_real (ite (is_int (+ (* 3 r0) (* 2 r1))) (* (- 6) x0) (* (- 1) x1))"
         ") 16)))(assert (or (is_int (+ (+ (* (- 2) r0) (* (- 1) r1)) (to_real (* 6 x3)))) (is_int"
         " (+ (* 6 r1) (to_real (to_int (* (- 3) r0)))))))(check-sat)",
         "sat", "--bb-limit 50"},
        {"own-row splits up to 144, splits on them past 100 (--mixed problem 31001149)",
         "(assert (is_int (+ (+ (* (- 6) r0) (* 6 r1) 0) (to_real (+ (* 4 x1) (* (- 3) x3) 0)))))("
         "assert (or (or (= (+ (+ (* 4 r0) (* (- 4) r1) 0) (to_real (to_int (+ (+ (* 1 r1) (* 3 r0"
         ") 0) (to_real (+ (* (- 4) x2) 0)))))) (- 42)) (= (+ (+ (* 4 r0) (* (- 4) r1) 0) (to_real"
         " (to_int (+ (+ (* 1 r1) (* 3 r0) 0) (to_real (+ (* (- 4) x2) 0)))))) (- 46))) (<= (ite ("
         "is_int (+ (+ (* 1 r0) (* 6 r1) 0) (to_real (+ (* (- 4) x1) 0)))) (+ (* (- 4) x3) (* 2 x1"
         ") (* (- 2) x0) 0) (+ (* 3 x3) 0)) (- 64))))(assert (or (= (+ (+ (* (- 3) r0) (* (- 6) r1"
         ") 0) (to_real (+ (* 1 x1) (* 4 x0) 0))) (- 71)) (and (<= (+ (* (- 3) x2) (* 6 x1) 0) (- "
         "76)) (is_int (+ (+ (* (- 2) r0) (* (- 6) r1) 0) (to_real (+ (* 1 x0) (* 6 x1) (* 3 x2) 0"
         "))))) (< (to_int (+ (+ (* 2 r1) 0) (to_real (+ (* 2 x3) (* (- 1) x0) (* 6 x2) 0)))) 112)"
         "))(check-sat)",
         "sat", "--bb-limit 50"},
        // Quotients of abs terms, bounded only through rows: branched on (19 nodes), not split
        // on as unbounded (49, and 129 before the same abs was one variable).
        {"quotients of abs terms branched on, not split on",
         "(assert (<= (- 60) x0 60))(assert (<= (- 60) x1 60))(assert (not (and (= (abs x1) (div x0"
         " (- 7))) (> (mod (abs x1) (- 9)) (- 3)))))(assert (>= (mod (div x1 3) (- 1)) (abs (mod (ab"
         "s x1) (- 9)))))(assert (ite (> (div (mod (abs x1) (- 7)) 3) (div (abs (mod (abs x1) (- 9)"
         ")) 8)) (= (div (mod (div x0 (- 7)) (- 7)) (- 2)) (+ (div (mod (abs x1) (- 7)) 3) (* 2 x1"
         ") (* (- 2) (div x0 (- 7))))) (= (mod (abs (mod (abs x1) (- 9))) (- 7)) (+ (* (- 3) (mod "
         "(div x1 3) (- 1))) (* 2 (div x0 (- 7))) (* 3 (div x1 3))))))(check-sat)",
         "unsat", "--bb-limit 30"},
        {"the same abs twice is one variable, so one quotient",
         "(assert (distinct (div (abs (- x0 x1)) 3) (div (abs (- x0 x1)) 3)))(check-sat)", "unsat",
         "--conflict-limit 1"},
        // Pure Int: after 2 splits the search goes on inside the box of its 8 atoms,
        // B = 14·104^17, and ends in 12; the unsat proof that --verify checks names the box.
        {"an unsat check ended inside the box",
         "(assert (<= 1 (+ (* 4 x2) (* (- 13) x1)) 4))(assert (<= 3 (+ (* 7 x2) (* 4 x0)) 6))"
         "(assert (<= (- 6) (+ (* (- 7) x1) (* (- 3) x0) (* 13 x2)) (- 4)))(assert (or (< x0 0) (> x0 0)))"
         "(check-sat)", "unsat", "--bb-limit 12 --box-after 2"},
        // With r0 < x2: a box on x0..x2 alone (the checkers' mixed bound: 21·143^11).
        {"a mixed unsat check ended inside the box",
         "(assert (<= 1 (+ (* 4 x2) (* (- 13) x1)) 4))(assert (<= 3 (+ (* 7 x2) (* 4 x0)) 6))"
         "(assert (<= (- 6) (+ (* (- 7) x1) (* (- 3) x0) (* 13 x2)) (- 4)))(assert (or (< x0 0) (> x0 0)))"
         "(assert (< r0 (to_real x2)))(check-sat)", "unsat", "--bb-limit 12 --box-after 2"},
    };
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(answer(declarations + c.body, c.options), c.expected);
    }
}

// An incremental script of the wide certificate generator (seed 587): its fourth check alone
// needs a few nodes, but after the third (over a div term) it made hundreds of tight-row splits,
// each compounding the last, with coefficients growing past 10³ near a vertex at 10²¹.
TEST(UnboundedInt, IncrementalChecksEndInFewNodes) {
    const char* const script = R"((set-logic ALL)
(declare-const x.1 Real)
(declare-const v2 Int)
(declare-const |s 3| Real)
(declare-fun |s 4| () Int)
(declare-fun x.5 () Int)
(declare-fun |s 6| () Int)
(check-sat)
(assert (and (<= (+ v2 (* 3 |s 3|) (- 10.0)) (+ (* 0.25 |s 6|) |s 4|)) (>= (+ x.1 (* (/ 2 3) |s 3|) (* 2 x.1)) (- (* (- 3.0) x.5) (* 4.0 x.5))) (let ((l7 (+ (* (- 0.75) v2) (* |s 4| (- 3.0)) (* (- 1) |s 4|) 14 (div (+ (* 4 |s 6|) |s 6| (* (- 7) v2) |s 6| (- 13)) 3)))) (<= l7 (- 1000000000000000000001.0)))))
(declare-fun x.8 () Int)
(assert (>= v2 (- 1.8)))
(declare-const y9 Real)
(assert (< (+ (* (/ 1 7) x.1) v2 (* (- 0.5) y9) (* 5 |s 6|)) (- 4)))
(assert (distinct (+ (* 10.0 x.1) (* 0.5 |s 6|) (* (/ (- 1) 3) |s 6|) (* |s 4| (- 3)) (- 16)) (+ (* (- 1) v2) (to_int y9))))
(push)
(declare-fun |s 10| () Int)
(push 1)
(declare-fun |s 11| () Int)
(assert (= (+ (* v2 5) (* |s 6| 5) (* 4 x.1) (to_int (+ (* (- 2.0) |s 6|) (* 3 x.8) (- 10.0)))) (+ (* (/ (- 1) 7) |s 11|) (* 10 x.8))))
(assert (and (<= (+ (* 5.0 y9) (- 4.0) (to_int (+ (* (- 1.0) y9) (/ 2 5)))) 12.0)))
(assert (<= (+ (* |s 6| (- 7)) y9) (- 9)))
(check-sat)
(check-sat-assuming ((< (+ (* y9 2.0) (* x.5 (- 7)) (div (+ (* 4 |s 4|) (* (- 7) |s 10|) (* |s 11| (- 7)) (* 2 x.8)) 5)) (+ (* (/ 5 7) |s 10|) (* 3.0 v2) 14))))
(check-sat-assuming ((not (< (+ (* 5.0 x.1) x.5 (* (- 1.0) |s 11|) (- |s 4|) 5) 14))))
(check-sat)
)";
    std::string path = temp_dir() + "incremental.smt2";
    std::ofstream(path) << script;
    auto run = run_tool("check --verify --bb-limit 20 " + path);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "sat\nsat\nsat\nsat\nsat\n");
}

namespace {

// A random atom Σ aᵢxᵢ ⋈ k with mostly even coefficients; with a point, one that holds there.
struct RandomAtom {
    std::vector<int> coeffs;
    std::string relation;
    int constant;

    bool holds(const std::vector<int>& p) const {
        long v = 0;
        for (std::size_t i = 0; i < p.size(); ++i)
            v += static_cast<long>(coeffs[i]) * p[i];
        if (relation == "<=") return v <= constant;
        if (relation == ">=") return v >= constant;
        if (relation == "=") return v == constant;
        return v != constant;
    }
    std::string text() const {
        std::string t = "(+ 0";
        for (std::size_t i = 0; i < coeffs.size(); ++i)
            if (coeffs[i] != 0) t += " (* " + numeral(coeffs[i]) + " x" + std::to_string(i) + ")";
        std::string rel = relation == "!=" ? "distinct" : relation;
        return "(" + rel + " " + t + ") " + numeral(constant) + ")";
    }
};

RandomAtom random_atom(std::mt19937& rng, std::size_t n, const std::vector<int>* point) {
    const char* relations[] = {"<=", ">=", "=", "!=", "<=", ">="};
    RandomAtom a{std::vector<int>(n), relations[rng() % 6], 0};
    bool even = rng() % 4 != 0;
    for (int k = 0, terms = 1 + static_cast<int>(rng() % 3); k < terms; ++k)
        a.coeffs[rng() % n] =
            (even ? 2 : 1) * (1 + static_cast<int>(rng() % 3)) * (rng() % 2 ? -1 : 1);
    if (point == nullptr) {
        a.constant = static_cast<int>(rng() % 19) - 9;
        return a;
    }
    long v = 0;
    for (std::size_t i = 0; i < n; ++i)
        v += static_cast<long>(a.coeffs[i]) * (*point)[i];
    int slack = static_cast<int>(rng() % 4);
    a.constant = static_cast<int>(a.relation == "<="   ? v + slack
                                  : a.relation == ">=" ? v - slack
                                  : a.relation == "="  ? v
                                                       : v + 1 + slack);
    return a;
}

}  // namespace

// Half of the problems hold a planted point in the box [−4, 4]ⁿ, so they are sat; for all, a
// point that brute force finds in [−6, 6]ⁿ means sat, and an unsat answer means there is none.
TEST(UnboundedInt, RandomProblemsAgainstBruteForce) {
    const unsigned seed = 20261126;
    std::mt19937 rng(seed);
    for (int round = 0; round < 60; ++round) {
        std::size_t n = 2 + rng() % 3;
        std::vector<int> planted(n);
        for (int& x : planted)
            x = static_cast<int>(rng() % 9) - 4;
        bool plant = round % 2 == 0;
        // Each clause: one atom, or a disjunction of two (the planted point meets the first).
        std::vector<std::vector<RandomAtom>> clauses;
        for (int k = 0, m = 1 + static_cast<int>(rng() % 5); k < m; ++k) {
            clauses.push_back({random_atom(rng, n, plant ? &planted : nullptr)});
            if (rng() % 4 == 0) clauses.back().push_back(random_atom(rng, n, nullptr));
        }
        std::string script = "(set-logic QF_LIA)";
        for (std::size_t i = 0; i < n; ++i)
            script += "(declare-fun x" + std::to_string(i) + " () Int)";
        for (const auto& clause : clauses)
            script += clause.size() == 1
                          ? "(assert " + clause[0].text() + ")"
                          : "(assert (or " + clause[0].text() + " " + clause[1].text() + "))";
        script += "(check-sat)";

        bool found = false;
        std::vector<int> p(n, -6);
        while (!found) {
            found = std::all_of(clauses.begin(), clauses.end(), [&](const auto& clause) {
                return std::any_of(clause.begin(), clause.end(),
                                   [&](const RandomAtom& a) { return a.holds(p); });
            });
            std::size_t i = 0;
            while (i < n && p[i] == 6)
                p[i++] = -6;
            if (i == n) break;
            ++p[i];
        }
        std::string got = answer(script);
        SCOPED_TRACE("seed " + std::to_string(seed) + " round " + std::to_string(round) + ": " +
                     script);
        ASSERT_TRUE(got == "sat" || got == "unsat") << got;
        if (plant || found) {
            EXPECT_EQ(got, "sat");
        }
        if (got == "unsat") {
            EXPECT_FALSE(found);
        }
    }
}
