// The SAT engine against brute-force enumeration: answers, models, failed assumptions, push/pop,
// a toy theory, and the recorded proof checked by reverse unit propagation.

#include <gtest/gtest.h>

#include <cstdlib>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "vorn/io/dimacs_reader.h"
#include "vorn/io/parse_error.h"
#include "vorn/sat/solver.h"

namespace vorn::sat {
namespace {

// Fewer seeds under the sanitizers (VORN_QUICK), which run the same suite several times slower.
unsigned seeds(unsigned full) {
    return std::getenv("VORN_QUICK") != nullptr ? full / 5 : full;
}

using Clause = std::vector<Lit>;
using Cnf = std::vector<Clause>;
using Assignment = std::function<bool(Lit)>;

Cnf random_cnf(std::mt19937& rng, int vars, int clauses, bool mixed_lengths) {
    Cnf cnf(clauses);
    for (Clause& c : cnf) {
        int len = mixed_lengths ? 1 + static_cast<int>(rng() % 5) : 3;
        for (int i = 0; i < len; ++i)
            c.push_back(Lit(rng() % vars, rng() % 2 == 1));
    }
    return cnf;
}

bool satisfies(const Assignment& value, const Cnf& cnf) {
    return std::all_of(cnf.begin(), cnf.end(),
                       [&](const Clause& c) { return std::any_of(c.begin(), c.end(), value); });
}

// Whether some assignment satisfies the clauses, the units and `extra`.
bool brute_force(int vars, const Cnf& cnf, const Clause& units = {},
                 const std::function<bool(unsigned)>& extra = nullptr) {
    for (unsigned bits = 0; bits < (1u << vars); ++bits) {
        Assignment value = [&](Lit l) { return ((bits >> l.var()) & 1) != l.negative(); };
        if (std::all_of(units.begin(), units.end(), value) && satisfies(value, cnf) &&
            (!extra || extra(bits)))
            return true;
    }
    return false;
}

Solver make_solver(int vars, const Cnf& cnf, Options options = {}) {
    Solver solver(options);
    for (int i = 0; i < vars; ++i)
        solver.new_var();
    for (const Clause& c : cnf)
        solver.add_clause(c);
    return solver;
}

Assignment model_of(const Solver& s) {
    return [&s](Lit l) { return s.value(l); };
}

struct CnfShape {
    int vars, clauses;
    bool mixed;
    RestartPolicy restarts;
    int chronological = 0;        // Options::chronological_distance; 1: after every longer backjump
    std::int64_t rephase = 5000;  // Options::rephase_interval; 1: at nearly every restart
};

// n+1 pigeons in n holes.
Cnf pigeonhole(int holes, int& vars) {
    vars = (holes + 1) * holes;
    auto at = [&](int p, int h) { return pos(static_cast<Var>(p * holes + h)); };
    Cnf cnf;
    for (int p = 0; p <= holes; ++p) {
        cnf.emplace_back();
        for (int h = 0; h < holes; ++h)
            cnf.back().push_back(at(p, h));
    }
    for (int h = 0; h < holes; ++h)
        for (int p = 0; p <= holes; ++p)
            for (int q = p + 1; q <= holes; ++q)
                cnf.push_back({~at(p, h), ~at(q, h)});
    return cnf;
}

TEST(SatSolver, ConflictLimitGivesUnknownThenSolvingGoesOn) {
    int vars = 0;
    Cnf cnf = pigeonhole(6, vars);
    Solver s = make_solver(vars, cnf, {.conflict_limit = 10});
    EXPECT_EQ(s.solve(), Result::Unknown);
    EXPECT_EQ(s.stats().conflicts, 10u);
    Solver unlimited = make_solver(vars, cnf);
    EXPECT_EQ(unlimited.solve(), Result::Unsat);
}

// Random clauses, pushes, pops and solves under random assumptions against brute force over the
// clauses of the open levels. A level may make variables of its own: its pop gives them back with
// every clause over them, and the solver is back to its size at the push.
TEST(SatSolver, PushPopMatchesBruteForceOfTheCurrentClauses) {
    for (unsigned seed = 0; seed < seeds(200); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        Solver s({.reduce_interval = 3});
        std::vector<Var> vars;  // the brute force's variable i is the solver's vars[i]
        for (int i = 0; i < 7; ++i)
            vars.push_back(s.new_var());
        struct Level {
            Cnf clauses;                    // over the brute force's variables
            std::size_t vars, solver_vars;  // at the push
        };
        std::vector<Level> levels(1);
        auto in_solver = [&](Clause c) {
            for (Lit& l : c)
                l = Lit(vars[l.var()], l.negative());
            return c;
        };
        for (int step = 0; step < 60; ++step) {
            unsigned op = rng() % 10;
            int n = static_cast<int>(vars.size());
            if (op < 5) {
                Clause c = random_cnf(rng, n, 1, true)[0];
                s.add_clause(in_solver(c));
                levels.back().clauses.push_back(c);
            } else if (op == 5) {
                levels.push_back({{}, vars.size(), s.num_vars()});
                s.push();  // its activation variable comes first: the level's own ones follow
                for (unsigned k = n < 11 ? rng() % 3 : 0; k > 0; --k)
                    vars.push_back(s.new_var());
            } else if (op == 6 && levels.size() > 1) {
                s.pop();
                ASSERT_EQ(s.num_vars(), levels.back().solver_vars) << "step " << step;
                vars.resize(levels.back().vars);
                levels.pop_back();
            } else {
                Cnf all;
                for (const Level& l : levels)
                    all.insert(all.end(), l.clauses.begin(), l.clauses.end());
                Clause assumptions = op >= 8 ? random_cnf(rng, n, 1, true)[0] : Clause{};
                Clause given = in_solver(assumptions);
                Result r = s.solve(given);
                ASSERT_EQ(r == Result::Sat, brute_force(n, all, assumptions)) << "step " << step;
                if (r == Result::Sat) {
                    Assignment value = [&](Lit l) { return s.value(in_solver({l})[0]); };
                    EXPECT_TRUE(satisfies(value, all) &&
                                std::all_of(assumptions.begin(), assumptions.end(), value));
                    continue;
                }
                // The failed assumptions: some of the given ones, unsat with the clauses alone.
                Clause failed;
                for (Lit f : s.failed_assumptions()) {
                    auto at = std::find(given.begin(), given.end(), f);
                    ASSERT_NE(at, given.end());
                    failed.push_back(assumptions[static_cast<std::size_t>(at - given.begin())]);
                }
                EXPECT_FALSE(brute_force(n, all, failed));
            }
        }
    }
}

// At most k of `members` are true, naively, and checking the solver's side of the protocol.
class AtMostK : public Theory {
  public:
    AtMostK(std::vector<Var> members, int k, bool propagates, bool members_true_first = false)
        : members_(std::move(members)),
          k_(k),
          propagates_(propagates),
          members_true_first_(members_true_first) {}

    void new_level() override { ++level_; }
    void backtrack(int level) override {
        ASSERT_LT(level, level_);
        while (!assigned_.empty() && assigned_.back().second > level)
            assigned_.pop_back();
        level_ = level;
    }
    void assign(Lit lit) override {
        for (const auto& a : assigned_)
            ASSERT_NE(a.first.var(), lit.var()) << "assigned twice";
        assigned_.push_back({lit, level_});
    }
    void propagate(std::vector<Lit>& implied) override {
        if (!propagates_ || true_members().size() != static_cast<std::size_t>(k_)) return;
        for (Var m : members_)
            if (!value(m).defined()) implied.push_back(neg(m));
    }
    void explain(Lit lit, std::vector<Lit>& clause) override {
        clause.assign(1, lit);
        for (Lit t : true_members())
            if (clause.size() <= static_cast<std::size_t>(k_)) clause.push_back(~t);
    }
    bool phase(Var v, bool saved) override {
        bool member = std::find(members_.begin(), members_.end(), v) != members_.end();
        return members_true_first_ ? !member : saved;
    }
    bool check(bool full, std::vector<Lit>& conflict) override {
        std::vector<Lit> t = true_members();
        for (Var m : members_)
            EXPECT_TRUE(!full || value(m).defined()) << "full check before a complete assignment";
        if (t.size() <= static_cast<std::size_t>(k_)) return true;
        conflict.clear();
        for (int i = 0; i <= k_; ++i)
            conflict.push_back(~t[i]);
        return false;
    }

  private:
    Lit value(Var v) const {
        for (const auto& a : assigned_)
            if (a.first.var() == v) return a.first;
        return Lit();
    }
    std::vector<Lit> true_members() const {
        std::vector<Lit> t;
        for (const auto& a : assigned_)
            if (!a.first.negative() &&
                std::find(members_.begin(), members_.end(), a.first.var()) != members_.end())
                t.push_back(a.first);
        return t;
    }

    std::vector<Var> members_;
    int k_;
    bool propagates_;
    bool members_true_first_;  // decisions: members true, the others false
    int level_ = 0;
    std::vector<std::pair<Lit, int>> assigned_;
};

TEST(SatSolver, ToyTheoryMatchesBruteForce) {
    for (int mode = 0; mode < 4; ++mode) {
        bool propagates = mode > 0;
        for (unsigned seed = 0; seed < seeds(300); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", mode " + std::to_string(mode));
            std::mt19937 rng(seed);
            const int vars = 10;
            Cnf cnf = random_cnf(rng, vars, 12 + static_cast<int>(rng() % 20), true);
            std::vector<Var> members;
            for (Var v = 0; v < vars; ++v)
                if (rng() % 2) members.push_back(v);
            int k = static_cast<int>(rng() % 4);
            AtMostK theory(members, k, propagates, mode == 3);
            Solver s({.reduce_interval = 4, .chronological_distance = mode == 2 ? 1 : 0});
            for (int i = 0; i < vars; ++i)
                s.new_var();
            s.set_theory(&theory);
            for (Var m : members)
                if (mode == 3 && m % 2 == 0) s.decide_first(m);
            for (const Clause& c : cnf)
                s.add_clause(c);
            auto at_most_k = [&](unsigned bits) {
                int n = 0;
                for (Var m : members)
                    n += (bits >> m) & 1;
                return n <= k;
            };
            Clause assumptions = seed % 3 == 0 ? random_cnf(rng, vars, 1, true)[0] : Clause{};
            Result r = s.solve(assumptions);
            ASSERT_EQ(r == Result::Sat, brute_force(vars, cnf, assumptions, at_most_k));
            if (r != Result::Sat) continue;
            EXPECT_TRUE(satisfies(model_of(s), cnf));
            EXPECT_LE(std::count_if(members.begin(), members.end(),
                                    [&](Var m) { return s.value(pos(m)); }),
                      k);
        }
    }
}

// Whether unit propagation over `clauses` from the negation of `clause` reaches a conflict.
bool rup(const Cnf& clauses, const Clause& clause, int vars) {
    std::vector<int> value(vars, 0);  // +1 true, -1 false
    auto val = [&](Lit l) { return l.negative() ? -value[l.var()] : value[l.var()]; };
    for (Lit l : clause) {
        if (val(l) > 0) return true;  // tautology
        value[l.var()] = l.negative() ? 1 : -1;
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (const Clause& c : clauses) {
            int open = 0;
            Lit unit;
            bool sat = false;
            for (Lit l : c) {
                if (val(l) > 0) sat = true;
                if (val(l) == 0 && !(open == 1 && l == unit))
                    ++open, unit = l;  // duplicates count once
            }
            if (sat) continue;
            if (open == 0) return true;
            if (open == 1) {
                value[unit.var()] = unit.negative() ? -1 : 1;
                changed = true;
            }
        }
    }
    return false;
}

// Every learned clause of the recorded proof follows by unit propagation from the clauses before
// it, and an unsat answer ends the proof in the empty clause.
void expect_proof_follows(const Solver& s, Result r, int vars) {
    Cnf known;
    for (const ProofStep& step : s.proof()) {
        ASSERT_NE(step.kind, ProofStep::Kind::Lemma);
        if (step.kind == ProofStep::Kind::Learned) {
            ASSERT_TRUE(rup(known, step.clause, vars)) << "step " << known.size();
        }
        known.push_back(step.clause);
    }
    EXPECT_EQ(r == Result::Unsat, !s.proof().empty() && s.proof().back().clause.empty());
}

// Random CNF of several shapes, every other one with its proof recorded (which keeps reasons
// that the solver otherwise drops), and a pigeonhole, whose proof outlives clause reductions.
TEST(SatSolver, AnswersModelsAndProofsMatchBruteForce) {
    const CnfShape shapes[] = {
        {5, 21, false, RestartPolicy::Luby},         {10, 43, false, RestartPolicy::Glucose},
        {12, 51, false, RestartPolicy::Luby},        {12, 30, true, RestartPolicy::Glucose},
        {8, 40, true, RestartPolicy::Luby},          {12, 51, false, RestartPolicy::Luby, 1},
        {12, 30, true, RestartPolicy::Glucose, 1},   {12, 51, false, RestartPolicy::Luby, 0, 1},
        {12, 30, true, RestartPolicy::Glucose, 1, 1}};
    for (const CnfShape& shape : shapes) {
        for (unsigned seed = 0; seed < seeds(150); ++seed) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", vars " + std::to_string(shape.vars));
            std::mt19937 rng(seed);
            Cnf cnf = random_cnf(rng, shape.vars, shape.clauses, shape.mixed);
            bool proof = seed % 2 == 1;
            Solver s = make_solver(shape.vars, cnf,
                                   {.restarts = shape.restarts,
                                    .reduce_interval = 5,
                                    .chronological_distance = shape.chronological,
                                    .record_proof = proof,
                                    .rephase_interval = shape.rephase});
            Result r = s.solve();
            ASSERT_EQ(r == Result::Sat, brute_force(shape.vars, cnf));
            EXPECT_TRUE(r != Result::Sat || satisfies(model_of(s), cnf));
            if (proof) expect_proof_follows(s, r, shape.vars);
        }
    }
    int vars = 0;
    Cnf holes = pigeonhole(4, vars);
    Solver s = make_solver(vars, holes,
                           {.reduce_interval = 6, .record_proof = true, .rephase_interval = 1});
    expect_proof_follows(s, s.solve(), vars);
}

struct DimacsCase {
    const char* text;
    int variables = 0, clauses = 0;  // when good
    int line = 0, col = 0;           // when malformed
    const char* message = "";
};

TEST(DimacsReader, ReadsGoodInputAndPositionsErrors) {
    const DimacsCase cases[] = {
        {"p cnf 3 2\n1 -3 0\n2 3 -1 0\n", 3, 2},
        {"c hello\np cnf 2 1\nc mid\n1\n -2 0\n", 2, 1},
        {"p cnf 0 1\n0\n", 0, 1},
        {"p  cnf 5 0\n", 5, 0},
        {"p cnf 2 1\n1 2 0\n%\n0\n", 2, 1},
        {"1 2 0\n", 0, 0, 1, 1, "expected the 'p cnf' line"},
        {"", 0, 0, 1, 1, "missing 'p cnf' line"},
        {"p cnf 2\n1 0\n", 0, 0, 1, 8, "number of clauses"},
        {"p dnf 2 1\n", 0, 0, 1, 3, "expected 'cnf'"},
        {"p cnf -2 1\n", 0, 0, 1, 7, "out of range"},
        {"p cnf 2 1\n1 3 0\n", 0, 0, 2, 3, "beyond 2"},
        {"p cnf 2 1\n1 x 0\n", 0, 0, 2, 3, "expected an integer"},
        {"p cnf 2 1\n1 2\n", 0, 0, 2, 1, "not ended by 0"},
        {"p cnf 2 1\n1 0 2 0\n", 0, 0, 2, 5, "more clauses"},
        {"p cnf 2 2\n1 0\n", 0, 0, 3, 1, "expected 2 clauses, found 1"},
        {"p cnf 2 1\np cnf 2 1\n", 0, 0, 2, 1, "a second 'p' line"},
        {"p cnf 2 1\n1 99999999999999999999 0\n", 0, 0, 2, 3, "out of range"},
    };
    for (const DimacsCase& c : cases) {
        SCOPED_TRACE(c.text);
        if (c.line == 0) {
            io::Cnf cnf = io::read_dimacs(c.text);
            EXPECT_EQ(cnf.variables, c.variables);
            EXPECT_EQ(static_cast<int>(cnf.clauses.size()), c.clauses);
            continue;
        }
        try {
            io::read_dimacs(c.text);
            ADD_FAILURE() << "no error";
        } catch (const io::ParseError& e) {
            EXPECT_EQ(e.line(), c.line);
            EXPECT_EQ(e.column(), c.col);
            EXPECT_NE(e.message().find(c.message), std::string::npos) << e.message();
        }
    }
    io::Cnf cnf = io::read_dimacs("p cnf 3 2\n1 -3 0\n2 3 -1 0\n");
    EXPECT_EQ(cnf.clauses[1], (std::vector<int>{2, 3, -1}));
}

// Past its first few thousand conflicts Luby restarts as Glucose does: soon after the learned
// clauses' LBDs jump, not at the next Luby interval (at least 100 conflicts).
TEST(Restarts, LubyTurnsToTheLbdRuleOnLongSearches) {
    for (RestartPolicy policy : {RestartPolicy::Luby, RestartPolicy::Glucose}) {
        Restarts restarts(policy);
        for (int i = 0; i < 4000; ++i) {
            restarts.on_conflict(2);
            if (restarts.due()) restarts.restarted();
        }
        restarts.restarted();
        for (int i = 0; i < 60; ++i)
            restarts.on_conflict(20);
        EXPECT_TRUE(restarts.due()) << static_cast<int>(policy);
    }
}

}  // namespace
}  // namespace vorn::sat
