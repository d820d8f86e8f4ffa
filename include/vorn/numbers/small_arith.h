#pragma once

// Overflow-checked arithmetic on small rationals (n/d with d > 0, lowest terms). Each kernel
// returns false when the normalized result does not fit two 64-bit words; the caller then redoes
// the operation in GMP. 128-bit intermediates hold every product of two 64-bit words.

#include <cstdint>

namespace vorn::detail {

__extension__ typedef __int128 i128;
__extension__ typedef unsigned __int128 u128;

inline std::uint64_t magnitude(std::int64_t v) {
    return v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
}

// Binary gcd; gcd(0, b) = b.
inline std::uint64_t gcd64(std::uint64_t a, std::uint64_t b) {
    if (a == 0) return b;
    if (b == 0) return a;
    if (a == 1 || b == 1) return 1;
    int shift = __builtin_ctzll(a | b);
    a >>= __builtin_ctzll(a);
    do {
        b >>= __builtin_ctzll(b);
        if (a > b) {
            std::uint64_t t = a;
            a = b;
            b = t;
        }
        b -= a;
    } while (b != 0);
    return a << shift;
}

inline bool fits_num(i128 v) {
    return v >= INT64_MIN && v <= INT64_MAX;
}
inline bool fits_den(i128 v) {
    return v > 0 && v <= INT64_MAX;
}

// Reduces n/d (d > 0) by g = gcd(|n|, d) dividing `hint`; hint == 1 means already reduced.
inline void reduce_by(std::int64_t& n, std::int64_t& d, std::uint64_t hint) {
    if (hint == 1) return;
    auto g = static_cast<std::int64_t>(gcd64(magnitude(n) % hint, hint));
    if (g == 1) return;
    n /= g;
    d /= g;
}

// The 128-bit route of small_add, for intermediates beyond 64 bits.
inline bool small_add_wide(std::int64_t an, std::int64_t ad_g, std::int64_t bn, std::int64_t bd,
                           std::int64_t bd_g, std::uint64_t g, int sign, std::int64_t& rn,
                           std::int64_t& rd) {
    i128 t = static_cast<i128>(an) * bd_g;
    i128 u = static_cast<i128>(bn) * ad_g;
    t = sign > 0 ? t + u : t - u;
    if (t == 0) {
        rn = 0;
        rd = 1;
        return true;
    }
    // gcd(t, ad*bd/g) divides g (Knuth, 4.5.1).
    std::uint64_t g2 = 1;
    if (g != 1) {
        u128 mag = t < 0 ? static_cast<u128>(-t) : static_cast<u128>(t);
        g2 = gcd64(static_cast<std::uint64_t>(mag % g), g);
        if (g2 != 1) t /= static_cast<i128>(g2);
    }
    i128 d = static_cast<i128>(ad_g) * (bd / static_cast<std::int64_t>(g2));
    if (!fits_num(t) || !fits_den(d)) return false;
    rn = static_cast<std::int64_t>(t);
    rd = static_cast<std::int64_t>(d);
    return true;
}

// (an/ad) + sign*(bn/bd), sign being +1 or -1.
inline bool small_add(std::int64_t an, std::int64_t ad, std::int64_t bn, std::int64_t bd, int sign,
                      std::int64_t& rn, std::int64_t& rd) {
    if (ad == bd) {
        std::int64_t t;
        bool overflow =
            sign > 0 ? __builtin_add_overflow(an, bn, &t) : __builtin_sub_overflow(an, bn, &t);
        if (!overflow) {
            if (t == 0) {
                rn = 0;
                rd = 1;
                return true;
            }
            rn = t;
            rd = ad;
            reduce_by(rn, rd, static_cast<std::uint64_t>(ad));
            return true;
        }
    }
    std::uint64_t g = gcd64(static_cast<std::uint64_t>(ad), static_cast<std::uint64_t>(bd));
    std::int64_t ad_g = ad;
    std::int64_t bd_g = bd;
    if (g != 1) {
        ad_g /= static_cast<std::int64_t>(g);
        bd_g /= static_cast<std::int64_t>(g);
    }
    std::int64_t t1, t2, t, d;
    if (!__builtin_mul_overflow(an, bd_g, &t1) && !__builtin_mul_overflow(bn, ad_g, &t2) &&
        !(sign > 0 ? __builtin_add_overflow(t1, t2, &t) : __builtin_sub_overflow(t1, t2, &t)) &&
        !__builtin_mul_overflow(ad_g, bd, &d)) {
        if (t == 0) {
            rn = 0;
            rd = 1;
            return true;
        }
        rn = t;
        rd = d;
        reduce_by(rn, rd, g);
        return true;
    }
    return small_add_wide(an, ad_g, bn, bd, bd_g, g, sign, rn, rd);
}

// (an/ad) * (bn/bd); the denominators must be positive.
inline bool small_mul(std::int64_t an, std::int64_t ad, std::int64_t bn, std::int64_t bd,
                      std::int64_t& rn, std::int64_t& rd) {
    if (ad == 1 && bd == 1) {
        rd = 1;
        return !__builtin_mul_overflow(an, bn, &rn);
    }
    if (an == 0 || bn == 0) {
        rn = 0;
        rd = 1;
        return true;
    }
    // Cross-cancel first so that the products are already in lowest terms.
    auto g1 = static_cast<std::int64_t>(gcd64(magnitude(an), static_cast<std::uint64_t>(bd)));
    auto g2 = static_cast<std::int64_t>(gcd64(magnitude(bn), static_cast<std::uint64_t>(ad)));
    if (g1 != 1) {
        an /= g1;
        bd /= g1;
    }
    if (g2 != 1) {
        bn /= g2;
        ad /= g2;
    }
    return !__builtin_mul_overflow(an, bn, &rn) && !__builtin_mul_overflow(ad, bd, &rd);
}

// (an/ad) / (bn/bd); bn must not be 0.
inline bool small_div(std::int64_t an, std::int64_t ad, std::int64_t bn, std::int64_t bd,
                      std::int64_t& rn, std::int64_t& rd) {
    if (bn < 0) {
        if (bn == INT64_MIN) return false;
        return small_mul(an, ad, -bd, -bn, rn, rd);
    }
    return small_mul(an, ad, bd, bn, rn, rd);
}

}  // namespace vorn::detail
