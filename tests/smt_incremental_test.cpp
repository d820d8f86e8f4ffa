// One solver kept across check-sats against a fresh solver for every check-sat: random scripts
// with nested push/pop, names declared again after a pop with another sort, Int and Real atoms,
// disequalities, Boolean connectives, ite terms, quotients and check-sat-assuming must get the same
// answers both ways, every model and proof checked exactly (--verify) on both sides and every
// certificate once more by scripts/check_certificate.py. A verified model or proof makes each
// answer right, not only equal.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>

#include "support/cli_run.h"
#include "vorn/frontend/script_interpreter.h"

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
std::vector<std::string> answers(const std::string& script, bool fresh, std::string& certificates) {
    CheckOptions options;
    options.verify = true;
    options.certificate = true;
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
        auto kept = answers(script, false, certificates),
             fresh = answers(script, true, certificates);
        ASSERT_EQ(kept.size(), fresh.size()) << "seed " << seed << "\n" << script;
        for (std::size_t k = 0; k < kept.size(); ++k) {
            ASSERT_TRUE(kept[k] == "sat" || kept[k] == "unsat" || kept[k] == "unknown")
                << "seed " << seed << ": " << kept[k];
            ++checks;
            if (kept[k] == "unknown" || fresh[k] == "unknown")
                ++unknown;
            else
                ASSERT_EQ(kept[k], fresh[k]) << "seed " << seed << ", answer " << k << "\n"
                                             << script;
        }
    }
    EXPECT_LT(unknown * 50, checks) << unknown << " of " << checks << " unknown";
    std::printf("%d checks, %d unknown\n", checks, unknown);
    // Every proof of both runs, checked once more by a program that shares no code with vorn.
    auto path = vorn::test::temp_file("incremental.certificates", certificates);
    EXPECT_EQ(std::system(("python3 " VORN_SOURCE_DIR "/scripts/check_certificate.py " + path +
                           " >/dev/null")
                              .c_str()),
              0);
}

}  // namespace
