#include "vorn/smt/ite_values.h"

#include <algorithm>

#include "vorn/smt/formula_folding.h"

namespace vorn::smt {

namespace {

constexpr FormulaRef kTrue = 0, kFalse = 1;

}  // namespace

void IteValues::lifted(int var, FormulaRef definition, FormulaRef condition, const LinearExpr& then,
                       const LinearExpr& otherwise) {
    auto v = static_cast<std::size_t>(var);
    if (ites_.size() <= v) ites_.resize(v + 1);
    Ite& ite = ites_[v];
    ite = Ite{};
    ite.definition = definition;
    ite.condition = condition;
    const LinearExpr* exprs[] = {&then, &otherwise};
    for (int i = 0; i < 2; ++i) {
        Branch& b = ite.branches[i];
        b.var = 0;
        for (const auto& e : exprs[i]->entries()) {
            if (e.var == 0) {
                b.offset = e.coeff;
            } else if (b.var != 0) {
                b.var = -1;
                break;
            } else {
                b.var = e.var;
                b.scale = e.coeff;
            }
        }
    }
}

bool IteValues::known(const FormulaDag& dag, int var) const {
    if (var <= 0 || static_cast<std::size_t>(var) >= ites_.size()) return false;
    const Ite& ite = ites_[static_cast<std::size_t>(var)];
    std::int64_t i = dag.lifted_index(var);
    if (ite.definition == 0 || i < 0) return false;
    const LiftedIte& l = dag.lifted()[static_cast<std::size_t>(i)];
    return l.kind == LiftedIte::Ite && l.definition == ite.definition;
}

// Children before parents, by an explicit stack: a chain of ites may be as long as the input.
bool IteValues::finite(const FormulaDag& dag, int var) {
    if (!known(dag, var)) return false;
    std::vector<int> stack{var};
    while (!stack.empty()) {
        Ite& ite = ites_[static_cast<std::size_t>(stack.back())];
        if (ite.state != Ite::Unknown) {
            stack.pop_back();
            continue;
        }
        bool infinite = false, pending = false;
        for (const Branch& b : ite.branches) {
            if (b.var == 0) continue;
            if (b.var < 0 || !known(dag, b.var) ||
                ites_[static_cast<std::size_t>(b.var)].state == Ite::Infinite) {
                infinite = true;
            } else if (ites_[static_cast<std::size_t>(b.var)].state == Ite::Unknown) {
                stack.push_back(b.var);
                pending = true;
            }
        }
        if (!infinite && pending) continue;
        stack.pop_back();
        std::vector<QNumber> values;
        for (const Branch& b : ite.branches) {
            if (infinite) break;
            if (b.var == 0) {
                values.push_back(b.offset);
                continue;
            }
            for (const QNumber& x : ites_[static_cast<std::size_t>(b.var)].values)
                values.push_back(b.scale * x + b.offset);
        }
        std::sort(values.begin(), values.end());
        values.erase(std::unique(values.begin(), values.end()), values.end());
        if (infinite || values.size() > kMaxValues) {
            ite.state = Ite::Infinite;
        } else {
            ite.state = Ite::Finite;
            ite.values = std::move(values);
        }
    }
    return ites_[static_cast<std::size_t>(var)].state == Ite::Finite;
}

std::int64_t IteValues::value_index(int var, const QNumber& value) const {
    const auto& values = ites_[static_cast<std::size_t>(var)].values;
    auto it = std::lower_bound(values.begin(), values.end(), value);
    return it != values.end() && *it == value ? it - values.begin() : -1;
}

std::vector<FormulaRef>& IteValues::equal_formulas(Ite& ite) {
    if (ite.evaluation != evaluation_) {
        ite.equal.assign(ite.values.size(), kNone);
        ite.evaluation = evaluation_;
    }
    return ite.equal;
}

bool IteValues::finite_term(const FormulaDag& dag, std::span<const LinearExpr::Entry> term) {
    auto vars = std::ranges::count_if(term, [](const auto& e) { return e.var != 0; });
    if (vars == 0) return true;
    if (vars > 1) return false;
    return finite(dag, term.back().var);
}

std::optional<FormulaRef> IteValues::equality(FormulaDag& dag,
                                              std::span<const LinearExpr::Entry> term,
                                              SourcePos pos) {
    int var = 0;
    QNumber scale, offset;
    for (const auto& e : term) {
        if (e.var == 0) {
            offset = e.coeff;
        } else if (var != 0) {
            return std::nullopt;
        } else {
            var = e.var;
            scale = e.coeff;
        }
    }
    if (var == 0 || !finite(dag, var)) return std::nullopt;
    std::int64_t first = value_index(var, -offset / scale);  // a·v + b = 0: v = −b/a
    if (first < 0) return kFalse;
    // (= v k) is (ite c (= then k) (= else k)); each (ite, value) built once, children first.
    struct Goal {
        int var;
        std::size_t index;
    };
    std::vector<Goal> stack{{var, static_cast<std::size_t>(first)}};
    while (!stack.empty()) {
        auto [u, index] = stack.back();
        Ite& ite = ites_[static_cast<std::size_t>(u)];
        if (equal_formulas(ite)[index] != kNone) {
            stack.pop_back();
            continue;
        }
        const QNumber& k = ite.values[index];
        FormulaRef sides[2];
        bool pending = false;
        for (int i = 0; i < 2; ++i) {
            const Branch& b = ite.branches[i];
            if (b.var == 0) {
                sides[i] = b.offset == k ? kTrue : kFalse;
                continue;
            }
            std::int64_t j = value_index(b.var, (k - b.offset) / b.scale);
            if (j < 0) {
                sides[i] = kFalse;
                continue;
            }
            sides[i] =
                equal_formulas(ites_[static_cast<std::size_t>(b.var)])[static_cast<std::size_t>(j)];
            if (sides[i] == kNone) {
                stack.push_back({b.var, static_cast<std::size_t>(j)});
                pending = true;
            }
        }
        if (pending) continue;
        equal_formulas(ite)[index] = folded_ite(dag, ite.condition, sides[0], sides[1], pos);
        stack.pop_back();
    }
    return ites_[static_cast<std::size_t>(var)].equal[static_cast<std::size_t>(first)];
}

}  // namespace vorn::smt
