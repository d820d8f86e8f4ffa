#pragma once

// SmallWeight: a difference-logic weight or potential c + k·δ held as S·c and k, both machine
// integers, for a scale S common to the whole graph (1 when every constant is an integer, as in
// QF_IDL): the fast stand-in for lra::DeltaRational while the graph's weights fit.
//
// Order is lexicographic (c first, then k), as for DeltaRational, and scaling c by S > 0 keeps
// it, so a search over SmallWeights takes the same steps as one over the exact values. Sums are
// checked: add and subtract return false on overflow (the value is then unspecified), and the
// caller goes back to the exact weights. Every operation is a few machine instructions; nothing
// allocates.

#include <compare>
#include <cstdint>
#include <optional>

#include "vorn/lra/delta_rational.h"

namespace vorn::smt {

struct SmallWeight {
    std::int64_t real = 0;
    std::int64_t delta = 0;

    // The weight at `scale` when S·c and k are integers that fit; nothing otherwise.
    static std::optional<SmallWeight> from(const lra::DeltaRational& w, std::int64_t scale) {
        const QNumber& r = w.real();
        const QNumber& d = w.delta();
        if (r.is_big() || d.is_big() || d.den_word() != 1 || scale % r.den_word() != 0) return {};
        SmallWeight out{0, d.num_word()};
        if (__builtin_mul_overflow(r.num_word(), scale / r.den_word(), &out.real)) return {};
        return out;
    }
    lra::DeltaRational exact(std::int64_t scale) const {
        return lra::DeltaRational(QNumber(real, scale), QNumber(delta));
    }
    // The same weight at a scale `factor` times larger.
    [[nodiscard]] bool rescale(std::int64_t factor) {
        return !__builtin_mul_overflow(real, factor, &real);
    }

    [[nodiscard]] bool add(const SmallWeight& o) {
        return !__builtin_add_overflow(real, o.real, &real) &&
               !__builtin_add_overflow(delta, o.delta, &delta);
    }
    [[nodiscard]] bool subtract(const SmallWeight& o) {
        return !__builtin_sub_overflow(real, o.real, &real) &&
               !__builtin_sub_overflow(delta, o.delta, &delta);
    }
    friend auto operator<=>(const SmallWeight&, const SmallWeight&) = default;
};

// The same checked steps on exact weights, which never overflow: the search is written once
// for both kinds.
[[nodiscard]] inline bool add(SmallWeight& a, const SmallWeight& b) {
    return a.add(b);
}
[[nodiscard]] inline bool subtract(SmallWeight& a, const SmallWeight& b) {
    return a.subtract(b);
}
[[nodiscard]] inline bool add(lra::DeltaRational& a, const lra::DeltaRational& b) {
    a += b;
    return true;
}
[[nodiscard]] inline bool subtract(lra::DeltaRational& a, const lra::DeltaRational& b) {
    a -= b;
    return true;
}

}  // namespace vorn::smt
