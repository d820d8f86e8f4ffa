// Lifecycle, conversion and printing of QNumber. Copy, assignment and destruction use exactly the
// GMP integer functions that keep a big number's block its own and reuse it when the
// destination is already big; every block comes into being in become_big.

#include "vorn/numbers/qnumber.h"

#include <cassert>
#include <ostream>

#include "gmp_holder.h"

namespace vorn {

namespace detail {

mpq_ptr scratch_mpq() noexcept {
    // Integers initialised without limbs: nothing is allocated until a result is written.
    thread_local struct Scratch {
        Scratch() noexcept {
            mpz_init(mpq_numref(value));
            mpz_init(mpq_denref(value));
        }
        ~Scratch() { mpq_clear(value); }
        mpq_t value;
    } scratch;
    return scratch.value;
}

}  // namespace detail

namespace {

std::int64_t as_word(mpq_ptr block) {
    return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(block));
}

}  // namespace

template <class Init>
void QNumber::become_big(Init init) {
    assert(!is_big());
    mpq_ptr block = new __mpq_struct;
    init(block);
    num_ = as_word(block);
    den_ = 0;
}

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
    num_ = 0;
    den_ = 1;
    become_big([&](mpq_ptr block) {
        mpz_init_set_ui(mpq_numref(block), n);
        if (negative) mpz_neg(mpq_numref(block), mpq_numref(block));
        mpz_init_set_ui(mpq_denref(block), d);
    });
}

QNumber::QNumber(mpq_srcptr value) : QNumber() {
    detail::LocalMpq canonical;
    mpq_set(canonical.get(), value);
    mpq_canonicalize(canonical.get());
    set_result(canonical.get());
}

void QNumber::set_unsigned(std::uint64_t value) {
    become_big([value](mpq_ptr block) {
        mpz_init_set_ui(mpq_numref(block), value);
        mpz_init_set_ui(mpq_denref(block), 1);
    });
}

QNumber::QNumber(const QNumber& other) : num_(other.num_), den_(other.den_) {
    if (!other.is_big()) return;
    num_ = 0;
    den_ = 1;
    become_big([&other](mpq_ptr block) {
        mpz_init_set(mpq_numref(block), mpq_numref(other.big()));
        mpz_init_set(mpq_denref(block), mpq_denref(other.big()));
    });
}

QNumber& QNumber::operator=(const QNumber& other) {
    if (this == &other) return *this;
    if (!other.is_big()) {
        set_small_value(other.num_, other.den_);
        return *this;
    }
    if (is_big()) {
        mpz_set(mpq_numref(big()), mpq_numref(other.big()));
        mpz_set(mpq_denref(big()), mpq_denref(other.big()));
        return *this;
    }
    become_big([&other](mpq_ptr block) {
        mpz_init(mpq_numref(block));
        mpz_init(mpq_denref(block));
        mpz_set(mpq_numref(block), mpq_numref(other.big()));
        mpz_set(mpq_denref(block), mpq_denref(other.big()));
    });
    return *this;
}

void QNumber::set_small_value(std::int64_t num, std::int64_t den) noexcept {
    if (!is_big()) {
        num_ = num;
        den_ = den;
        return;
    }
    mpz_set_si(mpq_numref(big()), num);
    mpz_set_si(mpq_denref(big()), den);
}

void QNumber::set_result(mpq_srcptr value) {
    if (is_big()) {
        mpq_set(big(), value);
        return;
    }
    if (mpz_fits_slong_p(mpq_numref(value)) && mpz_fits_slong_p(mpq_denref(value))) {
        num_ = mpz_get_si(mpq_numref(value));
        den_ = mpz_get_si(mpq_denref(value));
        return;
    }
    become_big([value](mpq_ptr block) {
        mpz_init_set(mpq_numref(block), mpq_numref(value));
        mpz_init_set(mpq_denref(block), mpq_denref(value));
    });
}

void QNumber::release_big() noexcept {
    mpq_ptr block = big();
    mpz_clear(mpq_numref(block));
    mpz_clear(mpq_denref(block));
    delete block;
}

bool QNumber::is_integer() const {
    if (!is_big()) return den_ == 1;
    return mpz_cmp_ui(mpq_denref(big()), 1) == 0;
}

bool QNumber::equals_big(long num, unsigned long den) const noexcept {
    return mpq_cmp_si(big(), num, den) == 0;
}

int QNumber::sign() const noexcept {
    if (is_big()) return mpq_sgn(big());
    return (num_ > 0) - (num_ < 0);
}

void QNumber::get_mpq(mpq_ptr out) const {
    mpq_set(out, detail::MpqView(*this).get());
}

QNumber QNumber::make_big(const QNumber& value) {
    QNumber q(value);  // one named result on every path, so it is never copied on return
    if (!q.is_big())
        q.become_big([&value](mpq_ptr block) {
            mpz_init_set_si(mpq_numref(block), value.num_);
            mpz_init_set_si(mpq_denref(block), value.den_);
        });
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
