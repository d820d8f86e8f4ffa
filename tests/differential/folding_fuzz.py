#!/usr/bin/env python3
"""Formulas that fold while they are read, against the unfolded input. Seeded fuzzer-like scripts
over two variables (Real, or Int): atoms whose sides cancel or are multiplied by 0, term ites
that a constant condition or equal branches decide or that stay (a lifted variable, whose atoms
the search decides by the current model), formula ites, xor, =>, distinct, repeated and
complementary operands, and bounds that state the same in other words (an atom beside its
restatement, sides swapped, moved or scaled, or over Int shifted by one: a condition constant
only once its atoms are normalised); equalities between
constants and term ites with constant leaves, which fold into the ites' conditions, and a
constant z asserted equal to such an ite, which later terms read as the ite, must answer as their
twin script with each such equality written as two bounds. vorn must answer sat or unsat with --verify; its
models and certificates must check against the input (check_certificate.py --input, which reads
the script itself); where z3 is on the PATH, its answer must be the same.

Usage: folding_fuzz.py VORN [SEEDS]; exit status 0 when every case holds."""

import os
import random
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKER = os.path.join(HERE, "..", "..", "scripts", "check_certificate.py")


def term(rng, vs, depth):
    r = rng.random()
    if depth <= 0 or r < 0.3:
        return rng.choice(vs + ["0", "1", "(- 2)", "(- %s)" % rng.choice(vs)])
    a, b = term(rng, vs, depth - 1), term(rng, vs, depth - 1)
    return rng.choice([
        "(+ %s %s)" % (a, b), "(- %s %s)" % (a, b), "(- %s %s)" % (a, a), "(* 0 %s)" % a,
        "(* 3 %s)" % a, "(ite %s %s %s)" % (constant_condition(rng, vs), a, b),
        "(ite %s %s %s)" % (formula(rng, vs, depth - 1), a, b),
        "(ite %s %s %s)" % (formula(rng, vs, depth - 1), a, a),
        "(ite %s %s %s)" % (restated_pair(rng, vs), a, b)])


def constant_condition(rng, vs):
    """A condition that folds to a constant: its sides cancel."""
    v = rng.choice(vs)
    shape = rng.choice(["(< %s %s)", "(>= (+ %s 1) %s)", "(= (* 0 %s) (- %s %s))"])
    return shape % ((v,) * shape.count("%s"))


def pc_term(rng, vs, depth):
    """A term ite whose leaves are constants: a program counter's next value."""
    if depth <= 0 or rng.random() < 0.25:
        return rng.choice(["0", "1", "2", "(- 1)", "5"])
    a = pc_term(rng, vs, depth - 1)
    cond = rng.choice([equal(a, str(rng.randint(0, 3)), "(= %s %s)"), formula(rng, vs, depth - 2)])
    return rng.choice(["(ite %s %s %s)", "(ite %s %s (* 2 %s))"]) % (cond, pc_term(
        rng, vs, depth - 1), a)


SPLIT = [False]  # the unfolded twin: each such equality as its two bounds
INT = [False]  # the script's variables are Int
FLIP = {"<": ">", "<=": ">=", ">": "<", ">=": "<=", "=": "=", "distinct": "distinct"}
NEGATED = {"<": ">=", "<=": ">", ">": "<=", ">=": "<", "=": "distinct", "distinct": "="}
ONE_MORE = {"<": "(<= (+ %s 1) %s)", ">": "(>= %s (+ %s 1))", "<=": "(< %s (+ %s 1))",
            ">=": "(> (+ %s 1) %s)"}


def restated(rng, rel, a, b):
    """(rel a b) in other words that normalise to the same atom (over Int: rounded)."""
    shapes = ["(%s %s %s)" % (FLIP[rel], b, a), "(%s (- %s %s) 0)" % (rel, a, b),
              "(%s (* (- 2) %s) (* (- 2) %s))" % (FLIP[rel], a, b),
              "(%s (* 3 %s) (* 3 %s))" % (rel, a, b)]
    if INT[0] and rel in ONE_MORE:
        shapes.append(ONE_MORE[rel] % (a, b))
    return rng.choice(shapes)


def restated_pair(rng, vs, constant=False):
    """An atom beside its restatement or its negation's: constant (always when `constant`), or
    the atom, once both are normalised ((=> (< y 1) (> 1 y)) is true)."""
    a, b = rng.choice(vs), term(rng, vs, 1)
    rel = rng.choice(list(FLIP))
    atom, same, other = "(%s %s %s)" % (rel, a, b), restated(rng, rel, a, b), \
        restated(rng, NEGATED[rel], a, b)
    if rng.random() < 0.6:
        shapes = ["(=> %s %s)", "(or %s (not %s))", "(and %s (not %s))", "(xor %s %s)", "(= %s %s)"]
        return rng.choice(shapes + ["(or %s %s)", "(and %s %s)"] * (not constant)) % (atom, same)
    return rng.choice(["(or %s %s)", "(and %s %s)", "(xor %s %s)", "(= %s %s)"]) % (atom, other)


def equal(a, b, shape):
    return "(and (<= %s %s) (>= %s %s))" % (a, b, a, b) if SPLIT[0] else shape % (a, b)


def formula(rng, vs, depth):
    r = rng.random()
    if 0.27 <= r < 0.35:  # an equality the reader folds into the ites' conditions
        a, k = pc_term(rng, vs, 3), rng.choice(["0", "1", "4", "(* 2 x)"])
        return equal(a, k, rng.choice(["(= %s %s)", "(= (- %s) (- %s))"]))
    if depth <= 0 or r < 0.35:
        a, b = term(rng, vs, depth - 1), term(rng, vs, depth - 1)
        return rng.choice(["(< %s %s)", "(<= %s %s)", "(> %s %s)", "(>= %s %s)", "(= %s %s)",
                           "(distinct %s %s)"]) % (a, b)
    if r < 0.4:
        return rng.choice(["true", "false", "p", "q"])
    if r < 0.46:
        return restated_pair(rng, vs)
    f, g = formula(rng, vs, depth - 1), formula(rng, vs, depth - 1)
    return rng.choice([
        "(and %s %s)" % (f, g), "(or %s %s)" % (f, g), "(xor %s %s)" % (f, g),
        "(=> %s %s)" % (f, g), "(not %s)" % f, "(= %s %s)" % (f, g),
        "(ite %s %s %s)" % (formula(rng, vs, depth - 1), f, g), "(or %s (not %s))" % (f, f),
        "(xor %s %s)" % (f, f), "(and %s %s)" % (f, f)])


def script(seed, split=False):
    rng, SPLIT[0] = random.Random(seed), split
    sort = "Int" if seed % 3 == 0 else "Real"
    INT[0] = sort == "Int"
    vs = ["x", "y"]
    lines = ["(set-logic QF_%sA)" % ("LI" if sort == "Int" else "LR")]
    lines += ["(declare-const %s %s)" % (v, sort) for v in vs]
    lines += ["(declare-const p Bool)", "(declare-const q Bool)", "(declare-const z %s)" % sort]
    # z stands for its term ite from here on in the folded reading
    k = rng.choice(["0", "1", "5"])
    defined = pc_term(rng, vs, 3) if rng.random() < 0.6 else "(ite %s %s (+ x %s))" % (
        restated_pair(rng, vs, constant=True), k, pc_term(rng, vs, 1))
    lines.append("(assert %s)" % equal("z", defined, "(= %s %s)"))
    probe = "(+ x" in defined and rng.random() < 0.5  # z as the branch of a constant condition
    if probe:
        lines.append("(assert (distinct (+ z y) (+ %s y)))" % k)
    vs = vs + ["z"]
    for _ in range(rng.randint(0, 2) if probe else rng.randint(2, 5)):
        lines.append("(assert %s)" % formula(rng, vs, rng.randint(2, 4)))
    lines += ["(check-sat)", "(get-model)"]
    return "\n".join(lines) + "\n"


def main():
    vorn, seeds = sys.argv[1], int(sys.argv[2]) if len(sys.argv) > 2 else 200
    z3, tmp, failed = shutil.which("z3"), tempfile.mkdtemp(), 0
    for seed in range(seeds):
        path = os.path.join(tmp, "case%d.smt2" % seed)
        with open(path, "w") as f:
            f.write(script(seed))
        out = subprocess.run([vorn, "check", "--verify", "--certificate", path],
                             capture_output=True, text=True, timeout=60)
        answer = out.stdout.split("\n", 1)[0]
        problem = None
        if out.returncode != 0 or answer not in ("sat", "unsat"):
            problem = "vorn answered %r (exit %d): %s" % (answer, out.returncode, out.stderr)
        else:
            result = os.path.join(tmp, "case%d.out" % seed)
            with open(result, "w") as f:
                f.write(out.stdout)
            check = subprocess.run([sys.executable, CHECKER, "--input", path, result],
                                   capture_output=True, text=True)
            twin = os.path.join(tmp, "twin%d.smt2" % seed)
            with open(twin, "w") as f:
                f.write(script(seed, split=True))
            unfolded = subprocess.run([vorn, "check", twin], capture_output=True, text=True,
                                      timeout=60).stdout.split("\n", 1)[0]
            if check.returncode != 0:
                problem = "the checker rejects: " + check.stdout + check.stderr
            elif unfolded != answer:
                problem = "the unfolded twin answers %r" % unfolded
            elif z3:
                peer = subprocess.run([z3, path], capture_output=True, text=True, timeout=60)
                if peer.stdout.split("\n", 1)[0] != answer:
                    problem = "z3 answers %r" % peer.stdout.split("\n", 1)[0]
        if problem:
            failed += 1
            print("seed %d: %s\n%s" % (seed, problem, script(seed)))
    print("%d passed, %d failed" % (seeds - failed, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
