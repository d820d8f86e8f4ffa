// Conjunctions of integer equalities, with and without a box, decided by smt::decide against
// enumeration of the box's integer points (bounded) or against the construction (unbounded: the
// right-hand side put on or off the lattice). Models and proofs are checked by the library's
// checkers, lattice leaves among them.

#include <gtest/gtest.h>

#include <random>

#include "vorn/smt/certificate.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/model_check.h"

using vorn::QNumber;
using vorn::lra::Result;
using vorn::smt::Problem;
using vorn::smt::Relation;

namespace {

struct System {
    int vars = 0;
    std::vector<std::vector<int>> rows;
    std::vector<int> rhs;
    int box = 0;  // 0: unbounded; else every variable in [-box, box]
};

Problem problem_of(const System& s) {
    Problem p(vorn::smt::NameSyntax::SmtLib);
    for (int v = 0; v < s.vars; ++v)
        p.variables.add("x" + std::to_string(v), vorn::smt::Sort::Int, {});
    vorn::smt::LinearExpr e;
    auto add = [&](Relation r) { p.atoms.push_back({r, p.add_term(e), 1, {}}); };
    for (std::size_t i = 0; i < s.rows.size(); ++i) {
        e.clear();
        for (int v = 0; v < s.vars; ++v)
            e.add_entry(v + 1, QNumber(s.rows[i][v]));
        e.add_entry(0, QNumber(-s.rhs[i]));
        add(Relation::Eq);
    }
    for (int v = 0; s.box > 0 && v < s.vars; ++v)
        for (int side : {-1, 1}) {
            e.clear();
            e.add_entry(v + 1, QNumber(1));
            e.add_entry(0, QNumber(-side * s.box));
            add(side < 0 ? Relation::Ge : Relation::Le);
        }
    return p;
}

bool has_point_in_box(const System& s) {
    std::vector<int> x(s.vars, -s.box);
    for (;;) {
        bool ok = true;
        for (std::size_t i = 0; i < s.rows.size() && ok; ++i) {
            long sum = 0;
            for (int v = 0; v < s.vars; ++v)
                sum += static_cast<long>(s.rows[i][v]) * x[v];
            ok = sum == s.rhs[i];
        }
        if (ok) return true;
        int v = 0;
        while (v < s.vars && x[v] == s.box)
            x[v++] = -s.box;
        if (v == s.vars) return false;
        ++x[v];
    }
}

}  // namespace

TEST(IntegerEqualities, DecidedRightWithCheckedModelsAndProofs) {
    const unsigned base_seed = 4200;
    int answers[2] = {0, 0}, lattice_leaves = 0;
    for (unsigned seed = base_seed; seed < base_seed + 300; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        System s;
        s.vars = pick(2, 4);
        s.box = seed % 2 == 0 ? 0 : pick(1, 3);
        int m = pick(1, 3), k = pick(2, 4);
        std::vector<int> x(s.vars);
        for (int& v : x)
            v = pick(-3, 3);
        for (int i = 0; i < m; ++i) {
            s.rows.emplace_back(s.vars);
            for (int& a : s.rows.back())
                a = pick(-4, 4) * (i == 0 ? k : 1);
            if (i > 0)  // mixed with the scaled row, so that its gcd alone shows little
                for (int v = 0; v < s.vars; ++v)
                    s.rows[i][v] += s.rows[0][v];
            long b = 0;
            for (int v = 0; v < s.vars; ++v)
                b += static_cast<long>(s.rows[i][v]) * x[v];
            s.rhs.push_back(static_cast<int>(b));
        }
        bool off = pick(0, 1) == 1;
        if (off)
            for (int i = 0; i < m; ++i)
                s.rhs[i] += 1;  // k ∤ 1 on the scaled row and the others follow it
        Problem p = problem_of(s);
        bool expected = s.box > 0 ? has_point_in_box(s) : !off;
        vorn::smt::Decision d = vorn::smt::decide(p, {});
        SCOPED_TRACE("seed " + std::to_string(seed));
        ASSERT_NE(d.result, Result::Unknown);
        EXPECT_EQ(d.result == Result::Sat, expected);
        EXPECT_EQ(vorn::smt::check_decision(p, d), "");
        ++answers[d.result == Result::Sat ? 1 : 0];
        for (std::size_t n = 0; n < d.proof.size(); ++n) {
            if (d.proof[n].kind != vorn::smt::ProofStep::Kind::Lattice) continue;
            ++lattice_leaves;
            auto spoiled = d.proof;  // zero multipliers sum to 0 = 0: no refutation
            for (auto& e : spoiled[n].farkas)
                e.multiplier = QNumber(0);
            EXPECT_NE(vorn::smt::check_proof(p, spoiled), "");
        }
    }
    EXPECT_GT(answers[0], 50);
    EXPECT_GT(answers[1], 50);
    EXPECT_GT(lattice_leaves, 20);
}
