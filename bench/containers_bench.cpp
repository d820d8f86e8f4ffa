// The system's containers against their standard-library counterparts, on the access patterns
// of the tableau: column maps churned by insert and erase, small column sets, short sorts.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <set>
#include <unordered_map>
#include <vector>

#include "vorn/hsh/hashtable.h"
#include "vorn/la/varset.h"
#include "vorn/util/sort.h"

namespace {

std::vector<int> random_keys(std::size_t n, unsigned seed) {
    std::mt19937 rng(seed);
    std::vector<int> keys(n);
    for (auto& k : keys)
        k = static_cast<int>(rng() % (4 * n));
    return keys;
}

// Insert, find and erase every key: three operations per key.
template <class Map>
void churn(benchmark::State& state) {
    auto keys = random_keys(static_cast<std::size_t>(state.range(0)), 7);
    Map map;
    for (auto _ : state) {
        for (int k : keys)
            map[k] = 1;
        std::size_t found = 0;
        for (int k : keys)
            found += map.find(k) != decltype(map.find(k)){};
        for (int k : keys)
            map.erase(k);
        benchmark::DoNotOptimize(found);
    }
    state.SetItemsProcessed(state.iterations() * 3 * state.range(0));
}

struct VornMap : vorn::hsh::HashMap<int, unsigned long> {};
struct StdMap : std::unordered_map<int, unsigned long> {
    auto find(int k) {
        return std::unordered_map<int, unsigned long>::find(k) == end() ? nullptr : this;
    }
};

void BM_HashMapChurn_vorn(benchmark::State& s) {
    churn<VornMap>(s);
}
void BM_HashMapChurn_std(benchmark::State& s) {
    churn<StdMap>(s);
}
BENCHMARK(BM_HashMapChurn_vorn)->Arg(1000)->Arg(100000);
BENCHMARK(BM_HashMapChurn_std)->Arg(1000)->Arg(100000);

// A column's life: k inserts, half erased, one union with another column of k.
void BM_VarSetColumn_vorn(benchmark::State& state) {
    auto k = static_cast<std::size_t>(state.range(0));
    auto keys = random_keys(2 * k, 3);
    for (auto _ : state) {
        vorn::la::VarSet a, b;
        for (std::size_t i = 0; i < k; ++i)
            a.insert(keys[i]);
        for (std::size_t i = k; i < 2 * k; ++i)
            b.insert(keys[i]);
        for (std::size_t i = 0; i < k; i += 2)
            a.erase(keys[i]);
        a.insert(b);
        benchmark::DoNotOptimize(a.size());
    }
}

void BM_VarSetColumn_stdset(benchmark::State& state) {
    auto k = static_cast<std::size_t>(state.range(0));
    auto keys = random_keys(2 * k, 3);
    for (auto _ : state) {
        std::set<int> a, b;
        for (std::size_t i = 0; i < k; ++i)
            a.insert(keys[i]);
        for (std::size_t i = k; i < 2 * k; ++i)
            b.insert(keys[i]);
        for (std::size_t i = 0; i < k; i += 2)
            a.erase(keys[i]);
        a.insert(b.begin(), b.end());
        benchmark::DoNotOptimize(a.size());
    }
}

void BM_VarSetColumn_sortedvector(benchmark::State& state) {
    auto k = static_cast<std::size_t>(state.range(0));
    auto keys = random_keys(2 * k, 3);
    auto insert = [](std::vector<int>& v, int x) {
        auto it = std::lower_bound(v.begin(), v.end(), x);
        if (it == v.end() || *it != x) v.insert(it, x);
    };
    for (auto _ : state) {
        std::vector<int> a, b;
        for (std::size_t i = 0; i < k; ++i)
            insert(a, keys[i]);
        for (std::size_t i = k; i < 2 * k; ++i)
            insert(b, keys[i]);
        for (std::size_t i = 0; i < k; i += 2) {
            auto it = std::lower_bound(a.begin(), a.end(), keys[i]);
            if (it != a.end() && *it == keys[i]) a.erase(it);
        }
        std::vector<int> merged;
        merged.reserve(a.size() + b.size());
        std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(merged));
        benchmark::DoNotOptimize(merged.size());
    }
}
BENCHMARK(BM_VarSetColumn_vorn)->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(BM_VarSetColumn_stdset)->Arg(8)->Arg(64)->Arg(1024);
BENCHMARK(BM_VarSetColumn_sortedvector)->Arg(8)->Arg(64)->Arg(1024);

template <bool kVorn>
void sort_bench(benchmark::State& state) {
    auto n = static_cast<std::size_t>(state.range(0));
    auto data = random_keys(n, 11);
    std::vector<int> work(n);
    for (auto _ : state) {
        std::copy(data.begin(), data.end(), work.begin());
        if constexpr (kVorn)
            vorn::sort(work.data(), n, [](int a, int b) { return a < b; });
        else
            std::sort(work.begin(), work.end(), [](int a, int b) { return a < b; });
        benchmark::DoNotOptimize(work.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
void BM_Sort_vorn(benchmark::State& s) {
    sort_bench<true>(s);
}
void BM_Sort_std(benchmark::State& s) {
    sort_bench<false>(s);
}
BENCHMARK(BM_Sort_vorn)->Arg(10)->Arg(100)->Arg(10000);
BENCHMARK(BM_Sort_std)->Arg(10)->Arg(100)->Arg(10000);

}  // namespace
