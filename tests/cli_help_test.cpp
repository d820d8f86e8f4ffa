// What `vorn --help` states as fact about a command, run against that command: each row names a
// phrase of the help and a run whose output shows it holds.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

#include "support/cli_run.h"

using vorn::test::run_tool;
using vorn::test::temp_file;

namespace {

struct Claim {
    const char* phrase;  // in the help, verbatim
    const char* file;    // written to the temporary directory; empty: none
    const char* text;
    const char* args;  // before the file
    const char* expected;
};

const Claim kClaims[] = {
    {"any Boolean combination of linear atoms over Real and Int variables", "bool.smt2",
     "(declare-const x Real)(declare-const n Int)(declare-const b Bool)"
     "(assert (or (and b (< x 0)) (=> (not b) (> (+ x n) (/ 1 2)))))(assert (xor b (= n 2)))"
     "(assert (ite b (> x 1) (< x 1)))(check-sat)",
     "check --verify", "sat\n"},
    {"incrementally with push, pop and check-sat-assuming", "inc.smt2",
     "(declare-const x Int)(declare-const p Bool)(assert (=> p (> x 3)))(push 1)"
     "(assert (< x 2))(check-sat-assuming (p))(pop 1)(check-sat-assuming (p))",
     "check --verify", "unsat\nsat\n"},
    {"with models, unsat cores", "core.smt2",
     "(set-option :produce-unsat-cores true)(declare-const x Real)"
     "(assert (! (> x 1) :named a))(assert (! (< x 5) :named b))(assert (! (< x 0) :named c))"
     "(check-sat)(get-unsat-core)",
     "check", "unsat\n(\na\nc\n)\n"},
    {"(assert-soft f :weight w :id g)) over Boolean structure, Int and Real", "max.smt2",
     "(declare-const x Real)(declare-const n Int)(assert (<= (* 3 x) 2))(assert-soft (> n 3))"
     "(assert (or (<= (* 3 n) 7) (< n 0)))(maximize (+ x n))(check-sat)(get-objectives)",
     "check", "sat\n(objectives\n ( 1)\n ((+ x n) (/ 8.0 3.0))\n)\n"},
    {"or when an assertion lies outside linear arithmetic", "nonlinear.smt2",
     "(declare-const x Real)(assert (> (* x x) 1))(check-sat)", "check", "unknown\n"},
    {"sends a DIMACS .cnf file to the SAT engine", "two.cnf", "p cnf 2 2\n1 2 0\n-1 0\n",
     "check --model --verify", "sat\nv -1 2 0\n"},
    {"optimize finds the exact optimum of the objective of an LP file", "min.lp",
     "minimize\n obj: x + y\nsubject to\n c: 3 x + y >= 1\n d: x + 3 y >= 1\nend\n",
     "optimize --verify", "optimal\nobjective 1/2\nobjective ≈ 0.5\n"},
    {"an Int variable is an error at its declaration", "int.smt2",
     "(declare-const n Int)(assert (= n 1))", "solve", ""},
};

}  // namespace

TEST(CliHelp, StatedFactsHoldForTheirCommands) {
    const std::string help = run_tool("--help").out;
    for (const Claim& c : kClaims) {
        SCOPED_TRACE(c.phrase);
        EXPECT_NE(help.find(c.phrase), std::string::npos);
        auto run = run_tool(std::string(c.args) + " " + temp_file(c.file, c.text));
        EXPECT_EQ(run.out, c.expected) << run.err;
    }
}

// Every console example of the README that shows its output prints exactly that, run from the
// checkout's root as a reader would.
TEST(CliHelp, ReadmeExamplesPrintWhatTheyShow) {
    std::ifstream readme(VORN_SOURCE_DIR "/README.md");
    std::string line, command, shown;
    bool console = false;
    int checked = 0;
    auto run_example = [&] {
        if (command.empty() || shown.empty()) return;
        SCOPED_TRACE(command);
        auto run = vorn::test::run_command("cd " VORN_SOURCE_DIR " && " VORN_TOOL " " +
                                           command.substr(std::strlen("vorn ")));
        EXPECT_EQ(run.out, shown) << run.err;
        ++checked;
    };
    while (std::getline(readme, line)) {
        bool next = line.rfind("$ ", 0) == 0 || line.rfind("```", 0) == 0;
        if (console && next) {
            run_example();
            command.clear();
            shown.clear();
        }
        if (line.rfind("```", 0) == 0) {
            console = line == "```console";
        } else if (console && line.rfind("$ vorn ", 0) == 0) {
            command = line.substr(2, line.find("  #") - 2);
        } else if (console && !command.empty()) {
            shown += line + "\n";
        }
    }
    EXPECT_GE(checked, 8);
}
