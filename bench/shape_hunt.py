#!/usr/bin/env python3
"""Runs gen_shapes.py's scripts through vorn and z3 (cvc5 on request) and reports disagreements,
slowness and unknowns (issue 35's hunt).

usage: shape_hunt.py [--shapes sched,dioph,...] [--sizes 6,10] [--seeds 1-20] [--sorts Int,Real]
                     [--timeout 30] [--cvc5] [--certify] [--keep DIR] [--vorn BIN]

Every script runs once per solver (wall clock, killed at the timeout); the answers are the
sat/unsat/unknown lines in order. vorn runs with --verify (every model checked against the
input). A script whose answers differ where both answered is WRONG (the exit status is 1); one
vorn leaves unanswered that z3 answers, or answers 3 times slower than z3 and over 1 s, is a
GAP. --certify checks every certificate of a script vorn answered unsat somewhere
(`vorn check --certificate F` into scripts/check_certificate.py --input F). Prints one line per
finding and a Markdown table per shape; --keep DIR keeps the scripts (named shape_size_seed_sort).
"""
import argparse
import os
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from gen_shapes import SHAPES, generate  # noqa: E402
from timed_run import run  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def answers(out):
    return [w for w in out.split() if w in ("sat", "unsat", "unknown")]


def seeds(text):
    lo, _, hi = text.partition("-")
    return range(int(lo), int(hi or lo) + 1)


def certified(vorn, path):
    cert = subprocess.run([vorn, "check", "--certificate", path], capture_output=True, text=True)
    chk = subprocess.run([sys.executable, os.path.join(ROOT, "scripts/check_certificate.py"),
                          "--input", path], input=cert.stdout, capture_output=True, text=True)
    return chk.returncode == 0


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0],
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                epilog="\n".join(__doc__.splitlines()[2:]))
    p.add_argument("--shapes", default=",".join(sorted(SHAPES)))
    p.add_argument("--sizes", default="8")
    p.add_argument("--seeds", default="1-10")
    p.add_argument("--sorts", default="Int,Real")
    p.add_argument("--timeout", type=float, default=30)
    p.add_argument("--cvc5", action="store_true")
    p.add_argument("--certify", action="store_true")
    p.add_argument("--keep")
    p.add_argument("--vorn", default=os.path.join(ROOT, "build/release/tools/vorn"))
    a = p.parse_args()
    folder = a.keep or tempfile.mkdtemp(prefix="shape_hunt_")
    os.makedirs(folder, exist_ok=True)
    solvers = {"vorn": [a.vorn, "check", "--verify"], "z3": ["z3"]}
    if a.cvc5:
        solvers["cvc5"] = ["cvc5", "--lang", "smt2", "--incremental"]
    wrong = False
    print("| shape | scripts | wrong | " + " | ".join(f"{s} s | {s} unanswered" for s in solvers)
          + " | gaps | certificates |")
    print("|---|---:|---:|" + "---:|---:|" * len(solvers) + "---:|---|")
    for shape in a.shapes.split(","):
        total = {s: 0.0 for s in solvers}
        missed = {s: 0 for s in solvers}
        count = bad = gaps = certs = certs_ok = 0
        for size in map(int, a.sizes.split(",")):
            for seed in seeds(a.seeds):
                for sort in a.sorts.split(","):
                    name = os.path.join(folder, f"{shape}_{size}_{seed}_{sort}.smt2")
                    with open(name, "w") as f:
                        f.write(generate(shape, size, seed, sort))
                    count += 1
                    got = {}
                    for s, cmd in solvers.items():
                        secs, out = run(cmd + [name], a.timeout)
                        ans = answers(out)
                        if "error" in out:
                            print(f"ERROR {name}: {s} {out.strip()[:200]}", file=sys.stderr)
                        if secs is None or not ans or "unknown" in ans:
                            secs, missed[s] = a.timeout, missed[s] + 1
                        total[s] += secs
                        got[s] = (secs, ans)
                    v, z = got["vorn"], got["z3"]
                    for s, (_, ans) in got.items():
                        pairs = zip(v[1], ans)
                        if any(x != y and "unknown" not in (x, y) for x, y in pairs):
                            bad, wrong = bad + 1, True
                            print(f"WRONG {name}: vorn {v[1]} {s} {ans}", file=sys.stderr)
                    z_ok = z[0] < a.timeout
                    if z_ok and (v[0] >= a.timeout or (v[0] > 1 and v[0] > 3 * z[0])):
                        gaps += 1
                        print(f"GAP {name}: vorn {v[0]:.2f} s {v[1]} z3 {z[0]:.2f} s {z[1]}",
                              file=sys.stderr)
                    if a.certify and "unsat" in v[1] and v[0] < a.timeout:
                        certs += 1
                        if certified(a.vorn, name):
                            certs_ok += 1
                        else:
                            print(f"CERTIFICATE REJECTED {name}", file=sys.stderr)
        cells = " | ".join(f"{total[s]:.1f} | {missed[s]}" for s in solvers)
        cert_cell = f"{certs_ok}/{certs}" if a.certify else ""
        print(f"| {shape} | {count} | {bad} | {cells} | {gaps} | {cert_cell} |", flush=True)
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
