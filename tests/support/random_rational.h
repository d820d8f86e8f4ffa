#pragma once

// Random rationals for differential tests, biased towards the places where 64-bit arithmetic
// overflows: around ±2^63, ±2^32 and small values.

#include <cstdint>
#include <random>

#include "vorn/numbers/qnumber.h"

namespace vorn::test {

inline std::int64_t interesting_int(std::mt19937_64& rng) {
    static constexpr std::int64_t anchors[] = {0,
                                               1,
                                               2,
                                               3,
                                               7,
                                               (std::int64_t{1} << 31) - 1,
                                               std::int64_t{1} << 31,
                                               std::int64_t{1} << 32,
                                               (std::int64_t{1} << 32) + 1,
                                               std::int64_t{1} << 62,
                                               INT64_MAX - 1,
                                               INT64_MAX};
    std::uniform_int_distribution<int> kind(0, 5);
    std::int64_t v;
    switch (kind(rng)) {
        case 0:
            v = anchors[rng() % std::size(anchors)] - static_cast<std::int64_t>(rng() % 3);
            break;
        case 1:
            v = static_cast<std::int64_t>(rng());
            break;
        case 2:
            v = static_cast<std::int64_t>(rng() % 1000);
            break;
        case 3:
            v = static_cast<std::int64_t>(rng() >> (rng() % 64));
            break;
        default:
            v = static_cast<std::int64_t>(rng() % 20);
            break;
    }
    if (rng() & 1) v = v == INT64_MIN ? v : -v;
    if (rng() % 50 == 0) v = INT64_MIN;
    return v;
}

// A random rational; one in four is forced into the big form.
inline QNumber random_rational(std::mt19937_64& rng, bool allow_zero = true) {
    while (true) {
        std::int64_t num = interesting_int(rng);
        std::int64_t den = interesting_int(rng);
        if (den == 0) den = 1;
        if (num == 0 && !allow_zero) continue;
        QNumber q(num, den);
        if (rng() % 8 == 0) q *= QNumber(interesting_int(rng) | 1);
        if (q.is_zero() && !allow_zero) continue;
        return rng() % 4 == 0 ? QNumber::make_big(q) : q;
    }
}

}  // namespace vorn::test
