#!/usr/bin/env python3
"""Times vorn's SAT engine beside other SAT solvers on uniform random 3-SAT.

usage: sat_bench.py [--driver BIN] [--sizes 200,250,300] [--seeds N] [--timeout S] [--dir D]

For every size n, N instances (seeds 0..N-1) of n variables and round(4.26 n) clauses of three
distinct variables with random signs are written as DIMACS files: the hardest ratio, about half
of them satisfiable. The driver (default build/satrel/bench/sat_solve) and `cadical` and
`minisat` when installed run on each file as black boxes, one at a time; their answers (the "s"
line, or exit codes 10/20) must agree. Prints a Markdown table of the total wall time per size
and solver and vorn's time over each other solver's.
"""
import argparse
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import time


def write_instance(path, n, seed):
    rng = random.Random(seed * 1000003 + n)
    m = round(4.26 * n)
    lines = [f"p cnf {n} {m}"]
    for _ in range(m):
        vs = rng.sample(range(1, n + 1), 3)
        lines.append(" ".join(str(v if rng.random() < 0.5 else -v) for v in vs) + " 0")
    path.write_text("\n".join(lines) + "\n")


def run(cmd, timeout):
    start = time.perf_counter()
    try:
        p = subprocess.run(cmd, capture_output=True, text=True, timeout=timeout)
    except subprocess.TimeoutExpired:
        return None, timeout
    elapsed = time.perf_counter() - start
    answer = {10: "sat", 20: "unsat"}.get(p.returncode)
    for line in p.stdout.splitlines():
        if line.startswith("s "):
            answer = {"s SATISFIABLE": "sat", "s UNSATISFIABLE": "unsat"}.get(line.strip(), answer)
    return answer, elapsed


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--driver", default="build/satrel/bench/sat_solve")
    ap.add_argument("--sizes", default="200,250,300")
    ap.add_argument("--seeds", type=int, default=5)
    ap.add_argument("--timeout", type=float, default=300)
    ap.add_argument("--dir", help="where to keep the instances (default: a temporary directory)")
    args = ap.parse_args()

    solvers = {"vorn": lambda f: [args.driver, f]}
    if shutil.which("cadical"):
        solvers["cadical"] = lambda f: ["cadical", "-q", f]
    if shutil.which("minisat"):
        solvers["minisat"] = lambda f: ["minisat", "-verb=0", f]

    workdir = pathlib.Path(args.dir or tempfile.mkdtemp(prefix="sat_bench_"))
    workdir.mkdir(parents=True, exist_ok=True)
    sizes = [int(s) for s in args.sizes.split(",")]
    totals = {}  # (n, solver) -> seconds
    answers = {}  # n -> [sat count, unsat count]
    failures = 0
    for n in sizes:
        answers[n] = [0, 0]
        for seed in range(args.seeds):
            path = workdir / f"uf{n}-{seed}.cnf"
            write_instance(path, n, seed)
            got = {}
            for name, cmd in solvers.items():
                answer, elapsed = run(cmd(str(path)), args.timeout)
                got[name] = answer
                totals[(n, name)] = totals.get((n, name), 0.0) + elapsed
            known = {a for a in got.values() if a is not None}
            if len(known) != 1 or None in got.values():
                failures += 1
                print(f"disagreement or timeout on {path}: {got}", file=sys.stderr)
            if "sat" in known:
                answers[n][0] += 1
            elif "unsat" in known:
                answers[n][1] += 1

    others = [s for s in solvers if s != "vorn"]
    header = ["n", "instances (sat/unsat)"] + [f"{s} (s)" for s in solvers]
    header += [f"vorn / {s}" for s in others]
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    for n in sizes:
        row = [str(n), f"{args.seeds} ({answers[n][0]}/{answers[n][1]})"]
        row += [f"{totals[(n, s)]:.2f}" for s in solvers]
        row += [f"{totals[(n, 'vorn')] / max(totals[(n, s)], 1e-9):.2f}" for s in others]
        print("| " + " | ".join(row) + " |")
    if not args.dir:
        shutil.rmtree(workdir)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
