#!/usr/bin/env python3
"""What the limits cost: `vorn check FILE` beside `vorn check --time-limit S --memory-limit MB
FILE` (generous limits, never reached), interleaved file by file in one run.

usage: limits_bench.py [--vorn BIN] [--rounds N] [--limit-args ARGS] [PATH ...]

PATHs are .smt2/.cnf files or directories searched recursively (default: bench/data/jobshop,
bench/data/lin3cnf and ../shared/data/smtlib). Each file runs once per round
in each mode, the modes alternating; the fastest time of each file per mode counts. Prints a
Markdown table per family: files, the total time without and with the limits, and their ratio.
Answers must agree between the modes (exit status 1 otherwise).
"""
import argparse
import pathlib
import shlex
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
DEFAULT_PATHS = [HERE / "data/jobshop", HERE / "data/lin3cnf",
                 ROOT.parent / "shared/data/smtlib"]


def files_of(path):
    if path.is_file():
        return [path]
    return sorted(p for p in path.rglob("*") if p.suffix in (".smt2", ".cnf"))


def run(cmd):
    start = time.perf_counter()
    out = subprocess.run(cmd, capture_output=True, text=True, timeout=600).stdout
    answer = next((w for w in out.split() if w in ("sat", "unsat", "unknown")), "none")
    return time.perf_counter() - start, answer


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    ap.add_argument("--rounds", type=int, default=3)
    ap.add_argument("--limit-args", default="--time-limit 600 --memory-limit 16000")
    ap.add_argument("paths", nargs="*", type=pathlib.Path)
    args = ap.parse_args()
    limited = shlex.split(args.limit_args)
    failed = False
    print("| family | files | without limits (s) | with limits (s) | ratio |")
    print("|---|---:|---:|---:|---:|")
    for root in args.paths or [p for p in DEFAULT_PATHS if p.exists()]:
        files = files_of(root)
        best = {False: {}, True: {}}
        for _ in range(args.rounds):
            for f in files:
                answers = {}
                for with_limits in (False, True):
                    cmd = [args.vorn, "check", *(limited if with_limits else []), str(f)]
                    seconds, answers[with_limits] = run(cmd)
                    old = best[with_limits].get(f, seconds)
                    best[with_limits][f] = min(old, seconds)
                if answers[False] != answers[True]:
                    print("%s: %s without limits, %s with" % (f, answers[False], answers[True]),
                          file=sys.stderr)
                    failed = True
        without, limited_total = sum(best[False].values()), sum(best[True].values())
        print("| %s | %d | %.2f | %.2f | %.3f |" % (root.name, len(files), without,
                                                   limited_total,
                                                   limited_total / without if without else 1))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
