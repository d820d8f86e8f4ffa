#!/usr/bin/env python3
"""The cost of the Python binding: 10^4 small constraints over 200 bounded Real variables built
and checked from Python through vorn, through the C++ API (bench/api_bench.cpp, the same
constraints from the same generator) and through z3's Python module. Two workloads: a
conjunction of two-variable inequalities, and binary clauses of bounds. Prints a Markdown table
of seconds (the best of --runs).

  PYTHONPATH=build/release/python /usr/bin/python3 bench/python_bench.py \\
      --cpp build/release/bench/api_bench
"""
import argparse
import subprocess
import time


class Generator:
    """The 64-bit LCG of api_bench.cpp."""

    def __init__(self):
        self.state = 1

    def below(self, n):
        self.state = (self.state * 6364136223846793005 + 1442695040888963407) % (1 << 64)
        return (self.state >> 33) % n


def build_and_check(lib, workload, count):
    start = time.perf_counter()
    g = Generator()
    s = lib.Solver()
    x = lib.Reals(["x%d" % i for i in range(200)])
    for v in x:
        s.add(v >= 0, v <= 1000000)
    for _ in range(count):
        i, j, a, b = g.below(200), g.below(200), g.below(5) + 1, g.below(5) + 1
        c = g.below(1000)
        if workload == "conjunction":
            s.add(a * x[i] + b * x[j] <= c + 1000)
        else:
            s.add(lib.Or(x[i] <= c * a, x[j] >= c * b))
    build = time.perf_counter() - start
    start = time.perf_counter()
    answer = str(s.check())
    return build, time.perf_counter() - start, answer


def cpp(path, workload, count):
    words = subprocess.run([path, workload, str(count)], capture_output=True, text=True,
                           check=True).stdout.split()
    return float(words[1]), float(words[3]), words[4]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--cpp", help="the api_bench program (release build)")
    parser.add_argument("--count", type=int, default=10000)
    parser.add_argument("--runs", type=int, default=3)
    args = parser.parse_args()
    import vorn
    runners = [("vorn, Python", lambda w: build_and_check(vorn, w, args.count))]
    if args.cpp:
        runners.append(("vorn, C++ API", lambda w: cpp(args.cpp, w, args.count)))
    try:
        import z3
        runners.append(("z3, Python", lambda w: build_and_check(z3, w, args.count)))
    except ImportError:
        print("(z3's Python module is not installed: its rows are missing)")
    print("| workload | through | build s | check s | answer |")
    print("| --- | --- | ---: | ---: | --- |")
    for workload in ("conjunction", "disjunction"):
        for name, run in runners:
            results = [run(workload) for _ in range(args.runs)]
            build = min(r[0] for r in results)
            check = min(r[1] for r in results)
            print("| %s | %s | %.3f | %.3f | %s |" % (workload, name, build, check,
                                                     results[0][2]))


if __name__ == "__main__":
    main()
