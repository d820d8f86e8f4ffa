// Branch and bound against brute force: small random problems over boxed integer variables and
// perhaps one rational variable, decided twice with atoms added between, each answer compared
// with the enumeration of the integer points (each completed by Fourier–Motzkin over the
// rational variable), every model and every proof tree checked against the atoms as asserted.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "support/lra_atoms.h"
#include "vorn/lra/branch_and_bound.h"

using namespace vorn::lra;
using vorn::QNumber;
using vorn::test::Atom;
using vorn::test::Inequality;
using vorn::test::to_mpq;

namespace {

struct Problem {
    std::vector<bool> integer{false};  // by variable, from 1; integer ones lie in [−3, 3]
    std::vector<Atom> atoms;

    bool feasible(std::size_t var = 1, std::vector<Inequality> system = {}) const {
        if (var == 1) system = vorn::test::inequalities(atoms);
        if (var == integer.size()) return vorn::test::fm_feasible(system);
        if (!integer[var]) return feasible(var + 1, system);
        for (int x = -3; x <= 3; ++x) {
            auto fixed = system;  // var = x substituted
            for (Inequality& q : fixed)
                if (q.coeffs.count(static_cast<int>(var)) != 0)
                    q.constant += q.coeffs.extract(static_cast<int>(var)).mapped() * x;
            if (feasible(var + 1, fixed)) return true;
        }
        return false;
    }
};

bool gcd_refutes(const ProofNode& leaf, const Problem& p) {
    const Atom& a = p.atoms.at(static_cast<std::size_t>(leaf.reason));
    TermEntries term = a.term;  // repeated variables merged
    mpq_class constant = to_mpq(a.constant / normalize_term(term));
    mpz_class scale = constant.get_den(), g, claimed = to_mpq(leaf.gcd).get_num();
    for (const auto& e : term)
        scale = lcm(scale, to_mpq(e.coeff).get_den());
    for (const auto& e : term) {
        mpq_class c = to_mpq(e.coeff) * scale;
        g = p.integer[e.var] ? gcd(g, c.get_num()) : mpz_class(1);
    }
    mpz_class c = mpq_class(constant * scale).get_num(), common = gcd(g, c);
    return a.relation == Relation::Eq && claimed > 1 && (g / common) % claimed == 0 &&
           (c / common) % claimed != 0;
}

// Splits push their branch bound (an atom on var, reason −depth−1) onto `path`.
std::string check_proof(const std::vector<ProofNode>& proof, std::size_t node, const Problem& p,
                        std::vector<Atom>& path) {
    const ProofNode& n = proof.at(node);
    if (n.kind == ProofNode::Kind::Gcd) return path.empty() && gcd_refutes(n, p) ? "" : "gcd";
    if (n.kind == ProofNode::Kind::Farkas)
        return vorn::test::check_certificate(n.farkas, [&](const auto& e) {
            auto r = static_cast<std::size_t>(e.reason < 0 ? -e.reason - 1 : e.reason);
            const auto& atoms = e.reason < 0 ? path : p.atoms;
            bool known = r < atoms.size() && has_side(atoms[r], e.upper);
            return known ? std::optional(side_of(atoms[r], e.upper)) : std::nullopt;
        });
    if (!p.integer.at(n.var) || !n.below.is_integer()) return "split on a non-integer";
    for (bool high : {false, true}) {
        path.push_back({{{n.var, QNumber(1)}},
                        high ? Relation::Ge : Relation::Le,
                        n.below + QNumber(high ? 1 : 0)});
        std::string fault = check_proof(proof, high ? n.high : n.low, p, path);
        path.pop_back();
        if (!fault.empty()) return fault;
    }
    return "";
}

struct Session {
    Simplex simplex;
    BranchAndBound solver;
    Problem problem;

    explicit Session(BranchOptions options = {}) : solver(simplex, options) {}
    void add(const Atom& a) {
        problem.atoms.push_back(a);
        simplex.assert_term(simplex.term_variable(a.term), a.relation, a.constant,
                            static_cast<Reason>(problem.atoms.size() - 1));
    }
    int declare(bool integer, bool boxed = true) {
        int v = simplex.new_variable();
        problem.integer.push_back(integer);
        if (integer) solver.set_integer(v);
        for (bool upper : {false, true})
            if (integer && boxed)
                add({{{v, QNumber(1)}},
                     upper ? Relation::Le : Relation::Ge,
                     QNumber(upper ? 3 : -3)});
        return v;
    }
    std::string check() {
        std::size_t level = simplex.level();
        Result r = solver.check();
        if (simplex.level() != level) return "left the caller's level";
        if (r == Result::Unknown || (r == Result::Sat) != problem.feasible()) return "answer";
        std::vector<Atom> path;
        if (r != Result::Sat) return check_proof(solver.proof(), 0, problem, path);
        for (std::size_t v = 1; v < problem.integer.size(); ++v)
            if (problem.integer[v] && !simplex.value(static_cast<int>(v)).is_integer())
                return "not integral";
        return vorn::test::check_model([&](int v) { return to_mpq(simplex.value(v)); },
                                       problem.atoms);
    }
};

}  // namespace

TEST(BranchAndBoundRandom, AgreesWithEnumerationOfTheIntegerPoints) {
    unsigned seeds = std::getenv("VORN_QUICK") != nullptr ? 50 : 1000;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        std::mt19937_64 rng(seed);
        auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
        Session run;
        int n = 2 + pick(2);
        for (int v = 1; v <= n; ++v)
            run.declare(v < n || pick(2) == 0);
        run.simplex.push();
        for (int round = 0; round < 2; ++round) {
            for (int k = 1 + pick(4); k > 0; --k) {
                Atom a{{}, static_cast<Relation>(pick(5)), QNumber(pick(13) - 6, 1 + pick(2))};
                for (int terms = 1 + pick(3); terms > 0; --terms)
                    a.term.push_back({1 + pick(n), QNumber((pick(7) - 3) * (1 + pick(2)))});
                TermEntries normal = a.term;
                if (!normalize_term(normal).is_zero()) run.add(a);
            }
            ASSERT_EQ(run.check(), "") << "seed " << seed << " round " << round;
        }
    }
}

TEST(BranchAndBoundExamples, GcdTestBranchingAndNodeLimit) {
    // 2x + 4y = 3 over unbounded integers (eliminated by the first check): the gcd test alone.
    Session gcd;
    int x = gcd.declare(true, false), y = gcd.declare(true, false);
    gcd.add({{{x, QNumber(2)}, {y, QNumber(4)}}, Relation::Eq, QNumber(3)});
    EXPECT_EQ(gcd.check(), "");
    EXPECT_EQ(gcd.solver.proof().size(), 1u);
    EXPECT_EQ(gcd.solver.proof()[0].gcd, 2);

    // 1 ≤ 3x − 3y ≤ 2 with x, y in [−3, 3]: rational points only, so the tree must split; two
    // nodes are not enough to see that.
    for (std::uint64_t limit : {2, 0}) {
        Session split({limit});
        x = split.declare(true), y = split.declare(true);
        split.add({{{x, QNumber(3)}, {y, QNumber(-3)}}, Relation::Ge, QNumber(1)});
        split.add({{{x, QNumber(3)}, {y, QNumber(-3)}}, Relation::Le, QNumber(2)});
        split.simplex.push();
        if (limit == 0) {
            EXPECT_EQ(split.check(), "");
        } else {
            EXPECT_EQ(split.solver.check(), Result::Unknown);
            EXPECT_EQ(split.simplex.level(), 1u);
        }
        EXPECT_EQ(split.solver.proof()[0].kind, ProofNode::Kind::Split);
    }
}

TEST(BranchAndBoundExamples, BoundsOnIntegralTermsAreRounded) {
    // lo < a·(x − y) < hi over unbounded integers: decided at the root once rounded, where
    // branching on x and y alone never ends.
    struct Case {
        int a, lo, hi;
        Result expected;
    } cases[] = {{2, 0, 2, Result::Unsat},
                 {-2, -2, 0, Result::Unsat},
                 {2, 0, 3, Result::Sat},
                 {-3, -4, -2, Result::Sat},
                 {6, 1, 5, Result::Unsat}};
    for (const Case& c : cases) {
        Simplex simplex;
        BranchAndBound solver(simplex, {50});
        int x = simplex.new_variable(), y = simplex.new_variable();
        solver.set_integer(x);
        solver.set_integer(y);
        auto t = simplex.term_variable({{x, QNumber(c.a)}, {y, QNumber(-c.a)}});
        ASSERT_TRUE(solver.assert_term(t, Relation::Gt, QNumber(c.lo), 0));
        ASSERT_TRUE(solver.assert_term(t, Relation::Lt, QNumber(c.hi), 1) ||
                    c.expected == Result::Unsat);
        EXPECT_EQ(solver.check(), c.expected) << c.a << " " << c.lo << " " << c.hi;
        if (c.expected == Result::Unsat) {
            EXPECT_EQ(solver.proof().size(), 1u);
        } else {
            QNumber v = QNumber(c.a) * (simplex.value(x) - simplex.value(y));
            EXPECT_TRUE(v > c.lo && v < c.hi && simplex.value(x).is_integer());
        }
    }
}
