// The command-line tool: exact output on the bundled examples, answers checked against a row-space
// model with exact arithmetic, and the readers' grammar and sharing.

#include <gtest/gtest.h>

#include <random>

#include "cli/solve.h"
#include "support/cli_run.h"
#include "support/row_space.h"
#include "vorn/frontend/problem_reader.h"
#include "vorn/io/lin_reader.h"
#include "vorn/io/parse_error.h"

using namespace vorn::cli;
using namespace vorn::smt;
using namespace vorn::io;
using vorn::QNumber;
using vorn::test::run_tool;

namespace {

vorn::test::Form form(std::span<const LinearExpr::Entry> entries) {
    vorn::test::Form f;
    for (const auto& e : entries)
        f[e.var] += vorn::test::to_mpq(e.coeff);
    return f;
}

std::string example(const std::string& name) {
    return std::string(VORN_SOURCE_DIR) + "/examples/" + name;
}

// Equations over v0..v(vars-1) with coefficients in -2..2 and right sides in 0..3, some of them
// repeated with another right side, so that about half the systems have no solution.
std::string random_system(std::mt19937& rng, int vars) {
    std::string text, last;
    int eqs = 1 + static_cast<int>(rng() % (vars + 1));
    for (int k = 0; k < eqs; ++k) {
        bool repeated = k > 0 && rng() % 4 == 0;
        std::string lhs = repeated ? last : "";
        for (int i = 0; i < 3 && !repeated; ++i)
            lhs += (i ? " + " : "") + std::to_string(static_cast<int>(rng() % 5) - 2) + "*v" +
                   std::to_string(rng() % vars);
        text += lhs + " = " + std::to_string(rng() % 4) + "\n";
        last = lhs;
    }
    return text;
}

}  // namespace

// The flow example as JSON; the README shows its text form, and CliHelp runs that.
TEST(CliSolve, FlowExampleAsJson) {
    auto json = run_tool("solve " + example("flow.smt2") + " --format json");
    EXPECT_NE(json.out.find("\"status\": \"sat\""), std::string::npos);
    EXPECT_NE(json.out.find("{\"var\":\"f_sa\",\"terms\":{\"f_bt\":\"-4/3\"},\"constant\":\"40/3\","
                            "\"text\":\"f_sa = -4/3*f_bt + 40/3\"}"),
              std::string::npos)
        << json.out;
}

// Every projection decides the same question, and its answer is the model's: unsat exactly when
// the constant 1 is a combination of the input's equations. What it keeps is implied by the input.
TEST(CliSolve, AnswerDoesNotDependOnTheProjection) {
    std::mt19937 rng(2024);
    for (int trial = 0; trial < 300; ++trial) {
        std::string text = random_system(rng, 2 + trial % 5);
        Problem problem = read_lin(text);
        vorn::test::RowSpace input;
        for (const Atom& a : problem.atoms)
            input.add(form(problem.term(a.first_term)));
        bool expected = !input.contains({{0, 1}});
        for (int projection = 0; projection < 4; ++projection) {
            SolveOptions options;
            options.eliminate.emplace();
            for (int v = 1; v <= problem.variables.size(); ++v)
                if (rng() % 2) options.eliminate->emplace_back(problem.variables.name(v));
            Problem copy = read_lin(text);  // solve consumes the atoms
            SolveResult result = solve(copy, options);
            ASSERT_EQ(result.sat, expected) << "trial " << trial << "\n" << text;
            for (const auto& eq : result.equations)
                ASSERT_TRUE(input.contains(form(eq))) << "not implied: trial " << trial;
        }
        ASSERT_EQ(solve(problem, {}).sat, expected) << text;
    }
}

TEST(CliLin, OneGrammar) {
    auto entries = [](const std::string& line) { return read_lin(line).term(0).size(); };
    EXPECT_EQ(entries("2x + (y) = 4"), 3u);
    EXPECT_EQ(entries("-2(x - y)/3 = -(1/2)*x"), 2u);
    EXPECT_EQ(entries("x*0 = 0"), 0u);
    for (const char* bad : {"2 x = 4", "x y = 1", "1e5 = x", "2E-3 = x", "x = 1..2", "(x = 1",
                            "x/y = 1", "x / (1 - 1) = 1", "x = 1 = 2", "x * y = 1", "= 1"})
        EXPECT_THROW(read_lin(bad), ParseError) << bad;
}

// The readers' copy-once normalization and the library's normal form agree, repeats, zeros and
// long lists included.
TEST(CliLinearExpr, AppendNormalizedIsTheLibraryNormalForm) {
    std::mt19937 rng(5);
    for (int trial = 0; trial < 500; ++trial) {
        LinearExpr expr;
        LinearExpr::Entries raw, appended{{99, QNumber(7)}};
        for (int i = static_cast<int>(rng() % 40); i > 0; --i) {
            raw.push_back({static_cast<int>(rng() % 7), QNumber(static_cast<int>(rng() % 5) - 2)});
            expr.add_entry(raw.back().var, raw.back().coeff);
        }
        expr.append_normalized_to(appended);
        vorn::la::normalize_entries(raw);
        ASSERT_EQ(appended.size(), raw.size() + 1) << trial;
        for (std::size_t i = 0; i < raw.size(); ++i)
            ASSERT_TRUE(appended[i + 1].var == raw[i].var && appended[i + 1].coeff == raw[i].coeff)
                << trial;
    }
}

TEST(CliSmt, SharedLetsAndDefinitionsAreEvaluatedOnce) {
    std::string lets = "(declare-const x Real)(assert (= 0 ", close;
    std::string defs = "(declare-const x Real)(define-fun d0 () Real x)";
    for (int i = 1; i <= 40; ++i) {
        std::string a = "a" + std::to_string(i - 1), b = "a" + std::to_string(i);
        lets += "(let ((" + b + " (+ " + (i == 1 ? "x" : a) + " " + (i == 1 ? "x" : a) + "))) ";
        close += ")";
        defs += "(define-fun d" + std::to_string(i) + " () Real (+ d" + std::to_string(i - 1) +
                " d" + std::to_string(i - 1) + "))";
    }
    Problem p = vorn::frontend::read_smt2(lets + "a40" + close + "))");
    EXPECT_EQ(p.term(0)[0].coeff, QNumber::from_string("-1099511627776"));
    Problem q = vorn::frontend::read_smt2(defs +
                                          "(define-fun p () Bool (and (= d40 1) (= d40 1)))"
                                          "(define-fun r () Bool (and p p))(assert (and r r))");
    EXPECT_EQ(q.atoms.size(), 1u);  // one atom for both, however often they are reached
    EXPECT_EQ(q.term(q.atoms[0].first_term)[1].coeff, QNumber::from_string("1099511627776"));
}
