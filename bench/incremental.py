#!/usr/bin/env python3
"""The incremental benchmark: `vorn check`, z3 and cvc5, side by side, on push/pop scripts.

usage: incremental.py [--vorn BIN] [--rounds R] [--seed S] [--timeout S] [--dir DIR]
                      [--only sparse1000|vars60] [--json OUT.json]

bench/gen_incremental.py writes two scripts: the sparse family's 10^3 equations over 2000
variables (`sparse1000`) and 30 equations over 60 variables (`vars60`), each followed by R
rounds (default 1000) of push, two atoms, check-sat, pop. Each solver runs once on each
script, one at a time, end to end: `vorn check FILE`, `z3 FILE`, `cvc5 --incremental FILE`;
a solver not found is skipped with a line saying so. Wall time is measured around the
process, peak resident memory by /usr/bin/time (by wait4 where it is missing). Every
solver's answers are compared, check-sat by check-sat, with z3's: equal, different (sat
against unsat), unknown against a definite answer, missing (a run stopped by the time limit,
or fewer answers); and with the answers the script has by construction (its `; expect`
comments).

The Markdown table goes to stdout; --json writes the runs in the shape of a Google
Benchmark JSON file, which report.py turns into the same table.
"""
import argparse
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
VARIANTS = {  # name → gen_incremental.py arguments
    "sparse1000": ["--constraints", "1000"],
    "vars60": ["--vars", "60"],
}
ANSWERS = ("sat", "unsat", "unknown")


def commands(vorn):
    return {"vorn": lambda f: [vorn, "check", str(f)],
            "z3": lambda f: ["z3", str(f)],
            "cvc5": lambda f: ["cvc5", "--incremental", str(f)]}


def run(command, timeout):
    """(wall s, peak RSS MB, stdout, stderr, timed out). The solver gets its own session so
    that a timeout kills it and not only /usr/bin/time; output goes through files so that a
    full pipe cannot stall it."""
    timer_bin = shutil.which("time", path="/usr/bin")
    with tempfile.TemporaryDirectory() as tmp:
        rss_file = pathlib.Path(tmp, "rss")
        full = ["/usr/bin/time", "-f", "%M", "-o", str(rss_file), *command] if timer_bin \
            else command
        with open(pathlib.Path(tmp, "out"), "w+b") as out, \
                open(pathlib.Path(tmp, "err"), "w+b") as err:
            start = time.perf_counter()
            proc = subprocess.Popen(full, stdout=out, stderr=err, start_new_session=True)
            expired = threading.Event()

            def kill():
                expired.set()
                os.killpg(proc.pid, signal.SIGKILL)

            timer = threading.Timer(timeout, kill)
            timer.start()
            _, _, usage = os.wait4(proc.pid, 0)
            timer.cancel()
            wall = time.perf_counter() - start
            out.seek(0)
            err.seek(0)
            stdout = out.read().decode(errors="replace")
            stderr = err.read().decode(errors="replace")
        # wait4's usage covers the waited process and its reaped children: the fallback
        rss = usage.ru_maxrss / 1024
        if rss_file.exists():
            lines = rss_file.read_text().split()
            if lines and lines[-1].isdigit():
                rss = int(lines[-1]) / 1024
    return wall, rss, stdout, stderr, expired.is_set()


def compare(answers, reference):
    """(equal, different, unknown against a definite answer, missing) over the reference's
    check-sats; an extra answer beyond them counts as different."""
    equal = different = unknown = missing = 0
    for i in range(max(len(answers), len(reference))):
        a = answers[i] if i < len(answers) else None
        r = reference[i] if i < len(reference) else None
        if a is None or r is None:
            missing += r is not None
            different += r is None
        elif a == r:
            equal += 1
        elif "unknown" in (a, r):
            unknown += 1
        else:
            different += 1
    return equal, different, unknown, missing


def against_construction(answers, expected):
    """Definite answers that contradict the answer the script has by construction."""
    return sum(1 for a, e in zip(answers, expected)
               if e in ("sat", "unsat") and a in ("sat", "unsat") and a != e)


def fmt_time(seconds):
    return f"{seconds:.2f}" if seconds < 100 else f"{seconds:.0f}"


def table(runs):
    """Markdown lines for RUNS (dicts as written to the JSON file)."""
    lines = ["| script | solver | time (s) | ratio to z3 | peak RSS (MB) | answers equal to z3 "
             "| different | unknown vs definite | missing | wrong by construction |",
             "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|"]
    z3 = {r["script"]: r for r in runs if r["solver"] == "z3" and not r["timeout"]}
    for r in runs:
        ref = z3.get(r["script"])
        wall = r["real_time"] / 1e3
        ratio = f"{wall / (ref['real_time'] / 1e3):.2f}×" if ref and ref["real_time"] else "–"
        shown = ("> " if r["timeout"] else "") + fmt_time(wall)
        if ref:
            equal = f"{int(r['equal_to_z3'])}/{int(ref['check_sats'])}"
            rest = " | ".join(str(int(r[k])) for k in ("different", "unknown_vs_definite",
                                                         "missing"))
        else:
            equal, rest = "–", "– | – | –"
        lines.append(f"| {r['script']} ({int(r['constraints'])} eq., {int(r['variables'])} "
                     f"var., {int(r['rounds'])} rounds) | {r['solver']} | {shown} | {ratio} | "
                     f"{r['peak_rss_MB']:.0f} | {equal} | {rest} | "
                     f"{int(r['wrong_by_construction'])} |")
    return lines


def report_section(runs):
    """The section report.py puts in docs/performance.md."""
    return ["## Incremental scripts: push, two atoms, check-sat, pop", "",
            "Scripts of bench/gen_incremental.py (a satisfiable base from the sparse family, "
            "then rounds of two random atoms each, about 40% of them unsat by construction), "
            "decided end to end by `vorn check`, `z3` and `cvc5 --incremental` "
            "(bench/incremental.py). Answers are compared check-sat by check-sat with z3's and "
            "with the answer each round has by construction.", "", *table(runs), ""]


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(HERE.parent / "build/release/tools/vorn"))
    p.add_argument("--rounds", type=int, default=1000)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--timeout", type=float, default=120, help="seconds per run")
    p.add_argument("--dir", help="keep the scripts here (default: a temporary directory)")
    p.add_argument("--only", choices=sorted(VARIANTS), action="append",
                   help="run this script only (repeatable)")
    p.add_argument("--json", help="also write the runs as Google Benchmark-shaped JSON")
    a = p.parse_args()
    solvers = commands(a.vorn)
    found = {}
    for name in solvers:
        binary = a.vorn if name == "vorn" else name
        if shutil.which(binary):
            found[name] = solvers[name]
        else:
            print(f"incremental.py: {binary} not found, {name} skipped", file=sys.stderr)
    runs = []
    with tempfile.TemporaryDirectory() as tmp:
        directory = pathlib.Path(a.dir or tmp)
        directory.mkdir(parents=True, exist_ok=True)
        for variant in a.only or VARIANTS:
            path = directory / f"incremental_{variant}_{a.rounds}_{a.seed}.smt2"
            subprocess.run([sys.executable, HERE / "gen_incremental.py", *VARIANTS[variant],
                            "--rounds", str(a.rounds), "--seed", str(a.seed), path], check=True)
            text = path.read_text()
            expected = [line.split()[2] for line in text.splitlines()
                        if line.startswith("; expect ")]
            header = text.split("\n", 1)[0].split()
            size = {k: float(header[header.index(f"--{k}") + 1])
                    for k in ("constraints", "vars", "rounds")}
            outcomes = {}
            for name, command in found.items():
                wall, rss, out, err, timed_out = run(command(path), a.timeout)
                answers = [line.strip() for line in out.splitlines() if line.strip() in ANSWERS]
                errors = sum(1 for line in out.splitlines() if line.startswith("(error"))
                outcomes[name] = answers
                note = f", {errors} error responses" if errors else ""
                note += ", timed out" if timed_out else ""
                if err.strip() and not timed_out:
                    note += f", stderr: {err.strip().splitlines()[0][:120]}"
                print(f"{variant} {name}: {len(answers)} answers in {wall:.2f} s, "
                      f"{rss:.0f} MB{note}", file=sys.stderr)
                runs.append({"name": f"incremental/{variant}/{name}", "run_type": "iteration",
                             "iterations": 1, "real_time": wall * 1e3, "cpu_time": wall * 1e3,
                             "time_unit": "ms", "script": variant, "solver": name,
                             "constraints": size["constraints"], "variables": size["vars"],
                             "rounds": size["rounds"], "peak_rss_MB": rss,
                             "check_sats": float(len(answers)), "timeout": float(timed_out),
                             "error_responses": float(errors),
                             "wrong_by_construction": float(against_construction(answers,
                                                                                 expected))})
            reference = outcomes.get("z3")
            for r in runs:
                if r["script"] == variant and reference is not None:
                    equal, different, unknown, missing = compare(outcomes[r["solver"]], reference)
                    r.update(equal_to_z3=float(equal), different=float(different),
                             unknown_vs_definite=float(unknown), missing=float(missing))
            if reference is None:
                print(f"{variant}: z3 not run, answers compared by construction only",
                      file=sys.stderr)
            if not a.dir:
                path.unlink()
    print("\n".join(table(runs)))
    if a.json:
        pathlib.Path(a.json).write_text(json.dumps({"benchmarks": runs}, indent=1) + "\n")


if __name__ == "__main__":
    main()
