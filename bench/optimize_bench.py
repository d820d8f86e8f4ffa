#!/usr/bin/env python3
"""Times `vorn optimize` beside `glpsol --exact` on LP files and compares their optima.

usage: optimize_bench.py [--vorn BIN] [--timeout S] [FILE ...]

Default files: the Netlib problems of ../shared/data/netlib, smallest first. Each solver runs once
per file, one at a time, with a wall-clock limit (default 60 s): `vorn optimize FILE` and
`glpsol --exact --freemps FILE` (on a decompressed copy, --mps when the free format fails; glpsol
is skipped when not on PATH).
vorn's optimum is exact (P/Q); glpsol's printed objective is compared with it to 1e-9 relative.
Prints a Markdown table: per file vorn's and glpsol's time and peak memory and the optimum, and
the totals over the files both solved.
"""
import argparse
import bz2
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import time
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
NETLIB = ROOT.parent / "shared/data/netlib"


def run(cmd, timeout):
    """(seconds, peak RSS in MB, stdout) or (None, None, '') on timeout."""
    start = time.perf_counter()
    proc = subprocess.Popen(cmd, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    try:
        out, _ = proc.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.communicate()
        return None, None, ""
    seconds = time.perf_counter() - start
    _, status, usage = proc.pid, proc.returncode, resource.getrusage(resource.RUSAGE_CHILDREN)
    return seconds, usage.ru_maxrss / 1024, out


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--vorn", default=str(ROOT / "build/release/tools/vorn"))
    ap.add_argument("--timeout", type=float, default=60)
    ap.add_argument("files", nargs="*", type=pathlib.Path)
    args = ap.parse_args()
    files = args.files or sorted(NETLIB.glob("*.mps.bz2"), key=lambda p: p.stat().st_size)
    glpsol = shutil.which("glpsol")
    tmp = pathlib.Path(tempfile.mkdtemp())
    print("| problem | vorn (s) | glpsol --exact (s) | vorn/glpsol | optimum (vorn, exact → float) | agree |")
    print("|---|---:|---:|---:|---:|---|")
    both_vorn = both_glpsol = 0.0
    failed = False
    for f in files:
        name = f.name.replace("netlib-", "").replace(".mps.bz2", "")
        vs, _, vout = run([args.vorn, "optimize", str(f)], args.timeout)
        m = re.search(r"^objective (-?\d+(?:/\d+)?)$", vout, re.M)
        optimum = Fraction(m.group(1)) if m else None
        gs = None
        gopt = None
        if glpsol:
            plain = tmp / (name + ".mps")
            plain.write_bytes(bz2.decompress(f.read_bytes()) if f.suffix == ".bz2" else f.read_bytes())
            # Free MPS first; some Netlib files need the fixed format (names with spaces).
            for fmt in ("--freemps", "--mps"):
                gs, _, gout = run([glpsol, "--exact", fmt, str(plain), "-o", "/dev/stdout"],
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
        print("| %s | %s | %s | %s | %s | %s |" % (name, fmt(vs), fmt(gs), ratio, shown, agree))
        sys.stdout.flush()
    if both_glpsol:
        print("| **both solved** | %.2f | %.2f | %.2f× | | |" % (both_vorn, both_glpsol,
                                                             both_vorn / both_glpsol))
    shutil.rmtree(tmp)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
