// Tableau operations decoded from the input bytes, each checked against the row-space model;
// coefficients range from small fractions to numbers far beyond 64 bits.

#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "support/tableau_model.h"

namespace {

struct FuzzChoices {
    FuzzedDataProvider& data;
    unsigned pick(unsigned n) { return data.ConsumeIntegralInRange<unsigned>(0, n - 1); }
    vorn::QNumber coefficient() {
        std::int64_t num = data.ConsumeIntegral<std::int64_t>();
        std::int64_t den = data.ConsumeIntegralInRange<std::int64_t>(1, 1000);
        if (num == 0) num = 1;
        vorn::QNumber c(num % 10 == 0 ? num : num % 7 + (num % 7 == 0 ? 1 : 0), den);
        unsigned shift = data.ConsumeIntegralInRange<unsigned>(0, 3);
        for (unsigned i = 0; i < shift; ++i)
            c *= vorn::QNumber(INT64_MAX);
        return c;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FuzzedDataProvider data(bytes, size);
    FuzzChoices choices{data};
    vorn::test::TableauModel<FuzzChoices> model(choices);
    for (int step = 0; step < 200 && data.remaining_bytes() > 0; ++step) {
        std::string fault = model.step();
        if (!fault.empty()) {
            std::fprintf(stderr, "tableau fault at step %d: %s\n", step, fault.c_str());
            std::abort();
        }
    }
    std::string fault = model.restore_everything();
    if (!fault.empty()) {
        std::fprintf(stderr, "tableau fault while restoring: %s\n", fault.c_str());
        std::abort();
    }
    return 0;
}
