// VarSet against an exact model of its array: after every random insertion, erasure and union,
// the raw entries (2v, removed mark in bit 0), the capacity (doubling growth, compaction to
// exactly the live count below a quarter live, union into the sum of both sizes) and the count
// must agree. Moved-from sets are checked on their own.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
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

// The set's array as its contract describes it, written out plainly.
struct SetModel {
    std::vector<std::int32_t> raw;
    std::size_t capacity = 0;
    std::size_t count = 0;

    std::size_t find(int v) const {
        return static_cast<std::size_t>(
            std::find_if(raw.begin(), raw.end(), [v](std::int32_t r) { return (r >> 1) >= v; }) -
            raw.begin());
    }
    bool insert(int v) {
        std::size_t pos = find(v);
        if (pos < raw.size() && (raw[pos] >> 1) == v) {
            if ((raw[pos] & 1) == 0) return false;
            raw[pos] &= ~1;
            ++count;
            return true;
        }
        raw.insert(raw.begin() + static_cast<long>(pos), 2 * v);
        if (raw.size() > capacity) capacity = std::max(2 * capacity, raw.size());
        ++count;
        return true;
    }
    void erase(int v) {
        std::size_t pos = find(v);
        if (pos == raw.size() || (raw[pos] >> 1) != v || (raw[pos] & 1) != 0) return;
        raw[pos] |= 1;
        --count;
        if (4 * count >= raw.size()) return;
        std::erase_if(raw, [](std::int32_t r) { return (r & 1) != 0; });
        capacity = count;
    }
    void unite(const SetModel& other) {
        std::vector<std::int32_t> merged = raw;
        merged.insert(merged.end(), other.raw.begin(), other.raw.end());
        std::erase_if(merged, [](std::int32_t r) { return (r & 1) != 0; });
        std::sort(merged.begin(), merged.end());
        merged.erase(std::unique(merged.begin(), merged.end()), merged.end());
        capacity = count + other.count;
        raw = merged;
        count = raw.size();
    }
};

}  // namespace

TEST(VarSet, RandomOperationsMatchTheExactModel) {
    // Erasing down to exactly a quarter live keeps the array; one more erasure compacts it.
    VarSet q;
    for (int v = 1; v <= 8; ++v)
        q.insert(v);
    for (int v = 1; v <= 6; ++v)
        q.erase(v);
    EXPECT_EQ(q.entries().size(), 8u);
    q.erase(7);
    EXPECT_EQ(raw_entries(q), std::vector<std::int32_t>{16});
    const unsigned seed = 1234;
    std::mt19937 rng(seed);
    for (int trial = 0; trial < 25; ++trial) {
        VarSet s, t;
        SetModel ms, mt;
        for (int step = 0; step < 1500; ++step) {
            int v = static_cast<int>(rng() % 200) - 50;
            switch (rng() % 8) {
                case 0:
                case 1:
                case 2:
                    ASSERT_EQ(s.insert(v).second, ms.insert(v));
                    ASSERT_EQ(*s.insert(v).first, v);
                    break;
                case 3:
                case 4:
                    s.erase(v);
                    ms.erase(v);
                    break;
                case 5:
                    t.insert(v);
                    mt.insert(v);
                    t.erase(v + 1);
                    mt.erase(v + 1);
                    break;
                case 6:
                    if (rng() % 10 == 0) {
                        s.insert(t);
                        ms.unite(mt);
                    }
                    break;
                default:
                    if (rng() % 50 == 0) {
                        s.insert(s);  // with itself
                        ms.unite(SetModel(ms));
                    }
            }
            ASSERT_EQ(raw_entries(s), ms.raw) << "seed " << seed << " trial " << trial;
            ASSERT_EQ(s.entries().capacity(), ms.capacity) << "seed " << seed;
            ASSERT_EQ(s.size(), ms.count) << "seed " << seed;
            ASSERT_EQ(s.contains(v), ms.find(v) < ms.raw.size() && ms.raw[ms.find(v)] == 2 * v);
        }
        std::vector<int> live;
        for (std::int32_t r : ms.raw)
            if ((r & 1) == 0) live.push_back(r >> 1);
        ASSERT_EQ(members(s), live);
    }
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
