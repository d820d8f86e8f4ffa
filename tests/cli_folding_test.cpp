// vorn check on scripts whose formulas fold while they are read (atoms over constants, repeated
// and complementary operands, term ites with a constant condition or equal branches, equalities
// over ites with constant leaves and the constants they define) and whose
// bounds share literals: every answer verified, and every model and certificate checked against
// the unfolded input by the independent checker.

#include <gtest/gtest.h>

#include <string>

#include "support/certificate_check.h"
#include "support/cli_run.h"

using vorn::test::run_tool;

namespace {

struct FoldCase {
    const char* name;
    const char* assertions;  // over Real x y, Int i, Bool b c
    const char* answer;
};

const FoldCase kCases[] = {
    {"products by zero and differences of a term are 0", "(assert (< (* 0.0 x) (- y y)))", "unsat"},
    {"an atom over constants beside a free one", "(assert (or (> (* 0.0 (+ x y)) 1) (> x 2)))",
     "sat"},
    {"a reordered term shares its literal",
     "(assert (or (<= (- x y) 3) b))(assert (not b))"
     "(assert (> (+ (- y) x) 3))",
     "unsat"},
    {"a scaled term shares its literal, turned round",
     "(assert (or (>= (* (- 2) (- x y)) (- 6)) b))(assert (not b))(assert (> (- x y) 3))", "unsat"},
    {"a constant condition picks its branch",
     "(assert (or b (> (ite (< 1 0) x (+ y 1)) 3)))"
     "(assert (not b))(assert (< y 1))",
     "unsat"},
    {"equal branches are the branch",
     "(assert (or b (> (ite (> x y) y y) 5)))"
     "(assert (not b))(assert (< y 1))",
     "unsat"},
    {"a condition that folds only through its atoms",
     "(assert (or b (> (ite (and (> (- x x) 1) c) x (- y)) 3)))(assert (not b))(assert (> y 0))",
     "unsat"},
    {"xor of one formula twice is false",
     "(assert (or (xor (> x 0) (> x 0)) (xor b (not b) true)))"
     "(assert b)",
     "unsat"},
    {"complementary disjuncts are true", "(assert (or (> x 0) (<= x 0) b))(assert (not b))", "sat"},
    {"complementary conjuncts are false",
     "(assert (or (and c (> x 0) (not c)) b))"
     "(assert (not b))",
     "unsat"},
    {"distinct of equal terms is false", "(assert (or (distinct x (+ x 0) y) b))(assert (not b))",
     "unsat"},
    {"a condition constant only once its atoms are one literal",
     "(assert (= (ite (=> (< x (+ y x)) (< 0 y)) 1 (* 4 i)) (* 2 i)))", "unsat"},
    {"a definition through a condition constant only once its atoms are canonical",
     "(push 1)(assert (= x (ite (=> (< y 1) (> 1 y)) 1 y)))(assert (> (+ x y) 2))(assert (< y 0))"
     "(check-sat)(pop 1)(assert (= x (ite (and (< y x) (>= (- y x) 0)) y 1)))(assert (> x 2))",
     "unsat\nunsat"},
    {"Int atoms one literal once rounded",
     "(assert (= x (ite (or (<= (* 2 i) 3) (> i 1)) 1 y)))(assert (> (+ x y) 2))(assert (< y 0))",
     "unsat"},
    {"an ite over formulas with equal branches", "(assert (ite c (> x 1) (> x 1)))(assert (< x 0))",
     "unsat"},
    {"Int bounds with other normal forms stay apart",
     "(assert (or (<= (* 2 i) 5) b))(assert (not b))(assert (> i 2))", "unsat"},
    {"Int bounds between two integers",
     "(assert (or (<= (* 2 i) 5) b))(assert (not b))"
     "(assert (> i 1))",
     "sat"},
    {"folded formulas under push and pop",
     "(push 1)(assert (or b (> (ite (= 0 0) x y) 1)))(assert (not b))(assert (< x 0))"
     "(check-sat)(pop 1)(assert (or b (> (+ (- x) x y) 1)))(assert (not b))(assert (< y 2))",
     "unsat\nsat"},
    {"an equality over an ite's constant leaves", "(assert (= (ite b 1 (ite c 2 3)) 4))", "unsat"},
    {"a definition by equality goes with its level, and at reset-assertions",
     "(push 1)(assert (= i (ite b 1 2)))(assert (= i 3))(check-sat)(pop 1)(assert (= i 3))"
     "(check-sat)(reset-assertions)(assert (= i 5))",
     "unsat\nsat\nsat"},
    {"a definition or name made while x = 4 holds reads x, not 4, after reset-assertions",
     "(assert (= i 4))(define-fun f () Int i)(assert (! (> i 3) :named n))(reset-assertions)"
     "(assert (= i 0))(check-sat-assuming (n))(assert (= f 0))",
     "unsat\nsat"},
    {"a term that cancels to a constant defines x",
     "(assert (= x (- (* 2 y) y y)))(assert (> (+ x y) 1))(assert (< y 1))", "unsat"},
    {"a distinct apart by a constant picks its branch; an ite plus a cancelling sum defines x",
     "(push 1)(assert (= x (ite (distinct y (+ y 1)) 1 (* 2 y))))(assert (> (+ x y) 1))"
     "(assert (< y 0))(check-sat)(pop 1)(assert (= x (+ (ite c 1 2) y (- y))))(assert (> x 2))",
     "unsat\nunsat"},
    {"ites between constants are bounded by them before their conditions are decided",
     "(assert (> (+ (ite b 1 0) (ite (> x y) 2 (- 1)) (ite c i 0)) (+ 3 (ite c i 0))))", "unsat"},
    // The search stops once the asserted formulas are justified: a term ite's definition counts
    // where an atom over it does, an asserted atom's and an assumption's included.
    {"a term ite only under a disjunct already true",
     "(assert (or (> x 1) (> (ite c (* 2 i) y) 5)))(assert (> x 3))", "sat"},
    {"an asserted atom over a term ite", "(assert (> (ite c x y) 5))(assert (or b (< x 0)))",
     "sat"},
    {"assumptions and levels over term ites",
     "(assert (< x 0))(assert (or c b))(check-sat-assuming ((> (ite c x y) 2) (not b)))"
     "(push 1)(assert (> (ite c x y) 2))(assert c)(check-sat)(pop 1)"
     "(assert (> (ite b y x) 2))(assert (> y 5))",
     "unsat\nunsat\nsat"},
    {"an equality whose ite condition names x defines nothing",
     "(assert (= i (ite (= i 0) 1 2)))(assert (not (= i 1)))(assert (not (= i 2)))", "unsat"},
    // An ite that an asserted equality names is decided like the variable it names.
    {"a next state named by an asserted equality to its ite",
     "(assert (= y (ite c (+ x 1) (- x 2))))(assert (or (= x 0) (= x 1)))(assert (> y 2))",
     "unsat"},
    {"a named ite also inside a sum, and the same ite unnamed after a pop",
     "(push 1)(assert (= (* 2 y) (* 2 (ite b x (+ x 3)))))(assert (> (+ y (ite b x (+ x 3))) 7))"
     "(assert (< x 1))(check-sat)(pop 1)(assert (> (+ y (ite b x (+ x 3))) 7))(assert (< x 1))"
     "(assert (< y 0))",
     "sat\nunsat"},
};

// The sat, unsat and unknown lines of an output, one a line.
std::string answers(const std::string& out) {
    std::string found;
    for (std::size_t at = 0, end; at < out.size(); at = end + 1) {
        end = out.find('\n', at);
        if (end == std::string::npos) end = out.size();
        std::string line = out.substr(at, end - at);
        if (line == "sat" || line == "unsat" || line == "unknown")
            found += (found.empty() ? "" : "\n") + line;
    }
    return found;
}

}  // namespace

TEST(CliFolding, FoldedScriptsAnswerWithCheckedModelsAndCertificates) {
    for (const FoldCase& c : kCases) {
        std::string script =
            std::string(
                "(set-logic QF_LIRA)(declare-const x Real)(declare-const y Real)"
                "(declare-const i Int)(declare-const b Bool)(declare-const c Bool)") +
            c.assertions + "(check-sat)";
        std::string expected = c.answer;
        if (!expected.ends_with("unsat")) script += "(get-model)";
        auto input = vorn::test::temp_file("folding.smt2", script);
        auto run = run_tool("check --verify --certificate " + input);
        EXPECT_EQ(run.status, 0) << c.name << "\n" << run.err;
        EXPECT_EQ(answers(run.out), expected) << c.name << "\n" << run.out;
        EXPECT_TRUE(vorn::test::certificate_checks(run.out, input)) << c.name << "\n" << run.out;
    }
}

TEST(CliFolding, DeepLetChainsAreReadAndCheckedAtDepth) {
    // Fuzzer output nests thousands of lets; both the reader and the checker must take it.
    const int depth = 2000;
    std::string lets, term = "x";
    for (int level = 0; level < depth; ++level) {
        std::string name = "l" + std::to_string(level);
        lets += "(let ((" + name + " (+ " + term + " 1))) ";
        term = name;
    }
    auto input = vorn::test::temp_file(
        "deep.smt2", "(set-logic QF_LRA)(declare-const x Real)(assert " + lets + "(< " + term +
                         " x)" + std::string(depth, ')') + ")(check-sat)");
    auto run = run_tool("check --certificate " + input);
    EXPECT_EQ(answers(run.out), "unsat") << run.err;
    EXPECT_TRUE(vorn::test::certificate_checks(run.out, input));
    // Each binding used twice: read or evaluated as a tree, 2^80 nodes.
    lets.clear();
    for (int level = 0; level < 80; ++level)
        lets += "(let ((d" + std::to_string(level + 1) + " (ite (> x 0) (+ d" +
                std::to_string(level) + " d" + std::to_string(level) + ") x))) ";
    input = vorn::test::temp_file("shared.smt2", "(declare-const x Real)(assert (let ((d0 x)) " +
                                                     lets + "(> d80 x)" + std::string(81, ')') +
                                                     ")(check-sat)(get-model)");
    run = run_tool("check " + input);
    EXPECT_EQ(answers(run.out), "sat") << run.err;
    EXPECT_TRUE(vorn::test::certificate_checks(run.out, input));
}

TEST(CliFolding, ConjunctionsOverLiftedItesAreCertifiedWithTheirDefinitions) {
    // Refuted by integer equalities alone, before any search: a proof tree could not define
    // the ites its atoms name.
    const std::string input = VORN_DATA_DIR "/smt/lifted_ite_lattice.smt2";
    auto run = run_tool("check --verify --certificate " + input);
    EXPECT_EQ(answers(run.out), "unsat") << run.err;
    EXPECT_TRUE(vorn::test::certificate_checks(run.out, input));
}

TEST(CliFolding, AnIteWrittenTwiceIsOneVariableInEverySum) {
    // Six rows need one of five (ite b 1 0) each, five columns take one each: with each ite one
    // variable in its row and its column, the simplex refutes the sums before any decision;
    // as two, the search met a pigeonhole.
    std::string script;
    auto cell = [](int r, int c) { return "b" + std::to_string(r) + std::to_string(c); };
    for (int r = 0; r < 6; ++r)
        for (int c = 0; c < 5; ++c)
            script += "(declare-const " + cell(r, c) + " Bool)";
    for (int line = 0; line < 11; ++line) {
        script += line < 6 ? "(assert (>= (+" : "(assert (<= (+";
        for (int k = 0; k < (line < 6 ? 5 : 6); ++k)
            script += " (ite " + (line < 6 ? cell(line, k) : cell(k, line - 6)) + " 1 0)";
        script += ") 1))";
    }
    auto input = vorn::test::temp_file("rows_columns.smt2", script + "(check-sat)");
    auto run = run_tool("check --conflict-limit 1 --certificate " + input);
    EXPECT_EQ(answers(run.out), "unsat") << run.err;
    EXPECT_TRUE(vorn::test::certificate_checks(run.out, input));
}
