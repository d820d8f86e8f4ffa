// Randomized differential test of the tableau against the row-space model (see
// support/tableau_model.h): long random operation sequences, small and big coefficients.

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "support/random_rational.h"
#include "support/tableau_model.h"

namespace {

struct RandomChoices {
    std::mt19937_64 rng;
    bool big;
    unsigned pick(unsigned n) { return static_cast<unsigned>(rng() % n); }
    vorn::QNumber coefficient() {
        if (big && rng() % 4 == 0) return vorn::test::random_rational(rng, false);
        std::int64_t num = static_cast<std::int64_t>(rng() % 9) - 4;
        return vorn::QNumber(num == 0 ? 1 : num, static_cast<std::int64_t>(rng() % 3) + 1);
    }
};

void run(unsigned seed, bool big, int steps) {
    RandomChoices choices{std::mt19937_64(seed), big};
    vorn::test::TableauModel<RandomChoices> model(choices);
    for (int i = 0; i < steps; ++i)
        ASSERT_EQ(model.step(), "") << "seed " << seed << " step " << i;
    ASSERT_EQ(model.restore_everything(), "") << "seed " << seed;
}

// VORN_QUICK shortens the runs for slow instrumentation such as valgrind.
unsigned seeds(unsigned full) {
    return std::getenv("VORN_QUICK") != nullptr ? 2 : full;
}

}  // namespace

TEST(TableauRandom, SmallCoefficientsMatchTheReference) {
    for (unsigned seed = 1; seed <= seeds(12); ++seed)
        run(seed, false, 250);
}

TEST(TableauRandom, BigCoefficientsMatchTheReference) {
    for (unsigned seed = 100; seed < 100 + seeds(7); ++seed)
        run(seed, true, 150);
}
