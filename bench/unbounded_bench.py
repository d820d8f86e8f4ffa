"""The unbounded integer families beside z3, in one run: per family, problems answered, unknown
or wrong (an answer that differs from z3's), vorn's slowest and total time, and z3's.

    python3 bench/unbounded_bench.py VORN [--timeout S] [--z3 PATH] FAMILY=FILE... 

Each FAMILY=FILE argument adds a file to a family (shell globs expand to many)."""
import argparse
import os
import shutil
import sys
from collections import defaultdict

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from timed_run import run  # noqa: E402


def answer(out):
    words = out.split()
    return words[0] if words else "none"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("vorn")
    ap.add_argument("files", nargs="+")
    ap.add_argument("--timeout", type=float, default=10)
    ap.add_argument("--z3", default=shutil.which("z3"))
    args = ap.parse_args()
    rows = defaultdict(lambda: defaultdict(float))
    for entry in args.files:
        family, path = entry.split("=", 1)
        row = rows[family]
        took, out = run([args.vorn, "check", "--verify", path], args.timeout)
        got = answer(out) if took is not None else "timeout"
        z3_took, z3_out = run([args.z3, path], args.timeout)
        want = answer(z3_out) if z3_took is not None else "timeout"
        row["problems"] += 1
        if got in ("sat", "unsat"):
            row["answered"] += 1
            row[got] += 1
            row["slowest"] = max(row["slowest"], took)
            row["total"] += took
            if want in ("sat", "unsat") and want != got:
                row["wrong"] += 1
                print("%s: vorn %s, z3 %s" % (path, got, want), file=sys.stderr)
        else:
            row["unknown"] += 1
            print("%s: vorn %s" % (path, got), file=sys.stderr)
        if want in ("sat", "unsat"):
            row["z3 answered"] += 1
            row["z3 total"] += z3_took
            row["z3 slowest"] = max(row["z3 slowest"], z3_took)
    print("| family | problems | vorn answered (sat/unsat) | unknown / wrong | vorn slowest s "
          "| vorn total s | z3 answered | z3 slowest s | z3 total s |")
    print("|---|---:|---|---|---:|---:|---:|---:|---:|")
    for family, r in rows.items():
        print("| %s | %d | %d (%d/%d) | %d / %d | %.2f | %.2f | %d | %.2f | %.2f |" % (
            family, r["problems"], r["answered"], r["sat"], r["unsat"], r["unknown"], r["wrong"],
            r["slowest"], r["total"], r["z3 answered"], r["z3 slowest"], r["z3 total"]))


if __name__ == "__main__":
    main()
