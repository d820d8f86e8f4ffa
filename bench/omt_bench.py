#!/usr/bin/env python3
"""Times objectives over Boolean structure: `vorn check` beside z3's optimizer on job-shop
makespan minimisation (gen_jobshop.py --minimize), and compares the optima.

usage: omt_bench.py [--vorn BIN] [--timeout S] [--sizes 6,8,10] [--seeds 1,2,3] [--confirm]

For each size N (N jobs on N machines), seed and sort (Int: QF_IDL, Real: QF_RDL) the script
`(minimize (- end origin))` then `(get-objectives)` runs once under each solver, one at a time,
with a wall-clock limit (default 300 s). With --confirm each optimum T that vorn prints is
checked on the decision scripts of gen_jobshop.py by z3 (`check-sat` at T sat, at T − 1 unsat),
so that a disagreement shows who is wrong. Prints a Markdown table and the totals.
"""
import argparse
import os
import pathlib
import re
import sys
import tempfile
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE))
import gen_jobshop  # noqa: E402
from timed_run import run  # noqa: E402


def optimum(out):
    """The objective's value as printed: a number, or the text of an epsilon/oo answer."""
    m = re.search(r"\(objectives\s*\(\(- end origin\) (.*)\)\s*\)", out, re.S)
    if not m:
        return None
    text = m.group(1).strip()
    try:
        return Fraction(text)
    except ValueError:
        return text


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    return path


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    p.add_argument("--timeout", type=float, default=300)
    p.add_argument("--sizes", default="6,8,10")
    p.add_argument("--seeds", default="1,2,3")
    p.add_argument("--confirm", action="store_true")
    a = p.parse_args()
    tmp = tempfile.mkdtemp()
    fmt = lambda s: "%.2f" % s if s is not None else "> %g" % a.timeout
    print("| instance | sort | vorn s | z3 s | vorn optimum | z3 optimum | agree |" +
          (" z3 confirms vorn |" if a.confirm else ""))
    print("|---|---|---:|---:|---:|---:|:-:|" + (":-:|" if a.confirm else ""))
    totals = [0.0, 0.0, 0, 0]
    for n in map(int, a.sizes.split(",")):
        for seed in map(int, a.seeds.split(",")):
            shop = gen_jobshop.instance(n, n, seed, 99)
            for sort in ("Int", "Real"):
                path = write(os.path.join(tmp, "js.smt2"),
                             gen_jobshop.script(shop, None, sort, minimize=True))
                vs, vout = run([a.vorn, "check", path], a.timeout)
                zs, zout = run(["z3", path], a.timeout)
                v, z = optimum(vout), optimum(zout)
                if v is None:
                    vs = None
                if z is None:
                    zs = None
                if vs is not None and zs is not None:
                    totals[0] += vs
                    totals[1] += zs
                    totals[2] += 1
                    totals[3] += vs < zs
                row = "| js%dx%d s%d | %s | %s | %s | %s | %s | %s |" % (
                    n, n, seed, sort, fmt(vs), fmt(zs), v if v is not None else "–",
                    z if z is not None else "–",
                    "–" if v is None or z is None else "yes" if v == z else "**NO**")
                if a.confirm:
                    ok = "–"
                    if isinstance(v, Fraction) and v.denominator == 1:
                        t = int(v)
                        sat = write(os.path.join(tmp, "sat.smt2"), gen_jobshop.script(shop, t, sort))
                        unsat = write(os.path.join(tmp, "unsat.smt2"),
                                      gen_jobshop.script(shop, t - 1, sort))
                        _, s_out = run(["z3", sat], a.timeout)
                        _, u_out = run(["z3", unsat], a.timeout)
                        ok = "yes" if s_out.startswith("sat") and u_out.startswith("unsat") else (
                            "**NO**" if s_out.startswith("unsat") or u_out.startswith("sat") else "–")
                    row += " %s |" % ok
                print(row)
                sys.stdout.flush()
    print("\nBoth answered %d; vorn %.2f s, z3 %.2f s in total; vorn faster on %d of them." %
          (totals[2], totals[0], totals[1], totals[3]))


if __name__ == "__main__":
    main()
