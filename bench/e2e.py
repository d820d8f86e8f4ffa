#!/usr/bin/env python3
"""End to end: times `vorn solve` on generated sparse systems and on SMT-LIB files found under
../shared/, recording wall time, peak resident memory and the phase times of `--stats` (read,
tableau, eliminate, definitions, decide) of each run.

usage: e2e.py VORN OUT.json [--max-equations N]

The result file has the shape of a Google Benchmark JSON file, so report.py reads it like the
others. Each generated system has 4 entries per equation over twice as many variables.
"""
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
SHARED = HERE.parent.parent / "shared"


PHASES = ("read", "tableau", "eliminate", "definitions", "decide")


def run(vorn, args, path, env=None):
    """Runs vorn once; returns (wall ms, peak RSS MB, {phase: ms}) or None when it failed."""
    start = time.perf_counter()
    with open(os.devnull, "wb") as sink:
        proc = subprocess.Popen([vorn, "solve", "--stats", *args, str(path)], stdout=sink,
                                stderr=subprocess.PIPE, env=env)
        err = proc.stderr.read().decode(errors="replace")
        _, status, usage = os.wait4(proc.pid, 0)
    wall = (time.perf_counter() - start) * 1e3
    if os.waitstatus_to_exitcode(status) != 0:
        print(f"e2e: vorn solve {path} failed: {err}", file=sys.stderr)
        return None
    phases = {p: float(m.group(1)) for p in PHASES
              if (m := re.search(rf"{p} ([0-9.]+) ms", err))}
    return wall, usage.ru_maxrss / 1024, phases


def record(results, name, outcome, equations):
    if outcome is None:
        return
    wall, rss, phases = outcome
    results.append({"name": name, "run_type": "iteration", "iterations": 1, "real_time": wall,
                    "cpu_time": wall, "time_unit": "ms", "peak_rss_MB": rss,
                    "equations": float(equations), **{f"{p}_ms": t for p, t in phases.items()}})
    split = ", ".join(f"{p} {t:.0f}" for p, t in phases.items())
    print(f"{name}: {wall:.0f} ms ({split}), {rss:.0f} MB", file=sys.stderr)


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("vorn")
    p.add_argument("output")
    p.add_argument("--max-equations", type=int, default=1000000)
    a = p.parse_args()
    results = []
    with tempfile.TemporaryDirectory() as tmp:
        for m in (1000, 10000, 100000, 1000000):
            if m > a.max_equations:
                break
            for ext in ("lin", "smt2"):
                path = pathlib.Path(tmp, f"sparse{m}.{ext}")
                subprocess.run([sys.executable, HERE / "gen_sparse.py", "--equations", str(m),
                                path], check=True)
                record(results, f"vorn_solve_{ext}/{m}", run(a.vorn, [], path), m)
                record(results, f"vorn_solve_{ext}_triangular/{m}",
                       run(a.vorn, ["--triangular"], path), m)
                if ext == "lin" and m >= 100000:  # how much of the cost is address translation
                    env = dict(os.environ, GLIBC_TUNABLES="glibc.malloc.hugetlb=1")
                    record(results, f"vorn_solve_lin_triangular_hugepages/{m}",
                           run(a.vorn, ["--triangular"], path, env), m)
                path.unlink()
    shared = sorted(SHARED.rglob("*.smt2")) if SHARED.is_dir() else []
    if not shared:
        print(f"e2e: no SMT-LIB inputs under {SHARED}", file=sys.stderr)
    for path in shared:
        asserts = path.read_text(errors="replace").count("(assert")
        record(results, f"vorn_solve_shared/{path.relative_to(SHARED)}", run(a.vorn, [], path),
               asserts)
    pathlib.Path(a.output).write_text(json.dumps({"benchmarks": results}, indent=1) + "\n")


if __name__ == "__main__":
    main()
