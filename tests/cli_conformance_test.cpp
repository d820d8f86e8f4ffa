// vorn check on constructs of other solvers' scripts: :named terms anywhere, sort
// abbreviations and uninterpreted sorts, the commands that ask about options, assertions and
// assignments, integer operations by constants and mixed Int/Real terms. The expected answers
// are z3's where the standard leaves no choice; every model and proof is checked (--verify).

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "support/cli_run.h"

using vorn::test::run_tool;
using vorn::test::ScriptCase;

namespace {

const ScriptCase kScripts[] = {
    {":named terms are definitions wherever they stand, forgotten by their pop",
     R"((set-option :produce-unsat-cores true)(declare-const x Int)(declare-const y Int)
(assert (or (! (= x 5) :named foo) (= x y)))(assert (= foo (= x 7)))(check-sat)
(push 1)(assert (! (> (! (+ x 1) :named t) 3) :named big))(assert (= t 4))(check-sat)
(get-value (t big foo))(pop 1)(assert (= t 4))(assert (! (< y 0) :named neg))
(assert (! (and (> y 0) (! (< x 0) :named xneg)) :named pos))(check-sat)(get-unsat-core)
(assert (! (> x 0) :named foo))(assert (distinct x y))(check-sat-assuming (xneg)))",
     "sat\nsat\n((t 4) (big true) (foo false))\n(error \"s.smt2:4:42: undeclared symbol 't'\")\n"
     "unsat\n(\nneg\npos\n)\n(error \"s.smt2:6:27: symbol 'foo' is already declared\")\nunsat\n"},
    {"a named disjunct decides the answer",
     R"((set-option :produce-assignments true)(declare-const x Int)(declare-const y Int)
(assert (or (! (= x 5) :named foo) (! (= x y) :named same)))(assert (= foo (= x 7)))
(check-sat)(get-assignment)(assert (distinct x y))(check-sat))",
     "sat\n((foo false) (same true))\nunsat\n"},
    {"sort abbreviations with parameters and uninterpreted sorts",
     R"((define-sort R () Real)(define-sort Id (X) X)(define-sort Snd (X Y) Y)(declare-const r R)
(declare-fun i () (Id Int))(declare-fun j () (Snd Real (Id Int)))
(define-fun f ((a (Id Real))) (Id R) (+ a 1))(assert (> (f r) i))(assert (= j (+ i 1) r))
(check-sat)(get-value (r i j))(declare-sort U 0)(declare-sort V 1)(declare-const u U)
(declare-const v U)(push 1)(define-sort W () U)(declare-const w W)(assert (or (= u v) (= w u)))
(check-sat)(get-info :reason-unknown)(assert (< r 0 r))(check-sat)(pop 1)(declare-const w W)
(declare-const k (Id Int Int))(define-sort U () Int)(define-sort S (X X) X)
(declare-const h (Id (Int))))",
     "sat\n((r 0.0) (i (- 1)) (j 0))\n(error \"s.smt2:4:65: sorts with parameters are not "
     "supported (only declare-sort of arity 0)\")\nunknown\n(:reason-unknown \"s.smt2:5:82: the "
     "constant 'u' of an uninterpreted sort is outside the linear fragment\")\nunsat\n"
     "(error \"s.smt2:6:91: unsupported sort 'W' (only Real, Int, Bool and declared sorts)\")\n"
     "(error \"s.smt2:7:18: sort 'Id' takes 1 parameter\")\n"
     "(error \"s.smt2:7:44: sort 'U' is already declared\")\n"
     "(error \"s.smt2:7:71: 'X' is a parameter twice\")\n"
     "(error \"s.smt2:8:22: sort 'Int' takes 0 parameters\")\n"},
    {"options, print-success, stack levels and assertions",
     R"((set-option :print-success true)(get-option :print-success)(set-option :print-success false)
(set-option :frobnicate 1)(get-option :frobnicate)(get-option :produce-models)
(set-option :random-seed 7)(get-option :random-seed)(set-option :produce-models 1)
(set-option :produce-proofs true)(get-info :assertion-stack-levels)(push 2)
(get-info :assertion-stack-levels)(get-info :frobnicate)(set-option :print-success true)
(declare-const x Real)(assert (> x 1))(assert (< x  3))(get-assertions)(pop 1)(get-assertions)
(reset)(get-option :random-seed)(set-option :print-success true)(exit))",
     "success\ntrue\nunsupported\nunsupported\nfalse\n7\n"
     "(error \"s.smt2:3:81: expected true or false\")\nunsupported\n"
     "(:assertion-stack-levels 0)\n(:assertion-stack-levels 2)\nunsupported\nsuccess\nsuccess\n"
     "success\nsuccess\n((> x 1)\n (< x 3))\nsuccess\n()\n0\nsuccess\nsuccess\n"},
    {"unsat assumptions are those the refutation uses, as written",
     R"((set-option :produce-unsat-assumptions true)(declare-const x Real)(declare-const p Bool)
(assert (> x 0))(check-sat-assuming (p (< x 0) (not p)))(get-unsat-assumptions)
(check-sat-assuming ((> x 5) (< x 4) (> x 1)))(get-unsat-assumptions)
(check-sat-assuming ((> x 5) p))(get-unsat-assumptions)(assert (< x 0))(check-sat)
(get-unsat-assumptions)(check-sat-assuming ((or p (> x 5)) (not p) (< x 4)))
(get-unsat-assumptions))",
     "unsat\n((< x 0))\nunsat\n((> x 5) (< x 4))\nsat\n(error \"s.smt2:4:33: no unsat "
     "assumptions: the last check-sat did not answer unsat\")\nunsat\n()\nunsat\n()\n"},
    {"div, mod, abs, to_int and is_int by constants, mixed with Real terms",
     R"((declare-const x Int)(declare-const y Real)(declare-const z Int)(push 1)
(assert (and (= (div x 3) (mod x 5)) (> x 10) (= z (div x (- 4)))))(assert (= (to_int y) (- 3)))
(assert (and (> (abs y) 2) (is_int (* 2 y)) (not (is_int y)) (> (+ x y) (to_real z))))
(check-sat)(get-value (x y z (mod x (- 4)) (div x 2 2) (abs y) (to_int y) (is_int y) (abs (- 3))
(div (- 7) 2) (mod (- 7) (- 2)) (div 7 (- 2)) (to_int (- (/ 1 2))) (is_int 2.0)))(pop 1)
(assert (and (>= x 0) (< x 3) (= (mod x 3) 2) (= (div x 3) 1)))(check-sat)(reset-assertions)
(assert (= (mod x z) 1))(check-sat)(get-info :reason-unknown)(assert (= (div z 0) 1))
(assert (> (abs x) x))(assert (> x (- 1)))(check-sat))",
     "sat\n((x 14) (y (/ (- 5) 2)) (z (- 3)) ((mod x (- 4)) 2) ((div x 2 2) 3) ((abs y) (/ 5 2)) "
     "((to_int y) (- 3)) ((is_int y) false) ((abs (- 3)) 3) ((div (- 7) 2) (- 4)) ((mod (- 7) "
     "(- 2)) 1) ((div 7 (- 2)) (- 3)) ((to_int (- (/ 1 2))) (- 1)) ((is_int 2.0) true))\n"
     "unsat\nunknown\n(:reason-unknown \"s.smt2:7:19: 'mod' by a non-constant term is outside "
     "the linear fragment\")\nunsat\n"},
    {"divisible by a numeral; other indexed heads are outside the fragment",
     R"((declare-const x Int)(declare-const y Int)(assert ((_ divisible 3) x))
(assert ((_ divisible 5) (+ x 1)))(assert (> x 0))(check-sat)
(get-value (x ((_ divisible 6) x) ((_ divisible 4) 8)))(assert (not ((_ divisible 2) (* 2 y))))
(check-sat)(reset)(declare-const x Int)(assert (= ((_ extract 1 0) x) 1))(check-sat)
(get-info :reason-unknown)(assert ((_ divisible 0) x))(assert ((as f Int) 1))(assert (< x x))
(check-sat))",
     "sat\n((x 9) (((_ divisible 6) x) false) (((_ divisible 4) 8) true))\nunsat\nunknown\n"
     "(:reason-unknown \"s.smt2:4:52: the indexed or qualified identifier is outside the linear "
     "fragment\")\nunsat\n"},
    {"div, mod and / by zero are unspecified functions of their argument",
     R"((declare-const x Int)(declare-const y Int)(declare-const r Real)(assert (= (div x 0) 3))
(assert (= x y 1))(assert (= (mod y 0) 5 (/ r 0)))(check-sat)(get-value ((div y 0) (div 1 0)))
(push 1)(assert (distinct (div y 0) (div (+ x 0) 0) 7))(check-sat)(pop 1)(assert (= r 0))
(assert (distinct (/ r 0) (/ (* 2 r) 0)))(check-sat))",
     "sat\n(((div y 0) 3) ((div 1 0) 3))\nunsat\nunsat\n"},
    {"quotient definitions are atoms: a conjunction stays one, off its lattice",
     R"((declare-const x Int)(declare-const y Int)(assert (= (div x 3) (/ x 3)))
(assert (< (+ (* (- 3) y) x) 0))(assert (is_int (/ (+ x y) 2)))(check-sat)(get-value (x y)))",
     "sat\n((x 0) (y 2))\n"},
    {"define-const, options that vorn cannot honour, parameters of unknown sorts",
     R"((declare-const x Int)(define-const c Int (+ x 1))(define-const b Bool (> c 3))(assert b)
(assert (< x 3))(check-sat)(set-option :produce-proofs true)(get-option :produce-proofs)
(declare-fun g (Int Foo) Real)(define-fun k ((a Bar)) Int 1))",
     "unsat\nunsupported\nfalse\n(error \"s.smt2:3:21: unsupported sort 'Foo' (only Real, Int, "
     "Bool and declared sorts)\")\n(error \"s.smt2:3:49: unsupported sort 'Bar' (only Real, Int, "
     "Bool and declared sorts)\")\n"},
    {"global declarations and definitions outlive their pop; :named terms do not",
     R"((set-option :global-declarations true)(declare-const x Int)(push 1)(declare-const y Int)
(define-fun b () Bool (> y (ite (> x 0) x 3)))(define-fun t () Int (+ y (div x 2)))
(define-const c Int (* 2 t))(define-fun f ((a Int)) Int (+ a y))(define-sort R () Real)
(assert b)(assert (! (> x 100) :named n))(check-sat)(pop 1)(declare-const r R)(declare-const z Int)
(assert (and b (= t 5) (= c 10) (= (f 1) 5) (> x 0) (= z 7)))(check-sat)(get-value (x y t c b z))
(assert n)(reset)(declare-const x Int)(push 1)(declare-const y Int)(pop 1)(assert (> y 0)))",
     "sat\nsat\n((x 2) (y 4) (t 5) (c 10) (b true) (z 7))\n(error \"s.smt2:6:9: undeclared "
     "symbol 'n'\")\n(error \"s.smt2:6:86: undeclared symbol 'y'\")\n"},
    {"recursive definitions are functions outside the fragment",
     R"((declare-const x Int)(define-fun-rec fact ((n Int)) Int (ite (<= n 0) 1 (* n (fact (- n 1)))))
(define-funs-rec ((ev ((n Int)) Bool) (od ((n Int)) Bool)) ((ite (= n 0) true (od (- n 1)))
(ite (= n 0) false (ev (- n 1)))))(assert (or (ev x) (= (fact 3) x)))(check-sat)
(get-info :reason-unknown)(assert (> x 1))(assert (< x 0))(check-sat)(define-fun-rec od () Int 1))",
     "unknown\n(:reason-unknown \"s.smt2:3:48: the uninterpreted function 'ev' is outside the "
     "linear fragment\")\nunsat\n(error \"s.smt2:4:86: symbol 'od' is already declared\")\n"},
    {"what other solvers' scripts are made of",
     R"((set-info :status sat)(set-option :produce-models false)(set-logic QF_LRA)
(declare-fun p () Bool)(declare-fun |x y| () Real)(assert true) ; comment (assert false)
(assert (let ((a 1)) (let ((b (+ a 1))) (let ((a (* 2 3 b))) (> (+ |x y|) a 0.0)))))
(assert (= |x y| (ite p (- 15) 15)))(assert (< (/ 1 3) (* 2 3 |x y|)))(push 0)(pop 0)
(check-sat)(get-value ((+ |x y| 1) p))(assert (=> p p false))(assert (distinct p (not p) p))
(check-sat)(echo "a ""b"" c")(reset)(set-logic QF_LIA)(declare-fun p () Int)(set-logic QF_LIA)
(check-sat)(exit)(check-sat))",
     "sat\n(((+ |x y| 1) 16.0) (p false))\nunsat\n\"a \"\"b\"\" c\"\n(error \"s.smt2:6:78: "
     "set-logic is allowed once, before any command but set-option, set-info, get-option, get-info "
     "and echo\")\nsat\n"},
    {"command names are declarable; eval prints the value alone",
     R"((declare-const minimize Int)(declare-const eval Real)(declare-const p Bool)
(assert (and p (> eval 0.5) (< eval 1) (= minimize 2)))(check-sat)(eval minimize)
(eval (+ eval minimize))(eval (not p))(get-value (minimize))(declare-const true Int))",
     "sat\n2\n(/ 11 4)\nfalse\n((minimize 2))\n(error \"s.smt2:3:76: 'true' is a predefined "
     "symbol\")\n"},
};

std::string smt_int(long v) {
    return v < 0 ? "(- " + std::to_string(-v) + ")" : std::to_string(v);
}

}  // namespace

TEST(CliConformance, ScriptsAnswerAsZ3Does) {
    vorn::test::expect_scripts_answer(kScripts);
}

// Quotients of random Int values by random nonzero constants, as the solver finds them through
// the definitions of their lifted variables, against the remainder found by search:
// 0 <= r < |k| and k divides x − r.
TEST(CliConformance, QuotientsAreEuclidean) {
    unsigned seed = 20261126;
    std::mt19937 rng(seed);
    const std::string declarations =
        "(declare-const x Int)(declare-const y Real)(declare-const q Int)"
        "(declare-const r Int)(declare-const f Int)(declare-const a Int)";
    std::string script;
    std::string expected;
    for (int round = 0; round < 40; ++round) {
        long x = std::uniform_int_distribution<long>(-60, 60)(rng);
        long k = std::uniform_int_distribution<long>(1, 9)(rng) * (rng() % 2 ? 1 : -1);
        std::string ks = smt_int(k);
        script += declarations + "(assert (= x " + smt_int(x) + "))(assert (= y (/ x " + ks +
                  ")))(assert (and (= q (div x " + ks + ")) (= r (mod x " + ks +
                  ")) (= f (to_int y)) (= a (abs x))))(check-sat)(get-value (q r f a))(reset)";
        long rem = 0;
        while ((x - rem) % k != 0)
            ++rem;
        long floor = x / k - ((x % k != 0 && (x < 0) != (k < 0)) ? 1 : 0);
        expected += "sat\n((q " + smt_int((x - rem) / k) + ") (r " + smt_int(rem) + ") (f " +
                    smt_int(floor) + ") (a " + smt_int(x < 0 ? -x : x) + "))\n";
    }
    auto run = run_tool("check --verify " + vorn::test::temp_file("q.smt2", script));
    EXPECT_EQ(run.out, expected) << "seed " << seed << "\n" << run.err;
}

TEST(CliConformance, StatisticsNameTheirCounts) {
    auto run = run_tool("check " + vorn::test::temp_file("st.smt2", R"((declare-const x Int)
(assert (or (> x 2) (< x 0)))(check-sat)(check-sat)(get-info :all-statistics))"));
    EXPECT_EQ(run.out.rfind("sat\nsat\n(:checks 2 :decisions ", 0), 0U) << run.out;
    for (const char* key : {":conflicts ", ":propagations ", ":pivots ", ":time "})
        EXPECT_NE(run.out.find(key), std::string::npos) << key << "\n" << run.out;
}
