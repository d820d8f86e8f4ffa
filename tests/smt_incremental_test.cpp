// One solver kept across check-sats against a fresh solver for every check-sat: random scripts
// with nested push/pop, names declared again after a pop with another sort, Int and Real atoms,
// disequalities, Boolean connectives, ite terms, quotients and check-sat-assuming must get the same
// answers both ways, every model and proof checked exactly (--verify) on both sides and every
// certificate once more by scripts/check_certificate.py. A verified model or proof makes each
// answer right, not only equal. The kept solver runs twice: with certificates (it keeps what its
// proofs name) and without (a pop gives back its SAT variables, atoms and problem variables).

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>

#include "support/certificate_check.h"
#include "support/cli_run.h"
#include "vorn/frontend/script_interpreter.h"
#include "vorn/smt/engine.h"

namespace {

using vorn::frontend::CheckOptions;
using vorn::smt::CheckStats;

struct ScriptGenerator {
    explicit ScriptGenerator(unsigned seed) : rng(seed) {}

    std::mt19937 rng;
    int depth = 0;
    // Names declared per level, so that a pop forgets them as the interpreter does.
    std::vector<std::vector<std::string>> scopes{{}};
    std::vector<std::vector<std::string>> definitions{{}};  // Bool definitions, likewise
    int defined = 0;

    int pick(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }
    std::string numeral(int n) {
        return n < 0 ? "(- " + std::to_string(-n) + ")" : std::to_string(n);
    }
    std::vector<std::string> visible() const {
        std::vector<std::string> all;
        for (const auto& scope : scopes)
            all.insert(all.end(), scope.begin(), scope.end());
        return all;
    }
    // A name not visible now: names come back after the pop that forgot them.
    void declare() {
        auto all = visible();
        for (int tries = 0; tries < 8; ++tries) {
            std::string name = "v" + std::to_string(pick(6));
            if (std::find(all.begin(), all.end(), name) != all.end()) continue;
            scopes.back().push_back(name);
            out << "(declare-const " << name << (pick(2) == 0 ? " Int)\n" : " Real)\n");
            return;
        }
    }
    std::string atom() {
        auto vars = visible();
        std::string sum = "(+";
        for (int k = 0; k < 1 + pick(3); ++k) {
            std::string v = vars[pick(static_cast<int>(vars.size()))];
            if (pick(12) == 0) v = "(ite (< " + v + " 1) " + v + " 2)";
            // Quotients: fresh variables whose definitions are atoms of the level that uses them.
            if (pick(16) == 0)
                v = std::string(pick(2) == 0 ? "(div" : "(mod") + " (to_int " + v + ") 3)";
            sum += " (* " + numeral(pick(5) - 2) + " " + v + ")";
        }
        sum += " 0)";
        static const char* ops[] = {"<=", "<", ">=", ">", "=", "distinct"};
        std::string a =
            std::string("(") + ops[pick(6)] + " " + sum + " " + numeral(pick(9) - 4) + ")";
        if (pick(6) == 0) {  // Boolean structure: the Boolean engine, its levels and proofs
            static const char* connectives[] = {"or", "xor", "=>", "="};
            a = std::string("(") + connectives[pick(4)] + " " + a + " " + atom() + ")";
        }
        return pick(5) == 0 ? "(not " + a + ")" : a;
    }
    // Definitions and named assertions made on a level are forgotten by its pop, and their
    // atoms must leave the solver with it.
    void define() {
        std::string name = "d" + std::to_string(defined++);
        out << "(define-fun " << name << " () Bool " << atom() << ")\n";
        definitions.back().push_back(name);
    }
    void use_definition() {
        std::vector<std::string> all;
        for (const auto& level : definitions)
            all.insert(all.end(), level.begin(), level.end());
        if (all.empty() || pick(3) == 0) {
            out << "(assert (! " << atom() << " :named n" << defined++ << "))\n";
            return;
        }
        const std::string& d = all[static_cast<std::size_t>(pick(static_cast<int>(all.size())))];
        out << "(assert " << (pick(2) == 0 ? d : "(not " + d + ")") << ")\n";
    }
    std::string script(int commands) {
        out << "(set-option :produce-models true)\n";
        declare();
        for (int i = 0; i < commands; ++i) {
            int what = pick(10);
            if (what == 0 && depth < 4) {
                out << "(push 1)\n";
                scopes.emplace_back();
                definitions.emplace_back();
                ++depth;
            } else if (what == 1 && depth > 0) {
                int n = 1 + pick(depth);
                out << "(pop " << n << ")\n";
                scopes.resize(scopes.size() - static_cast<std::size_t>(n));
                definitions.resize(scopes.size());
                depth -= n;
                if (visible().empty()) declare();
            } else if (what == 2) {
                pick(2) == 0 ? declare() : define();
            } else if (what <= 5) {
                out << "(assert " << atom() << ")\n";
            } else if (what == 6) {
                use_definition();
            } else if (what == 7) {
                out << "(check-sat-assuming (" << atom() << "))\n";
            } else {
                out << "(check-sat)\n";
            }
        }
        return out.str();
    }
    std::ostringstream out;
};

// The answers of a run; its certificates go to `certificates` for the independent checker.
// Without certificates the kept solver gives back what a pop made (variables included);
// with them it keeps the variables its proofs name.
std::vector<std::string> answers(const std::string& script, bool fresh, std::string& certificates,
                                 bool certify = true) {
    CheckOptions options;
    options.verify = true;
    options.certificate = certify;
    options.fresh_solver_per_check = fresh;
    options.decide.bb_limit = 100000;
    std::ostringstream out;
    CheckStats stats;
    vorn::frontend::run_script(script, "gen.smt2", options, out, stats);
    std::vector<std::string> lines;
    std::istringstream in(out.str());
    bool inside = false;  // a certificate's lines
    for (std::string line; std::getline(in, line);) {
        if (line == "(certificate") inside = true;
        if (inside) certificates += line + "\n";
        if (!inside) lines.push_back(line);
        if (line == ")") inside = false;
    }
    return lines;
}

// Branch and bound may give up (unknown) on one side and not on the other, since the two start
// from different bases; every definite answer must agree, and giving up must stay rare.
TEST(Incremental, OneSolverAnswersAsAFreshSolverPerCheck) {
    const int scripts = std::getenv("VORN_QUICK") != nullptr ? 60 : 300;
    int checks = 0, unknown = 0;
    std::string certificates;
    for (int i = 0; i < scripts; ++i) {
        unsigned seed = 7000u + static_cast<unsigned>(i);
        ScriptGenerator gen(seed);
        std::string script = gen.script(60);
        std::vector<std::string> kept, fresh, reclaimed;
        try {
            kept = answers(script, false, certificates);
            fresh = answers(script, true, certificates);
            reclaimed = answers(script, false, certificates, false);
        } catch (const std::exception& e) {
            FAIL() << "seed " << seed << ": " << e.what() << "\n" << script;
        }
        SCOPED_TRACE("seed " + std::to_string(seed) + "\n" + script);
        ASSERT_EQ(kept.size(), fresh.size());
        ASSERT_EQ(reclaimed.size(), fresh.size());
        for (std::size_t k = 0; k < kept.size(); ++k, ++checks) {
            ASSERT_TRUE(kept[k] == "sat" || kept[k] == "unsat" || kept[k] == "unknown") << kept[k];
            if (fresh[k] == "unknown" || kept[k] == "unknown") ++unknown;
            if (fresh[k] == "unknown") continue;
            for (const std::string& a : {kept[k], reclaimed[k]})  // with and without certificates
                ASSERT_TRUE(a == "unknown" || a == fresh[k]) << "answer " << k << ": " << a;
        }
    }
    EXPECT_LT(unknown * 50, checks) << unknown << " of " << checks << " unknown";
    std::printf("%d checks, %d unknown\n", checks, unknown);
    // Every proof of both runs, checked once more by a program that shares no code with vorn.
    EXPECT_TRUE(vorn::test::certificate_checks(certificates));
}

// A round of push, a new variable, a random Boolean formula asserted, check, pop: after the
// first round every size the engine counts (problem variables, terms, atoms, formula nodes, SAT
// variables, clauses, arena words, theory atoms) is back where it was, round after round, and
// every answer is that of a new engine given the round alone.
struct RoundAtom {
    vorn::smt::Relation relation;
    int coeff[3];  // of x, y and the round's z
    int constant;
};
using Round = std::vector<std::vector<RoundAtom>>;  // a conjunction of clauses

vorn::lra::Result decide_round(vorn::smt::Engine& engine, const Round& round, bool int_z, int x,
                               int y) {
    using namespace vorn::smt;
    Problem& p = engine.problem();
    int z = p.variables.add("z", int_z ? Sort::Int : Sort::Real, {});
    std::vector<FormulaRef> clauses;
    for (const auto& clause : round) {
        std::vector<FormulaRef> lits;
        for (const RoundAtom& a : clause) {
            LinearExpr e = LinearExpr::constant(vorn::QNumber(-a.constant));
            int vars[3] = {x, y, z};
            for (int k = 0; k < 3; ++k)
                if (a.coeff[k] != 0) e.add_entry(vars[k], vorn::QNumber(a.coeff[k]));
            lits.push_back(engine.dag().atom({a.relation, p.add_term(e), 1, {}}));
        }
        clauses.push_back(engine.dag().node(FormulaNode::Or, lits, {}));
    }
    engine.assert_formula(engine.dag().node(FormulaNode::And, clauses, {}));
    return engine.check().result;
}

TEST(Incremental, PopBringsTheEngineBackToItsSize) {
    using namespace vorn::smt;
    const Relation relations[] = {Relation::Le, Relation::Lt, Relation::Ge,
                                  Relation::Gt, Relation::Eq, Relation::Ne};
    struct Row {
        unsigned seed;
        bool int_z;
    };
    for (Row row : {Row{11, false}, Row{12, true}, Row{13, false}, Row{14, true}}) {
        std::mt19937 rng(row.seed);
        auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
        // A level-0 base with Boolean structure, decided with every round.
        const Round base = {{{Relation::Le, {1, 1, 0}, 6}, {Relation::Gt, {1, -2, 0}, -3}},
                            {{Relation::Ge, {1, 0, 0}, -8}, {Relation::Lt, {0, 1, 0}, 2}}};
        EngineOptions options;
        options.decide.bb_limit = 200;  // the Int rounds: giving up is allowed, cheaply
        Engine engine(options);
        Problem& p = engine.problem();
        int x = p.variables.add("x", Sort::Real, {}), y = p.variables.add("y", Sort::Int, {});
        decide_round(engine, base, false, x, y);
        SizeCounters first;
        for (int r = 0; r < 40; ++r) {
            Round round(1 + static_cast<std::size_t>(pick(3)));
            for (auto& clause : round)
                for (int k = 0; k < 1 + pick(3); ++k)
                    clause.push_back(
                        {relations[pick(6)], {pick(5) - 2, pick(5) - 2, pick(5) - 2}, pick(9) - 4});
            engine.push();
            auto kept = decide_round(engine, round, row.int_z, x, y);
            engine.pop();
            Engine fresh(options);
            int fx = fresh.problem().variables.add("x", Sort::Real, {});
            int fy = fresh.problem().variables.add("y", Sort::Int, {});
            decide_round(fresh, base, false, fx, fy);
            auto alone = decide_round(fresh, round, row.int_z, fx, fy);
            if (kept != vorn::lra::Result::Unknown && alone != vorn::lra::Result::Unknown) {
                EXPECT_EQ(kept, alone) << "seed " << row.seed << ", round " << r;
            }
            if (r == 0) first = engine.size_counters();
            SizeCounters now = engine.size_counters();
            ASSERT_TRUE(now == first)
                << "seed " << row.seed << ", round " << r << ": variables " << now.variables
                << " terms " << now.terms << " atoms " << now.atoms << " nodes "
                << now.formula_nodes << " SAT variables " << now.search.variables << " clauses "
                << now.search.clauses << " words " << now.search.arena_words << " theory atoms "
                << now.search.theory_atoms << " (first round: " << first.search.variables << ", "
                << first.search.clauses << ", " << first.search.arena_words << ", "
                << first.search.theory_atoms << ")";
        }
        EXPECT_GT(first.search.variables, 0u) << "the rounds never met the Boolean search";
    }
}

}  // namespace

// A script longer than the size from which the tool maps its input and hands read text back:
// difference-logic rounds (their theory forgets the atoms of each popped level, keeping their
// level-0 facts), every seventh one unsat against a level-0 bound through a definition whose
// text lies in the released part of the file.
TEST(Incremental, LongDifferenceScriptFromAMappedFile) {
    std::string script =
        "(set-logic QF_IDL)(declare-fun x () Int)(declare-fun y () Int)\n"
        "(define-fun lim () Int 5)(assert (<= (- x y) lim))\n";
    std::string expected;
    for (int i = 0; script.size() < (std::size_t{9} << 17); ++i) {
        std::string n = std::to_string(i);
        script += "(push 1)(declare-fun z () Int)(assert (or (> (- x z) " + n +
                  ") (< (- z y) 3)))" + (i % 7 == 0 ? "(assert (> (- x y) lim))" : "") +
                  "(check-sat)(pop 1)\n";
        expected += i % 7 == 0 ? "unsat\n" : "sat\n";
    }
    auto run = vorn::test::run_tool("check " + vorn::test::temp_file("long_rounds.smt2", script));
    EXPECT_EQ(run.status, 0);
    EXPECT_TRUE(run.out == expected) << run.out.substr(0, 200);
}
