#pragma once

// QNumber: an exact rational in two 64-bit words.
//
// Small form: `num_` / `den_` with `den_` > 0, in lowest terms. Big form: `den_` == 0 and `num_`
// holds the address of a heap block laid out as one GMP rational (numerator, then denominator)
// that this number alone owns. `den_` is the only form flag.
//
// Arithmetic keeps small operands on overflow-checked 64-bit paths (128-bit intermediates, gcd
// cancellation first) and falls back to GMP only when a result does not fit. Every arithmetic
// result that fits two words comes back small and normalized; a big result is normalized too.
//
// Copy and assignment follow stricter rules than arithmetic: a copy keeps the source's form, and
// assigning into a big number keeps it big (the block is reused rather than freed and
// reallocated). Nothing but destruction, or an arithmetic result replacing the value, takes a
// number out of the big form.
//
// Costs: small copy/assign/destroy touch no heap and call no GMP function; big copies allocate
// one block plus GMP limbs.

#include <gmp.h>

#include <compare>
#include <concepts>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>
#include <type_traits>

#include "vorn/numbers/small_arith.h"

namespace vorn {

class QNumber {
  public:
    QNumber() noexcept : num_(0), den_(1) {}
    // Lowest terms with a positive denominator; values whose normal form does not fit (for
    // instance INT64_MIN / -1) come out big. `den` must not be 0.
    QNumber(std::int64_t num, std::int64_t den = 1);  // NOLINT: implicit from integers is intended
    // Any other integer type, implicitly; unsigned values beyond INT64_MAX come out big.
    template <std::integral I>
    requires(!std::same_as<I, bool>) QNumber(I value)
        : num_(0), den_(1) {  // NOLINT: implicit from integers is intended
        if constexpr (std::is_signed_v<I> || sizeof(I) < sizeof(std::int64_t)) {
            num_ = static_cast<std::int64_t>(value);
        } else if (value <= static_cast<I>(INT64_MAX)) {
            num_ = static_cast<std::int64_t>(value);
        } else {
            *this = from_unsigned(static_cast<std::uint64_t>(value));
        }
    }
    // Any canonical or non-canonical GMP rational (with a non-zero denominator).
    explicit QNumber(mpq_srcptr value);

    // Parses "-12", "3/4", "0.125", "-.5", "+7" and digits of any length. Throws
    // std::invalid_argument naming the text when it is malformed or divides by zero.
    static QNumber from_string(std::string_view text);
    // The same value held in the big form, whatever its size (tests and callers that want to
    // exercise the GMP paths use it).
    static QNumber make_big(const QNumber& value);

    QNumber(const QNumber& other);
    QNumber(QNumber&& other) noexcept : num_(other.num_), den_(other.den_) {
        other.num_ = 0;
        other.den_ = 1;
    }
    QNumber& operator=(const QNumber& other);
    QNumber& operator=(QNumber&& other) noexcept;
    ~QNumber() {
        if (is_big()) release_big();
    }

    bool is_big() const noexcept { return den_ == 0; }
    bool is_integer() const;
    bool is_zero() const noexcept { return is_big() ? mpq_sgn(big()) == 0 : num_ == 0; }
    bool is_one() const noexcept { return !is_big() ? (num_ == 1 && den_ == 1) : slow_is_one(); }
    bool is_minus_one() const noexcept {
        return !is_big() ? (num_ == -1 && den_ == 1) : slow_is_minus_one();
    }
    int sign() const noexcept;

    // Sets an initialized GMP rational to this value.
    void get_mpq(mpq_ptr out) const;
    std::string to_string() const;

    // The raw words, for callers and tests that inspect the representation.
    std::int64_t num_word() const noexcept { return num_; }
    std::int64_t den_word() const noexcept { return den_; }
    // The GMP block of a big number (null for a small one).
    mpq_srcptr big_block() const noexcept { return is_big() ? big() : nullptr; }

    QNumber operator-() const;
    QNumber& operator+=(const QNumber& other);
    QNumber& operator-=(const QNumber& other);
    QNumber& operator*=(const QNumber& other);
    QNumber& operator/=(const QNumber& other);
    void negate();
    // *this += a * b and *this = a * b: the inner steps of every substitution, inline while
    // all three numbers are small.
    void add_product(const QNumber& a, const QNumber& b) {
        std::int64_t pn, pd, n, d;
        if (!is_big() && !a.is_big() && !b.is_big() &&
            detail::small_mul(a.num_, a.den_, b.num_, b.den_, pn, pd) &&
            detail::small_add(num_, den_, pn, pd, 1, n, d)) {
            num_ = n;
            den_ = d;
            return;
        }
        add_product_slow(a, b);
    }
    void set_product(const QNumber& a, const QNumber& b) {
        std::int64_t n, d;
        if (!is_big() && !a.is_big() && !b.is_big() &&
            detail::small_mul(a.num_, a.den_, b.num_, b.den_, n, d)) {
            num_ = n;
            den_ = d;
            return;
        }
        set_product_slow(a, b);
    }

    friend QNumber operator+(const QNumber& a, const QNumber& b);
    friend QNumber operator-(const QNumber& a, const QNumber& b);
    friend QNumber operator*(const QNumber& a, const QNumber& b);
    friend QNumber operator/(const QNumber& a, const QNumber& b);
    friend bool operator==(const QNumber& a, const QNumber& b) noexcept;
    friend std::strong_ordering operator<=>(const QNumber& a, const QNumber& b) noexcept;

  private:
    mpq_ptr big() const noexcept {
        return reinterpret_cast<mpq_ptr>(static_cast<std::uintptr_t>(num_));
    }
    void release_big() noexcept;
    void add_product_slow(const QNumber& a, const QNumber& b);
    void set_product_slow(const QNumber& a, const QNumber& b);
    bool slow_is_one() const noexcept;
    bool slow_is_minus_one() const noexcept;
    // Replaces the value with an arithmetic result (whose form then counts, unlike assignment).
    void take(QNumber&& result) noexcept;
    // Result of a GMP computation: small when it fits, otherwise steals the limbs of `value`
    // (which must not be cleared by the caller afterwards).
    static QNumber from_computed(mpq_ptr value);
    static QNumber from_unsigned(std::uint64_t value);
    static QNumber make_small_unchecked(std::int64_t num, std::int64_t den) noexcept {
        QNumber q;
        q.num_ = num;
        q.den_ = den;
        return q;
    }

    friend class QNumberArith;

    std::int64_t num_;
    std::int64_t den_;
};

std::ostream& operator<<(std::ostream& out, const QNumber& value);

}  // namespace vorn
