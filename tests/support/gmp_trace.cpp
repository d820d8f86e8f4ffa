#include "support/gmp_trace.h"

#include <gmp.h>

#include <cstdlib>
#include <new>

namespace vorn::test {
namespace {

GmpRecord g_record;
bool g_tracing = false;

void note(const char* call) {
    if (g_tracing) g_record.calls.emplace_back(call);
}

}  // namespace

GmpTrace::GmpTrace() {
    g_record = {};
    g_record.calls.reserve(64);  // recording a call must not allocate while blocks are counted
    g_tracing = true;
}
GmpTrace::~GmpTrace() {
    g_tracing = false;
}
GmpRecord GmpTrace::stop() {
    g_tracing = false;
    return g_record;
}

}  // namespace vorn::test

using vorn::test::g_record;
using vorn::test::g_tracing;
using vorn::test::note;

extern "C" {
void __real___gmpz_init(mpz_ptr);
void __real___gmpz_init_set(mpz_ptr, mpz_srcptr);
void __real___gmpz_set(mpz_ptr, mpz_srcptr);
void __real___gmpz_set_si(mpz_ptr, long);
void __real___gmpz_clear(mpz_ptr);
int __real___gmpz_cmp_ui(mpz_srcptr, unsigned long);

void __wrap___gmpz_init(mpz_ptr z) {
    note("init");
    __real___gmpz_init(z);
}
void __wrap___gmpz_init_set(mpz_ptr z, mpz_srcptr v) {
    note("init_set");
    __real___gmpz_init_set(z, v);
}
void __wrap___gmpz_set(mpz_ptr z, mpz_srcptr v) {
    note("set");
    __real___gmpz_set(z, v);
}
void __wrap___gmpz_set_si(mpz_ptr z, long v) {
    note("set_si");
    __real___gmpz_set_si(z, v);
}
void __wrap___gmpz_clear(mpz_ptr z) {
    note("clear");
    __real___gmpz_clear(z);
}
int __wrap___gmpz_cmp_ui(mpz_srcptr z, unsigned long v) {
    note("cmp_ui");
    return __real___gmpz_cmp_ui(z, v);
}
}

// A QNumber block is the only allocation of exactly one GMP rational's size while tracing.
void* operator new(std::size_t n) {
    if (g_tracing && n == sizeof(__mpq_struct)) ++g_record.blocks_allocated;
    if (void* p = std::malloc(n == 0 ? 1 : n)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t n) noexcept {
    if (g_tracing && p != nullptr && n == sizeof(__mpq_struct)) ++g_record.blocks_freed;
    std::free(p);
}
