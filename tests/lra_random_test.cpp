// Model-based random test of the simplex: random small systems asserted with push/pop and new
// terms between checks, every answer compared with Fourier–Motzkin elimination from scratch,
// every model and every certificate checked against the atoms as asserted.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

#include "support/fourier_motzkin.h"
#include "vorn/lra/simplex.h"

using vorn::QNumber;
using vorn::lra::Relation;
using vorn::lra::Result;
using vorn::lra::Simplex;

namespace {

mpq_class mpq_of(const QNumber& q) {
    mpq_class out;
    q.get_mpq(out.get_mpq_t());
    return out;
}

struct Atom {
    vorn::lra::TermEntries term;
    Relation relation;
    QNumber constant;
    std::size_t level;
};

// The atom's side "c − term ≥ 0" (upper) or "term − c ≥ 0" as an inequality.
vorn::test::Inequality side_of(const Atom& a, bool upper, bool strict) {
    vorn::test::Inequality q;
    mpq_class sign = upper ? -1 : 1;
    for (const auto& e : a.term)
        q.coeffs[e.var] += sign * mpq_of(e.coeff);
    std::erase_if(q.coeffs, [](const auto& e) { return e.second == 0; });
    q.constant = -sign * mpq_of(a.constant);
    q.strict = strict;
    return q;
}

bool is_strict(Relation r) {
    return r == Relation::Lt || r == Relation::Gt;
}

std::vector<vorn::test::Inequality> inequalities(const std::vector<Atom>& atoms) {
    std::vector<vorn::test::Inequality> out;
    for (const Atom& a : atoms) {
        if (a.relation != Relation::Ge && a.relation != Relation::Gt)
            out.push_back(side_of(a, true, is_strict(a.relation)));
        if (a.relation != Relation::Le && a.relation != Relation::Lt)
            out.push_back(side_of(a, false, is_strict(a.relation)));
    }
    return out;
}

std::string check_model(const Simplex& s, const std::vector<Atom>& atoms) {
    for (std::size_t i = 0; i < atoms.size(); ++i)
        for (const auto& q : inequalities({atoms[i]})) {
            mpq_class sum = q.constant;
            for (const auto& [v, c] : q.coeffs)
                sum += c * mpq_of(s.value(v));
            if (sum < 0 || (q.strict && sum == 0))
                return "model violates atom " + std::to_string(i);
        }
    return "";
}

std::string check_certificate(const Simplex& s, const std::vector<Atom>& atoms) {
    vorn::test::Inequality total;
    bool strict = false;
    if (s.conflict().empty()) return "empty conflict";
    for (const auto& e : s.conflict()) {
        if (e.reason < 0 || static_cast<std::size_t>(e.reason) >= atoms.size())
            return "reason of a popped atom";
        const Atom& a = atoms[e.reason];
        bool allowed = e.upper ? a.relation != Relation::Ge && a.relation != Relation::Gt
                               : a.relation != Relation::Le && a.relation != Relation::Lt;
        if (!allowed || e.multiplier.sign() <= 0) return "wrong side or multiplier";
        auto q = side_of(a, e.upper, is_strict(a.relation));
        mpq_class m = mpq_of(e.multiplier);
        for (const auto& [v, c] : q.coeffs)
            total.coeffs[v] += m * c;
        total.constant += m * q.constant;
        strict = strict || q.strict;
    }
    for (const auto& [v, c] : total.coeffs)
        if (c != 0) return "variables do not cancel";
    if (total.constant > 0 || (total.constant == 0 && !strict)) return "no contradiction";
    return "";
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
        bool expected = vorn::test::fm_feasible(inequalities(atoms));
        if ((r == Result::Sat) != expected) return expected ? "unsat, expected sat" : "sat";
        return r == Result::Sat ? check_model(simplex, atoms) : check_certificate(simplex, atoms);
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
            } else {
                std::string fault = run.check();
                ASSERT_EQ(fault, "") << "seed " << seed << " step " << step;
            }
        }
    }
}
