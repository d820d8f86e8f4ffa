#pragma once

// QNumber: an exact rational in two 64-bit words.
//
// Small form: `num_` / `den_` with `den_` > 0, in lowest terms. Big form: `den_` == 0 and `num_`
// holds the address of a heap block laid out as one GMP rational (numerator, then denominator)
// that this number alone owns. `den_` is the only form flag.
//
// Copy and assignment (there are no moves: an rvalue source is copied like any other):
//   copy of a small number      words copied, no GMP call
//   copy of a big number        new block, mpz_init_set (numerator, denominator)
//   big into small              new block, mpz_init ×2, then mpz_set ×2; the destination turns
//                               big only once its block exists
//   big into big                mpz_set ×2 in the destination's block
//   small into big              mpz_set_si ×2 in the destination's block; it stays big
//   small into small            words copied
//   self-assignment             nothing
// So a number leaves the big form only by being destroyed, and the source is never touched.
//
// Arithmetic: small operands run on overflow-checked 64-bit kernels. Otherwise GMP computes the
// result, without allocating: small operands are read through stack views, a big destination
// (compound assignment, add_product, set_product, negate) receives the result in its own block
// and stays big, and a small destination becomes small again when the result fits, big (one
// new block) when it does not. Results are always in lowest terms. Comparisons never allocate.
//
// Costs: small copy/assign/destroy touch no heap and call no GMP function; a big copy allocates
// one block plus the integers' limbs.

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

class QNumber;

namespace detail {
// `to` takes over `from`'s storage (form and block) without a GMP call; `from` is left holding
// `to`'s old block when there was one, so that no block is lost, and 0 otherwise. For the
// library's own rearranging of coefficient lists, where a value changes slot but no number is
// created, copied or assigned; not part of QNumber's interface.
void relocate_storage(QNumber& to, QNumber& from) noexcept;
}  // namespace detail

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
            set_unsigned(static_cast<std::uint64_t>(value));
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
    QNumber& operator=(const QNumber& other);
    ~QNumber() {
        if (is_big()) release_big();
    }

    bool is_big() const noexcept { return den_ == 0; }
    bool is_integer() const;
    bool is_zero() const noexcept { return is_big() ? mpq_sgn(big()) == 0 : num_ == 0; }
    bool is_one() const noexcept { return is_big() ? equals_big(1, 1) : num_ == 1 && den_ == 1; }
    bool is_minus_one() const noexcept {
        return is_big() ? equals_big(-1, 1) : num_ == -1 && den_ == 1;
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
    QNumber& operator+=(const QNumber& other) { return apply(Op::Sum, *this, other); }
    QNumber& operator-=(const QNumber& other) { return apply(Op::Difference, *this, other); }
    QNumber& operator*=(const QNumber& other) { return apply(Op::Product, *this, other); }
    QNumber& operator/=(const QNumber& other) { return apply(Op::Quotient, *this, other); }
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
        apply(Op::Product, a, b);
    }

    friend QNumber operator+(const QNumber& a, const QNumber& b) {
        QNumber r;
        r.apply(Op::Sum, a, b);
        return r;
    }
    friend QNumber operator-(const QNumber& a, const QNumber& b) {
        QNumber r;
        r.apply(Op::Difference, a, b);
        return r;
    }
    friend QNumber operator*(const QNumber& a, const QNumber& b) {
        QNumber r;
        r.apply(Op::Product, a, b);
        return r;
    }
    friend QNumber operator/(const QNumber& a, const QNumber& b) {
        QNumber r;
        r.apply(Op::Quotient, a, b);
        return r;
    }
    friend bool operator==(const QNumber& a, const QNumber& b) noexcept;
    friend std::strong_ordering operator<=>(const QNumber& a, const QNumber& b) noexcept;

  private:
    friend void detail::relocate_storage(QNumber& to, QNumber& from) noexcept;

    mpq_ptr big() const noexcept {
        return reinterpret_cast<mpq_ptr>(static_cast<std::uintptr_t>(num_));
    }
    void release_big() noexcept;
    bool equals_big(long num, unsigned long den) const noexcept;

    enum class Op { Sum, Difference, Product, Quotient };
    // *this = a ∘ b, where `a` or `b` may be *this: the one body behind every operator.
    QNumber& apply(Op op, const QNumber& a, const QNumber& b);
    void add_product_slow(const QNumber& a, const QNumber& b);

    // The value n/d (lowest terms), kept in this number's block when it is big.
    void set_small_value(std::int64_t num, std::int64_t den) noexcept;
    // The value of a GMP rational in lowest terms: into the block when big, otherwise small when
    // it fits and a new block when it does not.
    void set_result(mpq_srcptr value);
    // Makes a small number big: allocates the block (a failure leaves the number as it was),
    // lets `init` initialise both integers, and only then switches the form.
    template <class Init>
    void become_big(Init init);
    void set_unsigned(std::uint64_t value);

    std::int64_t num_;
    std::int64_t den_;
};

std::ostream& operator<<(std::ostream& out, const QNumber& value);

inline void detail::relocate_storage(QNumber& to, QNumber& from) noexcept {
    // A branch, not a swap: relocation loops would otherwise chain every slot's load to the
    // previous slot's store. Target slots rarely hold a block.
    if (to.is_big()) {
        std::int64_t block = to.num_;
        to.num_ = from.num_;
        to.den_ = from.den_;
        from.num_ = block;
        from.den_ = 0;
        return;
    }
    to.num_ = from.num_;
    to.den_ = from.den_;
    from.num_ = 0;
    from.den_ = 1;
}

}  // namespace vorn
