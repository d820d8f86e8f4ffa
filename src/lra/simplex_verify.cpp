// Independent checks of the simplex's answers: certificates and models are recomputed from the
// slacks' terms and the bounds, not from the tableau.

#include <map>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

bool Simplex::conflict_is_valid() const {
    if (conflict_bounds_.empty() || conflict_.size() != conflict_bounds_.size()) return false;
    std::map<int, QNumber> sum;  // structural variable → coefficient of the combination
    DeltaRational constant;
    for (const ConflictBound& b : conflict_bounds_) {
        if (b.multiplier.sign() <= 0) return false;
        // lower: λ·(x − l);  upper: λ·(u − x)
        QNumber factor = b.upper ? -b.multiplier : b.multiplier;
        if (is_slack(b.var)) {
            for (const auto& e : slack_term(b.var))
                sum[e.var].add_product(factor, e.coeff);
        } else {
            sum[b.var] += factor;
        }
        constant.add_product(-factor, b.value);
    }
    for (const auto& [var, coeff] : sum)
        if (!coeff.is_zero()) return false;
    return constant < DeltaRational();
}

bool Simplex::model_is_valid() const {
    for (int v = 1; v <= num_variables(); ++v) {
        const QNumber& x = value(v);
        if (bounds_.has_lower(v)) {
            const DeltaRational& l = bounds_.lower_value(v);
            if (x < l.real() || (x == l.real() && l.delta().sign() > 0)) return false;
        }
        if (bounds_.has_upper(v)) {
            const DeltaRational& u = bounds_.upper_value(v);
            if (x > u.real() || (x == u.real() && u.delta().sign() < 0)) return false;
        }
        if (is_slack(v)) {
            QNumber term;
            for (const auto& e : slack_term(v))
                term.add_product(e.coeff, value(e.var));
            if (term != x) return false;
        }
    }
    return true;
}

}  // namespace vorn::lra
