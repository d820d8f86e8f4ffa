// VarSet: entry encoding, lazy removal and its compaction threshold, union capacities, and a
// differential run against std::set.

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "vorn/la/varset.h"

using vorn::la::VarSet;

namespace {

std::vector<std::int32_t> raw_entries(const VarSet& s) {
    std::vector<std::int32_t> raw;
    for (auto f : s.entries())
        raw.push_back(f.raw());
    return raw;
}

std::vector<int> members(const VarSet& s) {
    return {s.begin(), s.end()};
}

}  // namespace

TEST(VarSet, InsertStoresTwiceTheVariable) {
    VarSet s;
    EXPECT_TRUE(s.insert(5).second);
    EXPECT_EQ(raw_entries(s), std::vector<std::int32_t>{10});
    EXPECT_FALSE(s.insert(5).second);
    EXPECT_EQ(s.size(), 1u);
    s.insert(-1);
    EXPECT_EQ(raw_entries(s), (std::vector<std::int32_t>{-2, 10}));
    EXPECT_EQ(*s.insert(-1).first, -1);
}

TEST(VarSet, EraseOfLastMemberCompactsToNoStorage) {
    VarSet s;
    s.insert(5);
    s.erase(5);
    EXPECT_EQ(s.size(), 0u);
    EXPECT_TRUE(s.entries().empty());
    EXPECT_EQ(s.entries().capacity(), 0u);
}

TEST(VarSet, CompactsOnlyBelowAQuarterLive) {
    VarSet s;
    for (int v = 1; v <= 8; ++v)
        s.insert(v);
    for (int v : {1, 2, 3, 5, 6, 7})
        s.erase(v);
    EXPECT_EQ(s.size(), 2u);
    EXPECT_EQ(s.entries().size(), 8u);  // 4·2 is not below 8
    EXPECT_EQ(raw_entries(s), (std::vector<std::int32_t>{3, 5, 7, 8, 11, 13, 15, 16}));
    s.erase(4);
    EXPECT_EQ(raw_entries(s), std::vector<std::int32_t>{16});
    EXPECT_EQ(s.entries().capacity(), 1u);
}

TEST(VarSet, ReviveInPlaceWithoutGrowing) {
    VarSet s;
    for (int v : {1, 2, 3, 4})
        s.insert(v);
    s.erase(2);
    auto capacity = s.entries().capacity();
    EXPECT_TRUE(s.insert(2).second);
    EXPECT_EQ(s.entries().size(), 4u);
    EXPECT_EQ(s.entries().capacity(), capacity);
    EXPECT_EQ(s.size(), 4u);
    s.erase(2);
    s.erase(2);  // already removed: nothing
    s.erase(9);  // absent: nothing
    EXPECT_EQ(s.size(), 3u);
}

TEST(VarSet, ArrayGrowsByDoubling) {
    VarSet s;
    std::vector<std::size_t> capacities;
    for (int v = 0; v < 9; ++v) {
        s.insert(v);
        capacities.push_back(s.entries().capacity());
    }
    EXPECT_EQ(capacities, (std::vector<std::size_t>{1, 2, 4, 4, 8, 8, 8, 8, 16}));
}

TEST(VarSet, UnionMergesIntoCapacityOfBothSizes) {
    VarSet a, b;
    for (int v : {1, 2, 3})
        a.insert(v);
    for (int v : {2, 4})
        b.insert(v);
    a.insert(b);
    EXPECT_EQ(members(a), (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(a.size(), 4u);
    EXPECT_EQ(a.entries().capacity(), 5u);

    VarSet empty1, empty2;
    empty1.insert(empty2);
    EXPECT_EQ(empty1.entries().capacity(), 0u);

    VarSet marked;
    for (int v = 1; v <= 4; ++v)
        marked.insert(v);
    marked.erase(2);  // 3 live of 4: stays marked
    VarSet other;
    other.insert(-3);
    other.insert(3);
    other.insert(2);
    other.erase(2);
    marked.insert(other);
    EXPECT_EQ(raw_entries(marked), (std::vector<std::int32_t>{-6, 2, 6, 8}));
    marked.insert(marked);  // self-union
    EXPECT_EQ(members(marked), (std::vector<int>{-3, 1, 3, 4}));
}

TEST(VarSet, IterationSkipsMarkedEntries) {
    VarSet s;
    for (int v : {1, 2, 3})
        s.insert(v);
    s.erase(2);
    EXPECT_EQ(raw_entries(s), (std::vector<std::int32_t>{2, 5, 6}));
    EXPECT_EQ(members(s), (std::vector<int>{1, 3}));
}

TEST(VarSet, MovedFromIsEmptyAndReusable) {
    VarSet s;
    for (int v : {1, 2, 3})
        s.insert(v);
    VarSet moved(std::move(s));
    EXPECT_EQ(s.size(), 0u);  // NOLINT(bugprone-use-after-move): the state under test
    EXPECT_TRUE(members(s).empty());
    s.insert(4);
    EXPECT_EQ(s.size(), 1u);
    EXPECT_EQ(members(s), (std::vector<int>{4}));
    s = std::move(moved);
    EXPECT_EQ(moved.size(), 0u);  // NOLINT(bugprone-use-after-move)
    EXPECT_TRUE(members(moved).empty());
    EXPECT_EQ(members(s), (std::vector<int>{1, 2, 3}));
}

TEST(VarSet, RandomOperationsMatchStdSet) {
    const unsigned seed = 1234;
    std::mt19937 rng(seed);
    for (int trial = 0; trial < 40; ++trial) {
        VarSet s, t;
        std::set<int> ref_s, ref_t;
        for (int step = 0; step < 2000; ++step) {
            int v = static_cast<int>(rng() % 200) - 50;
            switch (rng() % 7) {
                case 0:
                case 1:
                case 2:
                    EXPECT_EQ(s.insert(v).second, ref_s.insert(v).second);
                    break;
                case 3:
                case 4:
                    s.erase(v);
                    ref_s.erase(v);
                    break;
                case 5:
                    t.insert(v);
                    ref_t.insert(v);
                    if (rng() % 2) {
                        t.erase(v + 1);
                        ref_t.erase(v + 1);
                    }
                    break;
                default:
                    if (rng() % 10 == 0) {
                        s.insert(t);
                        ref_s.insert(ref_t.begin(), ref_t.end());
                        EXPECT_EQ(s.entries().size(), ref_s.size());
                    }
            }
            ASSERT_EQ(s.size(), ref_s.size()) << "seed " << seed;
            ASSERT_LE(s.entries().size(), 4 * s.size());
            ASSERT_EQ(s.contains(v), ref_s.count(v) > 0);
        }
        ASSERT_EQ(members(s), std::vector<int>(ref_s.begin(), ref_s.end()));
    }
}
