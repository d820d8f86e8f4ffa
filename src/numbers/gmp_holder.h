#pragma once

// Small owners for GMP objects used on the slow paths of QNumber.

#include <gmp.h>

#include <cstring>

namespace vorn::detail {

// A GMP rational in a heap block of the same kind a big QNumber owns, so that a result can be
// handed over to a QNumber without copying limbs.
class Mpq {
  public:
    Mpq() : block_(new __mpq_struct) { mpq_init(block_); }
    Mpq(const Mpq&) = delete;
    Mpq& operator=(const Mpq&) = delete;
    ~Mpq() {
        if (block_ == nullptr) return;
        mpq_clear(block_);
        delete block_;
    }
    mpq_ptr get() const { return block_; }
    mpq_ptr release() {
        mpq_ptr block = block_;
        block_ = nullptr;
        return block;
    }

  private:
    mpq_ptr block_;
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
