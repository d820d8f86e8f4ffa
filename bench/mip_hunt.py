#!/usr/bin/env python3
"""Runs the models of gen_mip.py through `vorn optimize`, CBC and glpsol and reports disagreements.

usage: mip_hunt.py [--vorn BIN] [--count N] [--seed S] [--scale K] [--timeout S] [--times]

For every model, both files (MPS and LP) go to `vorn optimize --certificate --model`, whose
output goes to scripts/check_certificate.py --input FILE; CBC reads both (`cbc FILE -solve`),
glpsol the MPS file. CBC and glpsol read a plain copy (gen_mip.plain: minimised, no objective
constant; glpsol reads no OBJSENSE, CBC ignores it and the LP format's constant), their optima
mapped back; z3's optimizer (when its Python module is there) solves the model as generated. The status (optimal, infeasible, unbounded) must be
the same everywhere, and the optima within 1e-6 relative of vorn's exact one (z3's optimizer
alone differing is counted apart: it returns non-optimal points on some mixed models); an answer that
CBC or glpsol do not give (a time-out, "infeasible or unbounded") is not held against anyone.
Prints one line per disagreement and the counts; --times prints a Markdown table of the times
(vorn: `vorn optimize FILE.mps` alone, without certificate; CBC and glpsol: the MPS file; a
solver that gives no answer is shown as not done).
"""
import argparse
import pathlib
import re
import subprocess
import sys
import tempfile
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE))
from gen_mip import generate, plain, write_lp, write_mps  # noqa: E402
from timed_run import run  # noqa: E402

CHECKER = HERE.parent / "scripts/check_certificate.py"


def vorn_answer(out):
    m = re.search(r"^(optimal|infeasible|unbounded|unknown)$", out, re.M)
    if not m:
        return None, None
    value = re.search(r"^objective (\S+)$", out, re.M)
    return m.group(1), Fraction(value.group(1)) if m.group(1) == "optimal" else None


def cbc_answer(out):
    if "Optimal solution found" in out:
        return "optimal", float(re.search(r"Objective value:\s+(\S+)", out).group(1))
    if re.search(r"Problem proven infeasible|Problem is infeasible|Linear relaxation infeasible",
                 out):
        return "infeasible", None
    if re.search(r"Problem is unbounded|Linear relaxation unbounded", out):
        return "unbounded", None
    return None, None


def glpsol_answer(path, timeout):
    sol = path.with_suffix(".sol")
    sol.unlink(missing_ok=True)
    seconds, out = run(["glpsol", "--mps", str(path), "-o", str(sol)], timeout)
    if "HAS NO PRIMAL FEASIBLE" in out or "HAS NO INTEGER FEASIBLE" in out:
        return seconds, ("infeasible", None)
    if "HAS UNBOUNDED" in out:
        return seconds, ("unbounded", None)
    if not sol.exists() or "INTEGER OPTIMAL" not in sol.read_text():
        return seconds, (None, None)
    m = re.search(r"Objective:\s+\S+ = (\S+)", sol.read_text())
    return seconds, ("optimal", float(m.group(1)))


try:
    import z3
except ImportError:
    z3 = None


def z3_answer(m):
    """The optimum of M by z3's optimizer, from the model's data (no file reader)."""
    opt = z3.Optimize()
    opt.set("timeout", 10000)
    q = lambda v: z3.RealVal(str(Fraction(v)))
    var = {}
    for name, lower, upper, integer in m.cols:
        var[name] = (z3.Int if integer else z3.Real)(name)
        if lower is not None:
            opt.add(var[name] >= q(lower))
        if upper is not None:
            opt.add(var[name] <= q(upper))
    expr = lambda coeffs: z3.Sum([q(v) * var[c]
                                  for c, v in coeffs.items()] + [z3.RealVal(0)])
    for name, coeffs, sense, rhs, low in m.rows:
        e = expr(coeffs)
        if sense in "LER":
            opt.add(e <= q(rhs) if sense != "E" else e == q(rhs))
        if sense in "GR":
            opt.add(e >= q(rhs if sense == "G" else low))
    objective = expr(m.obj) + m.constant
    handle = opt.maximize(objective) if m.maximize else opt.minimize(objective)
    verdict = opt.check()
    if verdict == z3.unsat:
        return "infeasible", None
    if verdict != z3.sat:
        return None, None
    value = handle.value()
    if z3.is_int_value(value):
        return "optimal", float(value.as_long())
    if not z3.is_rational_value(value):
        return "unbounded", None
    return "optimal", float(Fraction(str(value.as_fraction())))


def same(exact, other):
    if other[0] is None or exact[0] is None:
        return True
    if exact[0] != other[0]:
        return False
    if exact[0] != "optimal":
        return True
    return abs(float(exact[1]) - other[1]) <= 1e-6 * max(1.0, abs(other[1]))


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(HERE.parent / "build/release/tools/vorn"))
    p.add_argument("--count", type=int, default=100)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--scale", type=int, default=1)
    p.add_argument("--timeout", type=float, default=60)
    p.add_argument("--times", action="store_true")
    a = p.parse_args()
    tmp = pathlib.Path(tempfile.mkdtemp())
    counts = {"models": 0, "disagreements": 0, "z3 alone": 0, "certificates": 0, "unchecked": 0}
    statuses = {}
    rows = []
    for i in range(a.count):
        m = generate(a.seed, i, a.scale)
        counts["models"] += 1
        mps, lp = tmp / (m.name + ".mps"), tmp / (m.name + ".lp")
        write_mps(m, mps)
        write_lp(m, lp)
        answers, times = {}, {}
        sign = -1 if m.maximize else 1
        base = tmp / (m.name + "_plain.x")
        write_mps(plain(m), base.with_suffix(".mps"))
        write_lp(plain(m), base.with_suffix(".lp"))
        back = lambda ans: (ans[0], sign * ans[1] + m.constant if ans[1] is not None else None)
        for path in (mps, lp):
            kind = path.suffix[1:]
            seconds, out = run([a.vorn, "optimize", "--certificate", "--model", str(path)],
                               a.timeout)
            answers["vorn " + kind], times["vorn " + kind] = vorn_answer(out), seconds
            if answers["vorn " + kind][0] in ("optimal", "infeasible", "unbounded"):
                done = subprocess.run([sys.executable, str(CHECKER), "--input", str(path)],
                                      input=out, capture_output=True, text=True)
                counts["certificates"] += 1
                if done.returncode != 0:
                    counts["unchecked"] += 1
                    print("%s.%s: certificate rejected: %s" %
                          (m.name, kind, (done.stdout + done.stderr).strip()[-300:]))
            seconds, out = run(["cbc", str(base.with_suffix(path.suffix)), "-solve"], a.timeout)
            answers["cbc " + kind], times["cbc " + kind] = back(cbc_answer(out)), seconds
        if a.times:  # the solve alone, without certificate and model
            times["vorn"] = run([a.vorn, "optimize", str(mps)], a.timeout)[0]
            answers["vorn"] = answers["vorn mps"]
        times["glpsol mps"], answer = glpsol_answer(base.with_suffix(".mps"), a.timeout)
        answers["glpsol mps"] = back(answer)
        if z3 is not None and a.scale == 1:
            answers["z3"] = z3_answer(m)
        exact = answers["vorn mps"]
        statuses[exact[0]] = statuses.get(exact[0], 0) + 1
        bad = [k for k, v in answers.items()
               if not same(exact, v) or (k.startswith("vorn") and v[0] is None)]
        if bad == ["z3"]:
            counts["z3 alone"] += 1
        elif bad:
            counts["disagreements"] += 1
            print("%s (seed %d, model %d): %s" % (m.name, a.seed, i, "; ".join(
                "%s %s %s" % (k, v[0], v[1]) for k, v in answers.items())))
        times = {k: (t if answers[k][0] is not None else None) for k, t in times.items()}
        rows.append((m.name, times, exact))
        sys.stdout.flush()
    print("models %(models)d, disagreements %(disagreements)d (and %(z3 alone)d where z3 alone "
          "differs), certificates %(certificates)d, rejected %(unchecked)d" % counts, "; vorn's answers:", statuses)
    if a.times:
        print("| model | columns | rows | vorn s | CBC s | glpsol s | optimum |")  # MPS files
        print("|---|---:|---:|---:|---:|---:|---:|")
        for i, (name, times, exact) in enumerate(rows):
            m = generate(a.seed, i, a.scale)
            fmt = lambda s: "%.2f" % s if s is not None else "> %g" % a.timeout
            print("| %s | %d | %d | %s | %s | %s | %s |" % (
                name, len(m.cols), len(m.rows), fmt(times["vorn"]), fmt(times["cbc mps"]),
                fmt(times["glpsol mps"]), exact[1] if exact[0] == "optimal" else exact[0]))


if __name__ == "__main__":
    main()
