// vorn check and optimize: scripts with their exact responses, Netlib optima and
// feasibility around them, and certificates that the checkers reject once spoiled.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <tuple>

#include "support/certificate_check.h"
#include "support/cli_run.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/frontend/script_interpreter.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/decision.h"

using namespace vorn::smt;
using namespace vorn::io;
using vorn::test::certificate_checks;
using vorn::test::run_tool;
using vorn::test::ScriptCase;

namespace {

const ScriptCase kScripts[] = {
    {"strict bounds", R"((declare-const x Real)(declare-const y Real)
(assert (< 0 x))(assert (< x y))(assert (< y (/ 1 2)))(check-sat)(get-model)
(assert (<= y 0))(check-sat))",
     "sat\n(\n(define-fun x () Real (/ 1 6))\n(define-fun y () Real (/ 1 3))\n)\nunsat\n"},
    {"disequalities split on demand", R"((declare-const x Real)(declare-const y Real)
(assert (and (>= x 0) (<= x 1) (= y 0)))(assert (not (= x 0)))(assert (distinct x y 1))
(check-sat)(get-value (x (- y 5) (* 2 x)))(assert (not (> x 0)))(check-sat))",
     "sat\n((x (/ 1 2)) ((- y 5) (- 5.0)) ((* 2 x) 1.0))\nunsat\n"},
    {"push pop and declarations", R"((set-option :print-success true)(declare-const x Real)
(push 2)(declare-const y Int)(assert (> x y))(assert (< x 0))(check-sat)(pop 2)
(declare-const y Real)(assert (< y x))(check-sat)(pop 1))",
     "success\nsuccess\nsuccess\nsuccess\nsuccess\nsuccess\nsat\nsuccess\nsuccess\nsuccess\nsat\n"
     "(error \"s.smt2:3:50: cannot pop 1 levels: 0 pushed\")\n"},
    {"core of unsat", R"((set-option :produce-unsat-cores true)(declare-const x Real)
(declare-const y Real)(assert (! (>= x 3) :named big))(assert (! (> y 0) :named pos))
(assert (! (<= (+ x y) 3) :named sum))(assert (! (< y 7) :named seven))
(check-sat)(get-unsat-core)(check-sat-assuming ((< x 0)))(check-sat))",
     "unsat\n(\nbig\npos\nsum\n)\nunsat\nunsat\n"},
    {"negations pushed inward", R"((declare-const x Real)
(assert (not (or (> x 2) (not (>= x 1)))))(assert (=> (> 0 1) (> x 5)))
(assert (or false (not (= x 1))))(check-sat)(get-model)
(assert (! (<= x 5) :named le5))(check-sat-assuming ((not le5)))(check-sat))",
     "sat\n(\n(define-fun x () Real 2.0)\n)\nunsat\nsat\n"},
    {"outside the fragment", R"((declare-const x Real)(declare-const b Bool)
(declare-fun f (Real) Real)(assert (or (> x 1) (< (* x x) 0)))(check-sat)(get-info :reason-unknown)
(assert (=> (< x 1) (> x 2)))(assert (< x 1))(check-sat)(reset-assertions)
(assert (not (and b (> (f x) 2))))(check-sat)(get-info :reason-unknown)(reset-assertions)
(assert (> x 2))(check-sat)(get-value ((* x x)))(get-value (b (> (f x) 1))))",
     "unknown\n(:reason-unknown \"s.smt2:2:56: non-linear product is outside the linear "
     "fragment\")\nunsat\nunknown\n(:reason-unknown \"s.smt2:4:25: the uninterpreted function "
     "'f' is outside the linear fragment\")\nsat\n(error \"s.smt2:5:40: the term is outside the "
     "linear fragment\")\n(error \"s.smt2:5:63: the term is outside the linear fragment\")\n"},
    {"disjunctions, xor, implications and Bool constants", R"((declare-const x Int)
(declare-const b Bool)(declare-const c Bool)(assert (or (> x 5) (< x 2)))(assert (<= 1 x 6))
(assert (xor b c))(assert (=> c (distinct x 6)))(assert b)(assert (=> b (> x 3)))(check-sat)
(get-value (x b c (and b (not c)) (=> b c)))(get-model)(assert (not (= b (> x 5))))(check-sat))",
     "sat\n((x 6) (b true) (c false) ((and b (not c)) true) ((=> b c) false))\n(\n(define-fun x () "
     "Int 6)\n(define-fun b () Bool true)\n(define-fun c () Bool false)\n)\nunsat\n"},
    {"ite over formulas and over terms, whose variables stay hidden", R"((declare-const x Real)
(declare-const y Real)(declare-const p Bool)(assert (= y (ite p (let ((h 1)) (+ x (/ h 2))) 0)))
(assert (ite (> y 0) p (not p)))(assert (= x 0))(assert (or p (> y 5)))(check-sat)(get-model)
(get-value ((ite p x y) (ite (< y 0) p (not p))))(assert (< y (/ 1 2)))(check-sat))",
     "sat\n(\n(define-fun x () Real 0.0)\n(define-fun y () Real (/ 1 2))\n(define-fun p () Bool "
     "true)\n)\n(((ite p x y) 0.0) ((ite (< y 0) p (not p)) false))\nunsat\n"},
    {"shared lets, chained Boolean equalities and distinct", R"((declare-const x Int)
(declare-const c Bool)(define-fun pos () Bool (> x 0))
(assert (let ((a pos) (z (< x 3))) (and (= a z c) (xor a (not z)))))(check-sat)(get-value (c))
(assert (distinct c pos))(check-sat))",
     "sat\n((c true))\nunsat\n"},
    {"push and pop with Boolean assertions", R"((declare-const x Int)(declare-const b Bool)
(push)(assert (or b (> x 2)))(assert (not b))(assert (< x 3))(check-sat)(pop)(push)
(declare-const c Bool)(assert (and c (or (not c) (> x 7))))(assert (< x 9))(check-sat)
(get-value (x c))(pop)(check-sat)(assert (xor b b))(check-sat)(reset-assertions)(assert b)
(check-sat)(get-value (b)))",
     "unsat\nsat\n((x 8) (c true))\nsat\nunsat\nsat\n((b true))\n"},
    {"named Boolean assertions, cores and assumptions", R"((set-option :produce-unsat-cores true)
(declare-const x Real)(declare-const b Bool)(declare-const c Bool)
(assert (! (or b c) :named either))(assert (! (=> b (> x 1)) :named bx))
(assert (! (> x (- 5)) :named above))(assert (! (=> c (> x 2)) :named cx))
(check-sat-assuming ((< x 0)))(get-unsat-core)(check-sat-assuming ((not b) (< x 3)))
(get-value (b c))(check-sat-assuming (b (not either)))(get-unsat-core))",
     "unsat\n(\neither\nbx\ncx\n)\nsat\n((b false) (c true))\nunsat\n(\neither\n)\n"},
    {"arity, long names, reset-assertions, supported conjuncts beside unsupported ones",
     R"((check-sat 1)(declare-const abcdefgh1 Real)(declare-const abcdefgh2 Real)
(assert (> abcdefgh1 5))(reset-assertions)(assert (< abcdefgh1 abcdefgh2 1))(check-sat)
(assert (and (or (> abcdefgh1 1) (< abcdefgh1 0)) (> abcdefgh2 2)))(check-sat))",
     "(error \"s.smt2:1:1: 'check-sat' takes 0 arguments\")\nsat\nunsat\n"},
    {"errors keep the script going", R"((declare-const x Real)(assert (> x))(assert (< x z))
(get-model)(frobnicate)(echo "still ""here""")(check-sat))",
     "(error \"s.smt2:1:31: '>' needs at least 2 arguments\")\n"
     "(error \"s.smt2:1:50: undeclared symbol 'z'\")\n"
     "(error \"s.smt2:2:1: no model: the last check-sat did not answer sat\")\n"
     "(error \"s.smt2:2:13: unknown command 'frobnicate'\")\n\"still \"\"here\"\"\"\nsat\n"},
    {"bit-vector literals fail their command; terms echo as written", R"((declare-const y Int)
(declare-const x Real)(assert (= y #b101))(assert (= x 2))(check-sat)
(get-value ((let ((z x)) (+ z 1)) (! x :named n)))(get-info :authors))",
     "(error \"s.smt2:2:36: binary and hexadecimal literals (bit-vectors) are not supported\")\n"
     "sat\n(((let ((z x)) (+ z 1)) 3.0) ((! x :named n) 2.0))\n(:authors \"The vorn "
     "developers\")\n"},
    {"sorts are checked and printed", R"((declare-const y Int)(define-fun f () Int (/ 1 2))
(define-fun g ((a Real)) Int a)(assert (= (to_real (to_real y)) 1))(assert (= (g 1.5) 1))
(assert (= y 1))(check-sat)(get-value ((to_real y) (* 2 y) (/ y 2))))",
     "(error \"s.smt2:1:43: the definition is of sort Int, its body a Real term\")\n"
     "(error \"s.smt2:2:79: 'g' is of sort Int, its body a Real term here\")\n"
     "sat\n(((to_real y) 1.0) ((* 2 y) 2) ((/ y 2) (/ 1 2)))\n"},
    {"definitions with parameters", R"((declare-const x Real)(declare-const y Real)
(define-fun avg ((a Real) (b Real)) Real (/ (+ a b) 2))(define-fun shift ((a Real)) Real (+ a x))
(define-fun in ((lo Real) (v Real) (hi Real)) Bool (and (< lo v) (< v hi)))
(assert (let ((x 100)) (in 0 (avg (shift 0) y) 1)))(assert (= y 1))(check-sat)
(get-value ((avg x y) (shift 3))))",
     "sat\n(((avg x y) (/ 1 2)) ((shift 3) 3.0))\n"},
    {"Int by branch and bound", R"((declare-const n Int)(declare-const m Int)
(assert (and (> (* 2 n) 1) (< (* 2 n) 4) (= (+ n m) 5)))(check-sat)(get-model)
(assert (> n 1))(check-sat)(assert (= (* 2 m) 7))(check-sat))",
     "sat\n(\n(define-fun n () Int 1)\n(define-fun m () Int 4)\n)\nunsat\nunsat\n"},
    {"Int strict bounds on terms are rounded", R"((declare-const x Int)(declare-const y Int)
(assert (< (+ (* 4 x) y) 5))(assert (<= (- (* 3 y) x) (- 5)))(assert (> (- y x) (- 2)))
(check-sat)(assert (> x (- 1)))(check-sat))",
     "sat\nunsat\n"},
    {"Int disequalities over unbounded terms close at once", R"((declare-const a Int)
(declare-const b Int)(assert (distinct a b))(assert (< (- a b) 1))(assert (> (- a b) (- 1)))
(check-sat)(assert (distinct (+ a 1) b))(assert (< (- a b) 3))(assert (> (- a b) (- 3)))
(check-sat))",
     "unsat\nunsat\n"},
    {"Int disequalities", R"((declare-const n Int)(assert (and (>= n 0) (<= n 2) (distinct n 0)))
(assert (not (= n 1)))(check-sat)(get-value (n))(assert (< n 2))(check-sat))",
     "sat\n((n 2))\nunsat\n"},
    {"objectives, lexicographic, on levels",
     R"((declare-const x Real)(declare-const y Real)(assert (<= (+ x y) 4))
(assert (>= (- x y) (- 3)))(assert (and (<= x 3) (>= x 0) (>= y 0)))(maximize (+ x (* 2 y)))
(minimize x)(check-sat)(get-objectives)(push 1)(minimize (- y))(assert (<= y 2))(check-sat)
(get-objectives)(get-value (x y))(pop 1)(assert (< y 1))(check-sat)(get-objectives))",
     "sat\n(objectives\n ((+ x (* 2 y)) (/ 15.0 2.0))\n (x (/ 1.0 2.0))\n)\nsat\n(objectives\n"
     " ((+ x (* 2 y)) 6)\n (x 2)\n ((- y) (- 2))\n)\n((x 2.0) (y 2.0))\nsat\n"
     "(objectives\n ((+ x (* 2 y)) (+ 5.0 (* (- 1.0) epsilon)))\n)\n"},
    {"objectives over Boolean structure and Int", R"((declare-const x Int)(declare-const y Real)
(declare-const b Bool)(assert (or (and b (<= x 3)) (and (not b) (<= x 9) (< (* 2 x) 17))))
(assert (>= x 0))(assert (<= y x))(maximize (+ x y))(check-sat)(get-objectives)(get-value (b))
(push 1)(assert (<= y 1))(minimize (- y x))(check-sat)(get-objectives)(pop 1)
(assert (or (> x 5) (< x 2)))(minimize x)(check-sat)(get-objectives))",
     "sat\n(objectives\n ((+ x y) 16)\n)\n((b false))\nsat\n(objectives\n ((+ x y) 9)\n"
     " ((- y x) (- 7))\n)\nsat\n(objectives\n ((+ x y) 16)\n (x 8)\n)\n"},
    {"a warm start whose leaving variable violates a new bound",
     R"((declare-const a Int)(declare-const b Int)(declare-const c Int)(assert (<= (- 30) b 30))
(assert (or (= (+ (* (- 13) a) (* (- 5) c)) 7) (< a 0)))(assert (<= (- 4) (- (* 9 a) (* 7 c)
(* 7 b)) (- 2)))(assert (or (<= (- 8) (+ (* 4 c) (* 13 a) (* 13 b)) (- 6)) (= (+ (* (- 13) a)
(* (- 5) b) (* 7 c)) 3)))(maximize b)(check-sat)(get-objectives))",
     "sat\n(objectives\n (b 25)\n)\n"},
    {"objectives over a mod, its quotient without bounds of its own",
     R"((declare-const x Int)(declare-const y Int)(declare-const b Bool)(assert (<= (- 5) x 5))
(assert (<= (- 5) y 5))(assert (or b (= (+ (* 2 x) (* 3 y)) 1)))(assert (=> b (< (+ x y) (- 4))))
(minimize (- (* 3 y) (mod (+ (* 2 x) y) 3)))(maximize x)(check-sat)(get-objectives))",
     "sat\n(objectives\n ((- (* 3 y) (mod (+ (* 2 x) y) 3)) (- 17))\n (x (- 1))\n)\n"},
    {"optima go with the check that found them", R"((declare-const x Int)(push 1)(assert (<= x 5))
(maximize x)(check-sat)(get-objectives)(pop 1)(check-sat)(get-objectives))",
     "sat\n(objectives\n (x 5)\n)\nsat\n(objectives\n)\n"},
    {"objectives over disequalities and distinct", R"((declare-const x Int)(declare-const y Int)
(declare-const z Int)(assert (and (<= 0 x 2) (<= 0 y 2) (<= 0 z 2) (distinct x y z)))
(maximize (+ (* 3 x) (* 2 y) z))(check-sat)(get-objectives)(assert (distinct x 2))
(minimize (- z y))(check-sat)(get-objectives)(declare-const r Real)(assert (< r 1))
(assert (not (= r 0)))(maximize r)(check-sat)(get-objectives))",
     "sat\n(objectives\n ((+ (* 3 x) (* 2 y) z) 8)\n)\nsat\n(objectives\n ((+ (* 3 x) (* 2 y) z) "
     "7)\n"
     " ((- z y) (- 2))\n)\nsat\n(objectives\n ((+ (* 3 x) (* 2 y) z) 7)\n ((- z y) (- 2))\n"
     " (r (+ 1.0 (* (- 1.0) epsilon)))\n)\n"},
    {"z3's assert-soft, :id and priorities", R"((declare-const x Int)(declare-const a Bool)
(declare-const y Real)(assert (<= 0 x 9))(assert-soft (> x 3) :weight 2 :id h)(minimize x :id m)
(assert-soft (< x 5) :id h :weight 1.5)(assert-soft (and a (< x 1)))(assert-soft false :id h
:weight 0)(push 1)(minimize y)(check-sat)(get-objectives)(pop 1)(assert-soft (< x 1) :weight (- 1))
(set-option :opt.priority pareto)(check-sat)(get-objectives)(set-option :opt.priority box)
(check-sat)(get-objectives)(get-value (x))(set-option :opt.priority lex)(maximize (- y))(check-sat)
(get-objectives))",
     "sat\n(objectives\n (h 0)\n (x 4)\n ( 1)\n (y (* (- 1) oo))\n)\n(error \"s.smt2:4:94: "
     "expected "
     "a weight, a number of at least 0\")\n(error \"s.smt2:5:27: the pareto priority of objectives "
     "is not supported\")\nsat\n(error \"s.smt2:5:45: several objectives are optimized by lex or "
     "box priority, not by pareto\")\nsat\n(objectives\n (h 0)\n (x 0)\n ( 0)\n)\n((x 4))\nsat\n"
     "(objectives\n (h 0)\n (x 4)\n ( 1)\n ((- y) oo)\n)\n"},
    // Bools only: linear steps from the best model's phases, then a second check after a clause.
    {"weighted MaxSAT over Bools alone, twice", R"((declare-const p0 Bool)(declare-const p1 Bool)
(declare-const p2 Bool)(declare-const p3 Bool)(declare-const p4 Bool)(declare-const p5 Bool)
(declare-const p6 Bool)(declare-const p7 Bool)(declare-const p8 Bool)(assert (or p0 p1 p2))
(assert (or p3 p4 p5))(assert (or p6 p7 p8))(assert (or (not p1) (not p4) (not p7)))
(assert-soft (not p0) :weight 2)(assert-soft (not p1) :weight 3)(assert-soft (not p2) :weight 4)
(assert-soft (not p3) :weight 2)(assert-soft (not p4) :weight 3)(assert-soft (not p5) :weight 4)
(assert-soft (not p6) :weight 2)(assert-soft (not p7) :weight 3)(assert-soft (not p8) :weight 4)
(assert-soft (or p0 p1))(assert-soft (or p1 p5))(assert-soft (or p2 p0))(assert-soft (or p3 p4))
(assert-soft (or p4 p8))(assert-soft (or p5 p3))(assert-soft (or p6 p7))(assert-soft (or p7 p2))
(check-sat)(get-objectives)(assert (or p1 p2))(check-sat)(get-objectives))",
     "sat\n(objectives\n ( 9)\n)\nsat\n(objectives\n ( 10)\n)\n"},
    {"integer equalities off their lattice, beside Boolean structure",
     R"((set-option :produce-unsat-cores true)(declare-const x Int)(declare-const y Int)
(declare-const b Bool)(assert (= (+ (* 3 x) (* 2 y)) 1))(assert (! (or b (> x 5)) :named n))
(check-sat)(assert (= (+ x (* 2 y)) 0))(check-sat)(get-unsat-core)(check-sat-assuming (b)))",
     "sat\nunsat\n(\n)\nunsat\n"},
};

}  // namespace

TEST(CliCheck, ScriptsAnswerExactly) {
    vorn::test::expect_scripts_answer(kScripts);
}

TEST(CliCheck, UnreadableScriptStopsWithOneLine) {
    auto path = vorn::test::temp_file("u.smt2", "(check-sat)\n(assert (< 1 2)");
    auto run = run_tool("check " + path);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "sat\n");
    EXPECT_EQ(run.err.find('\n'), run.err.size() - 1) << run.err;
}

// The certificate spoiled: a ray turned round (it then leaves its constraint), or else the first
// multiplier of the first Farkas leaf of two or more bounds doubled (that leaf then leaves a
// variable); empty when it has neither.
std::string spoiled(std::string out) {
    if (std::size_t at = out.find("ray 2:1"); at != std::string::npos)
        return out.replace(at, 7, "ray 2:-1");
    for (std::size_t at = out.find("\nnode "); at != std::string::npos;
         at = out.find("\nnode ", at + 1)) {
        std::size_t end = out.find('\n', at + 1);
        std::size_t farkas = out.find(" farkas ", at);
        if (farkas > end) continue;
        std::size_t entry_end = out.find(' ', farkas + 8);
        if (entry_end > end) continue;  // a single bound
        std::size_t colon = out.rfind(':', entry_end);
        std::string m = out.substr(colon + 1, entry_end - colon - 1);
        std::size_t slash = m.find('/');
        std::string doubled = std::to_string(2 * std::stoll(m.substr(0, slash)));
        if (slash != std::string::npos) doubled += m.substr(slash);
        return out.replace(colon + 1, m.size(), doubled);
    }
    return {};
}

// The exact optimum of LP and MPS files, continuous (Netlib's afiro and sc50b) and with Int
// columns (never the relaxation's optimum), and small problems of each outcome: every answer
// verified, every certificate (a branch-and-bound tree for Int columns) accepted by
// check_certificate.py with and without the input, and rejected once spoiled.
TEST(CliOptimize, ExactOptimaWithCheckedCertificates) {
    const std::string netlib = VORN_DATA_DIR "/netlib/netlib-";
    const std::string miplib = VORN_DATA_DIR "/miplib3/miplib3-";
    auto lp = [](const char* name, const char* text) { return vorn::test::temp_file(name, text); };
    const std::tuple<std::string, const char*, const char*> cases[] = {
        // file, options, output
        {netlib + "afiro.mps.bz2", "",
         "optimal\nobjective -406659/875\nobjective ≈ -464.75314285714285\n"},
        {netlib + "sc50b.mps.bz2", "", "optimal\nobjective -70\nobjective ≈ -70\n"},
        {lp("max.lp",
            "maximize\n obj: x + 2 y\nsubject to\n c: x + y <= 4\n d: x - y >= -3\n"
            "bounds\n x <= 3\nend\n"),
         "", "optimal\nobjective 15/2\nobjective ≈ 7.5\n"},
        {lp("none.lp", "minimize\n obj: x\nsubject to\n c: x + y <= -1\nend\n"), "",
         "infeasible\n"},
        {lp("down.lp", "minimize\n obj: x - y\nsubject to\n c: x - 2 y <= 4\nend\n"), "",
         "unbounded\n"},
        // The relaxation's optimum is 15/2 at x = 3, y = 9/4.
        {lp("knap.lp",
            "maximize\n obj: x + 2 y\nsubject to\n c: x + 4 y <= 12\n d: x <= 3\n"
            "general\n x y\nend\n"),
         "", "optimal\nobjective 7\nobjective ≈ 7\n"},
        // Mixed: y Real; 2x + y >= 3.5 with x Int, minimizing x + y.
        {lp("mixed.lp",
            "minimize\n obj: x + y\nsubject to\n c: 2 x + y >= 3.5\n u: x <= 1\n"
            "bounds\n y <= 10\ngeneral\n x\nend\n"),
         "", "optimal\nobjective 5/2\nobjective ≈ 2.5\n"},
        // Integer infeasible, the relaxation feasible: 2x = 1.
        {lp("odd.lp",
            "minimize\n obj: x\nsubject to\n c: 2 x = 1\nbounds\n x <= 5\ngeneral\n x\nend\n"),
         "", "infeasible\n"},
        {miplib + "p0033.mps.bz2", "", "optimal\nobjective 3089\nobjective ≈ 3089\n"},
        {miplib + "flugpl.mps.bz2", "", "optimal\nobjective 1201500\nobjective ≈ 1201500\n"},
        // Root cuts: the certificate's first Farkas leaf derives a cut.
        {miplib + "p0033.mps.bz2", "--cut-rounds 3 ",
         "optimal\nobjective 3089\nobjective ≈ 3089\n"},
    };
    for (const auto& [file, options, expected] : cases) {
        auto run = run_tool("optimize --verify " + std::string(options) + file);
        EXPECT_EQ(run.out, expected) << file << run.err;
        auto certified = run_tool("optimize --model --certificate " + std::string(options) + file);
        if (certified.out.find("(certificate") == std::string::npos) continue;
        EXPECT_TRUE(certificate_checks(certified.out)) << file;
        EXPECT_TRUE(certificate_checks(certified.out, file)) << file;
        std::string bad = spoiled(certified.out);
        EXPECT_TRUE(bad.empty() || !certificate_checks(bad)) << file;
    }
}

// Every bundled Netlib problem to its optimum (the data's README, which rounds to 15 digits and
// on capri, agg and a few others differs from the exact optimum beyond the 10th), each answer
// verified; feasibility checks just below and above the optimum of some (israel and degen2 once
// took minutes), and of others with no bound.
TEST(CliOptimize, SharedNetlibOptimaAndBoundedChecks) {
    const std::string dir = VORN_DATA_DIR "/netlib/netlib-";
    const std::pair<const char*, double> optima[] = {
        {"afiro", -464.753142857143},
        {"sc50b", -70},
        {"sc50a", -64.5750770585645},
        {"kb2", -1749.90012990425},
        {"sc105", -52.2020612117072},
        {"adlittle", 225494.96316238},
        {"blend", -30.8121498458282},
        {"share2b", -415.732240741419},
        {"scagr7", -2331389.82434897},
        {"stocfor1", -41131.9762196756},
        {"recipe", -266.616},
        {"vtp.base", 129831.462459564},
        {"lotfi", -25.2647060626078},
        {"boeing2", -315.018728023862},
        {"bore3d", 1373.08039433198},
        {"capri", 2690.01291273862},
        {"israel", -896644.821863046},
        {"scorpion", 1878.12482273778},
        {"sctap1", 1412.25},
        {"agg", -35991767.2873852},
        {"etamacro", -755.715233407399},
        {"grow7", -47787811.8147797},
        {"degen2", -1435.178},
        {"25fv47", 5501.8458883},
    };
    for (const auto& [name, optimum] : optima) {
        auto run = run_tool("optimize --verify " + dir + name + ".mps.bz2");
        ASSERT_EQ(run.out.rfind("optimal\nobjective ", 0), 0u) << name << run.out << run.err;
        double value = std::stod(run.out.substr(run.out.find("≈ ") + std::strlen("≈ ")));
        EXPECT_NEAR(value, optimum, 1e-9 * std::max(1.0, std::abs(optimum))) << name;
    }
    const std::tuple<const char*, const char*, const char*> bounded[] = {
        {"afiro", "", "sat"},
        {"kb2", "", "sat"},
        {"afiro", "<= -464.76", "unsat"},
        {"afiro", "<= -464.75", "sat"},
        {"sc50b", "< -70", "unsat"},
        {"sc50b", "<= -70", "sat"},
        {"israel", "<= -896644.8227", "unsat"},
        {"israel", "<= -896644.8209", "sat"},
        {"degen2", "<= -1435.1781", "unsat"},
        {"degen2", "<= -1435.178", "sat"},
    };
    for (const auto& [name, bound, answer] : bounded) {
        std::string option = *bound ? " --objective-bound '" + std::string(bound) + "'" : "";
        auto run =
            run_tool("check --verify --certificate" + option + " " + dir + name + ".mps.bz2");
        EXPECT_EQ(run.out.substr(0, run.out.find('\n')), answer) << name << bound << run.err;
    }
}

TEST(CliCheck, CertificateCheckerRejectsATamperedProof) {
    // Off the lattice: (3x + 2y = 1) + (x + 2y = 0) over 4 is x + y = 1/4.
    std::string lattice = vorn::test::temp_file(
        "lattice.smt2",
        "(declare-const x Int)(declare-const y Int)(assert (= (+ (* 3 x) (* 2 y)) 1))"
        "(assert (= (+ x (* 2 y)) 0))(check-sat)");
    // A Farkas multiplier, a bound's constant, a lattice multiplier.
    const std::tuple<std::string, const char*, const char*> cases[] = {
        {VORN_SOURCE_DIR "/examples/core.smt2", "atom:2:l:1", "atom:2:l:2"},
        {VORN_SOURCE_DIR "/examples/core.smt2", "1100", "1000"},
        {lattice, "1:1/4", "1:3/4"},
    };
    for (const auto& [file, from, to] : cases) {
        auto run = run_tool("check --certificate " + file);
        ASSERT_TRUE(certificate_checks(run.out)) << run.out;
        std::string tampered = run.out;
        ASSERT_NE(tampered.find(from), std::string::npos) << run.out;
        tampered.replace(tampered.find(from), std::string(from).size(), to);
        EXPECT_FALSE(certificate_checks(tampered)) << from;
    }
}

// The exact checker of --verify looks at every leaf: spoiling any one Farkas leaf of a proof
// with several (splits on both sides) must be caught, whichever leaf it is.
TEST(CliCheck, ProofCheckerRejectsAnySpoiledLeaf) {
    vorn::smt::Problem p = vorn::frontend::read_smt2(
        "(declare-const x Int)(declare-const y Int)(assert (<= 0 x 1))(assert (<= 0 y 1))"
        "(assert (distinct x y))(assert (= (+ x y) 1))(assert (distinct x 0))"
        "(assert (distinct y 0))");
    vorn::smt::Decision d = vorn::smt::decide(p, {});
    ASSERT_EQ(d.result, vorn::lra::Result::Unsat);
    ASSERT_EQ(vorn::smt::check_proof(p, d.proof), "");
    int leaves = 0;
    for (std::size_t n = 0; n < d.proof.size(); ++n) {
        if (d.proof[n].farkas.empty()) continue;
        ++leaves;
        auto spoiled = d.proof;
        spoiled[n].farkas[0].multiplier += vorn::QNumber(1, 3);
        EXPECT_NE(vorn::smt::check_proof(p, spoiled), "") << "leaf " << n;
    }
    EXPECT_GE(leaves, 2);
}
