#!/usr/bin/env python3
"""Times objectives over Boolean structure: `vorn check` beside z3's optimizer, and compares the
optima, on two families:

- jobshop: makespan minimisation (gen_jobshop.py --minimize), N jobs on N machines, Int
  (QF_IDL) and Real (QF_RDL) start times;
- selection: weighted job selection on one machine (gen_selection.py), N optional jobs, the
  objective a sum of term ites over the choices, Int (QF_LIA) and Real (QF_LRA) start times;
- maxsat: weighted MaxSAT as z3 reads it, 3.5 N random 3-clauses over N Bools and 1.5 N soft
  literals `(assert-soft l :weight w)`, w in 1..9 (maxsat_script).

usage: omt_bench.py [--vorn BIN] [--timeout S] [--family jobshop|selection|maxsat|all]
                    [--sizes 6,8,10] [--selection-sizes 20,30,40] [--maxsat-sizes 60,80,100]
                    [--seeds 1,2,3] [--confirm]

Each script runs once under each solver, one at a time, with a wall-clock limit (default 300 s).
With --confirm each job-shop optimum T that vorn prints is checked on the decision scripts of
gen_jobshop.py by z3 (`check-sat` at T sat, at T − 1 unsat), so that a disagreement shows who
is wrong. Prints a Markdown table and the totals per family.
"""
import argparse
import os
import pathlib
import random
import re
import resource
import sys
import tempfile
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE))
import gen_jobshop  # noqa: E402
import gen_selection  # noqa: E402
from timed_run import run  # noqa: E402


def optimum(out):
    """The first objective's value as printed: a number, or the text of an epsilon/oo answer."""
    at = out.find("(objectives")
    if at < 0:
        return None
    tokens = re.findall(r"\(|\)|[^\s()]+", out[at:])
    depth, entry, values = 0, [], []
    for t in tokens[2:]:  # after "(objectives"
        depth += (t == "(") - (t == ")")
        if depth < 0:
            break
        entry.append(t)
        if depth == 0:  # one (term value) entry: the value is what follows the term
            values.append(entry)
            entry = []
    if not values:
        return None
    inner, depth, k = values[0][1:-1], 0, 0
    while len(inner) > 1:  # skip the term (none for assert-soft's default id)
        depth += (inner[k] == "(") - (inner[k] == ")")
        k += 1
        if depth == 0:
            break
    text = " ".join(inner[k:]).replace("( ", "(").replace(" )", ")")
    try:
        return Fraction(text)
    except ValueError:
        return text


def timed(cmd, timeout):
    """(wall seconds or None on timeout, CPU seconds, stdout): the CPU time is the child's own,
    which a busy machine inflates less than the wall clock."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    seconds, out = run(cmd, timeout)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return seconds, cpu, out


def write(path, text):
    with open(path, "w") as f:
        f.write(text)
    return path


def maxsat_script(n, seed):
    """Weighted MaxSAT: 3.5 n random 3-clauses over n Bools, 1.5 n weighted soft literals."""
    rng = random.Random(seed)
    lit = lambda: ("p%d" if rng.random() < 0.5 else "(not p%d)") % rng.randrange(n)
    lines = ["(declare-const p%d Bool)" % i for i in range(n)]
    lines += ["(assert (or %s %s %s))" % (lit(), lit(), lit()) for _ in range(n * 7 // 2)]
    lines += ["(assert-soft %s :weight %d)" % (lit(), rng.randint(1, 9)) for _ in range(n * 3 // 2)]
    return "\n".join(lines + ["(check-sat)", "(get-objectives)"]) + "\n"


def instances(a):
    """(family, name, sort, script, shop or None) in the order they run."""
    if a.family in ("jobshop", "all"):
        for n in map(int, a.sizes.split(",")):
            for seed in map(int, a.seeds.split(",")):
                shop = gen_jobshop.instance(n, n, seed, 99)
                for sort in ("Int", "Real"):
                    yield ("jobshop", "js%dx%d s%d" % (n, n, seed), sort,
                           gen_jobshop.script(shop, None, sort, minimize=True), shop)
    if a.family in ("selection", "all"):
        for n in map(int, a.selection_sizes.split(",")):
            for seed in map(int, a.seeds.split(",")):
                jobs = gen_selection.instance(n, seed)
                for sort in ("Int", "Real"):
                    yield ("selection", "sel%d s%d" % (n, seed), sort,
                           gen_selection.script(jobs, sort), None)
    if a.family in ("maxsat", "all"):
        for n in map(int, a.maxsat_sizes.split(",")):
            for seed in map(int, a.seeds.split(",")):
                yield ("maxsat", "maxsat%d s%d" % (n, seed), "Bool", maxsat_script(n, seed), None)


def confirmed(a, tmp, shop, sort, v):
    """Whether z3 finds the job shop schedulable by vorn's optimum T and not by T − 1."""
    if not isinstance(v, Fraction) or v.denominator != 1:
        return "–"
    t = int(v)
    sat = write(os.path.join(tmp, "sat.smt2"), gen_jobshop.script(shop, t, sort))
    unsat = write(os.path.join(tmp, "unsat.smt2"), gen_jobshop.script(shop, t - 1, sort))
    _, s_out = run(["z3", sat], a.timeout)
    _, u_out = run(["z3", unsat], a.timeout)
    if s_out.startswith("sat") and u_out.startswith("unsat"):
        return "yes"
    return "**NO**" if s_out.startswith("unsat") or u_out.startswith("sat") else "–"


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    p.add_argument("--timeout", type=float, default=300)
    p.add_argument("--family", choices=("jobshop", "selection", "maxsat", "all"), default="all")
    p.add_argument("--sizes", default="6,8,10")
    p.add_argument("--selection-sizes", default="20,30,40")
    p.add_argument("--maxsat-sizes", default="60,80,100")
    p.add_argument("--seeds", default="1,2,3")
    p.add_argument("--confirm", action="store_true")
    a = p.parse_args()
    tmp = tempfile.mkdtemp()
    fmt = lambda s: "%.2f" % s if s is not None else "> %g" % a.timeout
    print("| instance | sort | vorn s | z3 s | vorn CPU s | z3 CPU s | vorn optimum | z3 optimum "
          "| agree |" + (" z3 confirms vorn |" if a.confirm else ""))
    print("|---|---|---:|---:|---:|---:|---:|---:|:-:|" + (":-:|" if a.confirm else ""))
    totals = {}  # by family: vorn s, z3 s, both answered, vorn faster (CPU), vorn CPU, z3 CPU
    for family, name, sort, text, shop in instances(a):
        path = write(os.path.join(tmp, "omt.smt2"), text)
        vs, vc, vout = timed([a.vorn, "check", path], a.timeout)
        zs, zc, zout = timed(["z3", path], a.timeout)
        v, z = optimum(vout), optimum(zout)
        vs, zs = (vs if v is not None else None), (zs if z is not None else None)
        t = totals.setdefault(family, [0.0, 0.0, 0, 0, 0.0, 0.0])
        if vs is not None and zs is not None:
            t[:] = [t[0] + vs, t[1] + zs, t[2] + 1, t[3] + (vc < zc), t[4] + vc, t[5] + zc]
        row = "| %s | %s | %s | %s | %.2f | %.2f | %s | %s | %s |" % (
            name, sort, fmt(vs), fmt(zs), vc, zc, v if v is not None else "–",
            z if z is not None else "–",
            "–" if v is None or z is None else "yes" if v == z else "**NO**")
        if a.confirm:
            row += " %s |" % (confirmed(a, tmp, shop, sort, v) if shop else "–")
        print(row)
        sys.stdout.flush()
    for family, t in totals.items():
        print("\n%s: both answered %d; vorn %.2f s, z3 %.2f s in total (CPU: %.2f s, %.2f s); "
              "vorn faster in CPU time on %d of them." % (family, t[2], t[0], t[1], t[4], t[5],
                                                         t[3]))


if __name__ == "__main__":
    main()
