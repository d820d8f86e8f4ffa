// Certificates checked against their inputs by the independent checker (check_certificate.py
// --input) where the tool lifts terms to variables of its own (div, mod, to_int, is_int,
// divisible, abs, the same ite twice): every certificate checks, and a mutation of the input
// that makes it satisfiable makes the checker reject the original certificate.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/cli_run.h"

using vorn::test::run_tool;

namespace {

bool checks_against(const std::string& input, const std::string& out) {
    auto path = vorn::test::temp_file("certificate_input.out", out);
    return std::system(("python3 " VORN_SOURCE_DIR "/scripts/check_certificate.py --input " +
                        input + " " + path + " >/dev/null")
                           .c_str()) == 0;
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
    {"a nested quotient and mod",
     "(assert (= (to_int (/ x 2)) 3))(assert (= (mod x 2) 1))(assert (< (abs (- x 5)) 1))",
     "(/ x 2)) 3)", "(/ x 2)) 2)"},
};

}  // namespace

TEST(CliCertificateInput, LiftedTermsCheckAndMutationsThatChangeTheAnswerAreCaught) {
    for (const LiftedCase& c : kLifted) {
        std::string script = std::string(
                                 "(set-logic ALL)(declare-const x Int)(declare-const y Int)"
                                 "(declare-const r Real)(declare-const b Bool)") +
                             c.commands;
        if (script.find("check-sat") == std::string::npos) script += "(check-sat)";
        auto input = vorn::test::temp_file("certificate_input.smt2", script);
        auto run = run_tool("check --verify --certificate " + input);
        ASSERT_EQ(run.out.rfind("unsat\n(certificate", 0), 0u) << c.name << "\n" << run.out;
        EXPECT_TRUE(checks_against(input, run.out)) << c.name << "\n" << run.out;
        std::size_t at = script.find(c.from);
        ASSERT_NE(at, std::string::npos) << c.name;
        std::string mutated = script;
        mutated.replace(at, std::string(c.from).size(), c.to);
        auto mutated_input = vorn::test::temp_file("certificate_mutated.smt2", mutated);
        EXPECT_EQ(run_tool("check " + mutated_input).out, "sat\n") << c.name;
        EXPECT_FALSE(checks_against(mutated_input, run.out)) << c.name << "\n" << run.out;
    }
}
