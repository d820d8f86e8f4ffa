// Lifecycle, conversion, parsing and printing of QNumber. Copy, assignment and destruction use
// exactly the GMP integer functions that keep a big number's block its own and reuse it when
// the destination is already big.

#include "vorn/numbers/qnumber.h"

#include <cassert>
#include <ostream>
#include <stdexcept>

#include "gmp_holder.h"
#include "vorn/numbers/small_arith.h"

namespace vorn {

namespace {

// Allocated from the free store; the caller initialises both integers.
mpq_ptr new_block() {
    return new __mpq_struct;
}

std::int64_t as_word(mpq_ptr block) {
    return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(block));
}

}  // namespace

QNumber::QNumber(std::int64_t num, std::int64_t den) : num_(num), den_(den) {
    assert(den != 0 && "QNumber with a zero denominator");
    if (den == 1) return;
    if (num == 0) {
        den_ = 1;
        return;
    }
    bool negative = (num < 0) != (den < 0);
    std::uint64_t n = detail::magnitude(num);
    std::uint64_t d = detail::magnitude(den);
    std::uint64_t g = detail::gcd64(n, d);
    n /= g;
    d /= g;
    // Magnitudes up to 2^63 arise only from INT64_MIN; a denominator of 2^63 or a numerator of
    // +2^63 needs the big form.
    if (d <= INT64_MAX && (n <= INT64_MAX || (negative && n == (std::uint64_t{1} << 63)))) {
        num_ = negative ? static_cast<std::int64_t>(0 - n) : static_cast<std::int64_t>(n);
        den_ = static_cast<std::int64_t>(d);
        return;
    }
    detail::Mpq q;
    mpz_set_ui(mpq_numref(q.get()), n);
    if (negative) mpz_neg(mpq_numref(q.get()), mpq_numref(q.get()));
    mpz_set_ui(mpq_denref(q.get()), d);
    num_ = 0;
    den_ = 1;
    take(from_computed(q.release()));
}

QNumber::QNumber(mpq_srcptr value) : QNumber() {
    detail::Mpq copy;
    mpq_set(copy.get(), value);
    mpq_canonicalize(copy.get());
    take(from_computed(copy.release()));
}

QNumber::QNumber(const QNumber& other) : num_(other.num_), den_(other.den_) {
    if (!other.is_big()) return;
    mpq_ptr block = new_block();
    mpz_init_set(mpq_numref(block), mpq_numref(other.big()));
    mpz_init_set(mpq_denref(block), mpq_denref(other.big()));
    num_ = as_word(block);
}

QNumber& QNumber::operator=(const QNumber& other) {
    if (this == &other) return *this;
    if (other.is_big()) {
        if (is_big()) {
            mpz_set(mpq_numref(big()), mpq_numref(other.big()));
            mpz_set(mpq_denref(big()), mpq_denref(other.big()));
            return *this;
        }
        // Only switch to the big form once the block exists: a failed allocation leaves the old
        // value in place.
        mpq_ptr block = new_block();
        mpz_init(mpq_numref(block));
        mpz_init(mpq_denref(block));
        mpz_set(mpq_numref(block), mpq_numref(other.big()));
        mpz_set(mpq_denref(block), mpq_denref(other.big()));
        num_ = as_word(block);
        den_ = 0;
        return *this;
    }
    if (is_big()) {
        mpz_set_si(mpq_numref(big()), other.num_);
        mpz_set_si(mpq_denref(big()), other.den_);
        return *this;
    }
    num_ = other.num_;
    den_ = other.den_;
    return *this;
}

QNumber& QNumber::operator=(QNumber&& other) noexcept {
    if (this == &other) return *this;
    if (is_big()) {
        // Assignment never leaves the big form; a big source just trades limbs.
        if (other.is_big()) {
            mpq_swap(big(), other.big());
        } else {
            mpz_set_si(mpq_numref(big()), other.num_);
            mpz_set_si(mpq_denref(big()), other.den_);
        }
        return *this;
    }
    num_ = other.num_;
    den_ = other.den_;
    other.num_ = 0;
    other.den_ = 1;
    return *this;
}

void QNumber::release_big() noexcept {
    mpq_ptr block = big();
    mpz_clear(mpq_numref(block));
    mpz_clear(mpq_denref(block));
    delete block;
}

void QNumber::take(QNumber&& result) noexcept {
    if (is_big()) release_big();
    num_ = result.num_;
    den_ = result.den_;
    result.num_ = 0;
    result.den_ = 1;
}

bool QNumber::is_integer() const {
    if (!is_big()) return den_ == 1;
    return mpz_cmp_ui(mpq_denref(big()), 1) == 0;
}

bool QNumber::slow_is_one() const noexcept {
    return mpq_cmp_si(big(), 1, 1) == 0;
}
bool QNumber::slow_is_minus_one() const noexcept {
    return mpq_cmp_si(big(), -1, 1) == 0;
}

int QNumber::sign() const noexcept {
    if (is_big()) return mpq_sgn(big());
    return (num_ > 0) - (num_ < 0);
}

void QNumber::get_mpq(mpq_ptr out) const {
    if (is_big()) {
        mpq_set(out, big());
        return;
    }
    mpz_set_si(mpq_numref(out), num_);
    mpz_set_si(mpq_denref(out), den_);
}

QNumber QNumber::from_computed(mpq_ptr value) {
    if (mpz_fits_slong_p(mpq_numref(value)) && mpz_fits_slong_p(mpq_denref(value))) {
        QNumber small =
            make_small_unchecked(mpz_get_si(mpq_numref(value)), mpz_get_si(mpq_denref(value)));
        mpq_clear(value);
        delete value;
        return small;
    }
    QNumber q;
    q.num_ = as_word(value);
    q.den_ = 0;
    return q;
}

QNumber QNumber::from_unsigned(std::uint64_t value) {
    detail::Mpq q;
    mpz_set_ui(mpq_numref(q.get()), value);
    return from_computed(q.release());
}

QNumber QNumber::make_big(const QNumber& value) {
    if (value.is_big()) return value;
    mpq_ptr block = new_block();
    mpq_init(block);
    mpz_set_si(mpq_numref(block), value.num_);
    mpz_set_si(mpq_denref(block), value.den_);
    QNumber q;
    q.num_ = as_word(block);
    q.den_ = 0;
    return q;
}

std::string QNumber::to_string() const {
    if (!is_big()) {
        std::string text = std::to_string(num_);
        if (den_ != 1) text += '/' + std::to_string(den_);
        return text;
    }
    detail::GmpString num(mpz_get_str(nullptr, 10, mpq_numref(big())));
    std::string text = num.get();
    if (mpz_cmp_ui(mpq_denref(big()), 1) != 0) {
        detail::GmpString den(mpz_get_str(nullptr, 10, mpq_denref(big())));
        text += '/';
        text += den.get();
    }
    return text;
}

std::ostream& operator<<(std::ostream& out, const QNumber& value) {
    return out << value.to_string();
}

}  // namespace vorn
