#!/usr/bin/env python3
"""Long incremental scripts: does every round cost the same, whatever came before?

usage: incremental_bench.py [--vorn BIN] [--rounds 1000,10000,100000] [--shape NAME ...]
                            [--timeout S] [--dir DIR]

Each script declares x and y, then repeats one round R times; i is the round number:

  (push 1)
  (define-fun d () Real (+ x (* 2 y) i))      ; `plain` shapes use the term itself
  (declare-fun z () Real)
  (assert (or (> d (+ i 1)) (< z y)))
  (check-sat)
  (pop 1)

Shapes: real/int (the sort of every symbol), define/plain (with or without define-fun) and
push/assuming (`assuming` declares z once and asks (check-sat-assuming (f)) with the round's
formula f instead of push, assert and pop); `diff` rounds assert (or (> (- x z) i) (< (- z y) 3)),
decided by the difference-logic theory. Each solver runs each script once, end to end
(`vorn check FILE`, `z3 FILE`, `cvc5 --incremental FILE`; a missing solver is skipped); the
table gives wall time, peak resident memory (by /usr/bin/time) and whether the answers
equal z3's.
"""
import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time

HERE = pathlib.Path(__file__).resolve().parent
SHAPES = [f"{s}-{d}-{m}" for s in ("real", "int") for d in ("define", "plain")
          for m in ("push", "assuming")] + ["real-diff-push", "int-diff-push"]


def script(shape, rounds):
    sort, define, mode = shape.split("-")
    srt = "Real" if sort == "real" else "Int"
    lines = [f"(set-logic QF_L{'R' if sort == 'real' else 'I'}A)",
             f"(declare-fun x () {srt})", f"(declare-fun y () {srt})"]
    if mode == "assuming":
        lines.append(f"(declare-fun z () {srt})")
    for i in range(rounds):
        term = f"(+ x (* 2 y) {i})"
        d = "d" if define == "define" else term
        formula = f"(or (> {d} (+ {i} 1)) (< z y))"
        if define == "diff":  # differences only: the difference-logic theory decides
            formula = f"(or (> (- x z) {i}) (< (- z y) 3))"
        if mode == "push":
            lines.append("(push 1)")
            if define == "define":
                lines.append(f"(define-fun d () {srt} {term})")
            lines += [f"(declare-fun z () {srt})", f"(assert {formula})", "(check-sat)",
                      "(pop 1)"]
        else:
            if define == "define":
                formula = f"(let ((d {term})) {formula})"
            lines.append(f"(check-sat-assuming ({formula}))")
    return "\n".join(lines) + "\n"


def run(command, timeout):
    """(wall s, peak RSS MB, answers, timed out). Peak memory is /usr/bin/time's (the
    rusage of a child forked from Python counts Python's pages too)."""
    with tempfile.TemporaryDirectory() as tmp:
        rss_file = pathlib.Path(tmp, "rss")
        full = ["/usr/bin/time", "-f", "%M", "-o", str(rss_file), *command]
        with open(pathlib.Path(tmp, "out"), "w+b") as out:
            start = time.perf_counter()
            try:
                subprocess.run(full, stdout=out, stderr=subprocess.DEVNULL, timeout=timeout)
                timed_out = False
            except subprocess.TimeoutExpired:
                timed_out = True
            wall = time.perf_counter() - start
            out.seek(0)
            answers = [l.strip() for l in out.read().decode().splitlines()
                       if l.strip() in ("sat", "unsat", "unknown")]
        text = rss_file.read_text().split() if rss_file.exists() else []
        rss = int(text[-1]) / 1024 if text and text[-1].isdigit() else float("nan")
    return wall, rss, answers, timed_out


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--vorn", default=str(HERE.parent / "build/release/tools/vorn"))
    p.add_argument("--rounds", default="1000,10000,100000")
    p.add_argument("--shape", action="append", choices=SHAPES)
    p.add_argument("--solver", action="append", choices=["vorn", "z3", "cvc5"])
    p.add_argument("--timeout", type=float, default=600)
    p.add_argument("--dir", help="keep the scripts here")
    a = p.parse_args()
    commands = {"vorn": [a.vorn, "check"], "z3": ["z3"], "cvc5": ["cvc5", "--incremental"]}
    solvers = {}
    for name in a.solver or commands:
        if shutil.which(commands[name][0]):
            solvers[name] = commands[name]
        else:
            print(f"incremental_bench.py: {commands[name][0]} not found, skipped",
                  file=sys.stderr)
    print("| shape | rounds | " + " | ".join(f"{s} time (s) | {s} peak (MB)" for s in solvers)
          + " | answers equal |")
    print("|---|---:|" + "---:|---:|" * len(solvers) + "---|")
    with tempfile.TemporaryDirectory() as tmp:
        directory = pathlib.Path(a.dir or tmp)
        directory.mkdir(parents=True, exist_ok=True)
        for shape in a.shape or SHAPES:
            for rounds in (int(r) for r in a.rounds.split(",")):
                path = directory / f"{shape}_{rounds}.smt2"
                path.write_text(script(shape, rounds))
                cells, answers = [], {}
                for name, command in solvers.items():
                    wall, rss, got, timed_out = run(command + [str(path)], a.timeout)
                    answers[name] = got
                    cells.append(f"{'> ' if timed_out else ''}{wall:.2f} | {rss:.1f}")
                ok = [got == answers.get("z3", got) and len(got) == rounds
                      for got in answers.values()]
                print(f"| {shape} | {rounds} | " + " | ".join(cells) +
                      f" | {'yes' if all(ok) else 'NO'} |", flush=True)


if __name__ == "__main__":
    main()
