// QNumber arithmetic against GMP's rationals, operands drawn near every overflow boundary.

#include <fuzzer/FuzzedDataProvider.h>
#include <gmpxx.h>

#include <cstdio>
#include <cstdlib>

#include "support/gmp_reference.h"
#include "vorn/numbers/qnumber.h"

using vorn::QNumber;
using vorn::test::to_mpq;

namespace {

std::int64_t boundary_int(FuzzedDataProvider& data) {
    static constexpr std::int64_t anchors[] = {
        0, 1, 2, 3, INT32_MAX, std::int64_t{1} << 32, std::int64_t{1} << 62, INT64_MAX, INT64_MIN};
    std::int64_t v = data.ConsumeBool() ? data.ConsumeIntegral<std::int64_t>()
                                        : anchors[data.ConsumeIntegralInRange<int>(0, 8)];
    // Step towards zero, so that the neighbours of the extremes stay in range.
    std::int64_t step = data.ConsumeIntegralInRange<std::int64_t>(0, 2);
    return v > 0 ? v - step : v < 0 ? v + step : step;
}

QNumber operand(FuzzedDataProvider& data) {
    std::int64_t den = boundary_int(data);
    QNumber q(boundary_int(data), den == 0 ? 1 : den);
    if (data.ConsumeBool()) q *= QNumber(boundary_int(data) | 1);
    return data.ConsumeBool() ? QNumber::make_big(q) : q;
}

void expect(bool ok, const char* what, const QNumber& a, const QNumber& b) {
    if (ok) return;
    std::fprintf(stderr, "%s: a=%s b=%s\n", what, a.to_string().c_str(), b.to_string().c_str());
    std::abort();
}

// Exact, and small exactly when it fits, except that a result computed in place into a number
// that was big stays in its block.
bool canonical(const QNumber& got, const mpq_class& want, bool into_big = false) {
    bool fits = want.get_num().fits_slong_p() && want.get_den().fits_slong_p();
    return to_mpq(got) == want && (into_big || !fits) == got.is_big();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzedDataProvider data(bytes, size);
    while (data.remaining_bytes() > 0) {
        QNumber a = operand(data), b = operand(data), c = operand(data);
        mpq_class qa = to_mpq(a), qb = to_mpq(b), qc = to_mpq(c);
        expect(canonical(a + b, qa + qb), "add", a, b);
        expect(canonical(a - b, qa - qb), "sub", a, b);
        expect(canonical(a * b, qa * qb), "mul", a, b);
        if (!b.is_zero()) expect(canonical(a / b, qa / qb), "div", a, b);
        expect(canonical(-a, -qa), "neg", a, b);
        expect((a < b) == (qa < qb) && (a == b) == (qa == qb), "compare", a, b);
        QNumber acc = c;
        acc.add_product(a, b);
        expect(canonical(acc, qc + qa * qb, c.is_big()), "add_product", a, b);
        QNumber prod = c;
        prod.set_product(a, b);
        expect(canonical(prod, qa * qb, c.is_big()), "set_product", a, b);
        QNumber copy = a;
        copy = b;
        expect(copy == b, "assign", a, b);
        QNumber parsed = QNumber::from_string(a.to_string());
        expect(parsed == a, "print/parse", a, b);
    }
    return 0;
}
