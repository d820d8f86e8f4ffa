// The unit cube test; see unit_cube.h.

#include "vorn/lra/unit_cube.h"

#include <algorithm>
#include <map>
#include <vector>

#include "vorn/lra/integer_bounds.h"

namespace vorn::lra {

namespace {

// A reason that no caller's explanation sees: the levels it is used on are popped unread.
constexpr Reason kCubeReason = 0;

// The slack rows as maps over structural variables, a variable without bounds taken out of
// every row but one equality that determines it (Gaussian elimination, equalities in order): a
// Real variable, or an integer one that the equality makes an integral combination of the other
// integer variables (coefficients and constant multiples of its own). Such an equality is
// marked: it needs no room, since the variable follows it exactly when the other integers are
// rounded, and every other row changes by its coefficients over them. `absorbed` marks the
// variables, which the rounding leaves to the simplex.
std::vector<std::map<int, QNumber>> rows_with_free_absorbed(const Simplex& simplex,
                                                            std::span<const char> is_integer,
                                                            std::vector<char>& absorbing,
                                                            std::vector<char>& absorbed) {
    const BoundTrail& bounds = simplex.bounds();
    int n = simplex.num_variables();
    std::vector<std::map<int, QNumber>> rows(static_cast<std::size_t>(n) + 1);
    absorbing.assign(static_cast<std::size_t>(n) + 1, 0);
    absorbed.assign(static_cast<std::size_t>(n) + 1, 0);
    // The equalities' constants, which the elimination changes with their terms.
    std::vector<QNumber> constant(static_cast<std::size_t>(n) + 1);
    for (int v = 1; v <= n; ++v)
        if (simplex.is_slack(v) && bounds.is_fixed(v))
            constant[static_cast<std::size_t>(v)] = bounds.lower_value(v).real();
    auto integer = [&](int v) {
        return static_cast<std::size_t>(v) < is_integer.size() && is_integer[v] != 0;
    };
    auto can_absorb = [&](int eq, int v, const QNumber& a) {
        if (simplex.is_slack(v) || bounds.has_lower(v) || bounds.has_upper(v) || a.is_zero())
            return false;
        if (!integer(v)) return true;
        if (!(constant[static_cast<std::size_t>(eq)] / a).is_integer()) return false;
        return std::all_of(rows[eq].begin(), rows[eq].end(), [&](const auto& e) {
            return e.second.is_zero() || (integer(e.first) && (e.second / a).is_integer());
        });
    };
    std::size_t entries = 0;
    for (int v = 1; v <= n; ++v)
        if (simplex.is_slack(v))
            for (const auto& e : simplex.slack_term(v)) {
                rows[v][e.var] += e.coeff;
                ++entries;
            }
    // Elimination fills rows in; past a few times the rows' size, the rest is left as it is.
    const std::size_t max_entries = 4 * entries + 1000;
    for (int eq = 1; eq <= n && entries <= max_entries; ++eq) {
        if (!simplex.is_slack(eq) || !bounds.is_fixed(eq)) continue;
        auto pivot = std::find_if(rows[eq].begin(), rows[eq].end(),
                                  [&](const auto& e) { return can_absorb(eq, e.first, e.second); });
        if (pivot == rows[eq].end()) continue;
        absorbing[eq] = 1;
        int r = pivot->first;
        absorbed[static_cast<std::size_t>(r)] = 1;
        QNumber a = pivot->second;
        for (int v = 1; v <= n; ++v) {
            auto at = v == eq ? rows[v].end() : rows[v].find(r);
            if (at == rows[v].end()) continue;
            QNumber factor = at->second / a;
            entries -= rows[v].size();
            for (const auto& [var, coeff] : rows[eq])
                rows[v][var] -= factor * coeff;
            constant[static_cast<std::size_t>(v)] -=
                factor * constant[static_cast<std::size_t>(eq)];
            rows[v].erase(r);
            entries += rows[v].size();
        }
    }
    return rows;
}

}  // namespace

bool unit_cube_point(Simplex& simplex, std::span<const char> is_integer, bool round_vertex) {
    const BoundTrail& bounds = simplex.bounds();
    auto integer = [&](int v) {
        return static_cast<std::size_t>(v) < is_integer.size() && is_integer[v] != 0;
    };
    auto moves = [&](int v) { return integer(v) && !bounds.is_fixed(v); };
    int n = simplex.num_variables();
    std::vector<char> absorbing, absorbed;
    std::vector<std::map<int, QNumber>> rows =
        rows_with_free_absorbed(simplex, is_integer, absorbing, absorbed);
    std::size_t base = simplex.level();
    simplex.push();
    bool room = true;
    for (int v = 1; v <= n && room; ++v) {
        if (!simplex.is_slack(v) || absorbing[v]) continue;
        QNumber shrink;
        for (const auto& [var, coeff] : rows[v])
            if (moves(var)) shrink += coeff.sign() < 0 ? -coeff : coeff;
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
        // No cube: the caller's vertex itself, rounded, may still fit.
        simplex.pop(simplex.level() - base);
        if (simplex.check() != Result::Sat || !round_vertex) return false;
    }
    std::vector<std::pair<int, QNumber>> rounded;
    for (int v = 1; v <= n; ++v)
        if (integer(v) && !absorbed[static_cast<std::size_t>(v)])
            rounded.emplace_back(
                v, floor_of(DeltaRational(simplex.delta_value(v).real() + QNumber(1, 2))));
    if (simplex.level() > base) simplex.pop(simplex.level() - base);
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
    // The absorbed integer variables are integral through their equalities.
    for (int v = 1; v <= n && fits; ++v)
        fits = !integer(v) || simplex.value(v).is_integer();
    return fits && again == Result::Sat;
}

}  // namespace vorn::lra
