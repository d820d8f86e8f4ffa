// VarMap: span growth, presence bookkeeping, reserve and erase rules, iteration.

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "support/failing_new.h"
#include "vorn/la/varmap.h"

using Map = vorn::la::VarMap<int*, true, true>;

namespace {

std::vector<int> indices(const Map& m) {
    std::vector<int> out;
    for (auto it = m.begin(); it != m.end(); ++it)
        out.push_back(it.index());
    return out;
}

}  // namespace

TEST(VarMap, MovedFromIsEmptyAndReusable) {
    Map m;
    int cell = 0;
    m[3] = &cell;
    m[5];
    Map moved(std::move(m));
    EXPECT_EQ(m.size(), 0u);  // NOLINT(bugprone-use-after-move): the state under test
    EXPECT_EQ(m.span(), 0u);
    EXPECT_TRUE(indices(m).empty());
    EXPECT_EQ(indices(moved), (std::vector<int>{3, 5}));
    m[1] = &cell;
    EXPECT_EQ(indices(m), (std::vector<int>{1}));
    EXPECT_EQ(m.size(), 1u);
    m = std::move(moved);
    EXPECT_EQ(moved.size(), 0u);  // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(indices(moved).empty());
    EXPECT_EQ(m.at(3), &cell);
    EXPECT_EQ(m.size(), 2u);
}

TEST(VarMap, FailedGrowthLeavesTheMapUsable) {
    for (long failing = 0; failing < 2; ++failing) {  // the value array, then the presence array
        Map m;
        m[0];
        vorn::test::fail_new_in(failing);
        EXPECT_THROW(m[40], std::bad_alloc);
        vorn::test::fail_new_in(-1);
        EXPECT_EQ(m.values().size(), m.present().size());
        EXPECT_EQ(m.size(), 1u);
        for (int i = 0; i < 60; ++i)
            m[i];  // within whatever span survived, then growing again
        EXPECT_EQ(m.size(), 60u);
        EXPECT_EQ(indices(m).size(), 60u);
    }
}

TEST(VarMap, RandomOperationsMatchTheExactModel) {
    // The span grows to max(2·span, i + 1), each array's capacity by the doubling rule (or to
    // exactly n on reserve), absent slots hold null.
    const unsigned seed = 99;
    std::mt19937 rng(seed);
    for (int trial = 0; trial < 20; ++trial) {
        Map m;
        std::size_t span = 0, value_cap = 0, present_cap = 0;
        std::map<int, int*> present;
        std::vector<int> cells(600);
        auto grown = [](std::size_t cap, std::size_t need) {
            return need <= cap ? cap : std::max(2 * cap, need);
        };
        for (int step = 0; step < 400; ++step) {
            int i = static_cast<int>(rng() % (rng() % 8 == 0 ? 600 : 40));
            switch (rng() % 5) {
                case 0:
                case 1:
                    if (static_cast<std::size_t>(i) >= span) {
                        span = std::max(2 * span, static_cast<std::size_t>(i) + 1);
                        value_cap = grown(value_cap, span);
                        present_cap = grown(present_cap, span);
                    }
                    EXPECT_EQ(m[i], present.count(i) ? present[i] : nullptr);
                    m[i] = present[i] = &cells[i];
                    break;
                case 2:
                    m.erase(i);
                    present.erase(i);
                    break;
                case 3:
                    m.erase(static_cast<int>(span) + i);  // at or beyond the span: nothing
                    break;
                default:
                    if (rng() % 4 == 0) {
                        auto n = static_cast<std::size_t>(rng() % 700);
                        m.reserve(n);
                        value_cap = std::max(value_cap, n);
                        present_cap = std::max(present_cap, n);
                    }
            }
            ASSERT_EQ(m.span(), span) << "seed " << seed << " trial " << trial;
            ASSERT_EQ(m.present().size(), span);
            ASSERT_EQ(m.values().capacity(), value_cap) << "seed " << seed;
            ASSERT_EQ(m.present().capacity(), present_cap) << "seed " << seed;
            ASSERT_EQ(m.size(), present.size());
        }
        std::vector<int> want;
        for (const auto& [k, v] : present) {
            want.push_back(k);
            EXPECT_EQ(m.at(k), v);
        }
        EXPECT_EQ(indices(m), want);
        for (std::size_t k = 0; k < span; ++k)
            EXPECT_TRUE(present.count(static_cast<int>(k)) || m.values()[k] == nullptr) << k;
    }
}
