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

TEST(VarMap, SpanDoublesOrJumpsToTheIndex) {
    Map m;
    std::vector<std::size_t> spans;
    for (int i : {0, 1, 2, 3, 4}) {
        m[i];
        spans.push_back(m.span());
    }
    EXPECT_EQ(spans, (std::vector<std::size_t>{1, 2, 4, 4, 8}));

    Map a;
    a[5];
    EXPECT_EQ(a.span(), 6u);
    EXPECT_EQ(a.size(), 1u);
    EXPECT_EQ(a.values()[5], nullptr);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(a.present()[i], 0);
    a[6];
    EXPECT_EQ(a.span(), 12u);
    Map b;
    b[5];
    b[20];
    EXPECT_EQ(b.span(), 21u);
}

TEST(VarMap, PresentIndexKeepsCountAndSlot) {
    Map m;
    int x = 0;
    m[3] = &x;
    m[3];
    EXPECT_EQ(m.size(), 1u);
    EXPECT_EQ(m[3], &x);
}

TEST(VarMap, EraseRules) {
    Map m;
    int x = 0;
    m[2] = &x;
    m.erase(10);  // beyond the span
    m.erase(1);   // absent
    m.erase(-1);  // negative
    EXPECT_EQ(m.size(), 1u);
    m.erase(2);
    EXPECT_EQ(m.size(), 0u);
    EXPECT_EQ(m.values()[2], nullptr);
    auto span = m.span();
    EXPECT_EQ(m[2], nullptr);  // present again, null value
    EXPECT_EQ(m.size(), 1u);
    EXPECT_EQ(m.span(), span);
}

TEST(VarMap, ReserveChangesCapacityOnly) {
    Map m;
    m[1];
    m.reserve(0);
    EXPECT_EQ(m.values().capacity(), 2u);
    m.reserve(100);
    EXPECT_EQ(m.values().capacity(), 100u);
    EXPECT_EQ(m.present().capacity(), 100u);
    EXPECT_EQ(m.span(), 2u);
    EXPECT_EQ(m.size(), 1u);
    int* const* data = m.values().data();
    m[99];
    EXPECT_EQ(m.values().data(), data);  // no reallocation within the reserved span
    m.reserve(50);
    EXPECT_EQ(m.values().capacity(), 100u);
}

TEST(VarMap, IterationSkipsAbsentAndAllErased) {
    Map m;
    for (int i : {7, 2, 4})
        m[i];
    EXPECT_EQ(indices(m), (std::vector<int>{2, 4, 7}));
    for (int i : {7, 2, 4})
        m.erase(i);
    EXPECT_TRUE(indices(m).empty());
    EXPECT_NE(m.span(), 0u);
}

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

TEST(VarMap, RandomOperationsMatchStdMap) {
    std::mt19937 rng(99);
    Map m;
    std::map<int, int*> ref;
    std::vector<int> cells(500);
    for (int step = 0; step < 20000; ++step) {
        int i = static_cast<int>(rng() % 500);
        if (rng() % 3) {
            m[i] = &cells[i];
            ref[i] = &cells[i];
        } else {
            m.erase(i);
            ref.erase(i);
        }
        ASSERT_EQ(m.size(), ref.size());
    }
    std::vector<int> want;
    for (const auto& [k, v] : ref) {
        want.push_back(k);
        EXPECT_EQ(m.at(k), v);
    }
    EXPECT_EQ(indices(m), want);
}
