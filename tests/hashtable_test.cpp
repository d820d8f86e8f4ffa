// Hash table: a random run against an exact model of bucket counts, chains and iteration order
// (growth points, head insertion, order reversal within a rehash, sign-extended keys), plus the
// prime choice of a rehash and pooled node reuse.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <unordered_map>

#include "vorn/hsh/hashtable.h"

using Map = vorn::hsh::HashMap<int, unsigned long>;

namespace {

std::vector<int> chain(const Map& m, std::size_t bucket) {
    std::vector<int> keys;
    for (auto* node = m.buckets()[bucket]; node != nullptr; node = node->next)
        keys.push_back(node->value.first);
    return keys;
}

}  // namespace

TEST(Hashtable, RehashPicksTheFirstPrimeNotBelowTheRequest) {
    const std::pair<unsigned long, std::size_t> requests[] = {{1, 31},
                                                              {31, 31},
                                                              {32, 73},
                                                              {100, 151},
                                                              {151, 151},
                                                              {152, 313},
                                                              {4294867387, 4294867387},
                                                              {4294867388, 4294867387},
                                                              {~0ul, 4294867387}};
    for (auto [n, count] : requests)
        EXPECT_EQ(Map::bucket_count_for(n), count) << n;
    Map m;
    m.rehash(31);
    EXPECT_EQ(m.bucket_count(), 31u);  // not below the request: nothing happens
    m.rehash(100);
    EXPECT_EQ(m.bucket_count(), 151u);
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

namespace {

// The table's chains as its contract describes them: the load test (32-bit floats, above 0.7)
// before every inserting lookup, new keys at the head of their chain, a rehash relinking old
// chains in bucket order from head to tail, and iteration bucket by bucket.
struct TableModel {
    std::vector<std::vector<int>> chains = std::vector<std::vector<int>>(31);
    std::size_t count = 0;

    std::size_t bucket(int k) const {
        return static_cast<std::uint64_t>(static_cast<std::int64_t>(k)) % chains.size();
    }
    void insert(int k) {
        if (static_cast<double>(static_cast<float>(count) / static_cast<float>(chains.size())) >
            0.7) {
            std::vector<std::vector<int>> old = std::move(chains);
            chains.assign(Map::bucket_count_for(old.size() + 1), {});
            for (const auto& chain : old)
                for (int key : chain)
                    chains[bucket(key)].insert(chains[bucket(key)].begin(), key);
        }
        auto& chain = chains[bucket(k)];
        if (std::find(chain.begin(), chain.end(), k) != chain.end()) return;
        chain.insert(chain.begin(), k);
        ++count;
    }
    void erase(int k) { count -= std::erase(chains[bucket(k)], k); }
    std::vector<int> order() const {
        std::vector<int> keys;
        for (const auto& chain : chains)
            keys.insert(keys.end(), chain.begin(), chain.end());
        return keys;
    }
};

std::vector<int> order(const Map& m) {
    std::vector<int> keys;
    for (const auto& value : m)
        keys.push_back(value.first);
    return keys;
}

}  // namespace

TEST(Hashtable, RandomOperationsMatchTheExactModel) {
    const unsigned seed = 31337;
    std::mt19937 rng(seed);
    for (int trial = 0; trial < 8; ++trial) {
        Map m;
        TableModel model;
        std::unordered_map<int, unsigned long> values;
        for (int step = 0; step < 3000; ++step) {
            int k = static_cast<int>(rng() % 1200) - 600;
            if (rng() % 3 != 0) {
                m[k] = static_cast<unsigned long>(step);
                model.insert(k);
                values[k] = static_cast<unsigned long>(step);
            } else {
                m.erase(k);
                model.erase(k);
                values.erase(k);
            }
            const auto* node = m.find(k);
            ASSERT_EQ(node != nullptr, values.count(k) > 0) << "seed " << seed;
            ASSERT_TRUE(node == nullptr || node->value.second == values[k]);
            ASSERT_EQ(m.bucket_count(), model.chains.size()) << "seed " << seed << " step " << step;
            ASSERT_EQ(m.size(), model.count);
        }
        ASSERT_EQ(order(m), model.order()) << "seed " << seed;
    }
}
