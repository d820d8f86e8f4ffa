// Certificates checked against their inputs by the independent checker (check_certificate.py
// --input) where the tool lifts terms to variables of its own (div, mod, to_int, is_int,
// divisible, abs, the same ite twice): every certificate checks, and a mutation of the input
// that makes it satisfiable makes the checker reject the original certificate. The optima of
// script objectives check, and spoiled ones (a wrong optimum, a missing step) do not.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "support/certificate_check.h"
#include "support/cli_run.h"
#include "support/pigeonhole.h"

using vorn::test::certificate_checks;
using vorn::test::pigeonhole;
using vorn::test::run_tool;

namespace {

// The tool's unsat certificate for `text` (written to a file named `file`) checks against it, and
// no longer once `from` is replaced by `to`, which the tool then answers sat.
void expect_certified_and_mutation_caught(const char* name, const std::string& text,
                                          const char* file, const std::string& header,
                                          const char* from, const char* to) {
    auto input = vorn::test::temp_file(file, text);
    auto run = run_tool("check --verify --certificate " + input);
    ASSERT_EQ(run.out.rfind(header, 0), 0u) << name << "\n" << run.out << run.err;
    EXPECT_TRUE(certificate_checks(run.out, input)) << name << "\n" << run.out;
    std::string mutated = text;
    std::size_t at = mutated.find(from);
    ASSERT_NE(at, std::string::npos) << name;
    mutated.replace(at, std::string(from).size(), to);
    auto mutated_input = vorn::test::temp_file(std::string("mutated_") + file, mutated);
    EXPECT_EQ(run_tool("check " + mutated_input).out, "sat\n") << name;
    EXPECT_FALSE(certificate_checks(run.out, mutated_input)) << name << "\n" << run.out;
}

struct LiftedCase {
    const char* name;
    const char* commands;  // over Int x y, Real r, Bool b; one check-sat, unsat
    const char* from;      // a mutation that makes the problem sat
    const char* to;
};

const LiftedCase kLifted[] = {
    {"div by a negative constant", "(assert (= (div x (- 3)) 4))(assert (> x (- 10)))",
     "(> x (- 10))", "(> x (- 11))"},
    {"mod of a sum twice", "(assert (= (mod (+ x 1) 5) 3))(assert (= (mod (+ x 1) 5) 4))", "5) 4)",
     "5) 3)"},
    {"is_int of a real", "(assert (is_int (+ r (/ 1 2))))(assert (> r 0))(assert (< r (/ 1 2)))",
     "(< r (/ 1 2))", "(< r 1)"},
    {"divisible", "(assert ((_ divisible 4) (+ (* 2 x) 1)))", "(* 2 x) 1)", "(* 2 x) 2)"},
    {"to_int under a disjunction", "(assert (= (to_int r) 2))(assert (or (< r 1.5) (>= r 3)))",
     "1.5", "2.5"},
    {"abs under a disjunction",
     "(assert (or b (> (abs x) 4)))(assert (< (abs x) 2))(assert (not b))", "(< (abs x) 2)",
     "(< (abs x) 6)"},
    {"quotients of ites and ites of quotients",
     "(assert (> (div (ite (> y 0) x (+ x 5)) 2) (ite (> y 0) (div x 2) 1)))"
     "(assert (< x 3))(assert (> x (- 3)))(assert (> y 0))",
     "(> y 0))", "(< y 0))"},
    {"abs in assumptions", "(push 1)(check-sat-assuming ((> (abs x) 3) (< (abs x) 2)))",
     "(< (abs x) 2)", "(< (abs x) 5)"},
    {"the same ite twice", "(assert (> (ite b x y) 2))(assert (< (ite b x y) 1))",
     "(< (ite b x y) 1)", "(< (ite b x y) 4)"},
    {"the same ite twice in one atom",
     "(assert (or b (< (- (ite (> y 0) x y) (ite (> y 0) x y)) 0)))(assert (not b))",
     "(ite (> y 0) x y)) 0)", "(ite (> y 0) x y)) 1)"},
    {"a nested quotient and mod",
     "(assert (= (to_int (/ x 2)) 3))(assert (= (mod x 2) 1))(assert (< (abs (- x 5)) 1))",
     "(/ x 2)) 3)", "(/ x 2)) 2)"},
    {"nested quotients of boxed variables bounded at level 0",
     "(assert (<= (- 60) x 60))(assert (<= (- 60) y 60))(assert (or b (> (div (mod x 9) (- 2)) "
     "(div y 7))))(assert (or (not b) (> (* 2 (div y 7)) 17)))(assert (> (div y 7) (- 1)))",
     "7) (- 1)", "7) (- 2)"},
    {"the same quotient twice, cancelled under another",
     "(assert (or (> (mod (+ (div x 4) (* (- 1) (div x 4))) 2) x) (< x 0)))(assert (>= x 0))",
     "(>= x 0)", "(>= x (- 1))"},
};

}  // namespace

TEST(CliCertificateInput, LiftedTermsCheckAndMutationsThatChangeTheAnswerAreCaught) {
    for (const LiftedCase& c : kLifted) {
        std::string script = std::string(
                                 "(set-logic ALL)(declare-const x Int)(declare-const y Int)"
                                 "(declare-const r Real)(declare-const b Bool)") +
                             c.commands;
        if (script.find("check-sat") == std::string::npos) script += "(check-sat)";
        expect_certified_and_mutation_caught(c.name, script, "certificate_input.smt2",
                                             "unsat\n(certificate", c.from, c.to);
    }
}

TEST(CliCertificateInput, ItesTheToolLiftsAndTheInputFoldsCheckAndMutationsAreCaught) {
    // A condition that folds only once its atoms are canonical: the tool defines the ite's
    // variable as its branch, which another atom meets beside an ite that folds as it is read.
    const char* cases[][3] = {
        // file in the data directory, mutation from, to
        {"lifted_ite_constant_condition.smt2", "(< x 1)", "(< x 5)"},
        {"lifted_ite_defined_as_term.smt2", "(* 3 x)) 1)", "(* 3 x)) 9)"},
    };
    for (const auto& [file, from, to] : cases) {
        std::ifstream in(std::string(VORN_DATA_DIR "/smt/") + file);
        std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        expect_certified_and_mutation_caught(file, text, "lifted_ite.smt2",
                                             "unsat\n(certificate\nformat clauses\n", from, to);
    }
}

TEST(CliCertificateInput, DimacsRefutationsCheckAgainstTheirFile) {
    struct CnfCase {
        const char* name;
        std::string cnf;   // unsat
        const char* from;  // a clause whose removal or change makes it sat
        const char* to;
    } cases[] = {
        {"3 pigeons, 2 holes", pigeonhole(3, 2, true), "-1 -3 0", "-1 3 0"},
        {"4 pigeons, 3 holes", pigeonhole(4, 3, true), "\n1 2 3 0", "\n1 2 3 -1 0"},
        {"5 pigeons, 4 holes", pigeonhole(5, 4, true), "-1 -5 0", "-1 5 0"},
        {"units and a binary chain", "p cnf 3 4\n1 0\n-1 2 0\n-2 3 0\n-3 0\n", "-3 0", "3 0"},
        {"an empty clause", "p cnf 2 2\n1 2 0\n0\n", "\n0\n", "\n1 0\n"},
        {"a repeated literal", "p cnf 2 3\n1 1 2 0\n-1 0\n-2 -2 0\n", "-2 -2 0", "-1 -2 0"},
    };
    for (const CnfCase& c : cases)
        expect_certified_and_mutation_caught(c.name, c.cnf, "refutation.cnf",
                                             "unsat\n(certificate\nformat clauses\n", c.from, c.to);
}

TEST(CliCertificateInput, OptimaOfObjectivesCheckAndSpoiledOnesAreRejected) {
    struct OptimumCase {
        const char* commands;  // over Int x y, Real r s, Bool b; objectives, check-sat, sat
        const char* from;      // a spoil of the output: `from` replaced by `to`, or, when `to`
        const char* to;        // is null, the block holding `from` dropped
    } cases[] = {
        {"(assert (or (and b (>= x 3)) (and (not b) (>= y 5))))(assert (<= (+ x y) 20))"
         "(assert (>= x 0))(assert (>= y 0))(minimize (+ x y))(maximize x)",
         "optimum 0 min 3", "optimum 0 min 2"},
        {"(assert (<= (+ x y) 7))(assert (>= x y))(maximize y)(minimize x)", "optimum 0", nullptr},
        {"(assert (<= (+ r s) 7))(assert (>= r 2))(maximize s)(minimize (- r))", "optimum 1",
         nullptr},
        {"(assert (<= (+ (* 2 x) (* 3 y)) 13))(assert (>= y 0))(assert (>= x 0))(maximize (+ x y))",
         "max 6", "max 7"},
        {"(assert (< r 5))(assert (>= s 0))(maximize r)", "max 5 epsilon", "max 5"},
        {"(assert (or (< r 3) (> r 7)))(assert (< r 9))(maximize r)", "max 9 epsilon",
         "max 8 epsilon"},
        {"(assert (or b (> x 3)))(assert (<= x 5))(maximize (+ (ite b 10 0) (ite (> x 4) x 0)))",
         "max 15", "max 16"},
        {"(assert (<= (+ (ite b 3 (- 2)) y) 5))(maximize (ite b 3 (- 2)))(maximize y)",
         "optimum 0 max 3", "optimum 0 max 4"},
        {"(assert (=> b (> r 2)))(assert (or b (>= s 3)))(assert (<= r 10))(assert (>= s (- r)))"
         "(minimize (+ r s))(check-sat-assuming (b))",
         "value true b", "value false b"},
        // At z = 30, x + y = -397/3 is unbounded: branching on x or y alone never ended.
        {"(declare-const z Int)(assert (<= (- 30) z 30))"
         "(assert (<= 7 (+ (* (- 3) x) (* (- 3) y) (* (- 13) z)) 8))(maximize z)",
         "max 29", "max 30"},
        // A quotient's dividend printed from the optimizer's copy of the problem.
        {"(assert (<= 0 x 5))(maximize (mod x 3))(minimize (div x 2))", "optimum 1 min 1",
         "optimum 1 min 0"},
        {"(assert (<= 0 x 9))(assert-soft (> x 3) :weight 2 :id h)(maximize x)"
         "(assert-soft (< x 5) :id h :weight 1.5)(assert-soft (and b (< x 1)))",
         "optimum 1 max 4", "optimum 1 max 5"},
        // A row of 17 soft assertions, long enough to propagate from its kept room (z3's
        // optimizer answers 12; its decision procedure finds 9 and refutes 8).
        {"(declare-const p0 Bool)(declare-const p1 Bool)(declare-const p2 Bool)"
         "(declare-const p3 Bool)(declare-const p4 Bool)(declare-const p5 Bool)"
         "(declare-const p6 Bool)(declare-const p7 Bool)(declare-const p8 Bool)"
         "(assert (or p0 p1 p2))(assert (or p3 p4 p5))(assert (or p6 p7 p8))"
         "(assert (or (not p1) (not p4) (not p7)))(assert-soft (not p0) :weight 2)"
         "(assert-soft (not p1) :weight 3)(assert-soft (not p2) :weight 4)"
         "(assert-soft (not p3) :weight 2)(assert-soft (not p4) :weight 3)"
         "(assert-soft (not p5) :weight 4)(assert-soft (not p6) :weight 2)"
         "(assert-soft (not p7) :weight 3)(assert-soft (not p8) :weight 4)"
         "(assert-soft (or p0 p1))(assert-soft (or p1 p5))(assert-soft (or p2 p0))"
         "(assert-soft (or p3 p4))(assert-soft (or p4 p8))(assert-soft (or p5 p3))"
         "(assert-soft (or p6 p7))(assert-soft (or p7 p2))",
         "optimum 0 min 9", "optimum 0 min 10"},
    };
    for (const OptimumCase& c : cases) {
        std::string script = std::string(
                                 "(declare-const x Int)(declare-const y Int)(declare-const r "
                                 "Real)(declare-const s Real)(declare-const b Bool)") +
                             c.commands;
        if (script.find("check-sat") == std::string::npos) script += "(check-sat)";
        auto input = vorn::test::temp_file("optimum.smt2", script);
        auto run = run_tool("check --verify --certificate " + input);
        ASSERT_EQ(run.out.rfind("sat\n(certificate\nformat optimum\n", 0), 0u)
            << script << "\n"
            << run.out << run.err;
        EXPECT_TRUE(certificate_checks(run.out, input)) << script << "\n" << run.out;
        std::string spoiled = run.out;
        std::size_t at = spoiled.find(c.from);
        ASSERT_NE(at, std::string::npos) << script;
        if (c.to != nullptr) {
            spoiled.replace(at, std::string(c.from).size(), c.to);
        } else {
            std::size_t begin = spoiled.rfind("(certificate", at);
            spoiled.erase(begin, spoiled.find("\n)\n", at) + 3 - begin);
        }
        EXPECT_FALSE(certificate_checks(spoiled, input)) << script << "\n" << spoiled;
    }
}
