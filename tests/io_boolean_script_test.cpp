// Scripts with Boolean structure against a deliberately simple reference: every truth assignment
// of the script's few atoms and Bool constants that satisfies the formulas is decided as a
// conjunction by smt::decide. Random scripts mix or, xor, =>, = between formulas, formula and
// term ites, shared lets, push/pop and check-sat-assuming over 2–3 Int and Real variables; every
// answer must match the reference and every model must satisfy the formulas as the generator
// evaluates them, with no code of the reader.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "vorn/io/real_literal.h"
#include "vorn/io/script_engine.h"
#include "vorn/smt/decision.h"
#include "vorn/smt/model_check.h"

namespace {

using vorn::QNumber;
using vorn::smt::Relation;

struct RefAtom {  // Σ coeffs·vars ⋈ k
    int coeffs[3];
    int k;
    Relation relation;
};

// A formula: its text, the atoms and Bool constants it reads, and its truth under their values.
struct Formula {
    std::string text;
    std::function<bool(const std::vector<bool>& atoms, const std::vector<bool>& bools)> eval;
};

struct Generator {
    explicit Generator(unsigned seed) : rng(seed) {
        vars = 2 + pick(2);
        for (int v = 0; v < vars; ++v)
            real.push_back(pick(2) == 0);
        for (int i = 0, n = 4 + pick(4); i < n; ++i)
            atoms.push_back(
                {{pick(5) - 2, pick(5) - 2, pick(3) - 1}, pick(7) - 3, kRelations[pick(6)]});
    }

    static constexpr Relation kRelations[] = {Relation::Le, Relation::Lt, Relation::Ge,
                                              Relation::Gt, Relation::Eq, Relation::Ne};
    std::mt19937 rng;
    int vars;
    std::vector<bool> real;
    std::vector<RefAtom> atoms;
    int lets = 0, ites = 0;

    int pick(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }
    static std::string num(int n) {
        return n < 0 ? "(- " + std::to_string(-n) + ")" : std::to_string(n);
    }
    std::string sum(const RefAtom& a, int skip = -1, const std::string& instead = "") {
        std::string s = "(+";
        for (int v = 0; v < vars; ++v)
            s += v == skip ? " " + instead
                           : " (* " + num(a.coeffs[v]) + " " + std::string(1, "xyz"[v]) + ")";
        return s + ")";
    }
    static std::string op(Relation r) {
        static const char* names[] = {"<=", "<", ">=", ">", "=", "distinct"};
        for (int i = 0; i < 6; ++i)
            if (kRelations[i] == r) return names[i];
        return "?";
    }
    Formula atom() {
        int i = pick(static_cast<int>(atoms.size()));
        if (pick(4) == 0 && ites < 2) {  // an ite term: its branches make two atoms
            ++ites;
            int j = static_cast<int>(atoms.size());
            atoms.push_back(atoms[i]);
            atoms[j].coeffs[0] += 1;
            Formula c = formula(2);
            std::string x = "(ite " + c.text + " (* " + num(atoms[i].coeffs[0]) + " x) (* " +
                            num(atoms[j].coeffs[0]) + " x))";
            return {"(" + op(atoms[i].relation) + " " + sum(atoms[i], 0, x) + " " +
                        num(atoms[i].k) + ")",
                    [c, i, j](const auto& a, const auto& b) { return c.eval(a, b) ? a[i] : a[j]; }};
        }
        return {"(" + op(atoms[i].relation) + " " + sum(atoms[i]) + " " + num(atoms[i].k) + ")",
                [i](const auto& a, const auto&) { return a[i]; }};
    }
    Formula formula(int depth) {
        int what = depth <= 0 ? pick(3) : pick(11);
        if (what == 0) {
            int b = pick(2);
            return {std::string(1, "pq"[b]), [b](const auto&, const auto& v) { return v[b]; }};
        }
        if (what <= 2) return atom();
        Formula f = formula(depth - 1), g = formula(depth - 1);
        auto both = [&](const char* o, auto fn) {
            return Formula{std::string("(") + o + " " + f.text + " " + g.text + ")",
                           [f, g, fn](const auto& a, const auto& b) {
                               return fn(f.eval(a, b), g.eval(a, b));
                           }};
        };
        switch (what) {
            case 3:
                return both("or", [](bool x, bool y) { return x || y; });
            case 4:
                return both("and", [](bool x, bool y) { return x && y; });
            case 5:
                return both("xor", [](bool x, bool y) { return x != y; });
            case 6:
                return both("=>", [](bool x, bool y) { return !x || y; });
            case 7:
                return both("=", [](bool x, bool y) { return x == y; });
            case 8:
                return {"(not " + f.text + ")",
                        [f](const auto& a, const auto& b) { return !f.eval(a, b); }};
            case 9: {
                Formula c = formula(depth - 1);
                return {"(ite " + c.text + " " + f.text + " " + g.text + ")",
                        [c, f, g](const auto& a, const auto& b) {
                            return c.eval(a, b) ? f.eval(a, b) : g.eval(a, b);
                        }};
            }
            default: {  // a let-bound formula used twice
                std::string s = "s" + std::to_string(lets++);
                return {"(let ((" + s + " " + f.text + ")) (xor " + s + " (or " + s + " " + g.text +
                            ")))",
                        [f, g](const auto& a, const auto& b) {
                            bool x = f.eval(a, b);
                            return x != (x || g.eval(a, b));
                        }};
            }
        }
    }

    // The reference: some assignment satisfies the formulas and its atoms hold together.
    bool satisfiable(const std::vector<Formula>& fs) {
        std::size_t n = atoms.size();
        std::vector<bool> a(n), b(2);
        for (std::uint32_t m = 0; m < (1u << n); ++m) {
            for (std::size_t i = 0; i < n; ++i)
                a[i] = (m >> i & 1) != 0;
            bool some = false;
            for (int bm = 0; bm < 4 && !some; ++bm) {
                b = {(bm & 1) != 0, (bm & 2) != 0};
                some = std::all_of(fs.begin(), fs.end(),
                                   [&](const Formula& f) { return f.eval(a, b); });
            }
            if (some && conjunction_sat(a)) return true;
        }
        return false;
    }
    bool conjunction_sat(const std::vector<bool>& truth) {
        vorn::smt::Problem p(vorn::smt::NameSyntax::SmtLib);
        for (int v = 0; v < vars; ++v)
            p.variables.add(std::string(1, "xyz"[v]),
                            real[v] ? vorn::smt::Sort::Real : vorn::smt::Sort::Int, {});
        auto add = [&](const int* coeffs, int k, Relation r) {
            vorn::smt::LinearExpr e;
            for (int v = 0; v < vars; ++v)
                e.add_entry(v + 1, QNumber(coeffs[v]));
            e.add_entry(0, QNumber(-k));
            p.atoms.push_back({r, p.add_term(e), 1, {}});
        };
        for (int v = 0; v < vars; ++v) {  // the script's bounds: -4 <= v <= 4
            int unit[3] = {0, 0, 0};
            unit[v] = 1;
            add(unit, -4, Relation::Ge);
            add(unit, 4, Relation::Le);
        }
        for (std::size_t i = 0; i < atoms.size(); ++i)
            add(atoms[i].coeffs, atoms[i].k,
                truth[i] ? atoms[i].relation : vorn::smt::negation(atoms[i].relation));
        vorn::smt::DecideOptions options;
        options.bb_limit = 0;
        return vorn::smt::decide(p, options).result == vorn::lra::Result::Sat;
    }
};

// "5", "(- 2.0)", "(/ (- 1) 3)", "true": the value, Bools as 0 and 1.
QNumber value_of(const std::string& text) {
    if (text == "true" || text == "false") return QNumber(text == "true" ? 1 : 0);
    std::vector<std::string> numbers;
    std::istringstream words(text);
    for (std::string w; words >> w;) {
        std::erase(w, '(');
        std::erase(w, ')');
        if (!w.empty() && w != "-" && w != "/") numbers.push_back(w);
    }
    QNumber v = *vorn::io::parse_real_literal(numbers.at(0));
    if (numbers.size() > 1) v = v / *vorn::io::parse_real_literal(numbers[1]);
    return text.find("(- ") != std::string::npos ? -v : v;
}

TEST(BooleanScripts, AnswerAsEnumerationOfTruthAssignments) {
    int checks = 0, sat = 0;
    for (unsigned seed = 1; seed <= 150; ++seed) {
        Generator gen(seed);
        std::ostringstream script;
        for (int v = 0; v < gen.vars; ++v)
            script << "(declare-const "
                   << "xyz"[v] << (gen.real[v] ? " Real)" : " Int)") << "(assert (<= (- 4) "
                   << "xyz"[v] << " 4))\n";
        script << "(declare-const p Bool)(declare-const q Bool)\n";
        std::vector<std::vector<Formula>> levels(1);
        std::vector<std::vector<Formula>> expected;  // per check: what must hold
        for (int c = 0; c < 12; ++c) {
            int what = gen.pick(8);
            if (what <= 3) {
                Formula f = gen.formula(3);
                script << "(assert " << f.text << ")\n";
                levels.back().push_back(f);
                continue;
            }
            if (what == 4 && levels.size() < 3) {
                script << "(push)\n";
                levels.emplace_back();
                continue;
            }
            if (what == 5 && levels.size() > 1) {
                script << "(pop)\n";
                levels.pop_back();
                continue;
            }
            std::vector<Formula> all;
            for (const auto& level : levels)
                all.insert(all.end(), level.begin(), level.end());
            if (what == 6) {
                Formula f = gen.formula(2);
                script << "(check-sat-assuming (" << f.text << "))\n";
                all.push_back(f);
            } else {
                script << "(check-sat)\n";
            }
            script << "(get-model)\n";
            expected.push_back(all);
        }
        vorn::io::CheckOptions options;
        options.decide.bb_limit = 0;
        std::ostringstream out;
        vorn::io::CheckStats stats;
        vorn::io::run_script(script.str(), "gen.smt2", options, out, stats);
        std::istringstream lines(out.str());
        std::string line;
        for (const auto& fs : expected) {
            ++checks;
            ASSERT_TRUE(std::getline(lines, line)) << "seed " << seed << "\n" << script.str();
            bool want = gen.satisfiable(fs);
            ASSERT_EQ(line, want ? "sat" : "unsat")
                << "seed " << seed << ", check " << checks << "\n"
                << script.str() << out.str();
            std::getline(lines, line);
            if (!want) continue;  // get-model answered with an error line
            ++sat;
            std::vector<QNumber> model(3);
            std::vector<bool> bools(2);
            while (std::getline(lines, line) && line != ")") {
                std::size_t sort = line.find("() ") + 3, value = line.find(' ', sort) + 1;
                std::string name = line.substr(12, sort - 16);
                QNumber v = value_of(line.substr(value, line.size() - value - 1));
                if (name == "p" || name == "q")
                    bools[name == "q"] = !v.is_zero();
                else
                    model[static_cast<std::size_t>(name[0] - 'x')] = v;
            }
            std::vector<bool> truth;
            for (const RefAtom& a : gen.atoms) {
                QNumber t(-a.k);
                for (int v = 0; v < gen.vars; ++v)
                    t += QNumber(a.coeffs[v]) * model[static_cast<std::size_t>(v)];
                truth.push_back(vorn::smt::relation_holds(a.relation, t.sign()));
            }
            for (int v = 0; v < gen.vars; ++v)
                ASSERT_TRUE(gen.real[v] || model[static_cast<std::size_t>(v)].is_integer())
                    << "seed " << seed;
            for (const Formula& f : fs)
                ASSERT_TRUE(f.eval(truth, bools))
                    << "seed " << seed << ": the model violates " << f.text << "\n"
                    << script.str() << out.str();
        }
    }
    std::printf("%d checks, %d sat\n", checks, sat);
    EXPECT_GT(sat * 5, checks);
    EXPECT_GT((checks - sat) * 5, checks);
}

}  // namespace
