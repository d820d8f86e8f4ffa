#!/usr/bin/env python3
"""Times `vorn optimize` beside `glpsol --exact` on LP files and compares their optima.

usage: optimize_bench.py [--vorn BIN] [--timeout S] [--exact-only] [--bounded] [FILE ...]

Default files: the Netlib problems of ../shared/data/netlib, smallest first. Each solver runs once
per file, one at a time, with a wall-clock limit (default 60 s): `vorn optimize FILE` (with
--exact-only also `vorn optimize --exact-only FILE`, the exact simplex without the floating-point
start), with --bounded also `vorn check --objective-bound '<= B' FILE` for B the optimum less
and plus 1e-9 relative (which must answer unsat and sat), and `glpsol --exact --freemps FILE` (on a decompressed copy, --mps when the free format fails; glpsol
is skipped when not on PATH).
vorn's optimum is exact (P/Q); glpsol's printed objective is compared with it to 1e-9 relative.
Prints a Markdown table: per file vorn's and glpsol's time and peak memory and the optimum, and
the totals over the files both solved.
"""
import argparse
import bz2
import pathlib
import re
import os
import shutil
import sys
import tempfile
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
NETLIB = ROOT.parent / "shared/data/netlib"


sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import timed_run  # noqa: E402

# GNU time reports the peak memory of the command alone; the rusage of a child of this process
# would include the Python interpreter's own, which the child inherits until it execs.
GNU_TIME = "/usr/bin/time" if os.path.exists("/usr/bin/time") else None


def run(cmd, timeout):
    """(seconds, peak RSS in MB or None, stdout) or (None, None, '') on timeout."""
    with tempfile.NamedTemporaryFile("r") as peak:
        if GNU_TIME:
            cmd = [GNU_TIME, "-f", "%M", "-o", peak.name] + cmd
        seconds, out = timed_run.run(cmd, timeout)
        if seconds is None:
            return None, None, ""
        kb = peak.read().strip().split("\n")[-1] if GNU_TIME else ""
        return seconds, int(kb) / 1024 if kb.isdigit() else None, out


def bounded(vorn, f, optimum, timeout):
    """Seconds of `vorn check` with the objective bounded 1e-9 relative below and above the
    optimum (expected unsat, sat), or None on a timeout or another answer."""
    margin = Fraction(1, 10**9) * max(1, abs(optimum))
    total = 0.0
    for bound, expected in ((optimum - margin, "unsat"), (optimum + margin, "sat")):
        text = "<= %d/%d" % (bound.numerator, bound.denominator)
        s, _, out = run([vorn, "check", "--objective-bound", text, str(f)], timeout)
        if s is None or out.split("\n")[0] != expected:
            return None
        total += s
    return total


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    ap.add_argument("--timeout", type=float, default=60)
    ap.add_argument("--exact-only", action="store_true",
                    help="also time vorn without its floating-point start")
    ap.add_argument("--bounded", action="store_true",
                    help="also time vorn check with the objective bounded just below and above")
    ap.add_argument("files", nargs="*", type=pathlib.Path)
    args = ap.parse_args()
    files = args.files or sorted(NETLIB.glob("*.mps.bz2"), key=lambda p: p.stat().st_size)
    glpsol = shutil.which("glpsol")
    tmp = pathlib.Path(tempfile.mkdtemp())
    exact_col = " vorn --exact-only (s) |" if args.exact_only else ""
    bounded_col = " check below + above (s) |" if args.bounded else ""
    print("| problem | vorn (s) | vorn (MB) |%s%s glpsol --exact (s) | glpsol (MB) | vorn/glpsol "
          "| optimum (vorn, exact → float) | agree |" % (exact_col, bounded_col))
    print("|---|---:|---:|%s%s---:|---:|---:|---:|---|" % ("---:|" if args.exact_only else "",
                                                       "---:|" if args.bounded else ""))
    both_vorn = both_glpsol = 0.0
    exact_total, exact_solved = 0.0, 0
    failed = False
    for f in files:
        name = f.name.replace("netlib-", "").replace(".mps.bz2", "")
        vs, vmem, vout = run([args.vorn, "optimize", str(f)], args.timeout)
        m = re.search(r"^objective (-?\d+(?:/\d+)?)$", vout, re.M)
        optimum = Fraction(m.group(1)) if m else None
        exact_cell = ""
        if args.exact_only:
            es, _, eout = run([args.vorn, "optimize", "--exact-only", str(f)], args.timeout)
            em = re.search(r"^objective (-?\d+(?:/\d+)?)$", eout, re.M)
            if es is not None and em and optimum is not None and Fraction(em.group(1)) != optimum:
                failed = True
                exact_cell = " **differs** |"
            else:
                exact_cell = " %s |" % ("%.2f" % es if es is not None else "> %g" % args.timeout)
            if es is not None:
                exact_total += es
                exact_solved += 1
        bounded_cell = ""
        if args.bounded:
            bs = bounded(args.vorn, f, optimum, args.timeout) if optimum is not None else None
            bounded_cell = " %s |" % ("%.2f" % bs if bs is not None else "**failed**")
            failed = failed or bs is None
        gs = gmem = None
        gopt = None
        if glpsol:
            plain = tmp / (name + ".mps")
            plain.write_bytes(bz2.decompress(f.read_bytes()) if f.suffix == ".bz2" else f.read_bytes())
            # Free MPS first; some Netlib files need the fixed format (names with spaces).
            for fmt in ("--freemps", "--mps"):
                gs, gmem, gout = run([glpsol, "--exact", fmt, str(plain), "-o", "/dev/stdout"],
                                  args.timeout)
                gm = re.search(r"Objective:\s+\S+\s*=\s*(\S+)", gout)
                if gm or gs is None:
                    break
            gopt = float(gm.group(1)) if gm else None
        agree = ""
        if optimum is not None and gopt is not None:
            ok = abs(float(optimum) - gopt) <= 1e-9 * max(1.0, abs(gopt))
            agree = "yes" if ok else "**no**"
            failed = failed or not ok
        if vs is not None and gs is not None:
            both_vorn += vs
            both_glpsol += gs
        fmt = lambda s: "%.2f" % s if s is not None else "> %g" % args.timeout
        ratio = "%.2f×" % (vs / gs) if vs is not None and gs else ""
        shown = "%.12g" % float(optimum) if optimum is not None else (vout.split("\n")[0] or "—")
        mb = lambda m: "%.0f" % m if m is not None else ""
        print("| %s | %s | %s |%s%s %s | %s | %s | %s | %s |" % (
            name, fmt(vs), mb(vmem), exact_cell, bounded_cell, fmt(gs), mb(gmem), ratio, shown, agree))
        sys.stdout.flush()
    if both_glpsol:
        print("| **both solved** | %.2f | |%s%s %.2f | | %.2f× | | |" % (
            both_vorn, " %.2f (%d solved) |" % (exact_total, exact_solved) if args.exact_only else "",
            " |" if args.bounded else "", both_glpsol, both_vorn / both_glpsol))
    shutil.rmtree(tmp)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
