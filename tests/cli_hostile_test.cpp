// The tool on hostile and careless input: every malformed or unsupported input is one escaped
// line FILE:LINE:COL: message on stderr, exit status 2 and nothing on stdout; resource limits are
// errors of that form; answers never depend on how the question is asked.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/cli_run.h"

using namespace std::string_literals;
using vorn::test::run_tool;
using vorn::test::temp_file;

namespace {

std::string repeat(const std::string& s, int n) {
    std::string out;
    for (int i = 0; i < n; ++i)
        out += s;
    return out;
}

std::string declarations(int n) {
    std::string out;
    for (int i = 0; i < n; ++i)
        out += "(declare-const v" + std::to_string(i) + " Real)";
    return out + "\n";
}

// 3^(2^k) at line k + 1: the numbers double in size with every level.
std::string squaring_lets(int levels) {
    std::string text = "(declare-const x Real)(assert (= x (let ((a0 3))";
    for (int k = 1; k <= levels; ++k)
        text += "\n(let ((a" + std::to_string(k) + " (* a" + std::to_string(k - 1) + " a" +
                std::to_string(k - 1) + ")))";
    return text + " a" + std::to_string(levels) + repeat(")", levels + 3);
}

std::string distinct_over(int n) {
    std::string text = declarations(n) + "(assert (distinct";
    for (int i = 0; i < n; ++i)
        text += " v" + std::to_string(i);
    return text + "))";
}

}  // namespace

TEST(CliHostile, EveryBadInputIsOnePositionedLine) {
    struct Case {
        const char* file;
        std::string bytes;
        const char* command;
        const char* expected;  // LINE:COL: message
    };
    const std::vector<Case> cases = {
        {"a.smt2", "(declare-const x Real)\n(assert (= x 1)\n", "solve",
         "2:1: unbalanced parenthesis: '(' is never closed"},
        {"a.smt2", "(declare-const x Real)\n(assert (= x y))\n", "solve",
         "2:14: undeclared symbol 'y'"},
        {"a.lin", "a = 1\nb = a * c + 2\n", "solve", "2:7: non-linear product"},
        {"a.smt2", "(declare-const x Real)\n(assert (= x (/ 3 0)))\n", "solve",
         "2:19: division by zero"},
        {"a.smt2", "(set-logic QF_LRA)\n(frobnicate x)\n", "solve",
         "2:2: unknown command 'frobnicate'"},
        {"a.smt2", "(declare-const x Real)\n(push 1)\n", "solve",
         "2:1: 'push' is not supported: give one problem per file"},
        {"a.lin", "x + y = 3\nx <= 2\n", "solve", "2:3: only equations ('=') are allowed here"},
        {"a.trace", "add s = x + y\ncheck\npivot x y\n", "replay", "3:7: 'x' has no row"},
        {"a.trace", "add s = x + y\ncheck\nuneliminate   x\n", "replay",
         "3:15: 'x' is not eliminated"},
        {"a.trace", "add s = x + y\ncheck\nadd s = y now\n", "replay", "3:5: 's' is basic already"},
        // An equation added after check without "now" would never enter; "now" before check
        // would enter twice.
        {"a.trace", "add s = x + y\ncheck\nadd t = x - y\n", "replay",
         "3:1: after check, an equation must enter at once: add 'now'"},
        {"a.trace", "add s = x now\n", "replay",
         "1:11: 'now' needs check first (check enters every equation stored before it)"},
        {"deep.smt2", repeat("(", 1000000), "solve",
         "1:10001: expression nested deeper than the limit of 10000 levels"},
        {"a.smt2",
         "(declare-const |a\xff"
         "b| Real)",
         "solve --format json", "1:18: quoted symbol is not valid UTF-8"},
        {"a.smt2", "(declare-const |a\0b| Real)"s, "solve",
         "1:18: control character '\\0' in a quoted symbol"},
        {"a.smt2", distinct_over(3000), "solve",
         "2:9: solve accepts only equalities, not 'distinct'"},
        {"a.smt2", "(declare-const x Int)\n(assert (= (* 2 x) 1))", "solve",
         "1:16: variable 'x' is Int: solve decides systems over the rationals only"},
        // Quoted input is escaped: no message can span lines or hide characters.
        {"a.smt2", "(assert (= |a\nb| 1))", "solve", "1:12: undeclared symbol 'a\\nb'"},
        {"a.smt2", "(assert (= |a\u202Eb\\c| 1))", "solve",
         "1:18: '\\\\' is not allowed in a quoted symbol"},
        {"a.smt2", "(assert (= |a\u202Eb| 1))", "solve", "1:12: undeclared symbol 'a\\u{202E}b'"},
        {"a.lin", "x = 1\r2\n", "solve", "1:6: unexpected '\\r'"},
        {"a.lin", "\xEF\xBB\xBFx = 1\n", "solve", "1:1: unexpected '\\u{FEFF}'"},
        {"a.lin", "x = \xC3(\n", "solve", "1:5: unexpected '\\xC3'"},
        {"a\nb.lin", "x =\n", "solve", "1:4: expected a term before the end of the line"},
        {"a.lin", "x = 1e5\n", "solve", "1:5: exponents are not supported: '1e5' is not a number"},
        {"a.smt2", "(declare-const x Real)(assert (= x (ite (> x 1) 1 2)))", "solve",
         "1:37: 'ite' is not supported (assertions are conjunctions of linear atoms)"},
        {"a.smt2", "(assert (= true false))", "solve", "1:12: expected a term, found a formula"},
        {"a.lin", "x = " + std::string(10001, '7'), "solve",
         "1:5: number longer than the limit of 10000 digits"},
        {"a.lin", "x = " + repeat("(", 1001) + "1" + repeat(")", 1001), "solve",
         "1:1005: parentheses nested deeper than the limit of 1000"},
        {"a.smt2", squaring_lets(20), "solve",
         "17:19: number larger than the limit of 100000 bits"},
        {"a.cnf", "p cnf 2 1\n1 3 0\n", "check", "2:3: literal 3 names a variable beyond 2"},
        {"a.txt", "x = 1\n", "solve",
         "1:1: unknown input format: expected a .lin, .smt2, .mps or .lp file, or --format-in"},
    };
    for (const Case& c : cases) {
        std::string path = temp_file(c.file, c.bytes);
        auto run = run_tool(std::string(c.command) + " '" + path + "'");
        std::string shown = path.find('\n') == std::string::npos ? path : "";
        if (shown.empty())  // the file name itself is escaped
            for (char ch : path)
                shown += ch == '\n' ? std::string("\\n") : std::string(1, ch);
        EXPECT_EQ(run.status, 2) << c.expected;
        EXPECT_EQ(run.err, shown + ":" + c.expected + "\n");
        EXPECT_EQ(run.out, "");
    }
    ::mkdir((vorn::test::temp_dir() + "dir.lin").c_str(), 0700);
    EXPECT_EQ(run_tool("solve " + vorn::test::temp_dir() + "dir.lin").err,
              vorn::test::temp_dir() + "dir.lin:1:1: cannot read: is a directory\n");
}

TEST(CliHostile, AnswersDoNotDependOnHowTheQuestionIsAsked) {
    struct Case {
        const char* file;
        const char* bytes;
        const char* options;
        const char* expected;
    };
    const std::vector<Case> cases = {
        // Kept equations that contradict each other, whatever is projected away.
        {"a.lin", "x+y=1\nx=2\nx=3\n", "--eliminate y", "unsat\n"},
        {"a.lin", "x=1\nx=2\n", "--eliminate ''", "unsat\n"},
        // Names that need bars to read back as SMT-LIB symbols.
        {"a.smt2",
         "(declare-const |1| Real)(declare-const |x y| Real)(declare-const || Real)"
         "(declare-const |par| Real)(assert (= (+ |1| |x y| || par) 2))",
         "--eliminate ''", "sat\nequations:\n  |1| + |x y| + || + |par| = 2\ndefinitions:\n"},
        {"A.LIN", "x = 2\n", "", "sat\nequations:\ndefinitions:\n  x = 2\n"},
        {"a.txt", "x = 2\n", "--format-in lin", "sat\nequations:\ndefinitions:\n  x = 2\n"},
    };
    for (const Case& c : cases) {
        auto run = run_tool("solve " + std::string(c.options) + " " + temp_file(c.file, c.bytes));
        EXPECT_EQ(run.status, 0) << c.bytes << run.err;
        EXPECT_EQ(run.out, c.expected) << c.bytes;
    }
    auto piped = run_tool("solve --format-in smt2 - < " +
                          temp_file("b.lin", "(declare-const x Real)(assert (= x 2))"));
    EXPECT_EQ(piped.out, "sat\nequations:\ndefinitions:\n  x = 2\n") << piped.err;
    auto stats = run_tool("solve --stats " + temp_file("a.lin", "x = y\n"));
    EXPECT_NE(stats.err.find("rounds), definitions "), std::string::npos) << stats.err;
    auto distinct = run_tool("tableau " + temp_file("a.smt2", distinct_over(3000)));
    EXPECT_NE(distinct.out.find("rows: 0\n"), std::string::npos) << distinct.err;
    EXPECT_NE(distinct.out.find("disequalities: 4498500\n"), std::string::npos);
}

TEST(CliHostile, ExitStatusesOfTheCommandLine) {
    std::string file = temp_file("a.lin", "x = 1\n");
    for (const char* args :
         {"", "solve", "frobnicate", "solve --bogus a.lin", "solve --format xml a.lin",
          "tableau --format-in c a.lin", "check --bb-limit 0 a.lin"})
        EXPECT_EQ(run_tool(args).status, 2) << args;
    auto unknown = run_tool("solve --eliminate 'no\nsuch' " + file);
    EXPECT_EQ(unknown.status, 2);
    EXPECT_EQ(unknown.err, "vorn: unknown variable 'no\\nsuch' in --eliminate\n");
    auto help = run_tool("--help");
    EXPECT_EQ(help.status, 0);
    for (const char* documented : {"Exit status", "10000 levels", "--format-in", "distinct"})
        EXPECT_NE(help.out.find(documented), std::string::npos) << documented;
}
