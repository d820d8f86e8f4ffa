// The command-line tool: exact output on the bundled examples, unsat detection, projections
// checked against the input with exact arithmetic, and one malformed input per kind of mistake.

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <array>
#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

#include "support/row_space.h"
#include "vorn/lin_parser.h"
#include "vorn/replay.h"
#include "vorn/smt_parser.h"
#include "vorn/solve.h"

using namespace vorn::cli;
using vorn::QNumber;

namespace {

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun run_tool(const std::string& args) {
    std::string err_file = ::testing::TempDir() + "vorn_stderr.txt";
    std::string cmd = std::string(VORN_TOOL) + " " + args + " 2>" + err_file;
    ToolRun run{};
    FILE* pipe = popen(cmd.c_str(), "r");
    std::array<char, 4096> buf{};
    std::size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0)
        run.out.append(buf.data(), n);
    int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream err(err_file);
    std::stringstream ss;
    ss << err.rdbuf();
    run.err = ss.str();
    return run;
}

std::string example(const std::string& name) {
    return std::string(VORN_SOURCE_DIR) + "/examples/" + name;
}
std::string bad(const std::string& name) {
    return std::string(VORN_SOURCE_DIR) + "/tests/cli_inputs/" + name;
}

vorn::test::Form form(const LinearExpr::Entries& entries) {
    vorn::test::Form f;
    for (const auto& e : entries) {
        mpq_class c;
        e.coeff.get_mpq(c.get_mpq_t());
        f[e.var] += c;
    }
    return f;
}

}  // namespace

TEST(CliSolve, BalanceExampleExactOutput) {
    ToolRun run = run_tool("solve " + example("balance.lin"));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(
        run.out,
        "sat\nequations:\ndefinitions:\n  mix = 120\n  a = 60\n  b = 30\n  r = 30\n  p = 90\n");
}

TEST(CliSolve, FlowExampleProjectsOntoKeptVariables) {
    ToolRun run = run_tool("solve " + example("flow.smt2") + " --eliminate f_ab,f_bt");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              "sat\nequations:\n  f_sa + f_sb = 10\n  f_sa - 4/3*f_at = 0\n"
              "  f_sa + 4*f_sb + 4*f_at = 40\ndefinitions:\n  f_ab = 1/4*f_sa\n"
              "  f_bt = 1/4*f_sa + f_sb\n");
    ToolRun json = run_tool("solve " + example("flow.smt2") + " --format json");
    EXPECT_NE(json.out.find("\"status\": \"sat\""), std::string::npos);
    EXPECT_NE(json.out.find("\"f_bt\": \"-4/3\""), std::string::npos);
}

TEST(CliSolve, ContradictionIsUnsat) {
    Problem p = parse_lin("x + y = 1\n2x = 4 - 2y + 1\n");
    EXPECT_FALSE(solve(p, {}).sat);
    Problem q = parse_smt2("(declare-const x Real)(assert (and (= x 1) (= x 1)))");
    EXPECT_TRUE(solve(q, {}).sat);
    std::string file = ::testing::TempDir() + "contradiction.lin";
    std::ofstream(file) << "a = b + 1\nb = a\n";
    ToolRun run = run_tool("solve - < " + file);
    EXPECT_EQ(run.out, "unsat\n");
}

// Substituting the definitions into every input equation must leave a form implied by the
// projected equations, and every projected equation must be implied by the input.
TEST(CliSolve, RandomProjectionsAreImpliedByTheInput) {
    std::mt19937 rng(17);
    for (int trial = 0; trial < 60; ++trial) {
        std::string text;
        int vars = 4 + trial % 5;
        int eqs = 1 + static_cast<int>(rng() % vars);
        for (int k = 0; k < eqs; ++k) {
            for (int i = 0; i < 3; ++i)
                text += (i ? " + " : "") + std::to_string(static_cast<int>(rng() % 7) - 3) + "/" +
                        std::to_string(1 + rng() % 3) + "*v" + std::to_string(rng() % vars);
            text += " = " + std::to_string(rng() % 5) + "\n";
        }
        Problem problem = parse_lin(text);
        SolveOptions options;
        std::vector<std::string> chosen;
        for (int v = 1; v <= problem.symbols.size(); ++v)
            if (rng() % 2) chosen.push_back(problem.symbols.name(v));
        options.eliminate = chosen;
        SolveResult result = solve(problem, options);
        vorn::test::RowSpace input, projected;
        for (const Atom& a : problem.atoms)
            input.add(form(a.expr.entries()));
        if (!result.sat) {
            EXPECT_TRUE(input.contains({{0, 1}})) << text;
            continue;
        }
        for (const auto& eq : result.equations) {
            vorn::test::Form f = form(eq.terms);
            if (eq.basic != 0) f[eq.basic] -= 1;
            EXPECT_TRUE(input.contains(f)) << text;
            projected.add(f);
        }
        std::map<int, vorn::test::Form> defs;
        for (const auto& d : result.definitions)
            defs[d.var] = form(d.terms);
        for (const Atom& a : problem.atoms) {
            vorn::test::Form f, orig = form(a.expr.entries());
            for (const auto& [v, c] : orig) {
                if (!defs.count(v)) {
                    f[v] += c;
                    continue;
                }
                for (const auto& [w, d] : defs[v])
                    f[w] += c * d;
            }
            for (auto it = f.begin(); it != f.end();)
                it = it->second == 0 ? f.erase(it) : std::next(it);
            for (const auto& [v, c] : f)
                EXPECT_FALSE(defs.count(v)) << "definition not resolved";
            EXPECT_TRUE(projected.contains(f)) << text;
        }
    }
}

TEST(CliSolve, RejectsInequalities) {
    ToolRun run = run_tool("solve " + bad("inequality.lin"));
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.err, bad("inequality.lin") + ":2:3: only equations ('=') are allowed here\n");
    ToolRun smt = run_tool("solve " + example("schedule.smt2"));
    EXPECT_EQ(smt.status, 2);
    EXPECT_NE(smt.err.find("schedule.smt2:8:14: solve accepts only equalities, not '>='"),
              std::string::npos)
        << smt.err;
}

TEST(CliErrors, OneLinePositionedErrorPerKindOfMistake) {
    struct Case {
        std::string args, where, message;
    };
    std::vector<Case> cases = {
        {"solve " + bad("unbalanced.smt2"), "2:1", "unbalanced parenthesis: '(' is never closed"},
        {"solve " + bad("undeclared.smt2"), "2:14", "undeclared symbol 'y'"},
        {"solve " + bad("nonlinear.lin"), "2:7", "non-linear product"},
        {"solve " + bad("divzero.smt2"), "2:19", "division by zero"},
        {"solve " + bad("unknown_command.smt2"), "2:2", "unknown command 'frobnicate'"},
        {"solve " + bad("push.smt2"), "2:1", "'push' is not supported: give one problem per file"},
        {"replay " + bad("pivot_no_row.trace"), "3:7", "'x' has no row"},
        {"replay " + bad("uneliminate.trace"), "3:15", "'x' is not eliminated"},
        {"replay " + bad("add_basic.trace"), "3:5", "'s' is basic already"},
        {"solve " + bad("missing.lin"), "1:1", "cannot open file: No such file or directory"},
    };
    for (const Case& c : cases) {
        ToolRun run = run_tool(c.args);
        std::string file = c.args.substr(c.args.find(' ') + 1);
        EXPECT_EQ(run.status, 2) << c.args;
        EXPECT_EQ(run.err, file + ":" + c.where + ": " + c.message + "\n") << c.args;
        EXPECT_EQ(run.out, "") << c.args;
    }
}

TEST(CliTableau, SharesSlacksAcrossScaledTerms) {
    ToolRun run = run_tool("tableau " + example("schedule.smt2") + " --dump");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out.substr(0, run.out.find("\nNAMES:")),
              "ROWS:\ns: 5 <--> x5 = x1 - x2\ns: 6 <--> x6 = x2 - x3\ns: 7 <--> x7 = x3 - x4\n"
              "s: 8 <--> x8 = x1 - x3\n\nCOLS:\n");
    ToolRun stats = run_tool("tableau " + example("schedule.smt2"));
    EXPECT_NE(stats.out.find("rows: 4\n"), std::string::npos);
    EXPECT_NE(stats.out.find("bounds: 3\n"), std::string::npos);
}

TEST(CliReplay, RunsTheExampleTrace) {
    ToolRun run = run_tool("replay " + example("pivots.trace"));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("s: 2 <--> x2 = x1 - 2*x3\n"), std::string::npos);
    EXPECT_NE(run.out.find("rows: 3\ncolumns: 3\neliminated: 0\nequations: 3\n"),
              std::string::npos);
    EXPECT_THROW(replay("add s = x\nadd t = s + 1\n"), InputError);  // mentions a waiting basic
}

TEST(CliTool, HelpAndVersion) {
    EXPECT_EQ(run_tool("--version").out.rfind("vorn ", 0), 0u);
    ToolRun help = run_tool("solve --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--eliminate"), std::string::npos);
}
