// The sort: comparison counts where they are fixed, the introspective path, the heapsort
// fallback, a stateful order passed by value, and a differential run against std::sort.

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

#include "vorn/util/sort.h"

namespace {

// A stateful order: compares through a table and counts its calls in shared storage.
struct CountingLess {
    const std::vector<int>* key;
    long* calls;
    bool operator()(int a, int b) const {
        ++*calls;
        return (*key)[a] < (*key)[b];
    }
};

std::vector<int> identity(std::size_t n) {
    std::vector<int> v(n);
    std::iota(v.begin(), v.end(), 0);
    return v;
}

}  // namespace

TEST(Sort, TinyArraysCompareNothing) {
    long calls = 0;
    std::vector<int> key{5};
    std::vector<int> a{0};
    vorn::sort(a.data(), std::size_t{0}, CountingLess{&key, &calls});
    vorn::sort(a.data(), std::size_t{1}, CountingLess{&key, &calls});
    EXPECT_EQ(calls, 0);
}

TEST(Sort, SelectionSortUpToFifteenMakesAllPairwiseComparisons) {
    std::mt19937 rng(3);
    for (std::size_t n = 2; n <= 15; ++n) {
        std::vector<int> key(n);
        for (auto& k : key)
            k = static_cast<int>(rng() % 10);
        std::vector<int> a = identity(n);
        long calls = 0;
        vorn::sort(a.data(), n, CountingLess{&key, &calls});
        EXPECT_EQ(calls, static_cast<long>(n * (n - 1) / 2));
        EXPECT_TRUE(
            std::is_sorted(a.begin(), a.end(), [&](int x, int y) { return key[x] < key[y]; }));
    }
}

TEST(Sort, SelectionTakesTheLowestIndexOfEqualMinima) {
    std::vector<int> key{1, 0, 0, 1};  // elements 1 and 2 tie for smallest
    std::vector<int> a = identity(4);
    long calls = 0;
    vorn::sort(a.data(), std::size_t{4}, CountingLess{&key, &calls});
    EXPECT_EQ(a, (std::vector<int>{1, 2, 0, 3}));
}

TEST(Sort, DepthZeroHeapsortsTheWholeRange) {
    std::mt19937 rng(5);
    for (std::size_t n : {16u, 17u, 31u, 100u, 257u}) {
        std::vector<int> key(n);
        for (auto& k : key)
            k = static_cast<int>(rng() % 50);
        std::vector<int> a = identity(n);
        long calls = 0;
        vorn::sortimpl::do_sort(a.data(), n, CountingLess{&key, &calls}, 0);
        EXPECT_TRUE(std::is_sorted(a.begin(), a.end(), [&](int x, int y) {
            return key[x] < key[y];
        })) << n;
    }
}

TEST(Sort, AlreadySortedAndAllEqualInputs) {
    std::vector<int> a(1000);
    std::iota(a.begin(), a.end(), 0);
    vorn::sort(a.data(), a.size(), std::less<int>());
    EXPECT_TRUE(std::is_sorted(a.begin(), a.end()));
    std::vector<int> key(1000, 7);
    std::vector<int> b = identity(1000);
    long calls = 0;
    vorn::sort(b.data(), b.size(), CountingLess{&key, &calls});
    // Equal elements stop both scans, so the splits stay balanced: far from quadratic.
    EXPECT_LT(calls, 40000);
}

TEST(Sort, RandomArraysMatchStdSort) {
    const unsigned seed = 2024;
    std::mt19937 rng(seed);
    for (int trial = 0; trial < 400; ++trial) {
        std::size_t n = rng() % 3 == 0 ? rng() % 40 : rng() % 3000;
        int range = rng() % 2 ? 10 : 1000000;
        std::vector<int> a(n);
        for (auto& x : a)
            x = static_cast<int>(rng() % range) - range / 2;
        std::vector<int> want = a;
        std::sort(want.begin(), want.end());
        vorn::sort(a.data(), a.size(), [](int x, int y) { return x < y; });
        ASSERT_EQ(a, want) << "seed " << seed << " trial " << trial;
    }
}

TEST(Sort, AdversarialInputsStayBoundedByTheDepthLimit) {
    // Organ-pipe and sawtooth shapes push quicksort towards its worst case.
    for (std::size_t n : {5000u, 20000u}) {
        std::vector<int> a(n);
        for (std::size_t i = 0; i < n; ++i)
            a[i] = static_cast<int>(i < n / 2 ? i : n - i) + static_cast<int>(i % 7);
        std::vector<int> want = a;
        std::sort(want.begin(), want.end());
        vorn::sort(a.data(), a.size(), std::less<int>());
        EXPECT_EQ(a, want);
    }
}
