#!/usr/bin/env python3
"""Finds the optimum makespan of a gen_jobshop.py instance with z3 as a black box.

usage: jobshop_optimum.py [--jobs N] [--machines M] [--seed S ...] [--max-duration D]
                          [--timeout S] [--write DIR]

For each seed: a binary search over the makespan T between the trivial lower bound (longest
job, busiest machine) and the end of a greedy schedule, asking `z3` whether the QF_IDL script
of gen_jobshop.py is sat at T; every check and its time is printed to stderr. The optimum is
the least sat T, proven by an unsat at T - 1 (or by the lower bound itself). A check that
times out leaves the seed unsolved. With --write DIR the seed's four scripts go to DIR:
js<N>x<M>_s<seed>_<Int|Real>_<sat|unsat>.smt2 at T = optimum (sat) and optimum - 1 (unsat);
the Real scripts share the optimum since all durations are integers.
"""
import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

sys.dont_write_bytecode = True  # no __pycache__ left in bench/
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import gen_jobshop  # noqa: E402


def greedy_makespan(shop):
    """End of a schedule that repeatedly starts the next operation able to start earliest:
    a valid schedule, so an upper bound."""
    job_free = [0] * len(shop)
    machine_free = {}
    nxt = [0] * len(shop)
    left = sum(len(job) for job in shop)
    while left:
        best = None
        for j, job in enumerate(shop):
            if nxt[j] < len(job):
                m, d = job[nxt[j]]
                start = max(job_free[j], machine_free.get(m, 0))
                if best is None or start < best[0]:
                    best = (start, j, m, d)
        start, j, m, d = best
        job_free[j] = machine_free[m] = start + d
        nxt[j] += 1
        left -= 1
    return max(job_free)


def z3_check(text, timeout):
    """('sat' | 'unsat' | None on a timeout or anything else, seconds)."""
    with tempfile.NamedTemporaryFile("w", suffix=".smt2") as f:
        f.write(text)
        f.flush()
        start = time.perf_counter()
        try:
            out = subprocess.run(["z3", f.name], capture_output=True, text=True,
                                 timeout=timeout).stdout.split()
        except subprocess.TimeoutExpired:
            return None, timeout
        answer = out[0] if out and out[0] in ("sat", "unsat") else None
        return answer, time.perf_counter() - start


def optimum(shop, timeout, label):
    lo, hi = gen_jobshop.lower_bound(shop), greedy_makespan(shop)
    print(f"{label}: lower bound {lo}, greedy schedule {hi}", file=sys.stderr)
    while lo < hi:  # the optimum lies in [lo, hi]; hi is known sat
        mid = (lo + hi) // 2
        answer, seconds = z3_check(gen_jobshop.script(shop, mid, "Int"), timeout)
        print(f"{label}: T={mid} {answer or 'timeout'} in {seconds:.2f} s", file=sys.stderr)
        if answer is None:
            return None
        if answer == "sat":
            hi = mid
        else:
            lo = mid + 1
    return lo


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--jobs", type=int, default=10)
    p.add_argument("--machines", type=int, default=10)
    p.add_argument("--seed", type=int, nargs="+", default=[1])
    p.add_argument("--max-duration", type=int, default=99)
    p.add_argument("--timeout", type=float, default=60, help="seconds per z3 check")
    p.add_argument("--write", help="write the sat and unsat scripts of each seed here")
    a = p.parse_args()
    if not shutil.which("z3"):
        sys.exit("jobshop_optimum.py: z3 not found")
    for seed in a.seed:
        shop = gen_jobshop.instance(a.jobs, a.machines, seed, a.max_duration)
        label = f"js{a.jobs}x{a.machines} seed {seed}"
        start = time.perf_counter()
        best = optimum(shop, a.timeout, label)
        took = time.perf_counter() - start
        if best is None:
            print(f"{label}: unsolved ({took:.1f} s)")
            continue
        print(f"{label}: optimum makespan {best} ({took:.1f} s)")
        if not a.write:
            continue
        out = pathlib.Path(a.write)
        out.mkdir(parents=True, exist_ok=True)
        for sort in ("Int", "Real"):
            for makespan, status in ((best, "sat"), (best - 1, "unsat")):
                header = (f"gen_jobshop.py --jobs {a.jobs} --machines {a.machines} "
                          f"--seed {seed} --makespan {makespan} --sort {sort} "
                          f"--max-duration {a.max_duration} --status {status}")
                name = f"js{a.jobs}x{a.machines}_s{seed}_{sort}_{status}.smt2"
                (out / name).write_text(gen_jobshop.script(shop, makespan, sort, status,
                                                           header))


if __name__ == "__main__":
    main()
