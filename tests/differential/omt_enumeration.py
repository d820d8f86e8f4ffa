#!/usr/bin/env python3
"""Objectives over Boolean structure against enumeration. For seeded random scripts (Int and
Real variables in a box, atoms guarded by Bool literals or not, a clause over the Bools, one objective
to minimize or maximize) `vorn check --verify` must print the optimum that the best of the
conjunctions gives: one script per assignment of the Bools that keeps their clause, holding the
atoms its literals switch on, each optimized by the conjunctive optimizer; unsat when none is sat.
Every optimum's certificate (and unsat's) must pass check_certificate.py, alone and --input.

Usage: omt_enumeration.py VORN [SEEDS]; exit status 0 when every answer agrees."""

import itertools
import os
import random
import subprocess
import sys
import tempfile
from fractions import Fraction

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path[:0] = [os.path.join(HERE, "..", "..", "scripts")]
import check_certificate as checker  # noqa: E402

VORN = sys.argv[1]
TMP = tempfile.mkdtemp()


def value(sexpr):
    if isinstance(sexpr, str):
        return Fraction(sexpr)
    if sexpr[0] == "-":
        return -value(sexpr[1])
    return value(sexpr[1]) / value(sexpr[2])  # (/ p q)


def optimum(text):
    """("unsat", None), ("sat", value) or (None, output) for anything else."""
    path = os.path.join(TMP, "case.smt2")
    with open(path, "w") as f:
        f.write(text)
    out = subprocess.run([VORN, "check", "--verify", "--certificate", path],
                         capture_output=True, text=True, timeout=120).stdout
    try:  # the optimum's (or the unsat answer's) certificate, alone and against the script
        for item in filter(checker.is_cert, checker.output_items(out)):
            checker.check_block(item[1])
        checker.check_input(path, checker.output_items(out))
    except (ValueError, KeyError, IndexError, ZeroDivisionError) as e:
        return None, "certificate: %s\n%s" % (e, out)
    items = [i for i in checker.output_items(out) if not checker.is_cert(i)]
    if items[:1] == ["unsat"]:
        return "unsat", None
    if items[:1] == ["sat"] and len(items) > 1 and items[1][:1] == ["objectives"]:
        return "sat", value(items[1][1][1])
    return None, out


def term(coeffs, names):
    coeff = lambda a: "%d" % a if a > 0 else "(- %d)" % -a
    parts = ["(* %s %s)" % (coeff(a), v) if a != 1 else v for a, v in zip(coeffs, names) if a != 0]
    return parts[0] if len(parts) == 1 else "(+ %s)" % " ".join(parts) if parts else "0"


def generate(rng):
    sorts = [rng.choice(["Int", "Real"]) for _ in range(rng.randint(2, 3))]
    names = ["x%d" % i for i in range(len(sorts))]
    bools = ["b%d" % i for i in range(rng.randint(2, 3))]
    num = lambda c, sort: ("%d" % abs(c) if sort == "Int" else "%d.0" % abs(c)) if c >= 0 else \
        "(- %s)" % ("%d" % -c if sort == "Int" else "%d.0" % -c)
    atoms = []  # (bool index, polarity, atom text)
    for _ in range(rng.randint(3, 6)):
        coeffs = [rng.randint(-3, 3) for _ in names]
        if not any(coeffs):
            coeffs[0] = 1
        sort = "Int" if all(s == "Int" for s in sorts) else "Real"
        rel = rng.choice(["<=", ">="])
        atoms.append((rng.randrange(-1, len(bools)), rng.random() < 0.5,  # −1: unguarded
                      "(%s %s %s)" % (rel, term(coeffs, names), num(rng.randint(-6, 6), sort))))
    clause = [(rng.randrange(len(bools)), rng.random() < 0.5) for _ in range(2)]
    objective = term([rng.randint(-4, 4) or 1 for _ in names], names)
    sense = rng.choice(["minimize", "maximize"])
    return sorts, names, bools, atoms, clause, objective, sense


def script(sorts, names, bools, body, objective, sense):
    lines = ["(declare-const %s %s)" % (v, s) for v, s in zip(names, sorts)]
    lines += ["(declare-const %s Bool)" % b for b in bools]
    for v, s in zip(names, sorts):
        four = "4" if s == "Int" else "4.0"
        lines.append("(assert (and (<= (- %s) %s) (<= %s %s)))" % (four, v, v, four))
    lines += ["(assert %s)" % a for a in body]
    lines += ["(%s %s)" % (sense, objective), "(check-sat)", "(get-objectives)"]
    return "\n".join(lines) + "\n"


def literal(bools, b, positive):
    return bools[b] if positive else "(not %s)" % bools[b]


def main():
    seeds = int(sys.argv[2]) if len(sys.argv) > 2 else 40
    failures, answers = [], {"sat": 0, "unsat": 0}
    for seed in range(seeds):
        sorts, names, bools, atoms, clause, objective, sense = generate(random.Random(seed))
        body = ["(=> %s %s)" % (literal(bools, b, p), a) if b >= 0 else a for b, p, a in atoms]
        body.append("(or %s)" % " ".join(literal(bools, b, p) for b, p in clause))
        got = optimum(script(sorts, names, bools, body, objective, sense))
        best = None
        for values in itertools.product([False, True], repeat=len(bools)):
            if not any(values[b] == p for b, p in clause):
                continue
            on = [a for b, p, a in atoms if b < 0 or values[b] == p]
            kind, v = optimum(script(sorts, names, [], on, objective, sense))
            if kind is None:
                failures.append("seed %d: a conjunction has no answer: %s" % (seed, v[-300:]))
                break
            if kind == "sat" and (best is None or (v < best if sense == "minimize" else v > best)):
                best = v
        expected = ("unsat", None) if best is None else ("sat", best)
        if got != expected:
            failures.append("seed %d: %s, the enumeration %s" % (seed, str(got)[-300:], expected))
        elif got[0] in answers:
            answers[got[0]] += 1
    print("%d seeds: %d sat, %d unsat" % (seeds, answers["sat"], answers["unsat"]))
    for f in failures:
        print(f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
