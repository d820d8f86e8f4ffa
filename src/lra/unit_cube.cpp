// The unit cube test; see unit_cube.h.

#include "vorn/lra/unit_cube.h"

#include <vector>

#include "vorn/lra/integer_bounds.h"

namespace vorn::lra {

namespace {

// A reason that no caller's explanation sees: the levels it is used on are popped unread.
constexpr Reason kCubeReason = 0;

}  // namespace

bool unit_cube_point(Simplex& simplex, std::span<const char> is_integer) {
    const BoundTrail& bounds = simplex.bounds();
    auto integer = [&](int v) {
        return static_cast<std::size_t>(v) < is_integer.size() && is_integer[v] != 0;
    };
    auto moves = [&](int v) { return integer(v) && !bounds.is_fixed(v); };
    int n = simplex.num_variables();
    std::size_t base = simplex.level();
    simplex.push();
    bool room = true;
    for (int v = 1; v <= n && room; ++v) {
        if (!simplex.is_slack(v)) continue;
        QNumber shrink;
        for (const auto& e : simplex.slack_term(v))
            if (moves(e.var)) shrink += e.coeff.sign() < 0 ? -e.coeff : e.coeff;
        if (shrink.is_zero()) continue;
        shrink *= QNumber(1, 2);
        if (bounds.has_lower(v)) {
            const DeltaRational& l = bounds.lower_value(v);
            room = simplex.assert_lower(v, l.real() + shrink, l.delta().sign() > 0, kCubeReason) !=
                   Asserted::Conflict;
        }
        if (room && bounds.has_upper(v)) {
            const DeltaRational& u = bounds.upper_value(v);
            room = simplex.assert_upper(v, u.real() - shrink, u.delta().sign() < 0, kCubeReason) !=
                   Asserted::Conflict;
        }
    }
    if (!room || simplex.check() != Result::Sat) {
        simplex.pop(simplex.level() - base);
        simplex.check();  // the caller's model again, readable
        return false;
    }
    std::vector<std::pair<int, QNumber>> rounded;
    for (int v = 1; v <= n; ++v)
        if (integer(v))
            rounded.emplace_back(
                v, floor_of(DeltaRational(simplex.delta_value(v).real() + QNumber(1, 2))));
    simplex.pop(simplex.level() - base);
    simplex.push();
    bool fits = true;
    for (const auto& [v, x] : rounded)
        fits = fits && simplex.assert_lower(v, x, false, kCubeReason) != Asserted::Conflict &&
               simplex.assert_upper(v, x, false, kCubeReason) != Asserted::Conflict;
    fits = fits && simplex.check() == Result::Sat;
    simplex.pop(simplex.level() - base);
    // Popping only loosens bounds: this check keeps the integral assignment, pivots nothing, and
    // makes the model readable at the caller's level.
    Result again = simplex.check();
    return fits && again == Result::Sat;
}

}  // namespace vorn::lra
