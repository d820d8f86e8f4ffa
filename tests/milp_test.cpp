// Exact branch and bound against enumeration: small random problems with Int variables in a box
// (and at most one Real variable, whose best value for each integer point is an interval's end),
// the optimum equal to the best enumerated point, every certificate checked by the library's
// checker and rejected once spoiled (an optimum one better, a leaf dropped, a multiplier
// doubled).

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>

#include "vorn/smt/model_check.h"
#include "vorn/smt/optimize.h"
#include "vorn/util/stop.h"

using vorn::QNumber;
using vorn::smt::check_optimization;
using vorn::smt::Optimization;
using vorn::smt::Problem;
using vorn::smt::Relation;

namespace {

struct Row {
    std::vector<int> a;  // Int variables, then the Real one (when there is one)
    Relation rel;        // Le, Ge or Eq
    int b;
};

constexpr int kBox = 3;  // every variable in [−kBox, kBox]

// The best value over the Real variable y with the integer part fixed: each row bounds b·y.
std::optional<QNumber> best_over_real(const std::vector<Row>& rows, const std::vector<int>& x,
                                      int c_real, bool maximize, QNumber& base) {
    QNumber lo(-kBox), hi(kBox);
    for (const Row& row : rows) {
        QNumber rest(row.b);
        for (std::size_t j = 0; j < x.size(); ++j)
            rest -= QNumber(row.a[j] * x[j]);
        int b = row.a.back();
        if (b == 0) {
            bool ok = row.rel == Relation::Le   ? rest.sign() >= 0
                      : row.rel == Relation::Ge ? rest.sign() <= 0
                                                : rest.is_zero();
            if (!ok) return std::nullopt;
            continue;
        }
        QNumber bound = rest / QNumber(b);
        bool upper = (row.rel == Relation::Le) == (b > 0);
        if (row.rel == Relation::Eq || upper) hi = bound < hi ? bound : hi;
        if (row.rel == Relation::Eq || !upper) lo = lo < bound ? bound : lo;
    }
    if (hi < lo) return std::nullopt;
    QNumber y = (c_real > 0) == maximize ? hi : lo;
    return base + QNumber(c_real) * y;
}

// The best objective over the integer points of the box (and the Real variable's interval).
std::optional<QNumber> best_point(const std::vector<Row>& rows, const std::vector<int>& c, int n,
                                  bool with_real, bool maximize) {
    std::optional<QNumber> best;
    std::vector<int> x(n, -kBox);
    for (;;) {
        QNumber base;
        for (int j = 0; j < n; ++j)
            base += QNumber(c[j] * x[j]);
        std::optional<QNumber> v;
        if (with_real) {
            v = best_over_real(rows, x, c[n], maximize, base);
        } else {
            bool ok = true;
            for (const Row& row : rows) {
                QNumber s;
                for (int j = 0; j < n; ++j)
                    s += QNumber(row.a[j] * x[j]);
                QNumber b(row.b);
                ok = ok && (row.rel == Relation::Le   ? s <= b
                            : row.rel == Relation::Ge ? b <= s
                                                      : s == b);
            }
            if (ok) v = base;
        }
        if (v && (!best || (maximize ? *best < *v : *v < *best))) best = v;
        int k = 0;
        while (k < n && x[k] == kBox)
            x[k++] = -kBox;
        if (k == n) return best;
        ++x[k];
    }
}

Problem problem_of(const std::vector<Row>& rows, const std::vector<int>& c, int vars, int ints,
                   std::uint32_t& objective) {
    Problem p(vorn::smt::NameSyntax::SmtLib);
    for (int j = 0; j < vars; ++j)
        p.variables.add("x" + std::to_string(j),
                        j < ints ? vorn::smt::Sort::Int : vorn::smt::Sort::Real, {});
    vorn::smt::LinearExpr e;
    auto add = [&](Relation rel) { p.atoms.push_back({rel, p.add_term(e), 1, {}}); };
    for (const Row& row : rows) {
        e.clear();
        for (int j = 0; j < vars; ++j)
            e.add_entry(j + 1, QNumber(row.a[j]));
        e.add_entry(0, QNumber(-row.b));
        add(row.rel);
    }
    for (int j = 0; j < vars; ++j)
        for (Relation rel : {Relation::Ge, Relation::Le}) {
            e.clear();
            e.add_entry(j + 1, QNumber(1));
            e.add_entry(0, QNumber(rel == Relation::Ge ? kBox : -kBox));
            add(rel);
        }
    e.clear();
    for (int j = 0; j < vars; ++j)
        e.add_entry(j + 1, QNumber(c[j]));
    e.add_entry(0, QNumber(1, 2));
    objective = p.add_term(e);
    return p;
}

}  // namespace

TEST(Milp, MatchesEnumerationWithCheckedCertificates) {
    const unsigned base_seed = 5100;
    int kinds[4] = {0, 0, 0, 0}, spoiled_rejected = 0, cuts_spoiled = 0, cuts_rejected = 0;
    std::uint64_t float_closed = 0;
    int float_spoiled = 0, float_rejected = 0;
    using Kind = vorn::smt::ProofStep::Kind;
    for (unsigned seed = base_seed; seed < base_seed + 300; ++seed) {
        std::mt19937 rng(seed);
        auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
        const int ints = pick(1, 4);
        const bool with_real = seed % 3 == 0;
        const int vars = ints + (with_real ? 1 : 0);
        std::vector<Row> rows;
        for (int k = pick(1, 4); k > 0; --k) {
            Row row{std::vector<int>(vars),
                    pick(0, 6) == 0   ? Relation::Eq
                    : pick(0, 1) == 0 ? Relation::Le
                                      : Relation::Ge,
                    pick(-7, 7)};
            for (int& a : row.a)
                a = pick(-4, 4);
            rows.push_back(row);
        }
        std::vector<int> c(vars);
        for (int& v : c)
            v = pick(-5, 5);
        const bool maximize = pick(0, 1) == 1;
        std::uint32_t objective = 0;
        Problem p = problem_of(rows, c, vars, ints, objective);
        std::optional<QNumber> best = best_point(rows, c, ints, with_real, maximize);
        for (bool float_start : {true, false}) {
            SCOPED_TRACE("seed " + std::to_string(seed) + (float_start ? " float" : " exact"));
            vorn::smt::DecideOptions options;
            options.float_start = float_start;
            options.float_nodes = float_start;  // the exact runs: every node by the exact LP
            options.root_cut_rounds = float_start ? 0 : 3;  // the exact runs with root cuts
            Optimization answer = vorn::smt::optimize(p, objective, maximize, options);
            ASSERT_NE(answer.kind, Optimization::Kind::Unknown) << answer.reason_unknown;
            ASSERT_EQ(answer.kind == Optimization::Kind::Optimal, best.has_value());
            EXPECT_EQ(check_optimization(p, objective, maximize, answer), "");
            ++kinds[static_cast<int>(answer.kind)];
            float_closed += answer.stats.float_decided;
            // Nodes closed by a safe bound: their leaves list the bounds of every column with a
            // reduced cost; the longest one with a multiplier halved leaves a variable.
            auto longest = std::max_element(
                answer.proof.begin(), answer.proof.end(),
                [](const auto& a, const auto& b) { return a.farkas.size() < b.farkas.size(); });
            if (answer.stats.float_decided > 0 && longest->farkas.size() > 2) {
                ++float_spoiled;
                longest->farkas.back().multiplier /= QNumber(2);
                float_rejected += !check_optimization(p, objective, maximize, answer).empty();
                longest->farkas.back().multiplier *= QNumber(2);
            }
            if (!best) continue;
            EXPECT_EQ(answer.optimum, *best + QNumber(1, 2));
            // Each spoiled in place, checked, and put back. Claiming one better than the
            // optimum: the model no longer attains it.
            QNumber claimed = answer.optimum;
            answer.optimum += QNumber(maximize ? 1 : -1);
            spoiled_rejected += !check_optimization(p, objective, maximize, answer).empty();
            answer.optimum = claimed;
            // A proof tree without its last leaf leaves a split's child dangling.
            if (answer.proof.size() > 1) {
                vorn::smt::ProofStep last = std::move(answer.proof.back());
                answer.proof.pop_back();
                EXPECT_NE(check_optimization(p, objective, maximize, answer), "");
                answer.proof.push_back(std::move(last));
            }
            // A leaf of two or more bounds with one multiplier doubled leaves a variable.
            for (vorn::smt::ProofStep& step : answer.proof)
                if (step.farkas.size() > 1) {
                    step.farkas[0].multiplier *= QNumber(2);
                    EXPECT_NE(check_optimization(p, objective, maximize, answer), "");
                    break;
                }
            // Each cut (Gomory or MIR) spoiled in turn: the cut itself or the split it is
            // derived by on another term, or the cut's negation weighted wrongly in a leaf; each
            // leaves a variable.
            for (std::size_t n = 0; n + 1 < answer.proof.size(); ++n) {
                vorn::smt::ProofStep& cut = answer.proof[n];
                if (cut.kind != Kind::SplitCut || answer.proof[cut.low].kind != Kind::SplitCut)
                    continue;
                ++cuts_spoiled;
                vorn::smt::ProofStep& split = answer.proof[cut.low];
                for (auto* term : {&cut.term, &split.term}) {
                    (*term)[0].coeff += QNumber(1);
                    cuts_rejected += !check_optimization(p, objective, maximize, answer).empty();
                    (*term)[0].coeff -= QNumber(1);
                }
                auto& leaf = answer.proof[split.low].farkas;
                auto negation = std::find_if(leaf.begin(), leaf.end(), [&](const auto& e) {
                    return e.from_split && e.index == n;
                });
                ASSERT_NE(negation, leaf.end());
                negation->multiplier *= QNumber(3);
                cuts_rejected += !check_optimization(p, objective, maximize, answer).empty();
                negation->multiplier /= QNumber(3);
            }
        }
    }
    EXPECT_GT(float_closed, 100u);
    EXPECT_GT(float_spoiled, 20);
    EXPECT_EQ(float_rejected, float_spoiled);
    EXPECT_GT(cuts_spoiled, 20);
    EXPECT_EQ(cuts_rejected, 3 * cuts_spoiled);
    EXPECT_GT(kinds[0], 300);  // optimal
    EXPECT_GT(kinds[1], 60);   // infeasible
    EXPECT_EQ(kinds[2], 0);    // boxed: never unbounded
    EXPECT_EQ(spoiled_rejected, kinds[0]);
}

// An interrupt before the root's relaxation is solved: unknown, with no incumbent and no bound
// (nothing is proven), and the answer still passes the checker.
TEST(Milp, InterruptedBeforeTheRootProvesNothing) {
    std::vector<Row> rows = {{{2, 3}, Relation::Le, 7}, {{1, -1}, Relation::Ge, -2}};
    std::uint32_t objective = 0;
    Problem p = problem_of(rows, {1, 1}, 2, 2, objective);
    vorn::util::Stop stop;
    stop.interrupt();
    vorn::smt::DecideOptions options;
    options.stop = &stop;
    Optimization answer = vorn::smt::optimize(p, objective, true, options);
    EXPECT_EQ(answer.kind, Optimization::Kind::Unknown);
    EXPECT_FALSE(answer.incumbent);
    EXPECT_FALSE(answer.bound.has_value());
    EXPECT_EQ(check_optimization(p, objective, true, answer), "");
}
