// Clause proofs (CDCL(T) certificates): a hand-made proof and a table of spoiled variants that
// check_proof and scripts/check_certificate.py must both judge as expected, a long proof, and
// random formulas whose every unsat certificate both checkers accept and whose definitions are
// the ones the encoding's clauses state; random integer problems decided with and without Gomory
// cuts, relaxed explanations and the theory's phase and without, against enumeration.
// Pigeonhole lemmas (ClauseProof::Hall) among the hand-made proofs.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/certificate_check.h"
#include "vorn/smt/certificate.h"
#include "vorn/smt/context.h"
#include "vorn/smt/encoder.h"

namespace {

using namespace vorn::smt;
using vorn::QNumber;
using vorn::test::certificate_checks;
using K = ClauseProof::Kind;

// Whether every definition of the proof has its Tseitin clauses among the input clauses (their
// selector literals set aside): what the certificate says a variable stands for is what the
// encoding made of it. A definition that no step mentions is left out: the solver records no
// clause once it is unsat.
bool definitions_match_inputs(const ClauseProof& proof) {
    using DK = ClauseProof::Definition::Kind;
    std::set<std::int64_t> selectors;
    for (const auto& d : proof.definitions)
        if (d.kind == DK::Select) selectors.insert(d.var);
    std::set<std::set<std::int64_t>> inputs;
    std::set<std::int64_t> mentioned;
    for (const auto& step : proof.steps) {
        std::set<std::int64_t> c;
        for (std::int64_t l : step.clause) {
            if (selectors.count(-l) == 0) c.insert(l);
            mentioned.insert(l < 0 ? -l : l);
        }
        if (step.kind == K::Input) inputs.insert(c);
    }
    for (const auto& d : proof.definitions) {
        if (mentioned.count(d.var) == 0) continue;
        std::int64_t v = d.var;
        const auto& o = d.operands;
        std::vector<std::set<std::int64_t>> want;
        if (d.kind == DK::True) want = {{v}};
        if (d.kind == DK::Xor)
            want = {{-v, o[0], o[1]}, {-v, -o[0], -o[1]}, {v, -o[0], o[1]}, {v, o[0], -o[1]}};
        if (d.kind == DK::Ite)
            want = {{-o[0], -o[1], v}, {-o[0], o[1], -v}, {o[0], -o[2], v}, {o[0], o[2], -v}};
        if (d.kind == DK::And) {
            want.push_back({v});  // v ∨ ¬x1 ∨ ¬x2 ..., then ¬v ∨ xi for each operand
            for (std::int64_t x : o) {
                want[0].insert(-x);
                want.push_back({-v, x});
            }
        }
        for (const auto& c : want)
            if (inputs.count(c) == 0) return false;
    }
    return true;
}

std::string certificate(const Problem& p, const ClauseProof& proof) {
    std::ostringstream out;
    print_certificate(out, p, proof);
    return out.str();
}

// Atoms 1: x + y <= 3/2, 2: y >= 1, 3: 3x >= 1, 4: y >= 2; 5 is a plain proposition, assumed
// false. Under ¬5 the inputs give 1 and 4, lemma 4 gives 2, and lemma 3 refutes 1, 2, 3 only
// with 3x >= 1 rounded to x >= 1 over an Int x.
ClauseProof hand_proof() {
    ClauseProof p;
    p.atoms = {{1, Relation::Le, {{1, 1}, {2, 1}}, QNumber(3, 2)},
               {2, Relation::Ge, {{2, 1}}, 1},
               {3, Relation::Ge, {{1, 3}}, 1},
               {4, Relation::Ge, {{2, 1}}, 2}};
    p.assumptions = {-5};
    p.steps = {{K::Input, {3}, {}},         {K::Input, {1, 5}, {}},
               {K::Input, {4, 5}, {}},      {K::Lemma, {-1, -2, -3}, {3, 3, 1}},
               {K::Lemma, {2, -4}, {1, 1}}, {K::Learned, {5, 2}, {}},
               {K::Learned, {5}, {}}};
    return p;
}

// Atoms 1: x >= 1, 2: x <= 0, 3: x <= b, the box of guard 4 (assumed): 2 rows over 1 variable,
// measures 2 and 1, so a box needs b >= (2·1 + 2)·(2·2)^5 = 4096.
ClauseProof box_proof(const QNumber& b) {
    ClauseProof p;
    p.atoms = {{1, Relation::Ge, {{1, 1}}, 1},
               {2, Relation::Le, {{1, 1}}, 0},
               {3, Relation::Le, {{1, 1}}, b}};
    p.boxes = {{4, b}};
    p.assumptions = {4};
    p.steps = {{K::Input, {1}, {}},
               {K::Input, {2}, {}},
               {K::Input, {-4, 3}, {}},
               {K::Lemma, {-1, -2}, {1, 1}},
               {K::Learned, {-4}, {}}};
    return p;
}

// With 5: y >= 1/2 (Real y, measure 2 scaled whole) a third row over 2 variables: the mixed
// bound, M = 5 and N = 2·2 + 5 + 1, needs b >= 11·(5·2)^5 = 1100000.
ClauseProof mixed_box_proof(const QNumber& b) {
    ClauseProof p = box_proof(b);
    p.atoms.push_back({5, Relation::Ge, {{2, 1}}, QNumber(1, 2)});
    p.steps.insert(p.steps.begin(), {K::Input, {5}, {}});
    return p;
}

// Pigeonhole: x and z + 1 (x 1, z 4) both in [0, 0] by atoms 1-4, so they are equal, the `and` 7
// of 5: x - z <= 1 and 6: x - z >= 1, which the input clause -5 -6 forbids.
ClauseProof hall_proof() {
    using DK = ClauseProof::Definition::Kind;
    ClauseProof p;
    p.atoms = {{1, Relation::Ge, {{1, 1}}, 0},          {2, Relation::Le, {{1, 1}}, 0},
               {3, Relation::Ge, {{4, 1}}, -1},         {4, Relation::Le, {{4, 1}}, -1},
               {5, Relation::Le, {{1, 1}, {4, -1}}, 1}, {6, Relation::Ge, {{1, 1}, {4, -1}}, 1}};
    p.definitions = {{7, DK::And, {5, 6}, 0}};
    p.steps = {{K::Input, {1}, {}},      {K::Input, {2}, {}},
               {K::Input, {3}, {}},      {K::Input, {4}, {}},
               {K::Input, {-5, -6}, {}}, {K::Input, {-7, 5}, {}},
               {K::Input, {-7, 6}, {}},  {K::Lemma, {-1, -2, -3, -4, 7}, {}},
               {K::Learned, {-7}, {}},   {K::Learned, {}, {}}};
    p.steps[7].hall = ClauseProof::Hall{0, 0, {{1, 0}, {4, 1}}};
    return p;
}

TEST(ClauseCertificate, BothCheckersJudgeSpoiledProofs) {
    struct Case {
        const char* what;
        void (*spoil)(ClauseProof&);
        const char* fault;  // a part of check_proof's message; "" when valid
        bool x_int = true;
    } cases[] = {
        // clang-format off
        {"as made", [](auto&) {}, ""},
        {"x Real: no rounding", [](auto&) {}, "step 3 (lemma): is no contradiction", false},
        {"a zero sum with a strict bound", [](auto& p) { p.atoms[3].constant = 1; }, ""},
        {"a positive sum", [](auto& p) { p.atoms[3].constant = QNumber(1, 2); }, "step 4 (lemma)"},
        {"a multiplier changed", [](auto& p) { p.steps[3].farkas[2] = 2; }, "leaves a variable"},
        {"negative m", [](auto& p) { p.steps[4] = {K::Lemma, {-2, 4}, {-1, -1}}; }, "negative"},
        {"a multiplier missing", [](auto& p) { p.steps[3].farkas.pop_back(); }, "2 multipliers"},
        {"a used literal no atom", [](auto& p) { p.steps[4].clause[1] = -5; }, "which is no atom"},
        {"a relation flipped", [](auto& p) { p.atoms[2].relation = Relation::Le; }, "step 3"},
        {"a literal dropped", [](auto& p) { p.steps[5].clause = {2}; }, "step 5 (learned)"},
        {"empty final clause", [](auto& p) { p.steps[6].clause = {}; }, "step 6 (learned)"},
        {"an input removed", [](auto& p) { p.steps.erase(p.steps.begin() + 2); }, "step 4 (lea"},
        {"the unit removed", [](auto& p) { p.steps.erase(p.steps.begin()); }, "step 5 (learned)"},
        {"no assumptions", [](auto& p) { p.assumptions.clear(); }, "negated assumptions"},
        {"assumption flipped", [](auto& p) { p.assumptions = {5}; }, "negated assumptions"},
        {"the last step input", [](auto& p) { p.steps[6].kind = K::Input; }, "negated assum"},
        {"no steps", [](auto& p) { p.steps.clear(); }, "no steps"},
        {"literal 0", [](auto& p) { p.steps[1].clause = {1, 0}; }, "step 1 (input): literal 0"},
        {"over no variable", [](auto& p) { p.atoms[3].term = {{9, 1}}; }, "atom 4: over 9"},
        {"over a Bool", [](auto& p) { p.atoms[3].term = {{3, 1}}; }, "atom 4: over 3"},
        {"defined twice", [](auto& p) { p.atoms[3].var = 3; }, "atom 3: defined twice"},
        {"a repeat", [](auto& p) { p.atoms[1].term.push_back({2, 1}); }, "repeats a variable"},
        {"a zero", [](auto& p) { p.atoms[1].term[0].coeff = 0; }, "zero coefficient"},
        {"no variable", [](auto& p) { p.atoms[1].term.clear(); }, "has no variable"},
        {"a box of 4096", [](auto& p) { p = box_proof(4096); }, ""},
        {"a box of 4095", [](auto& p) { p = box_proof(4095); }, "below the bound 4096"},
        {"a box over x Real", [](auto& p) { p = box_proof(4096); }, "on a Real variable", false},
        {"a mixed box of 1100000", [](auto& p) { p = mixed_box_proof(1100000); }, ""},
        {"a mixed box of 1099999", [](auto& p) { p = mixed_box_proof(1099999); }, "below the bound"},
        {"a box clause no bound", [](auto& p) { p = box_proof(4096); p.steps[2].clause = {-4, -3}; },
         "no bound x <= B"},
        {"an assumed atom counts toward the box", [](auto& p) { p = box_proof(4096);
             p.atoms[0].constant = 5000; p.steps.erase(p.steps.begin());
             p.steps.back().clause = {-1, -4}; p.assumptions = {4, 1}; }, "below the bound"},
        {"a negative box guard", [](auto& p) { p = box_proof(4096); p.boxes[0].var = -4; },
         "no variable of its own"},
        {"a box guard that is a level", [](auto& p) { p = box_proof(4096);
             p.definitions = {{4, ClauseProof::Definition::Kind::Select, {}, 1}}; },
         "no variable of its own"},
        {"pigeonhole", [](auto& p) { p = hall_proof(); }, ""},
        {"pigeonhole over a Real", [](auto& p) { p = hall_proof(); }, "is no Int variable", false},
        {"pigeonhole with room", [](auto& p) { p = hall_proof(); p.steps[7].hall->high = 1; },
         "no more terms than integers"},
        {"pigeonhole, a bound missing", [](auto& p) { p = hall_proof();
             p.steps[7].clause.erase(p.steps[7].clause.begin() + 2); }, "does not bound x4"},
        {"pigeonhole, an offset wrong", [](auto& p) { p = hall_proof();
             p.steps[7].hall->terms[1].offset = 0; }, "does not bound x4"},
        {"pigeonhole, a pair's atom off", [](auto& p) { p = hall_proof(); p.atoms[5].constant = 2; },
         "no literal of the clause holds when x1 and x4"},
        {"pigeonhole, a pair missing", [](auto& p) { p = hall_proof();
             p.steps[7].clause.pop_back(); }, "no literal of the clause holds"},
        // clang-format on
    };
    for (const Case& c : cases) {
        Problem problem(NameSyntax::SmtLib);  // x (1), y (2), b (3)
        problem.variables.add("x", c.x_int ? Sort::Int : Sort::Real, {});
        problem.variables.add("y", Sort::Real, {});
        problem.variables.add("b", Sort::Bool, {});
        problem.variables.add("z", Sort::Int, {});
        ClauseProof proof = hand_proof();
        c.spoil(proof);
        std::string fault = check_proof(problem, proof);
        if (*c.fault == '\0')
            EXPECT_EQ(fault, "") << c.what;
        else
            EXPECT_NE(fault.find(c.fault), std::string::npos) << c.what << ": " << fault;
        EXPECT_EQ(certificate_checks(certificate(problem, proof)), *c.fault == '\0')
            << c.what << "\n"
            << certificate(problem, proof);
    }
}

// Each learned clause {-i, i+2} takes two propagations; a checker that propagates every clause
// again for every step would take quadratic time here.
TEST(ClauseCertificate, LongChainChecks) {
    const std::int64_t n = 20000;
    ClauseProof proof;
    for (std::int64_t i = 1; i <= n; ++i)
        proof.steps.push_back({K::Input, {-i, i + 1}, {}});
    for (std::int64_t i = 1; i < n; ++i)
        proof.steps.push_back({K::Learned, {-i, i + 2}, {}});
    proof.steps.push_back({K::Input, {1}, {}});
    proof.steps.push_back({K::Input, {-(n + 1)}, {}});
    proof.steps.push_back({K::Learned, {}, {}});
    Problem p(NameSyntax::SmtLib);
    EXPECT_EQ(check_proof(p, proof), "");
    EXPECT_TRUE(certificate_checks(certificate(p, proof)));
    proof.steps[n + n / 2].clause = {-(n / 2 + 3), n / 2 + 1};  // backwards: not implied
    EXPECT_EQ(check_proof(p, proof), "step " + std::to_string(n + n / 2) +
                                         " (learned): does not follow by unit propagation");
    EXPECT_FALSE(certificate_checks(certificate(p, proof)));
}

// Random formulas over Int and Real x0..x2 and a Bool b: and/or/xor/ite over comparisons of
// every relation, under assumptions at times, and again inside a push. Every third formula is
// over differences of variables of one sort.
struct RandomFormula {
    std::mt19937 rng;
    Problem& p;
    Encoder& e;
    bool difference;

    int pick(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }
    Literal leaf() {
        if (pick(5) == 0) return e.variable(4);
        vorn::smt::LinearExpr t;
        if (difference) {  // a·x − a·y or a·x: the difference theory decides these
            int a = 1 + pick(2), x = 1 + pick(3), y = 1 + pick(3);
            t.add_entry(x, a);
            if (y != x) t.add_entry(y, -a);
        } else {
            for (int v = 1; v <= 3; ++v)
                if (pick(2) == 0) t.add_entry(v, pick(5) - 2);
        }
        int num = pick(7) - 3;
        t.add_entry(0, QNumber(num, 1 + pick(2)));
        const Relation rel[] = {Relation::Le, Relation::Lt, Relation::Ge,
                                Relation::Gt, Relation::Eq, Relation::Ne};
        Literal lit = e.compare(rel[pick(6)], p.add_term(t));
        return pick(2) == 0 ? lit : ~lit;
    }
    Literal formula(int depth) {
        if (depth == 0) return leaf();
        Literal a = formula(depth - 1), b = formula(depth - 1), c = formula(depth - 1);
        std::vector<Literal> abc{a, b, c};
        int op = pick(4);
        return op == 0   ? e.conjunction(abc)
               : op == 1 ? e.disjunction(abc)
               : op == 2 ? e.exclusive_or(a, b)
                         : e.ite(a, b, c);
    }
};

// Two engine faults (reported) end proofs in a step the checkers reject: a check inside a push
// refutes under the push's activation literal, which the proof does not list among the
// assumptions, and a pop after the problem became unsat appends its input clause after the
// empty clause. The test counts such proofs and skips at the end, after checking the others.
TEST(ClauseCertificate, RandomUnsatAnswersCheck) {
    int unsat = 0, checked = 0;
    std::uint64_t relaxed = 0;
    std::string all;
    const unsigned seeds = std::getenv("VORN_QUICK") != nullptr ? 300 : 1000;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        Problem p(NameSyntax::SmtLib);
        std::mt19937 sorts(seed);
        bool difference = seed % 3 == 0, one_sort = sorts() % 2 == 0;
        for (const char* name : {"x0", "x1", "x2"})
            p.variables.add(
                name, (difference ? one_sort : sorts() % 2 == 0) ? Sort::Int : Sort::Real, {});
        p.variables.add("b", Sort::Bool, {});
        Encoder e(p);
        RandomFormula gen{std::mt19937(seed), p, e, difference};
        Context context(p, DecideOptions{.bb_limit = 200, .certify = true});
        auto check = [&](std::vector<Literal> assumptions) {
            Decision d = context.check(assumptions);
            relaxed += d.stats.relaxed_literals;
            if (d.result != vorn::lra::Result::Unsat) return;
            ++unsat;
            ClauseProof& proof = d.clause_proof;
            std::string fault = check_proof(p, proof);
            ASSERT_EQ(fault, "") << "seed " << seed << "\n" << certificate(p, proof);
            EXPECT_TRUE(definitions_match_inputs(proof)) << "seed " << seed << "\n"
                                                         << certificate(p, proof);
            all += certificate(p, proof);
            ++checked;
            for (auto& step : proof.steps)  // the first lemma, a used multiplier spoiled
                if (step.kind == K::Lemma) {
                    auto m = std::find_if(step.farkas.begin(), step.farkas.end(),
                                          [](const QNumber& q) { return !q.is_zero(); });
                    ASSERT_NE(m, step.farkas.end()) << "seed " << seed;
                    *m += QNumber(1, 3);
                    EXPECT_NE(check_proof(p, proof), "") << "seed " << seed;
                    break;
                }
        };
        for (int k = 1 + gen.pick(4); k > 0; --k)
            e.assert_true(gen.formula(gen.pick(3)));
        std::vector<Literal> assumptions;
        for (int k = gen.pick(3); k > 0; --k)
            assumptions.push_back(gen.leaf());
        check(assumptions);
        if (gen.pick(3) == 0) {
            std::uint32_t props = p.boolean.propositions();
            context.push();
            e.assert_true(gen.formula(1));
            check({});
            context.pop();
            e.truncate(props);
            check({});
        }
    }
    std::printf("%d unsat answers, %d certificates checked, %llu relaxed literals\n", unsat,
                checked, static_cast<unsigned long long>(relaxed));
    EXPECT_GT(checked, 50);
    EXPECT_GT(relaxed, 0u);
    EXPECT_TRUE(certificate_checks(all));
}

// Boxed Int x1..x3 under clauses of one or two atoms with coefficients up to 6, whose vertices
// are fractional, so that the search cuts; the answer must be enumeration's with cuts on and
// off, and with relaxed explanations and the theory's phase or without, a model must satisfy
// every clause, and every refutation (cut lemmas included) must check.
TEST(ClauseCertificate, IntegerCutsAgainstEnumeration) {
    struct Atom {
        int a[3];
        Relation rel;
        int c;
    };
    constexpr int kBox = 4;
    std::uint64_t cuts = 0;
    unsigned refuted = 0;
    std::string all;
    const unsigned seeds = std::getenv("VORN_QUICK") != nullptr ? 60 : 300;
    for (unsigned seed = 1; seed <= seeds; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return lo + static_cast<int>(rng() % (hi - lo + 1)); };
        std::vector<std::vector<Atom>> clauses(static_cast<std::size_t>(pick(3, 6)));
        for (auto& clause : clauses)
            for (int k = pick(1, 2); k > 0; --k)
                clause.push_back({{pick(-6, 6), pick(-6, 6), pick(-6, 6)},
                                  pick(0, 1) == 0 ? Relation::Le : Relation::Ge,
                                  pick(-12, 12)});
        clauses[0].resize(2, clauses[0][0]);  // a disjunction: the Boolean search decides
        auto holds = [&](const Atom& t, auto value) {
            QNumber sum;
            for (int v = 0; v < 3; ++v)
                sum += QNumber(t.a[v]) * value(v);
            return t.rel == Relation::Le ? sum <= QNumber(t.c) : sum >= QNumber(t.c);
        };
        auto satisfied = [&](auto value) {
            return std::all_of(clauses.begin(), clauses.end(), [&](const auto& clause) {
                return std::any_of(clause.begin(), clause.end(),
                                   [&](const Atom& t) { return holds(t, value); });
            });
        };
        bool expected = false;
        for (int point = 0; point < 729 && !expected; ++point)
            expected = satisfied([&](int v) {
                return QNumber((point / (v == 0 ? 1 : v == 1 ? 9 : 81)) % 9 - kBox);
            });
        struct Config {
            bool cuts, relax, phase, tableau = true;
        };
        for (Config c : {Config{true, true, false},
                         {false, true, true},
                         {false, false, false},
                         {false, true, true, false}}) {
            SCOPED_TRACE("seed " + std::to_string(seed) + (c.cuts ? ", cuts" : ", no cuts") +
                         (c.relax ? ", relaxed" : "") + (c.phase ? ", theory phase" : "") +
                         (c.tableau ? ", tableau rows" : ""));
            Problem p(NameSyntax::SmtLib);
            for (const char* name : {"x1", "x2", "x3"})
                p.variables.add(name, Sort::Int, {});
            Encoder e(p);
            auto literal = [&](const Atom& t) {
                LinearExpr term;
                for (int v = 0; v < 3; ++v)
                    term.add_entry(v + 1, t.a[v]);
                term.add_entry(0, -t.c);
                return e.compare(t.rel, p.add_term(term));
            };
            for (int v = 0; v < 3; ++v)
                for (Relation r : {Relation::Le, Relation::Ge}) {
                    Atom box{{v == 0, v == 1, v == 2}, r, r == Relation::Le ? kBox : -kBox};
                    e.assert_true(literal(box));
                }
            for (const auto& clause : clauses) {
                std::vector<Literal> lits;
                for (const Atom& t : clause)
                    lits.push_back(literal(t));
                e.assert_true(e.disjunction(lits));
            }
            Context context(p, DecideOptions{.bb_limit = 0,
                                             .cuts = c.cuts,
                                             .relax_explanations = c.relax,
                                             .theory_phase = c.phase,
                                             .tableau_propagation = c.tableau,
                                             .certify = true});
            Decision d = context.check({});
            cuts += d.stats.cuts;
            ASSERT_EQ(d.result, expected ? vorn::lra::Result::Sat : vorn::lra::Result::Unsat);
            if (expected) {
                EXPECT_TRUE(
                    satisfied([&](int v) { return d.model[static_cast<std::size_t>(v + 1)]; }));
                continue;
            }
            ASSERT_EQ(check_proof(p, d.clause_proof), "") << certificate(p, d.clause_proof);
            all += certificate(p, d.clause_proof);
            ++refuted;
        }
    }
    std::printf("%llu cuts, %u refutations\n", static_cast<unsigned long long>(cuts), refuted);
    // Cuts must really be made; the unit cube test now finds many points without any.
    EXPECT_GT(cuts, seeds / 2);
    EXPECT_GT(refuted, seeds / 5);
    EXPECT_TRUE(certificate_checks(all));
}

// Two or three alternative systems of integer equalities over unbounded Int variables, one
// switched on by each of the selectors, at least one: A = U·D·A0 as in bench/gen_lattice.py (D
// scales one row by k, U mixes the rows so that no single row's gcd shows the lattice), the
// right-hand sides A·x, moved off the lattice by U·D's column of the scaled row times 1..k-1
// for the alternatives that must fail. Branching on single variables never closes these; the
// answer must be the construction's, a model must satisfy an alternative, and each refutation
// must check.
TEST(ClauseCertificate, LatticeAlternativesAgainstConstruction) {
    const unsigned base_seed = 5300, seeds = std::getenv("VORN_QUICK") != nullptr ? 40 : 120;
    unsigned answers[2] = {0, 0};
    std::uint64_t splits = 0;
    std::string all;
    for (unsigned seed = base_seed; seed < base_seed + seeds; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        int m = pick(2, 4), n = m + (m + 1) / 2;
        using Matrix = std::vector<std::vector<long>>;
        Matrix a(static_cast<std::size_t>(m), std::vector<long>(static_cast<std::size_t>(n)));
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < n; ++j)
                a[i][j] = j < m ? (i == j) : pick(-3, 3);
        for (int step = 0; step < 2 * n; ++step) {  // columns mixed: they still span Z^m
            int c = pick(0, n - 1), e = (c + pick(1, n - 1)) % n,
                f = pick(1, 2) * (pick(0, 1) ? 1 : -1);
            for (auto& row : a)
                row[c] += f * row[e];
        }
        int k_row = pick(0, m - 1), k = pick(2, 5);
        for (long& v : a[k_row])
            v *= k;
        std::vector<long> shift(static_cast<std::size_t>(m));
        shift[k_row] = pick(1, k - 1);
        auto add_row = [&](int r, int s, long f) {
            for (int j = 0; j < n; ++j)
                a[r][j] += f * a[s][j];
            shift[r] += f * shift[s];
        };
        add_row(k_row, (k_row + 1) % m, 1);
        for (int step = 0; step < 3 * m; ++step) {
            int r = pick(0, m - 1), s = (r + pick(1, m - 1)) % m;
            add_row(r, s, pick(1, 2) * (pick(0, 1) ? 1 : -1));
        }
        int choices = pick(2, 3), on = pick(-1, choices - 1);  // −1: none on the lattice
        std::vector<std::vector<long>> rhs;
        std::vector<long> x(static_cast<std::size_t>(n)), witness;
        for (int j = 0; j < choices; ++j) {
            for (long& v : x)
                v = pick(-20, 20);
            if (j == on || witness.empty()) witness = x;
            rhs.emplace_back();
            for (int i = 0; i < m; ++i) {
                long b = 0;
                for (int c = 0; c < n; ++c)
                    b += a[i][c] * x[c];
                rhs.back().push_back(b + (j == on ? 0 : shift[i]));
            }
        }

        Problem p(NameSyntax::SmtLib);
        for (int v = 0; v < n; ++v)
            p.variables.add("x" + std::to_string(v), Sort::Int, {});
        Encoder e(p);
        auto compare = [&](Relation r, const std::vector<long>& coeffs, long rhs) {  // Σ c·x ⋈ rhs
            LinearExpr term;
            for (int c = 0; c < n; ++c)
                term.add_entry(c + 1, QNumber(coeffs[c]));
            term.add_entry(0, QNumber(-rhs));
            return e.compare(r, p.add_term(term));
        };
        std::vector<Literal> selectors;
        for (int j = 0; j < choices; ++j) {
            selectors.push_back(
                e.variable(p.variables.add("s" + std::to_string(j), Sort::Bool, {})));
            for (int i = 0; i < m; ++i)
                e.assert_true(e.disjunction(std::vector<Literal>{
                    ~selectors.back(), compare(Relation::Eq, a[i], rhs[j][i])}));
        }
        e.assert_true(e.disjunction(selectors));
        // Side clauses x_a <= w_a or x_b >= w_b + d, true at the witness w: a lattice point that
        // keeps the equalities may still break them.
        struct Side {
            int a, b;
            long upper, lower;
        };
        std::vector<Side> sides;
        for (int k = 0; k < 2; ++k) {
            Side side{pick(0, n - 1), pick(0, n - 1), 0, 0};
            side.upper = witness[side.a];
            side.lower = witness[side.b] + pick(0, 3);
            sides.push_back(side);
            std::vector<long> xa(n), xb(n);
            xa[side.a] = xb[side.b] = 1;
            e.assert_true(e.disjunction(std::vector<Literal>{
                compare(Relation::Le, xa, side.upper), compare(Relation::Ge, xb, side.lower)}));
        }
        Context context(p, DecideOptions{.certify = true});
        Decision d = context.check({});
        splits += d.stats.lattice_splits;
        ASSERT_EQ(d.result, on >= 0 ? vorn::lra::Result::Sat : vorn::lra::Result::Unsat);
        ++answers[on >= 0 ? 1 : 0];
        if (on >= 0) {
            auto value = [&](int c) { return d.model[static_cast<std::size_t>(c + 1)]; };
            bool some = false;
            for (int j = 0; j < choices; ++j) {
                if (value(n + j) != QNumber(1)) continue;  // s_j
                for (int i = 0; i < m; ++i) {
                    QNumber sum;
                    for (int c = 0; c < n; ++c)
                        sum += QNumber(a[i][c]) * value(c);
                    EXPECT_EQ(sum, QNumber(rhs[j][i]))
                        << "alternative " << j << " is on, row " << i;
                }
                some = true;
            }
            for (int c = 0; c < n; ++c)
                EXPECT_TRUE(value(c).is_integer());
            EXPECT_TRUE(some) << "no alternative is on";
            for (const Side& side : sides)
                EXPECT_TRUE(value(side.a) <= QNumber(side.upper) ||
                            value(side.b) >= QNumber(side.lower));
            continue;
        }
        ASSERT_EQ(check_proof(p, d.clause_proof), "") << certificate(p, d.clause_proof);
        all += certificate(p, d.clause_proof);
    }
    std::printf("%u sat, %u unsat, %llu lattice splits\n", answers[1], answers[0],
                static_cast<unsigned long long>(splits));
    EXPECT_GT(answers[0], seeds / 5);
    EXPECT_GT(answers[1], seeds / 2);
    EXPECT_GT(splits, seeds / 4);  // most unsat ones need one; rounding spares many sat ones
    EXPECT_TRUE(certificate_checks(all));
}

}  // namespace

// Distincts of 3-5 terms x + c, c in -1..1, x in a random range of 1-4 integers, asserted or
// under a disjunction whose other side the bounds make false: the answer must be enumeration's,
// and every refutation (pigeonhole lemmas among them) must check.
TEST(ClauseCertificate, DistinctAgainstEnumeration) {
    std::string all;
    unsigned hall = 0;
    for (unsigned seed = 1; seed <= 200; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return lo + static_cast<int>(rng() % (hi - lo + 1)); };
        int n = pick(3, 5);
        std::vector<int> offset(n), low(n), high(n);
        Problem p(NameSyntax::SmtLib);
        for (int i = 0; i < n; ++i) {
            p.variables.add("x" + std::to_string(i), Sort::Int, {});
            offset[i] = pick(-1, 1), low[i] = pick(-1, 1), high[i] = low[i] + pick(0, 3);
        }
        auto term = [&](int var, int coeff, int c) {
            LinearExpr t;
            t.add_entry(var, coeff);
            t.add_entry(0, c);
            return p.add_term(t);
        };
        std::uint32_t first = term(1, 1, offset[0]);
        for (int i = 1; i < n; ++i)
            term(i + 1, 1, offset[i]);
        Atom distinct{Relation::Distinct, first, static_cast<std::uint32_t>(n), {}};
        Encoder e(p);
        bool boolean = seed % 2 == 0;
        if (boolean)
            e.assert_true(e.disjunction(std::vector<Literal>{
                e.atom(distinct), e.compare(Relation::Ge, term(1, 1, -high[0] - 1))}));
        else
            p.atoms.push_back(distinct);
        for (int i = 0; i < n; ++i) {  // low <= x (as -x + low <= 0), x <= high
            p.atoms.push_back({Relation::Le, term(i + 1, -1, low[i]), 1, {}});
            p.atoms.push_back({Relation::Le, term(i + 1, 1, -high[i]), 1, {}});
        }
        bool expected = false;
        std::vector<int> x(low);
        for (bool more = true; more && !expected;) {
            std::set<int> values;
            for (int i = 0; i < n; ++i)
                values.insert(x[i] + offset[i]);
            expected = static_cast<int>(values.size()) == n;
            more = false;
            for (int i = 0; i < n && !more; ++i)
                if (x[i] < high[i])
                    ++x[i], more = true;
                else
                    x[i] = low[i];
        }
        Context context(p, DecideOptions{.certify = true});
        Decision d = context.check();
        ASSERT_EQ(d.result, expected ? vorn::lra::Result::Sat : vorn::lra::Result::Unsat)
            << "seed " << seed;
        if (expected) continue;
        for (const auto& step : d.clause_proof.steps)
            hall += step.hall ? 1 : 0;
        ASSERT_EQ(check_proof(p, d.clause_proof), "") << "seed " << seed;
        all += certificate(p, d.clause_proof);
    }
    EXPECT_GT(hall, 20u);
    EXPECT_TRUE(certificate_checks(all));
}
