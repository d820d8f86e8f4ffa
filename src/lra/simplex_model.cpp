// Models: δ replaced by a small enough positive rational, eliminated variables evaluated from
// their kept equations.

#include <cassert>

#include "vorn/lra/simplex.h"

#include <stdexcept>

namespace vorn::lra {

namespace {

// Lowers `delta` so that low ≤ high holds for the real numbers at δ = delta, given that it holds
// for the DeltaRationals (lexicographically). Only a pair whose real parts differ and whose δ
// parts point the other way limits δ.
void limit_delta(const DeltaRational& low, const DeltaRational& high, QNumber& delta) {
    if (low.real() >= high.real() || low.delta() <= high.delta()) return;
    QNumber limit = high.real() - low.real();
    limit /= low.delta() - high.delta();
    if (limit < delta) delta = limit;
}

}  // namespace

QNumber Simplex::model_delta() const {
    QNumber delta(1);
    for (int v = 1; v <= num_variables(); ++v) {
        if (bounds_.has_lower(v)) limit_delta(bounds_.lower_value(v), values_[v], delta);
        if (bounds_.has_upper(v)) limit_delta(values_[v], bounds_.upper_value(v), delta);
    }
    return delta;
}

void Simplex::compute_model() const {
    // Eliminated variables never carry bounds (a bound restores them), so they play no part in
    // choosing δ, and since their equations are linear they can be evaluated after it.
    QNumber delta = model_delta();
    model_.resize(values_.size());
    for (std::size_t v = 1; v < values_.size(); ++v) {
        model_[v] = values_[v].real();
        model_[v].add_product(values_[v].delta(), delta);
    }
    // Latest elimination first: an equation mentions only variables that were non-basic when it
    // was kept, so any of them eliminated now was eliminated later and is evaluated already.
    const auto& records = tableau_->elim_eqs();
    for (std::size_t i = records.size(); i-- > 0;) {
        int x = records[i].first;
        auto* node = tableau_->elim_index().find(x);
        if (node == nullptr || node->value.second != i) continue;  // restored since
        QNumber& out = model_[x];
        out = QNumber();
        for (const auto& e : records[i].second->entries())
            if (e.var != x) out.add_product(e.coeff, model_[e.var]);
    }
    model_ready_ = true;
}

const QNumber& Simplex::value(int var) const {
    if (!sat_)
        throw std::logic_error(
            "Simplex::value: no model (the last check was not Sat, or something changed since)");
    if (!model_ready_) compute_model();
    return model_[var];
}

}  // namespace vorn::lra
