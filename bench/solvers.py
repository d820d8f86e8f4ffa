#!/usr/bin/env python3
"""Runs other solvers, as black boxes, on the instances the simplex benchmark decides.

usage: solvers.py WRITE_LRA_INSTANCES OUT.json [--timeout S] [--quick] [--vorn BIN]
                  [--netlib DIR]

For every instance of bench/lra_instances.h (sparse feasible and infeasible at m = 10^3,
10^4, 10^5; square at m = 50 to 1600, as far as each solver gets) the writer program
produces an SMT-LIB check-sat script and a free MPS file. z3 and cvc5 run on the script with their default settings (`z3 FILE`,
`cvc5 FILE`), glpsol on the MPS file with its exact rational simplex (`glpsol --exact
--freemps FILE`), each when installed, end to end: start, parse, decide, exit. The systems of
equations that `vorn solve` is timed on (bench/gen_sparse.py, the files of bench/e2e.py) are
given to z3 and cvc5 as well. Each run records wall time, CPU time (which a busy machine
disturbs less), peak resident memory and the answer, checked against the answer the instance
has by construction (equation systems: against z3's).

vorn itself runs the same way when its binary (--vorn, default build/release/tools/vorn) has
a `check` subcommand (listed by `vorn --help`; otherwise it is skipped quietly): `vorn
check FILE.smt2` and `vorn check FILE.mps`, the answer being the first line of its output.
The Netlib problems (--netlib, default ../shared/data/netlib beside the repository; bzip2-
compressed fixed MPS files, all feasible) are given to vorn as they are and with the objective
bounded just below and just above its known optimum (README.md's table; `--objective-bound
'<= V'`, expected unsat and sat), and to glpsol decompressed (`glpsol --exact --mps FILE`,
which also finds the optimum). z3 and cvc5 do not read MPS.

A solver that exceeds the time limit is stopped and recorded as a timeout; once a solver's
time at one size, scaled linearly to the next, exceeds the limit, the larger sizes of that
series (a family, feasible or infeasible) are not run for it. The output has the shape of a
Google Benchmark JSON file, so report.py reads it like the others.
"""
import argparse
import bz2
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
SOLVERS = {
    "z3": lambda base: ["z3", f"{base}.smt2"],
    "cvc5": lambda base: ["cvc5", f"{base}.smt2"],
    "glpsol": lambda base: ["glpsol", "--exact", "--freemps", f"{base}.mps"],
}


def vorn_checks(binary):
    """Whether BINARY is a vorn whose help lists a `check` subcommand (asking `check --help`
    of one without it prints the general help and succeeds)."""
    try:
        done = subprocess.run([binary, "--help"], capture_output=True, text=True, timeout=30)
    except (OSError, subprocess.TimeoutExpired):
        return False
    return done.returncode == 0 and re.search(r"^\s+check\s", done.stdout, re.M) is not None


def netlib_problems(directory):
    """(name, path, known optimum) for each problem of DIRECTORY's README.md table."""
    optimum = {}
    readme = pathlib.Path(directory, "README.md")
    for line in readme.read_text().splitlines() if readme.exists() else []:
        cells = [c.strip() for c in line.strip().strip("|").split("|")]
        if len(cells) == 5 and cells[1].isdigit():
            optimum[cells[0]] = float(cells[4])
    for path in sorted(pathlib.Path(directory).glob("*.mps.bz2")):
        name = path.name[:-len(".mps.bz2")].removeprefix("netlib-")
        yield name, path, optimum.get(name)


def answer_of(solver, output):
    if solver == "glpsol":
        if "NO PRIMAL FEASIBLE" in output or "NO FEASIBLE" in output:
            return "unsat"
        return "sat" if "OPTIMAL SOLUTION FOUND" in output else "unknown"
    first = output.strip().splitlines()[:1]
    return first[0] if first and first[0] in ("sat", "unsat") else "unknown"


def run(command, timeout):
    """(wall ms, CPU ms, peak RSS MB, output, timed out); the output goes through a file, so a
    chatty solver cannot block on a full pipe while it is waited for."""
    with tempfile.TemporaryFile() as out:
        start = time.perf_counter()
        proc = subprocess.Popen(command, stdout=out, stderr=subprocess.STDOUT)
        timer = threading.Timer(timeout, proc.kill)
        timer.start()
        _, status, usage = os.wait4(proc.pid, 0)
        timer.cancel()
        wall = (time.perf_counter() - start) * 1e3
        timed_out = os.WIFSIGNALED(status) and os.WTERMSIG(status) == signal.SIGKILL
        cpu = (usage.ru_utime + usage.ru_stime) * 1e3
        out.seek(0)
        return wall, cpu, usage.ru_maxrss / 1024, out.read().decode(errors="replace"), timed_out


def instances(quick):
    sparse = (1000, 10000) if quick else (1000, 10000, 100000)
    square = (50, 100) if quick else (50, 75, 100, 125, 150, 200, 300, 400, 600, 800, 1200, 1600)
    for m in sparse:
        for feasible in (1, 0):
            yield "sparse", m, feasible
    for m in square:
        yield "square", m, 1


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("writer")
    p.add_argument("output")
    p.add_argument("--timeout", type=float, default=300)
    p.add_argument("--quick", action="store_true", help="the smaller sizes only")
    p.add_argument("--vorn", default=str(HERE.parent / "build/release/tools/vorn"))
    p.add_argument("--netlib", default=str(HERE.parent.parent / "shared/data/netlib"))
    a = p.parse_args()
    if vorn_checks(a.vorn):
        SOLVERS["vorn"] = lambda base: [a.vorn, "check", f"{base}.smt2"]
        SOLVERS["vorn-mps"] = lambda base: [a.vorn, "check", f"{base}.mps"]
    installed = [s for s in SOLVERS if s.startswith("vorn") or shutil.which(s)]
    missing = [s for s in SOLVERS if s not in installed]
    if missing:
        print(f"solvers.py: not installed, skipped: {', '.join(missing)}", file=sys.stderr)
    results = []
    last = {}  # (solver, series) → (m, wall ms) of the latest run

    def out_of_reach(solver, series, m):
        prev = last.get((solver, series))
        return prev is not None and prev[1] * m / prev[0] > a.timeout * 1e3

    def record(solver, name, command, expected, m, series):
        if out_of_reach(solver, series, m):
            print(f"{solver} {name}: skipped, beyond the limit by extrapolation", file=sys.stderr)
            return None
        wall, cpu, rss, output, timed_out = run(command, a.timeout)
        answer = "timeout" if timed_out else answer_of(solver, output)
        last[(solver, series)] = (m, wall)
        right = expected is None or answer == expected
        results.append({"name": f"{solver}/{name}", "run_type": "iteration", "iterations": 1,
                        "real_time": wall, "cpu_time": cpu, "time_unit": "ms",
                        "peak_rss_MB": rss, "timeout": float(timed_out),
                        "sat": {"sat": 1.0, "unsat": 0.0}.get(answer, -1.0),
                        "right": float(right and not timed_out)})
        print(f"{solver} {name}: {answer} in {wall:.0f} ms"
              f"{'' if right or timed_out else f' (expected {expected})'}", file=sys.stderr)
        return answer

    with tempfile.TemporaryDirectory() as tmp:
        for family, m, feasible in instances(a.quick):
            base = pathlib.Path(tmp, f"{family}{m}_{feasible}")
            expected = subprocess.run(
                [a.writer, family, str(m), "feasible" if feasible else "infeasible", "1",
                 str(base)], check=True, capture_output=True, text=True).stdout.strip()
            name = f"{family}/{m}/{feasible}" if family == "sparse" else f"{family}/{m}"
            series = f"{family}/{feasible}"  # feasible and infeasible instances scale apart
            for solver in installed:
                record(solver, name, SOLVERS[solver](base), expected, m, series)
            for ext in ("smt2", "mps"):
                pathlib.Path(f"{base}.{ext}").unlink()
        # The equation systems of `vorn solve` (e2e.py writes the same files: seed 1).
        for m in (1000, 10000) if a.quick else (1000, 10000, 100000):
            path = pathlib.Path(tmp, f"equations{m}.smt2")
            subprocess.run([sys.executable, HERE / "gen_sparse.py", "--equations", str(m), path],
                           check=True)
            reference = None
            for solver in (s for s in ("z3", "cvc5") if s in installed):
                answer = record(solver, f"equations/{m}", [solver, str(path)], reference, m,
                                "equations")
                reference = reference or (answer if answer in ("sat", "unsat") else None)
            path.unlink()
        for name, path, optimum in netlib_problems(a.netlib):
            if "vorn" in installed:
                record("vorn", f"netlib/{name}", [a.vorn, "check", str(path)], "sat", 1, name)
                margin = 1e-6 * max(1.0, abs(optimum or 0))
                for label, bound, expected in (("below", -margin, "unsat"),
                                               ("above", margin, "sat")):
                    if optimum is not None:
                        record("vorn", f"netlib/{name}/{label}",
                               [a.vorn, "check", "--objective-bound", f"<= {optimum + bound!r}",
                                str(path)], expected, 1, f"{name}/{label}")
            if "glpsol" in installed:
                plain = pathlib.Path(tmp, f"{name}.mps")
                plain.write_bytes(bz2.decompress(path.read_bytes()))
                record("glpsol", f"netlib/{name}", ["glpsol", "--exact", "--mps", str(plain)],
                       "sat", 1, name)
                plain.unlink()
    pathlib.Path(a.output).write_text(json.dumps({"benchmarks": results}, indent=1) + "\n")


if __name__ == "__main__":
    main()
