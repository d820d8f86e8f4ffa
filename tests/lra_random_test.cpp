// Model-based random test of the simplex: random small systems asserted with push/pop, new
// terms and warm starts from random bases between checks, every answer compared with
// Fourier–Motzkin elimination from scratch, every model and every certificate checked against the
// atoms as asserted.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "support/lra_atoms.h"
#include "vorn/lra/simplex.h"

using vorn::QNumber;
using vorn::lra::Relation;
using vorn::lra::Result;
using vorn::lra::Simplex;
using vorn::test::Atom;
using vorn::test::to_mpq;

namespace {

std::string check_certificate(const Simplex& s, const std::vector<Atom>& atoms) {
    return vorn::test::check_certificate(
        s.conflict(), [&](const auto& e) -> std::optional<vorn::test::Inequality> {
            auto r = static_cast<std::size_t>(e.reason);
            if (e.reason < 0 || r >= atoms.size() || !has_side(atoms[r], e.upper)) return {};
            return side_of(atoms[r], e.upper);
        });
}

struct Session {
    std::mt19937_64 rng;
    Simplex simplex;
    int variables;
    std::vector<Atom> atoms;  // the active ones; an atom's reason is its index here
    std::size_t level = 0;

    int pick(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }

    void assert_random_atom() {
        Atom a{{}, static_cast<Relation>(pick(5)), QNumber(pick(9) - 4, 1 + pick(2)), level};
        for (int n = 1 + pick(3); n > 0; --n)
            a.term.push_back({1 + pick(variables), QNumber(pick(7) - 3)});
        if (pick(3) == 0) a.relation = Relation::Eq;
        vorn::lra::TermEntries normal = a.term;
        if (vorn::lra::normalize_term(normal).is_zero()) return;
        atoms.push_back(a);
        simplex.assert_term(simplex.term_variable(a.term), a.relation, a.constant,
                            static_cast<vorn::lra::Reason>(atoms.size() - 1));
    }

    std::string check() {
        Result r = simplex.check();
        bool expected = vorn::test::fm_feasible(vorn::test::inequalities(atoms));
        if ((r == Result::Sat) != expected) return expected ? "unsat, expected sat" : "sat";
        if (r != Result::Sat) return check_certificate(simplex, atoms);
        return vorn::test::check_model([&](int v) { return to_mpq(simplex.value(v)); }, atoms);
    }

    // A basis from elsewhere: random variables wanted basic, the rest at random bounds.
    void warm_start() {
        std::vector<int> basic;
        std::vector<std::pair<int, bool>> at_bound;
        for (int v = 1; v <= simplex.num_variables(); ++v)
            if (pick(2) == 0)
                basic.push_back(v);
            else
                at_bound.emplace_back(v, pick(2) == 0);
        simplex.warm_start(basic, at_bound);
    }

    void push() {
        simplex.push();
        ++level;
    }

    void pop() {
        std::size_t n = 1 + static_cast<std::size_t>(pick(2));
        if (n == 1)
            simplex.pop();
        else
            simplex.pop(n);
        level -= std::min(n, level);
        std::erase_if(atoms, [&](const Atom& a) { return a.level > level; });
    }
};

unsigned seeds(unsigned full) {
    return std::getenv("VORN_QUICK") != nullptr ? full / 20 : full;
}

}  // namespace

TEST(SimplexRandom, AgreesWithFourierMotzkinThroughPushPopAndNewRows) {
    for (unsigned seed = 1; seed <= seeds(3000); ++seed) {
        std::mt19937_64 rng(seed);
        vorn::lra::SimplexOptions options;
        options.bland_after = 1 + static_cast<unsigned>(rng() % 3) * 8;
        Session run{rng, Simplex(options), 2 + static_cast<int>(rng() % 3), {}, 0};
        for (int v = 0; v < run.variables; ++v)
            run.simplex.new_variable();
        for (int step = 0; step < 24; ++step) {
            int op = run.pick(10);
            if (op < 5) {
                run.assert_random_atom();
            } else if (op < 6) {
                run.push();
            } else if (op < 7) {
                run.pop();
            } else if (op < 8 && step % 2 == 0) {
                run.warm_start();
            } else {
                std::string fault = run.check();
                ASSERT_EQ(fault, "") << "seed " << seed << " step " << step;
            }
        }
    }
}
