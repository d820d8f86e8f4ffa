#!/usr/bin/env python3
"""Times `vorn check`, z3 and cvc5 side by side on SMT-LIB files and checks their answers.

usage: smt_bench.py [--vorn BIN] [--vorn-args=--verify] [--timeout S] [--verbose]
                    [PATH ...]

PATHs are .smt2 files or directories searched recursively (default: bench/data/jobshop,
bench/data/lin3cnf and ../shared/data/smtlib). Each solver runs once on each file, one at a
time, with a wall-clock limit (default 10 s): `vorn check [VORN-ARGS] FILE`, `z3 FILE`,
`cvc5 --lang smt2 FILE`; z3 and cvc5 are skipped when not on PATH, vorn when no binary is
found. A solver's answer is the first sat/unsat/unknown line it prints.

The expected answer comes from the file name (a `sat` or `unsat` word in it), else from a
parent folder named so, else from `(set-info :status ...)`. A definite answer contradicting
it is a wrong answer: printed on stderr as it happens, in bold in the table, and the exit
status is 1. A timeout, `unknown`, an error or no answer counts as unanswered and is charged
the full timeout, so that a quick `unknown` does not look fast.

Files are grouped into families: the directory given (or the file's folder) plus any
sub-folders below it other than sat/unsat. Prints a Markdown table per family (files, and for
each solver: answered, wrong, total time; and vorn's total time over z3's and cvc5's), ready
for docs/performance.md; --verbose adds a table of every file's answers and times.
"""
import argparse
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent
DEFAULT_PATHS = [HERE / "data/jobshop", HERE / "data/lin3cnf", ROOT.parent / "shared/data/smtlib"]
VORN_CANDIDATES = [ROOT / "build/release/tools/vorn", ROOT / "build/debug/tools/vorn"]
STATUSES = ("sat", "unsat")


def find_vorn(given):
    if given:
        return given if shutil.which(given) else None
    for candidate in VORN_CANDIDATES:
        if os.access(candidate, os.X_OK):
            return str(candidate)
    return shutil.which("vorn")


def status_of(path, root):
    """'sat', 'unsat' or None; only folders from ROOT (the path given) down count."""
    folders = [*reversed(path.parent.relative_to(root).parts), root.name]
    for name in (path.stem, *folders):
        words = set(re.split(r"[^A-Za-z]+", name.lower()))
        found = [s for s in STATUSES if s in words]
        if len(found) == 1:
            return found[0]
    m = re.search(r"\(set-info\s+:status\s+(sat|unsat)\s*\)", path.read_text(errors="replace"))
    return m.group(1) if m else None


def label(folder):
    """A folder's name, its parent's when it is named after a status."""
    folder = folder.resolve()
    return folder.parent.name if folder.name.lower() in STATUSES else folder.name


def collect(paths):
    """[(family, file, the path given or the file's folder)] in a stable order."""
    out = []
    for given in map(pathlib.Path, paths):
        if given.is_file():
            out.append((label(given.parent), given, given.parent))
            continue
        if not given.is_dir():
            print(f"smt_bench.py: {given} not found, skipped", file=sys.stderr)
            continue
        for f in sorted(given.rglob("*.smt2")):
            parts = [p for p in f.parent.relative_to(given).parts if p.lower() not in STATUSES]
            out.append(("/".join([label(given), *parts]), f, given))
    return out


def run(command, timeout):
    """(answer or None, seconds, note). Own session, so that a timeout kills the whole tree."""
    start = time.perf_counter()
    proc = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                            start_new_session=True)
    try:
        out, err = proc.communicate(timeout=timeout)
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        proc.communicate()
        return None, timeout, "timeout"
    seconds = time.perf_counter() - start
    answers = [line.strip() for line in out.splitlines()
               if line.strip() in ("sat", "unsat", "unknown")]
    if answers:
        return answers[0], seconds, ""
    note = (err.strip().splitlines() or out.strip().splitlines() or [f"exit {proc.returncode}"])
    return None, seconds, note[0][:100]


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("paths", nargs="*", default=[str(x) for x in DEFAULT_PATHS])
    p.add_argument("--vorn", help="the vorn binary (default: build/release/tools/vorn, "
                                  "build/debug/tools/vorn or vorn on PATH)")
    p.add_argument("--vorn-args", default="", help="extra arguments of vorn check, "
                                                   "e.g. --vorn-args=--verify (with =)")
    p.add_argument("--timeout", type=float, default=10, help="seconds per file and solver")
    p.add_argument("--verbose", action="store_true", help="also a table of every file")
    a = p.parse_args()

    solvers = {}
    vorn = find_vorn(a.vorn)
    if vorn:
        extra = shlex.split(a.vorn_args)
        solvers["vorn"] = lambda f: [vorn, "check", *extra, str(f)]
    else:
        print("smt_bench.py: no vorn binary found, vorn skipped", file=sys.stderr)
    if shutil.which("z3"):
        solvers["z3"] = lambda f: ["z3", str(f)]
    if shutil.which("cvc5"):
        solvers["cvc5"] = lambda f: ["cvc5", "--lang", "smt2", str(f)]
    for name in ("z3", "cvc5"):
        if name not in solvers:
            print(f"smt_bench.py: {name} not found, skipped", file=sys.stderr)
    if not solvers:
        sys.exit("smt_bench.py: no solver to run")

    files = collect(a.paths)
    rows = []  # (family, file, expected, {solver: (answer, seconds, charged, wrong)})
    wrong_total = 0
    for family, f, root in files:
        expected = status_of(f, root)
        results = {}
        for name, command in solvers.items():
            answer, seconds, note = run(command(f), a.timeout)
            definite = answer in STATUSES
            wrong = definite and expected is not None and answer != expected
            if wrong:
                wrong_total += 1
                print(f"WRONG ANSWER: {name} says {answer} on {f}, expected {expected}",
                      file=sys.stderr)
            if note and note != "timeout":
                print(f"{name} on {f}: {note}", file=sys.stderr)
            results[name] = (answer or note or "none", seconds,
                             seconds if definite else a.timeout, wrong)
        definite = {r[0] for r in results.values() if r[0] in STATUSES}
        if expected is None and len(definite) > 1:
            print(f"DISAGREEMENT on {f} (no expected status): "
                  + ", ".join(f"{n} {r[0]}" for n, r in results.items()), file=sys.stderr)
        rows.append((family, f, expected, results))

    names = list(solvers)
    head = ["family", "files"]
    for n in names:
        head += [f"{n} answered", f"{n} wrong", f"{n} time (s)"]
    refs = [r for r in ("z3", "cvc5") if r in solvers and "vorn" in solvers]
    head += [f"vorn/{r}" for r in refs]
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    families = list(dict.fromkeys(fam for fam, *_ in rows))
    for fam in [*families, None]:
        group = [r for r in rows if fam is None or r[0] == fam]
        if not group or (fam is None and len(families) < 2):
            continue
        cells = ["**all**" if fam is None else fam, str(len(group))]
        totals = {}
        for n in names:
            answered = sum(1 for *_, res in group if res[n][0] in STATUSES)
            wrong = sum(1 for *_, res in group if res[n][3])
            totals[n] = sum(res[n][2] for *_, res in group)
            cells += [str(answered), f"**{wrong}**" if wrong else "0", f"{totals[n]:.2f}"]
        cells += [f"{totals['vorn'] / totals[r]:.2f}×" if totals[r] else "–" for r in refs]
        lines.append("| " + " | ".join(cells) + " |")
    print(f"Per-file limit {a.timeout:g} s; a file left unanswered (timeout, unknown, error) "
          f"is charged {a.timeout:g} s.\n")
    print("\n".join(lines))
    if a.verbose:
        print("\n| file | expected | " + " | ".join(names) + " |")
        print("|---|---|" + "---|" * len(names))
        for fam, f, expected, res in rows:
            cells = [f"{'**WRONG** ' if res[n][3] else ''}{res[n][0]} {res[n][1]:.2f}"
                     for n in names]
            print(f"| {fam}/{f.name} | {expected or '?'} | " + " | ".join(cells) + " |")
    if wrong_total:
        print(f"\nsmt_bench.py: {wrong_total} WRONG ANSWERS", file=sys.stderr)
        sys.exit(1)


if __name__ == "__main__":
    main()
