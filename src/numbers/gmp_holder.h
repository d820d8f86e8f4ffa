#pragma once

// GMP helpers for the slow paths of QNumber: allocation-free views of small numbers, a per-thread
// scratch rational, a scoped rational and a scoped GMP string.

#include <gmp.h>

#include <cstring>

#include "vorn/numbers/qnumber.h"
#include "vorn/numbers/small_arith.h"

namespace vorn::detail {

static_assert(sizeof(mp_limb_t) == sizeof(std::int64_t), "a small word is one GMP limb");

// A read-only GMP view of any QNumber: the block itself when big, limbs on the stack otherwise.
class MpqView {
  public:
    explicit MpqView(const QNumber& q) noexcept {
        if (q.is_big()) {
            ptr_ = q.big_block();
            return;
        }
        std::int64_t n = q.num_word();
        num_limb_ = magnitude(n);
        den_limb_ = static_cast<mp_limb_t>(q.den_word());
        mpz_roinit_n(mpq_numref(&view_), &num_limb_, n > 0 ? 1 : (n < 0 ? -1 : 0));
        mpz_roinit_n(mpq_denref(&view_), &den_limb_, 1);
        ptr_ = &view_;
    }
    MpqView(const MpqView&) = delete;
    MpqView& operator=(const MpqView&) = delete;
    mpq_srcptr get() const noexcept { return ptr_; }

  private:
    mp_limb_t num_limb_ = 0;
    mp_limb_t den_limb_ = 1;
    __mpq_struct view_{};
    mpq_srcptr ptr_ = nullptr;
};

// One GMP rational per thread for intermediate results: its limbs stay allocated between
// operations, so a computation whose result lands in a big destination allocates nothing.
mpq_ptr scratch_mpq() noexcept;

// A GMP rational that lives for one scope.
class LocalMpq {
  public:
    LocalMpq() { mpq_init(value_); }
    LocalMpq(const LocalMpq&) = delete;
    LocalMpq& operator=(const LocalMpq&) = delete;
    ~LocalMpq() { mpq_clear(value_); }
    mpq_ptr get() noexcept { return value_; }

  private:
    mpq_t value_;
};

// A string returned by mpz_get_str, released through GMP's own free function.
class GmpString {
  public:
    explicit GmpString(char* text) : text_(text) {}
    GmpString(const GmpString&) = delete;
    GmpString& operator=(const GmpString&) = delete;
    ~GmpString() {
        void (*free_fn)(void*, size_t) = nullptr;
        mp_get_memory_functions(nullptr, nullptr, &free_fn);
        free_fn(text_, std::strlen(text_) + 1);
    }
    const char* get() const { return text_; }

  private:
    char* text_;
};

}  // namespace vorn::detail
