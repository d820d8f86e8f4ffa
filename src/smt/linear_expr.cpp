#include "vorn/smt/linear_expr.h"

#include <algorithm>
#include <cstdint>

namespace vorn::smt {

LinearExpr LinearExpr::constant(const QNumber& value) {
    LinearExpr e;
    e.set_constant(value);
    return e;
}

LinearExpr LinearExpr::variable(int id) {
    LinearExpr e;
    e.set_variable(id);
    return e;
}

void LinearExpr::set_constant(const QNumber& value) {
    clear();
    if (!value.is_zero()) terms_.push_back({0, value});
}

void LinearExpr::set_variable(int id) {
    clear();
    terms_.push_back({id, QNumber(1)});
}

void LinearExpr::add(const LinearExpr& other, const QNumber& scale) {
    if (scale.is_zero() || other.terms_.empty()) return;
    if (&other == this) {
        LinearExpr copy = other;
        return add(copy, scale);
    }
    // `other` normalized first: a sum nested n deep, (+ 1 (+ 1 ... x)), then copies a few
    // entries per level instead of every level's constant again.
    for (const auto& t : other.entries()) {
        terms_.push_back(t);
        if (scale.is_minus_one())
            terms_.back().coeff.negate();
        else if (!scale.is_one())
            terms_.back().coeff *= scale;
    }
    normalized_ = false;
}

void LinearExpr::scale(const QNumber& factor) {
    if (factor.is_zero()) {
        clear();
        return;
    }
    if (factor.is_one()) return;
    bool negation = factor.is_minus_one();
    for (auto& t : terms_) {
        if (negation)
            t.coeff.negate();
        else
            t.coeff *= factor;
    }
}

const LinearExpr::Entries& LinearExpr::entries() const {
    if (!normalized_) {
        la::normalize_entries(terms_);
        normalized_ = true;
    }
    return terms_;
}

void LinearExpr::append_normalized_to(Entries& out) const {
    constexpr std::size_t kShort = 32;
    std::size_t n = terms_.size();
    if (normalized_ || n > kShort) {
        const Entries& e = entries();
        out.insert(out.end(), e.begin(), e.end());
        return;
    }
    // (variable, position) words sort without touching the numbers; repeats are summed and
    // zeros dropped as each entry is copied, once.
    std::uint64_t keys[kShort];
    for (std::size_t i = 0; i < n; ++i)
        keys[i] = static_cast<std::uint64_t>(static_cast<std::uint32_t>(terms_[i].var)) << 32 | i;
    std::sort(keys, keys + n);
    std::size_t first = out.size();
    for (std::size_t i = 0; i < n; ++i) {
        const Entry& e = terms_[keys[i] & 0xFFFFFFFF];
        if (out.size() > first && out.back().var == e.var) {
            out.back().coeff += e.coeff;
            if (out.back().coeff.is_zero()) out.pop_back();
        } else if (!e.coeff.is_zero()) {
            out.push_back(e);
        }
    }
}

bool LinearExpr::has_big_coefficient() const {
    return std::any_of(terms_.begin(), terms_.end(),
                       [](const Entry& e) { return e.coeff.is_big(); });
}

bool LinearExpr::is_constant() const {
    const Entries& e = entries();
    return e.empty() || (e.size() == 1 && e[0].var == 0);
}

QNumber LinearExpr::constant_value() const {
    const Entries& e = entries();
    return !e.empty() && e[0].var == 0 ? e[0].coeff : QNumber(0);
}

}  // namespace vorn::smt
