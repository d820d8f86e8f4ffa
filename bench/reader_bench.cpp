// The tool's readers on the sparse systems of bench/gen_sparse.py (4 entries per equation over
// twice as many variables, coefficients ±1..9), both formats: throughput in input bytes per
// second. The text is generated in memory, so only parsing is timed.

#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "vorn/frontend/problem_reader.h"
#include "vorn/io/lin_reader.h"

namespace {

std::string sparse_text(int equations, bool smt) {
    const int variables = 2 * equations;
    std::mt19937_64 rng(1);
    std::string out;
    out.reserve(static_cast<std::size_t>(equations) * (smt ? 100 : 50));
    auto coeff = [&rng] {
        int c = 1 + static_cast<int>(rng() % 9);
        return rng() % 2 ? c : -c;
    };
    if (smt) {
        out += "(set-logic QF_LRA)\n";
        for (int v = 0; v < variables; ++v)
            out += "(declare-const v" + std::to_string(v) + " Real)\n";
    }
    for (int k = 0; k < equations; ++k) {
        std::string line = smt ? "(assert (= (+" : "";
        for (int i = 0; i < 4; ++i) {
            int c = coeff();
            std::string var = "v" + std::to_string(rng() % variables);
            if (smt)
                line += c > 0 ? " (* " + std::to_string(c) + " " + var + ")"
                              : " (* (- " + std::to_string(-c) + ") " + var + ")";
            else
                line += (i == 0 ? (c < 0 ? "-" : "") : (c < 0 ? " - " : " + ")) +
                        std::to_string(std::abs(c)) + "*" + var;
        }
        int rhs = static_cast<int>(rng() % 19) - 9;
        if (smt)
            line += rhs >= 0 ? ") " + std::to_string(rhs) + "))\n"
                             : ") (- " + std::to_string(-rhs) + ")))\n";
        else
            line += " = " + std::to_string(rhs) + "\n";
        out += line;
    }
    if (smt) out += "(check-sat)\n";
    return out;
}

template <bool Smt>
void BM_Read(benchmark::State& state) {
    const std::string text = sparse_text(static_cast<int>(state.range(0)), Smt);
    for (auto _ : state) {
        auto problem = Smt ? vorn::frontend::read_smt2(text) : vorn::io::read_lin(text);
        benchmark::DoNotOptimize(problem.atoms.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
    state.counters["MB"] = static_cast<double>(text.size()) / 1e6;
}

void BM_ReadLin(benchmark::State& state) {
    BM_Read<false>(state);
}
void BM_ReadSmt2(benchmark::State& state) {
    BM_Read<true>(state);
}

BENCHMARK(BM_ReadLin)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ReadSmt2)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

// (+ 1 (+ 1 ... x)) nested `depth` deep: reading must stay linear in the depth (it was
// quadratic in time and memory while each level copied the constants below it).
void BM_ReadNestedSum(benchmark::State& state) {
    const auto depth = static_cast<std::size_t>(state.range(0));
    std::string text = "(declare-const x Real)(assert (> ";
    for (std::size_t i = 0; i < depth; ++i)
        text += "(+ 1 ";
    text += "x" + std::string(depth, ')') + " 0))";
    for (auto _ : state) {
        auto problem = vorn::frontend::read_smt2(text);
        benchmark::DoNotOptimize(problem.atoms.data());
    }
    state.SetComplexityN(state.range(0));
}

BENCHMARK(BM_ReadNestedSum)
    ->Arg(2500)
    ->Arg(5000)
    ->Arg(9990)
    ->Complexity()
    ->Unit(benchmark::kMillisecond);
