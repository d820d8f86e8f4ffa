// QNumber arithmetic and comparison: small operands on the checked 64-bit kernels, everything
// else (big operands, or a result that does not fit) through GMP rationals.

#include <cassert>

#include "gmp_holder.h"
#include "vorn/numbers/qnumber.h"
#include "vorn/numbers/small_arith.h"

namespace vorn {

// Grants the free helpers below access to the representation.
class QNumberArith {
  public:
    using GmpOp = void (*)(mpq_ptr, mpq_srcptr, mpq_srcptr);

    static std::int64_t num(const QNumber& q) { return q.num_; }
    static std::int64_t den(const QNumber& q) { return q.den_; }
    static mpq_ptr block(const QNumber& q) { return q.big(); }
    static QNumber small(std::int64_t n, std::int64_t d) {
        return QNumber::make_small_unchecked(n, d);
    }
    static QNumber computed(mpq_ptr value) { return QNumber::from_computed(value); }
    static void take(QNumber& into, QNumber&& result) { into.take(std::move(result)); }
};

namespace {

using A = QNumberArith;

// A read-only GMP view of any QNumber: the block itself when big, a temporary otherwise.
class MpqView {
  public:
    explicit MpqView(const QNumber& q) {
        if (q.is_big()) {
            ptr_ = A::block(q);
            return;
        }
        mpq_init(temp_);
        mpz_set_si(mpq_numref(temp_), A::num(q));
        mpz_set_si(mpq_denref(temp_), A::den(q));
        ptr_ = temp_;
    }
    MpqView(const MpqView&) = delete;
    MpqView& operator=(const MpqView&) = delete;
    ~MpqView() {
        if (ptr_ == temp_) mpq_clear(temp_);
    }
    mpq_srcptr get() const { return ptr_; }

  private:
    mpq_t temp_;
    mpq_ptr ptr_ = nullptr;
};

QNumber gmp_binary(const QNumber& a, const QNumber& b, A::GmpOp op) {
    MpqView va(a), vb(b);
    detail::Mpq result;
    op(result.get(), va.get(), vb.get());
    return A::computed(result.release());
}

bool both_small(const QNumber& a, const QNumber& b) {
    return !a.is_big() && !b.is_big();
}

}  // namespace

QNumber operator+(const QNumber& a, const QNumber& b) {
    std::int64_t n, d;
    if (both_small(a, b) && detail::small_add(A::num(a), A::den(a), A::num(b), A::den(b), 1, n, d))
        return A::small(n, d);
    return gmp_binary(a, b, mpq_add);
}

QNumber operator-(const QNumber& a, const QNumber& b) {
    std::int64_t n, d;
    if (both_small(a, b) && detail::small_add(A::num(a), A::den(a), A::num(b), A::den(b), -1, n, d))
        return A::small(n, d);
    return gmp_binary(a, b, mpq_sub);
}

QNumber operator*(const QNumber& a, const QNumber& b) {
    std::int64_t n, d;
    if (both_small(a, b) && detail::small_mul(A::num(a), A::den(a), A::num(b), A::den(b), n, d))
        return A::small(n, d);
    return gmp_binary(a, b, mpq_mul);
}

QNumber operator/(const QNumber& a, const QNumber& b) {
    assert(!b.is_zero() && "QNumber division by zero");
    std::int64_t n, d;
    if (both_small(a, b) && detail::small_div(A::num(a), A::den(a), A::num(b), A::den(b), n, d))
        return A::small(n, d);
    return gmp_binary(a, b, mpq_div);
}

QNumber& QNumber::operator+=(const QNumber& other) {
    std::int64_t n, d;
    if (both_small(*this, other) &&
        detail::small_add(num_, den_, other.num_, other.den_, 1, n, d)) {
        num_ = n;
        den_ = d;
        return *this;
    }
    take(gmp_binary(*this, other, mpq_add));
    return *this;
}

QNumber& QNumber::operator-=(const QNumber& other) {
    std::int64_t n, d;
    if (both_small(*this, other) &&
        detail::small_add(num_, den_, other.num_, other.den_, -1, n, d)) {
        num_ = n;
        den_ = d;
        return *this;
    }
    take(gmp_binary(*this, other, mpq_sub));
    return *this;
}

QNumber& QNumber::operator*=(const QNumber& other) {
    std::int64_t n, d;
    if (both_small(*this, other) && detail::small_mul(num_, den_, other.num_, other.den_, n, d)) {
        num_ = n;
        den_ = d;
        return *this;
    }
    take(gmp_binary(*this, other, mpq_mul));
    return *this;
}

QNumber& QNumber::operator/=(const QNumber& other) {
    assert(!other.is_zero() && "QNumber division by zero");
    std::int64_t n, d;
    if (both_small(*this, other) && detail::small_div(num_, den_, other.num_, other.den_, n, d)) {
        num_ = n;
        den_ = d;
        return *this;
    }
    take(gmp_binary(*this, other, mpq_div));
    return *this;
}

void QNumber::add_product_slow(const QNumber& a, const QNumber& b) {
    MpqView va(a), vb(b), self(*this);
    detail::Mpq result;
    mpq_mul(result.get(), va.get(), vb.get());
    mpq_add(result.get(), result.get(), self.get());
    take(A::computed(result.release()));
}

void QNumber::set_product_slow(const QNumber& a, const QNumber& b) {
    take(a * b);
}

void QNumber::negate() {
    if (!is_big() && num_ != INT64_MIN) {
        num_ = -num_;
        return;
    }
    // -INT64_MIN does not fit; a big value whose negation fits comes back small.
    MpqView self(*this);
    detail::Mpq result;
    mpq_neg(result.get(), self.get());
    take(A::computed(result.release()));
}

QNumber QNumber::operator-() const {
    QNumber result(*this);
    result.negate();
    return result;
}

bool operator==(const QNumber& a, const QNumber& b) noexcept {
    if (both_small(a, b)) return A::num(a) == A::num(b) && A::den(a) == A::den(b);
    MpqView va(a), vb(b);
    return mpq_equal(va.get(), vb.get()) != 0;
}

std::strong_ordering operator<=>(const QNumber& a, const QNumber& b) noexcept {
    if (both_small(a, b)) {
        detail::i128 lhs = static_cast<detail::i128>(A::num(a)) * A::den(b);
        detail::i128 rhs = static_cast<detail::i128>(A::num(b)) * A::den(a);
        return lhs <=> rhs;
    }
    MpqView va(a), vb(b);
    int c = mpq_cmp(va.get(), vb.get());
    return c <=> 0;
}

}  // namespace vorn
