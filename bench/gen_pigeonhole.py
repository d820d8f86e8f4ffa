#!/usr/bin/env python3
"""Writes pigeonhole scripts: a `distinct` of n Int terms whose bounds leave too few values
(unsat) or just enough (sat), the shape behind bench/data/distinct. Pairwise disequalities make
these exponential for resolution; a solver needs all-different reasoning (Hall intervals).

usage: gen_pigeonhole.py [--shape hole|perm|offset|mixed|or] [--n N] [--seed S] [-o OUT.smt2]

hole:   x0..x{n-1} distinct in 0..n-2 (unsat).
perm:   x0..x{n-1} distinct in 0..n-1 (sat: a permutation).
offset: terms xi + ci, ci in -3..3, each xi bounded so that xi + ci lies in 0..n-3 but for
        one term, free in 0..2n: the others are overfull (unsat).
mixed:  hole with an order chain x0 < x1 and a disjunction per pair of neighbours (unsat).
or:     (or (distinct ...) (> y n)) with y <= n, so the distinct holds under a disjunction
        (unsat).
The same --seed gives the same offsets. Without -o the script goes to stdout; name the file by
z3's answer, as bench/smt_bench.py reads it.
"""
import argparse
import random

from script_output import write_script


def generate(shape, n, seed):
    rng = random.Random(seed)
    hi = n - 1 if shape == "perm" else n - 2
    offsets = [rng.randint(-3, 3) if shape == "offset" else 0 for _ in range(n)]
    xs = [f"x{i}" for i in range(n)]
    lit = lambda c: str(c) if c >= 0 else f"(- {-c})"
    term = lambda i: xs[i] if offsets[i] == 0 else f"(+ {xs[i]} {lit(offsets[i])})"
    lines = ["(set-info :source |pigeonhole: gen_pigeonhole.py --shape %s --n %d --seed %d|)"
             % (shape, n, seed),
             "(set-logic %s)" % ("QF_LIA" if shape in ("offset", "or") else "QF_IDL")]
    lines += [f"(declare-fun {x} () Int)" for x in xs]
    if shape == "or":
        lines.append("(declare-fun y () Int)")
    distinct = "(distinct %s)" % " ".join(term(i) for i in range(n))
    lines.append(f"(assert (or {distinct} (> y {n})))" if shape == "or" else
                 f"(assert {distinct})")
    if shape == "or":
        lines.append(f"(assert (<= y {n}))")
    wide = rng.randrange(n) if shape == "offset" else -1
    for i, x in enumerate(xs):
        lo, up = -offsets[i], hi - offsets[i] - (shape == "offset")
        if i == wide:
            up = 2 * n - offsets[i]
        lines.append(f"(assert (and (<= {lit(lo)} {x}) (<= {x} {lit(up)})))")
    if shape == "mixed":
        lines.append("(assert (< x0 x1))")
        for i in range(1, n - 1):
            lines.append(f"(assert (or (<= (- x{i} x{i + 1}) 2) (>= x{i + 1} x0)))")
    lines.append("(check-sat)")
    return "\n".join(lines) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--shape", default="hole", choices=["hole", "perm", "offset", "mixed", "or"])
    ap.add_argument("--n", type=int, default=10)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("-o", "--output")
    a = ap.parse_args()
    write_script(generate(a.shape, a.n, a.seed), a.output)


if __name__ == "__main__":
    main()
