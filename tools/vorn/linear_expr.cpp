#include "vorn/linear_expr.h"

namespace vorn::cli {

Symbols& Symbols::operator=(const Symbols& other) {
    if (this == &other) return *this;
    ids_.clear();
    names_.clear();
    for (const std::string& name : other.names_)
        intern(name);
    return *this;
}

int Symbols::intern(std::string_view name) {
    if (auto it = ids_.find(name); it != ids_.end()) return it->second;
    names_.emplace_back(name);
    int id = static_cast<int>(names_.size());
    ids_.emplace(names_.back(), id);
    return id;
}

int Symbols::find(std::string_view name) const {
    auto it = ids_.find(name);
    return it == ids_.end() ? 0 : it->second;
}

LinearExpr LinearExpr::constant(const QNumber& value) {
    LinearExpr e;
    if (!value.is_zero()) e.terms_.push_back({0, value});
    return e;
}

LinearExpr LinearExpr::variable(int id) {
    LinearExpr e;
    e.terms_.push_back({id, QNumber(1)});
    return e;
}

LinearExpr LinearExpr::from_entries(Entries entries) {
    LinearExpr e;
    e.terms_ = std::move(entries);
    e.normalized_ = false;
    return e;
}

void LinearExpr::add(const LinearExpr& other, const QNumber& scale) {
    if (scale.is_zero()) return;
    for (const auto& t : other.terms_)
        terms_.push_back({t.var, t.coeff * scale});
    normalized_ = false;
}

void LinearExpr::scale(const QNumber& factor) {
    if (factor.is_zero()) {
        terms_.clear();
        normalized_ = true;
        return;
    }
    for (auto& t : terms_)
        t.coeff *= factor;
}

const LinearExpr::Entries& LinearExpr::entries() const {
    if (normalized_) return terms_;
    la::normalize_entries(terms_);
    normalized_ = true;
    return terms_;
}

bool LinearExpr::is_constant() const {
    const Entries& e = entries();
    return e.empty() || (e.size() == 1 && e[0].var == 0);
}

QNumber LinearExpr::constant_value() const {
    const Entries& e = entries();
    return !e.empty() && e[0].var == 0 ? e[0].coeff : QNumber(0);
}

}  // namespace vorn::cli
