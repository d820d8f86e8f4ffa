// Hash table: prime growth points, chain orders across a rehash, negative keys, pooled node
// reuse, stable references, and a differential run against std::unordered_map.

#include <gtest/gtest.h>

#include <random>
#include <unordered_map>

#include "vorn/hsh/hashtable.h"
#include "vorn/la/varhashmap.h"
#include "vorn/la/varset.h"

using Map = vorn::hsh::HashMap<int, unsigned long>;

namespace {

std::vector<int> chain(const Map& m, std::size_t bucket) {
    std::vector<int> keys;
    for (auto* node = m.buckets()[bucket]; node != nullptr; node = node->next)
        keys.push_back(node->value.first);
    return keys;
}

}  // namespace

TEST(Hashtable, GrowsOnTheCallThatFindsTheLoadAboveSevenTenths) {
    Map m;
    EXPECT_EQ(m.bucket_count(), 31u);
    EXPECT_EQ(m.find(3), nullptr);
    EXPECT_EQ(m.begin(), m.end());
    for (int k = 0; k < 22; ++k)
        m[k] = k;
    EXPECT_EQ(m.bucket_count(), 31u);
    m[5];  // present, but the load test comes first
    EXPECT_EQ(m.bucket_count(), 73u);
    for (int k = 22; k < 52; ++k)
        m[k];
    EXPECT_EQ(m.bucket_count(), 73u);
    m[0];
    EXPECT_EQ(m.bucket_count(), 151u);
    for (int k = 52; k < 106; ++k)
        m[k];
    EXPECT_EQ(m.bucket_count(), 151u);
    m[0];
    EXPECT_EQ(m.bucket_count(), 313u);
    EXPECT_EQ(m.size(), 106u);
}

TEST(Hashtable, NegativeKeysAreSignExtended) {
    Map m;
    m[-1] = 7;
    EXPECT_EQ(chain(m, 15), std::vector<int>{-1});
    EXPECT_TRUE(chain(m, 3).empty());
    ASSERT_NE(m.find(-1), nullptr);
    EXPECT_EQ(m.find(-1)->value.second, 7u);
}

TEST(Hashtable, ChainOrderReversesWithinARehash) {
    Map m;
    m[0];
    m[2263];
    EXPECT_EQ(chain(m, 0), (std::vector<int>{2263, 0}));
    m.rehash(73);
    EXPECT_EQ(m.bucket_count(), 73u);
    EXPECT_EQ(chain(m, 0), (std::vector<int>{0, 2263}));
}

TEST(Hashtable, RehashPicksTheFirstPrimeNotBelowTheRequest) {
    Map m;
    m.rehash(31);
    EXPECT_EQ(m.bucket_count(), 31u);
    m.rehash(100);
    EXPECT_EQ(m.bucket_count(), 151u);
    m.rehash(151);
    EXPECT_EQ(m.bucket_count(), 151u);
    m.rehash(152);
    EXPECT_EQ(m.bucket_count(), 313u);
}

TEST(Hashtable, EraseKeepsChainOrderAndRecyclesTheNode) {
    Map m;
    for (int k : {1, 32, 63, 94})
        m[k] = static_cast<unsigned long>(k);  // one chain: bucket 1
    EXPECT_EQ(chain(m, 1), (std::vector<int>{94, 63, 32, 1}));
    auto* middle = m.find(63);
    m.erase(63);
    EXPECT_EQ(chain(m, 1), (std::vector<int>{94, 32, 1}));
    m[5];
    EXPECT_EQ(m.find(5), middle);  // the erased block is handed out next
    auto* head = m.find(94);
    m.erase(94);
    EXPECT_EQ(chain(m, 1), (std::vector<int>{32, 1}));
    m.erase(1000);  // absent: nothing
    EXPECT_EQ(m.size(), 3u);
    m[7];
    EXPECT_EQ(m.find(7), head);
}

TEST(Hashtable, ErasingEverythingKeepsTheBucketCount) {
    Map m;
    for (int k = 0; k < 30; ++k)
        m[k];
    for (int k = 0; k < 30; ++k)
        m.erase(k);
    EXPECT_EQ(m.bucket_count(), 73u);
    EXPECT_EQ(m.size(), 0u);
}

TEST(Hashtable, IterationIsBucketByBucketAlongEachChain) {
    Map m;
    for (int k : {40, 9, 3, 34, 65})
        m[k];  // 40→9, 9→9, 3→3, 34→3, 65→3
    std::vector<int> order;
    for (const auto& value : m)
        order.push_back(value.first);
    EXPECT_EQ(order, (std::vector<int>{65, 34, 3, 9, 40}));
}

TEST(Hashtable, MappedReferencesSurviveGrowth) {
    vorn::la::VarHashMap<vorn::la::VarSet> cols;
    auto& first = cols[1];
    first.insert(42);
    for (int k = 2; k < 1000; ++k)
        cols[k].insert(k);
    EXPECT_GT(cols.bucket_count(), 1000u);
    EXPECT_EQ(&cols[1], &first);
    EXPECT_EQ(*first.begin(), 42);
}

TEST(Hashtable, RandomOperationsMatchUnorderedMap) {
    const unsigned seed = 31337;
    std::mt19937 rng(seed);
    Map m;
    std::unordered_map<int, unsigned long> ref;
    for (int step = 0; step < 60000; ++step) {
        int k = static_cast<int>(rng() % 3000) - 1500;
        switch (rng() % 4) {
            case 0:
            case 1:
                m[k] = static_cast<unsigned long>(step);
                ref[k] = static_cast<unsigned long>(step);
                break;
            case 2:
                m.erase(k);
                ref.erase(k);
                break;
            default: {
                auto* node = m.find(k);
                auto it = ref.find(k);
                ASSERT_EQ(node != nullptr, it != ref.end()) << "seed " << seed;
                if (node) {
                    ASSERT_EQ(node->value.second, it->second);
                }
            }
        }
        ASSERT_EQ(m.size(), ref.size());
    }
    std::size_t seen = 0;
    for (std::size_t b = 0; b < m.bucket_count(); ++b)
        for (int key : chain(m, b)) {
            EXPECT_EQ(static_cast<std::size_t>(static_cast<long>(key)) % m.bucket_count(), b);
            ++seen;
        }
    EXPECT_EQ(seen, ref.size());
}
