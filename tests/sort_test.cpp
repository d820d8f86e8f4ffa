// The sort: input shapes with the comparison counts that are fixed (selection below 16, nothing
// for 0 or 1 element) and bounded (balanced splits on equal keys), the heapsort fallback, a
// stateful order passed by value, and a differential run against std::sort.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>

#include "vorn/util/sort.h"

namespace {

// A stateful order: compares elements (indices) through a key table and counts its calls.
struct CountingLess {
    const std::vector<int>* key;
    long* calls;
    bool operator()(int a, int b) const {
        ++*calls;
        return (*key)[a] < (*key)[b];
    }
};

struct Shape {
    const char* name;
    std::size_t n;
    std::function<int(std::size_t i, std::size_t n)> key;
    long min_calls, max_calls;  // bounds on the comparisons of vorn::sort
};

const Shape kShapes[] = {
    {"empty", 0, [](std::size_t, std::size_t) { return 0; }, 0, 0},
    {"one", 1, [](std::size_t, std::size_t) { return 0; }, 0, 0},
    {"two descending", 2, [](std::size_t i, std::size_t) { return -int(i); }, 1, 1},
    {"15 by selection", 15, [](std::size_t i, std::size_t) { return int(i * 7 % 11); }, 105, 105},
    {"16 through do_sort", 16, [](std::size_t i, std::size_t) { return int(i * 7 % 11); }, 16,
     1000},
    {"ascending", 1000, [](std::size_t i, std::size_t) { return int(i); }, 999, 40000},
    {"descending", 1000, [](std::size_t i, std::size_t) { return -int(i); }, 999, 40000},
    // Equal keys stop both scans, so the splits stay balanced: far from quadratic.
    {"all equal", 1000, [](std::size_t, std::size_t) { return 7; }, 999, 40000},
    {"organ pipe", 5000,
     [](std::size_t i, std::size_t n) { return int(i < n / 2 ? i : n - i) + int(i % 7); }, 4999,
     400000},
    {"sawtooth", 5000, [](std::size_t i, std::size_t) { return int(i % 64); }, 4999, 400000},
};

bool sorted_by(const std::vector<int>& a, const std::vector<int>& key) {
    return std::is_sorted(a.begin(), a.end(), [&](int x, int y) { return key[x] < key[y]; });
}

}  // namespace

TEST(Sort, ShapesSortWithinTheirComparisonCounts) {
    for (const Shape& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        std::vector<int> key(shape.n);
        for (std::size_t i = 0; i < shape.n; ++i)
            key[i] = shape.key(i, shape.n);
        std::vector<int> a(shape.n);
        std::iota(a.begin(), a.end(), 0);
        long calls = 0;
        vorn::sort(a.data(), shape.n, CountingLess{&key, &calls});
        EXPECT_TRUE(sorted_by(a, key));
        EXPECT_GE(calls, shape.min_calls);
        EXPECT_LE(calls, shape.max_calls);
    }
}

TEST(Sort, SelectionTakesTheLowestIndexOfEqualMinima) {
    std::vector<int> key{1, 0, 0, 1};  // elements 1 and 2 tie for smallest
    std::vector<int> a{0, 1, 2, 3};
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
        std::vector<int> a(n);
        std::iota(a.begin(), a.end(), 0);
        long calls = 0;
        vorn::sortimpl::do_sort(a.data(), n, CountingLess{&key, &calls}, 0);
        EXPECT_TRUE(sorted_by(a, key)) << n;
    }
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
