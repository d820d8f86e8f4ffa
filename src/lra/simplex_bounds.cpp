// Asserting bounds: tightening, immediate conflicts, moving non-basic variables into their new
// bounds, and restoring eliminated variables that get a bound.

#include <cassert>
#include <stdexcept>

#include "vorn/lra/simplex.h"

namespace vorn::lra {

namespace {

const QNumber& one() {
    static const QNumber value(1);
    return value;
}

}  // namespace

Asserted Simplex::assert_lower(int var, const QNumber& value, bool strict, Reason reason) {
    return assert_bound(var, false, DeltaRational(value, QNumber(strict ? 1 : 0)),
                        {reason, false, one()});
}

Asserted Simplex::assert_upper(int var, const QNumber& value, bool strict, Reason reason) {
    return assert_bound(var, true, DeltaRational(value, QNumber(strict ? -1 : 0)),
                        {reason, true, one()});
}

Asserted Simplex::assert_term(const TermVar& t, Relation relation, const QNumber& constant,
                              Reason reason) {
    assert(!t.scale.is_zero() && "assert_term: zero scale");
    bool flip = t.scale.sign() < 0;  // dividing by a negative scale turns ≤ into ≥
    QNumber magnitude = flip ? -t.scale : t.scale;
    QNumber bound = constant / t.scale;
    auto side = [&](bool caller_upper, bool strict) {
        bool upper = caller_upper != flip;
        QNumber delta(strict ? (upper ? -1 : 1) : 0);
        return assert_bound(t.var, upper, DeltaRational(bound, delta),
                            {reason, caller_upper, magnitude});
    };
    switch (relation) {
        case Relation::Le:
            return side(true, false);
        case Relation::Lt:
            return side(true, true);
        case Relation::Ge:
            return side(false, false);
        case Relation::Gt:
            return side(false, true);
        case Relation::Eq: {
            Asserted lower = side(false, false);
            return lower ? side(true, false) : lower;
        }
        case Relation::Distinct:
        case Relation::Ne:
            break;
    }
    throw std::invalid_argument("assert_term: a disequality is not a bound");
}

Asserted Simplex::assert_bound(int var, bool upper, const DeltaRational& bound,
                               const CallerAtom& atom) {
    assert(var >= 1 && var <= num_variables() && "assert: unknown variable");
    if (in_conflict()) return Asserted::Ignored;
    sat_ = false;
    if (is_eliminated(var)) restore_eliminated(var);
    if (upper ? bounds_.has_upper(var) && bounds_.upper_value(var) <= bound
              : bounds_.has_lower(var) && bounds_.lower_value(var) >= bound)
        return Asserted::Ok;  // no tighter than the current bound
    if (upper ? bounds_.has_lower(var) && bounds_.lower_value(var) > bound
              : bounds_.has_upper(var) && bounds_.upper_value(var) < bound) {
        set_conflict_from_bounds(var, upper, bound, atom);
        return Asserted::Conflict;
    }
    BoundRecord& r = bounds_.add(var, upper);
    r.value = bound;
    r.reason = atom.reason;
    r.caller_upper = atom.upper;
    r.caller_scale = atom.scale;
    if (!initialized_) return Asserted::Ok;
    if (tableau_->rows().contains(var))
        queue_if_violated(var);
    else if (upper ? values_[var] > bound : values_[var] < bound)
        update_non_basic(var, bound);
    return Asserted::Ok;
}

void Simplex::restore(int var) {
    if (!is_eliminated(var)) return;
    sat_ = false;
    restore_eliminated(var);
}

void Simplex::restore_eliminated(int var) {
    restored_.clear();
    tableau_->uneliminate(var, &restored_);
    restored_.push_back(var);
    absorb_restored();
}

void Simplex::set_conflict_from_bounds(int var, bool upper, const DeltaRational& bound,
                                       const CallerAtom& atom) {
    // x ≥ l and x ≤ u with l > u: (x − l) + (u − x) = u − l < 0.
    conflict_.clear();
    conflict_bounds_.clear();
    conflict_.push_back({atom.reason, atom.upper, one() / atom.scale});
    conflict_bounds_.push_back({var, upper, bound, one()});
    add_to_conflict(upper ? bounds_.lower(var) : bounds_.upper(var), one());
    conflict_level_ = bounds_.level();
    ++stats_.conflicts;
    assert(conflict_is_valid() && "invalid Farkas certificate");
}

}  // namespace vorn::lra
