#!/usr/bin/env python3
"""Times `vorn optimize` on mixed-integer problems beside CBC and glpsol, and compares optima.

usage: milp_bench.py [--vorn BIN] [--cut-rounds N] [--timeout S] [FILE ...]

Default files: the MIPLIB 3 problems of ../shared/data/miplib3, whose README lists the catalogue
optima (7 significant digits). Each solver runs once per file, one at a time, with a wall-clock
limit (default 60 s): `vorn optimize FILE`, `cbc FILE -solve` and `glpsol --mps FILE` (both on a
decompressed copy; skipped when not on PATH). vorn's optimum is exact (P/Q); the others' printed
objectives are compared with it to 1e-6 relative, the catalogue's (rgn: 82.1999 for
82.19999924) to 1e-5. Prints a Markdown table:
per file each solver's time and optimum and whether they agree, then the totals over the files
that CBC solved.
"""
import argparse
import bz2
import os
import pathlib
import re
import shutil
import sys
import tempfile
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
MIPLIB = ROOT.parent / "shared/data/miplib3"
sys.dont_write_bytecode = True
sys.path.insert(0, str(HERE))
from timed_run import run  # noqa: E402


def catalogue():
    """problem name -> catalogue optimum, from the README's table."""
    optima = {}
    readme = MIPLIB / "README.md"
    if readme.exists():
        for line in readme.read_text().splitlines():
            cells = [c.strip() for c in line.strip("|").split("|")]
            if len(cells) == 7 and re.fullmatch(r"-?[0-9.]+", cells[5]):
                optima[cells[0]] = float(cells[5])
    return optima


def vorn_optimum(out):
    m = re.search(r"^optimal\nobjective (\S+)", out, re.M)
    return Fraction(m.group(1)) if m else None


def cbc_optimum(out):
    if "Optimal solution found" not in out:
        return None
    m = re.search(r"Objective value:\s+(\S+)", out)
    return float(m.group(1)) if m else None


def glpsol_optimum(path, timeout):
    sol = path + ".sol"
    if os.path.exists(sol):
        os.remove(sol)
    seconds, _ = run(["glpsol", "--mps", path, "-o", sol], timeout)
    if seconds is None or not os.path.exists(sol):
        return None, None
    with open(sol) as written:
        text = written.read()
    if "INTEGER OPTIMAL" not in text:
        return seconds, None
    m = re.search(r"Objective:\s+\S+ = (\S+)", text)
    return seconds, float(m.group(1)) if m else None


def agree(exact, other, tolerance=1e-6):
    if exact is None or other is None:
        return None
    return abs(float(exact) - other) <= tolerance * max(1.0, abs(other))


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    p.add_argument("--timeout", type=float, default=60)
    p.add_argument("--cut-rounds", type=int, default=6, help="vorn's rounds of root cuts")
    p.add_argument("files", nargs="*")
    a = p.parse_args()
    files = a.files or sorted(str(f) for f in MIPLIB.glob("*.mps.bz2"))
    optima = catalogue()
    have_cbc, have_glpsol = shutil.which("cbc"), shutil.which("glpsol")
    fmt = lambda s: "%.2f" % s if s is not None else "> %g" % a.timeout
    show = lambda v: ("%.10g" % float(v)) if v is not None else "–"
    mark = lambda ok: {True: "yes", False: "**NO**", None: "–"}[ok]
    print("| problem | vorn s | vorn optimum | cbc s | glpsol s | cbc agrees | glpsol agrees "
          "| catalogue agrees |")
    print("|---|---:|---:|---:|---:|:-:|:-:|:-:|")
    totals = [0.0, 0.0, 0]
    tmp = tempfile.mkdtemp()
    for f in files:
        name = pathlib.Path(f).name.split(".")[0].replace("miplib3-", "")
        plain = os.path.join(tmp, name + ".mps")
        opener = bz2.open if f.endswith(".bz2") else open
        with opener(f, "rb") as src, open(plain, "wb") as dst:
            dst.write(src.read())
        vs, out = run([a.vorn, "optimize", "--cut-rounds", str(a.cut_rounds), f], a.timeout)
        exact = vorn_optimum(out)
        cs, cv = (None, None)
        if have_cbc:
            cs, cout = run(["cbc", plain, "-solve"], a.timeout)
            cv = cbc_optimum(cout)
            if cv is None:
                cs = None
        gs, gv = glpsol_optimum(plain, a.timeout) if have_glpsol else (None, None)
        if gv is None:
            gs = None
        if cs is not None and vs is not None and exact is not None:
            totals[0] += vs
            totals[1] += cs
            totals[2] += 1
        print("| %s | %s | %s | %s | %s | %s | %s | %s |" % (
            name, fmt(vs if exact is not None else None), show(exact), fmt(cs), fmt(gs),
            mark(agree(exact, cv)), mark(agree(exact, gv)),
            mark(agree(exact, optima.get(name), 1e-5))))
        sys.stdout.flush()
    shutil.rmtree(tmp)
    solved_by_cbc = sum(1 for _ in files)
    print("\nBoth solved %d of %d; vorn %.2f s, CBC %.2f s over those." %
          (totals[2], solved_by_cbc, totals[0], totals[1]))


if __name__ == "__main__":
    main()
