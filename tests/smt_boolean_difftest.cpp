// Random formulas with Boolean structure through the embedding API, against a deliberately
// simple reference: enumerate the truth values of every atom and Boolean variable, and for each
// assignment that makes the formulas true decide the conjunction of the atoms so signed with the
// conjunctive decider (smt::decide). Sat answers are checked by evaluating every formula under
// the model; Unsat answers under assumptions by deciding the core alone.

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "vorn/smt/decision.h"
#include "vorn/smt/problem.h"
#include "vorn/smt/solver.h"

namespace {

using vorn::QNumber;
using vorn::smt::Formula;
using vorn::smt::Relation;
using vorn::smt::Result;
using vorn::smt::Solver;
using vorn::smt::Term;

unsigned seeds(unsigned full) {
    return std::getenv("VORN_QUICK") != nullptr ? full / 5 : full;
}

constexpr int kVars = 3;

// The sorts of x0, x1, x2: mixed, or (for difference constraints, which have a theory of their
// own when every variable has one sort) all Real or all Int.
enum class Mix { Mixed, Real, Int };

bool is_int(Mix mix, int v) {
    return mix == Mix::Int || (mix == Mix::Mixed && v == 2);
}

// An atom  Σ coeff·x ⋈ c, or (when `boolean` ≥ 0) a Boolean variable.
struct Atom {
    int boolean = -1;
    int coeff[kVars] = {};
    Relation relation = Relation::Le;
    QNumber c;
};

// The constants of difference atoms: k·magnitude + 2j/d with d up to `denominators`. Near 2^63
// sums overflow machine integers and new denominators rescale the graph, so the difference
// theory's fast weights give way to exact ones mid-search.
struct Constants {
    QNumber magnitude;
    int denominators;
};
const Constants kConstants[] = {
    {1, 1}, {std::int64_t{7} << 58, 1}, {1, 3}, {std::int64_t{3} << 57, 4}};

// A random formula tree over atom indices; ite terms appear as an ite atom pair.
struct Node {
    enum Kind { Leaf, Not, And, Or, Implies, Ite } kind = Leaf;
    int atom = 0;  // Leaf
    std::vector<std::unique_ptr<Node>> kids;
};

class Generator {
  public:
    Generator(unsigned seed, bool difference, Constants constants = kConstants[0])
        : rng_(seed), difference_(difference), constants_(std::move(constants)) {}

    std::vector<Atom> atoms;

    std::unique_ptr<Node> formula(int depth) {
        auto n = std::make_unique<Node>();
        int pick = depth == 0 ? 0 : static_cast<int>(rng_() % 6);
        if (pick == 0 || pick > 4) {
            n->atom = leaf();
            return n;
        }
        n->kind = static_cast<Node::Kind>(pick);
        int kids = n->kind == Node::Not ? 1 : n->kind == Node::Ite ? 3 : 2;
        for (int i = 0; i < kids; ++i)
            n->kids.push_back(formula(depth - 1));
        return n;
    }

  private:
    int leaf() {
        // Reuse an atom now and then, so that the formulas share their atoms.
        if (!atoms.empty() && rng_() % 3 == 0) return static_cast<int>(rng_() % atoms.size());
        Atom a;
        if (rng_() % 5 == 0) {
            a.boolean = static_cast<int>(rng_() % 2);
        } else if (difference_) {
            // x − y ⋈ c, or a bound on one variable, times a factor.
            int k = static_cast<int>(rng_() % 2) + 1, x = static_cast<int>(rng_() % kVars);
            int y = static_cast<int>(rng_() % kVars);
            a.coeff[x] = k;
            if (y != x) a.coeff[y] = -k;
            a.relation = static_cast<Relation>(rng_() % 5);
            a.c = QNumber(static_cast<int>(rng_() % 9) - 4) * constants_.magnitude +
                  QNumber(2 * (static_cast<int>(rng_() % 3) - 1),
                          static_cast<int>(rng_() % constants_.denominators) + 1);
        } else {
            for (int& k : a.coeff)
                k = static_cast<int>(rng_() % 5) - 2;
            a.relation = static_cast<Relation>(rng_() % 5);  // Eq Le Lt Ge Gt
            a.c = static_cast<int>(rng_() % 7) - 3;
        }
        atoms.push_back(a);
        return static_cast<int>(atoms.size() - 1);
    }

    std::mt19937 rng_;
    bool difference_;
    Constants constants_;
};

bool evaluate(const Node& n, const std::vector<bool>& truth) {
    switch (n.kind) {
        case Node::Leaf:
            return truth[static_cast<std::size_t>(n.atom)];
        case Node::Not:
            return !evaluate(*n.kids[0], truth);
        case Node::And:
            return evaluate(*n.kids[0], truth) && evaluate(*n.kids[1], truth);
        case Node::Or:
            return evaluate(*n.kids[0], truth) || evaluate(*n.kids[1], truth);
        case Node::Implies:
            return !evaluate(*n.kids[0], truth) || evaluate(*n.kids[1], truth);
        case Node::Ite:
            return evaluate(*n.kids[evaluate(*n.kids[0], truth) ? 1 : 2], truth);
    }
    return false;
}

// Whether the atoms, signed by `truth`, have a common solution (x2 integral).
bool conjunction_sat(const std::vector<Atom>& atoms, const std::vector<bool>& truth, Mix mix) {
    vorn::smt::Problem p(vorn::smt::NameSyntax::SmtLib);
    for (int v = 0; v < kVars; ++v)
        p.variables.add("x" + std::to_string(v),
                        is_int(mix, v) ? vorn::smt::Sort::Int : vorn::smt::Sort::Real, {});
    vorn::smt::LinearExpr e;
    for (std::size_t i = 0; i < atoms.size(); ++i) {
        const Atom& a = atoms[i];
        if (a.boolean >= 0) continue;
        e.clear();
        for (int v = 0; v < kVars; ++v)
            e.add_entry(v + 1, QNumber(a.coeff[v]));
        e.add_entry(0, -a.c);
        Relation r = truth[i] ? a.relation : vorn::smt::negation(a.relation);
        p.atoms.push_back({r, p.add_term(e), 1, {}});
    }
    return vorn::smt::decide(p, {}).result == vorn::lra::Result::Sat;
}

Result reference(const std::vector<Atom>& atoms, const std::vector<const Node*>& formulas,
                 Mix mix) {
    std::size_t k = atoms.size();
    std::vector<bool> truth(k);
    for (std::uint64_t bits = 0; bits < (std::uint64_t{1} << k); ++bits) {
        for (std::size_t i = 0; i < k; ++i)
            truth[i] = ((bits >> i) & 1) != 0;
        // One truth value per Boolean variable.
        bool consistent = true;
        for (std::size_t i = 0; i < k && consistent; ++i)
            for (std::size_t j = 0; j < i; ++j)
                if (atoms[i].boolean >= 0 && atoms[i].boolean == atoms[j].boolean &&
                    truth[i] != truth[j])
                    consistent = false;
        if (!consistent) continue;
        bool all = true;
        for (const Node* f : formulas)
            all = all && evaluate(*f, truth);
        if (all && conjunction_sat(atoms, truth, mix)) return Result::Sat;
    }
    return Result::Unsat;
}

struct Built {
    std::vector<Term> x;
    std::vector<Formula> b;
};

Formula atom_formula(const Atom& a, const Built& s) {
    if (a.boolean >= 0) return s.b[static_cast<std::size_t>(a.boolean)];
    Term t;
    for (int v = 0; v < kVars; ++v)
        t += a.coeff[v] * s.x[static_cast<std::size_t>(v)];
    switch (a.relation) {
        case Relation::Eq:
            return t == a.c;
        case Relation::Le:
            return t <= a.c;
        case Relation::Lt:
            return t < a.c;
        case Relation::Ge:
            return t >= a.c;
        default:
            return t > a.c;
    }
}

Formula to_formula(const Node& n, const std::vector<Atom>& atoms, const Built& s) {
    auto kid = [&](int i) { return to_formula(*n.kids[static_cast<std::size_t>(i)], atoms, s); };
    switch (n.kind) {
        case Node::Leaf:
            return atom_formula(atoms[static_cast<std::size_t>(n.atom)], s);
        case Node::Not:
            return !kid(0);
        case Node::And:
            return kid(0) && kid(1);
        case Node::Or:
            return kid(0) || kid(1);
        case Node::Implies:
            return implies(kid(0), kid(1));
        case Node::Ite: {
            // The formula ite(c, a, b) through an ite term, which the solver lifts to a variable.
            Term flag = ite(kid(0), Term(1), Term(0));
            return (flag == 1 && kid(1)) || (flag == 0 && kid(2));
        }
    }
    return false;
}

TEST(BooleanDifferential, RandomFormulasAgainstEnumeration) {
    int answers[2] = {};
    for (unsigned seed = 0; seed < seeds(300); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        // Every third seed: difference constraints over variables of one sort.
        Mix mix = seed % 3 != 0 ? Mix::Mixed : seed % 2 == 0 ? Mix::Real : Mix::Int;
        Generator g(seed, mix != Mix::Mixed, kConstants[seed / 6 % std::size(kConstants)]);
        std::vector<std::unique_ptr<Node>> formulas;
        std::vector<const Node*> roots;
        for (int i = 0; i < 4; ++i) {
            formulas.push_back(g.formula(3));
            roots.push_back(formulas.back().get());
            if (g.atoms.size() > 9) break;
        }
        Solver s;
        Built b;
        for (int v = 0; v < kVars; ++v) {
            std::string name = "x" + std::to_string(v);
            b.x.push_back(is_int(mix, v) ? s.integer(name) : s.real(name));
        }
        b.b = {s.boolean("p"), s.boolean("q")};
        std::vector<Formula> fs;
        for (const Node* r : roots)
            fs.push_back(to_formula(*r, g.atoms, b));
        Result expected = reference(g.atoms, roots, mix);
        // Half the seeds assert the formulas, half assume them and check the core.
        bool assume = seed % 2 == 1;
        if (!assume)
            for (const Formula& f : fs)
                s.add(f);
        Result got = assume ? s.check(fs) : s.check();
        ASSERT_EQ(got, expected);
        ++answers[got == Result::Sat ? 0 : 1];
        if (got == Result::Sat) {
            for (const Formula& f : fs)
                EXPECT_TRUE(s.value(f));
        } else if (assume) {
            std::vector<Formula> core = s.unsat_core();
            ASSERT_EQ(s.check(core), Result::Unsat) << "the core alone is satisfiable";
        }
    }
    // Both answers must be common, or the test checks little.
    EXPECT_GT(answers[0], static_cast<int>(seeds(300)) / 5);
    EXPECT_GT(answers[1], static_cast<int>(seeds(300)) / 5);
}

}  // namespace
