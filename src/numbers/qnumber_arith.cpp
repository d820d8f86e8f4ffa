// QNumber arithmetic and comparison: small operands on the checked 64-bit kernels, everything
// else through GMP on allocation-free views, the result landing in the destination's own block
// when it has one.

#include <cassert>

#include "gmp_holder.h"
#include "vorn/numbers/qnumber.h"
#include "vorn/numbers/small_arith.h"

namespace vorn {

namespace {

using detail::MpqView;
using SmallKernel = bool (*)(std::int64_t, std::int64_t, std::int64_t, std::int64_t, std::int64_t&,
                             std::int64_t&);
using GmpKernel = void (*)(mpq_ptr, mpq_srcptr, mpq_srcptr);

bool small_sum(std::int64_t an, std::int64_t ad, std::int64_t bn, std::int64_t bd, std::int64_t& rn,
               std::int64_t& rd) {
    return detail::small_add(an, ad, bn, bd, 1, rn, rd);
}

bool small_difference(std::int64_t an, std::int64_t ad, std::int64_t bn, std::int64_t bd,
                      std::int64_t& rn, std::int64_t& rd) {
    return detail::small_add(an, ad, bn, bd, -1, rn, rd);
}

// Indexed by QNumber::Op.
constexpr SmallKernel kSmall[] = {small_sum, small_difference, detail::small_mul,
                                  detail::small_div};
constexpr GmpKernel kGmp[] = {mpq_add, mpq_sub, mpq_mul, mpq_div};

}  // namespace

QNumber& QNumber::apply(Op op, const QNumber& a, const QNumber& b) {
    assert((op != Op::Quotient || !b.is_zero()) && "QNumber division by zero");
    const auto k = static_cast<std::size_t>(op);
    std::int64_t n, d;
    if (!a.is_big() && !b.is_big() && kSmall[k](a.num_, a.den_, b.num_, b.den_, n, d)) {
        set_small_value(n, d);
        return *this;
    }
    MpqView va(a), vb(b);
    if (is_big()) {  // GMP allows the result to alias an operand
        kGmp[k](big(), va.get(), vb.get());
        return *this;
    }
    mpq_ptr scratch = detail::scratch_mpq();
    kGmp[k](scratch, va.get(), vb.get());
    set_result(scratch);
    return *this;
}

void QNumber::add_product_slow(const QNumber& a, const QNumber& b) {
    mpq_ptr product = detail::scratch_mpq();
    {
        MpqView va(a), vb(b);
        mpq_mul(product, va.get(), vb.get());
    }
    if (is_big()) {
        mpq_add(big(), big(), product);
        return;
    }
    MpqView self(*this);
    mpq_add(product, product, self.get());
    set_result(product);
}

void QNumber::negate() {
    if (is_big()) {
        mpq_neg(big(), big());
        return;
    }
    if (num_ != INT64_MIN) {
        num_ = -num_;
        return;
    }
    mpq_ptr scratch = detail::scratch_mpq();  // -INT64_MIN does not fit
    mpq_neg(scratch, MpqView(*this).get());
    set_result(scratch);
}

QNumber QNumber::operator-() const {
    QNumber result;
    if (!is_big() && num_ != INT64_MIN) {
        result.num_ = -num_;
        result.den_ = den_;
        return result;
    }
    mpq_ptr scratch = detail::scratch_mpq();
    mpq_neg(scratch, MpqView(*this).get());
    result.set_result(scratch);
    return result;
}

bool operator==(const QNumber& a, const QNumber& b) noexcept {
    // Both forms are always in lowest terms, so equal values have equal parts.
    if (!a.is_big() && !b.is_big()) return a.num_ == b.num_ && a.den_ == b.den_;
    if (a.is_big() && b.is_big()) return mpq_equal(a.big(), b.big()) != 0;
    const QNumber& big = a.is_big() ? a : b;
    const QNumber& small = a.is_big() ? b : a;
    return big.equals_big(small.num_, static_cast<unsigned long>(small.den_));
}

std::strong_ordering operator<=>(const QNumber& a, const QNumber& b) noexcept {
    if (!a.is_big() && !b.is_big()) {
        detail::i128 lhs = static_cast<detail::i128>(a.num_) * b.den_;
        detail::i128 rhs = static_cast<detail::i128>(b.num_) * a.den_;
        return lhs <=> rhs;
    }
    if (a.is_big() && b.is_big()) return mpq_cmp(a.big(), b.big()) <=> 0;
    if (a.is_big()) return mpq_cmp_si(a.big(), b.num_, static_cast<unsigned long>(b.den_)) <=> 0;
    return 0 <=> mpq_cmp_si(b.big(), a.num_, static_cast<unsigned long>(a.den_));
}

}  // namespace vorn
