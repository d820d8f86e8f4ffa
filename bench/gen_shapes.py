#!/usr/bin/env python3
"""Writes regression-style SMT-LIB scripts of shapes the other generators leave out (issue 35).

usage: gen_shapes.py --shape SHAPE [--size N] [--seed S] [--sort Int|Real] [-o OUT.smt2]

Shapes (N scales each; the status is unknown: compare the solvers' answers):
  sched     QF_IDL/QF_RDL: N jobs on machines, either-or disjunctions per machine pair,
            precedences, strict bounds on gaps (Real) and a deadline near the lower bound
  dioph     QF_LIA: equalities with coefficients up to 10^6 over unbounded Int variables,
            half of them with a planted solution; needs Hermite-style reasoning or cuts
  mixed     QF_LIRA-like (logic ALL): Real and Int variables tied by to_int, is_int, to_real,
            floor-like bounds and disjunctions
  strict    QF_LRA: many strict inequalities and equalities with rational coefficients,
            a planted interior point (sat) or a closing strict bound (often unsat)
  incr      QF_LIA/QF_LRA: a base problem, then N rounds of push, a few bounds, check-sat,
            get-value, pop; check-sat-assuming with named literals at the end
  card      QF_LIA: cardinality constraints as sums of (ite b 1 0): at-most/at-least over the
            rows and columns of a grid (pigeonhole-like when rows outnumber capacity)
  queens    QF_LIA: N queens as sums of (ite q 1 0) over rows, columns and diagonals, a few
            cells ruled out
  unbounded QF_LIA: thin strips a·x - b·y in [lo, hi] (a/b near a continued fraction) over
            unbounded Int variables, integer points far away or none
  knap      QF_LIA: knapsack equalities sum c_i·x_i = r + M·k with small bounded x_i and
            unbounded k (like 12x + 15y + 20z = 7 + 60k), a few at once
Without -o the script goes to stdout.
"""
import argparse
import random
from fractions import Fraction

from script_output import write_script


def num(c, real):
    """An SMT-LIB constant: Fraction or int c, as the sort wants it."""
    c = Fraction(c)
    if not real:
        assert c.denominator == 1
        return str(c.numerator) if c >= 0 else f"(- {-c.numerator})"
    text = f"{abs(c.numerator)}.0" if c.denominator == 1 else \
        f"(/ {abs(c.numerator)} {c.denominator})"
    return text if c >= 0 else f"(- {text})"


def linear(terms, real):
    """(+ (* c x) ...) from [(c, name)]; coefficient 1 written bare."""
    parts = [x if c == 1 else f"(* {num(c, real)} {x})" for c, x in terms if c != 0]
    if not parts:
        return num(0, real)
    return parts[0] if len(parts) == 1 else "(+ " + " ".join(parts) + ")"


def sched(n, rng, sort):
    real = sort == "Real"
    machines = max(2, n // 4)
    dur = [rng.randint(1, 9) for _ in range(n)]
    mach = [rng.randrange(machines) for _ in range(n)]
    load = [sum(d for d, m in zip(dur, mach) if m == k) for k in range(machines)]
    deadline = max(load) + rng.randint(0, 3)
    out = [f"(set-logic QF_{'RDL' if real else 'IDL'})"]
    out += [f"(declare-fun s{i} () {sort})" for i in range(n)]
    for i in range(n):
        out.append(f"(assert (>= s{i} {num(0, real)}))")
        rel = "<" if real and rng.random() < 0.5 else "<="
        slack = 1 if rel == "<" else 0
        out.append(f"(assert ({rel} s{i} {num(deadline - dur[i] + slack, real)}))")
    for i in range(n):
        for j in range(i + 1, n):
            if mach[i] == mach[j]:
                out.append(f"(assert (or (<= (- s{i} s{j}) {num(-dur[i], real)}) "
                           f"(<= (- s{j} s{i}) {num(-dur[j], real)})))")
    for _ in range(n // 3):
        i, j = rng.sample(range(n), 2)
        if real and rng.random() < 0.5:
            out.append(f"(assert (< (- s{i} s{j}) {num(Fraction(-dur[i]) + Fraction(1, 2), real)}))")
        else:
            out.append(f"(assert (<= (+ s{i} {num(dur[i], real)}) s{j}))")
    for _ in range(n // 4):
        i, j = rng.sample(range(n), 2)
        out.append(f"(assert (or (distinct s{i} s{j}) (= (- s{i} s{j}) {num(0, real)})))")
    out.append("(check-sat)")
    return out


def dioph(n, rng, sort):
    vars_ = max(3, n)
    rows = max(2, vars_ - rng.randint(1, 2))
    planted = rng.random() < 0.5
    sol = [rng.randint(-10**4, 10**4) for _ in range(vars_)]
    out = ["(set-logic QF_LIA)"] + [f"(declare-fun x{i} () Int)" for i in range(vars_)]
    for _ in range(rows):
        coef = [rng.randint(-10**6, 10**6) if rng.random() < 0.7 else 0 for _ in range(vars_)]
        g = rng.choice([1, 1, 2, 3, 7])
        coef = [c * g for c in coef]
        rhs = sum(c * s for c, s in zip(coef, sol))
        if not planted:
            rhs += rng.randint(1, 5)
        out.append(f"(assert (= {linear(list(zip(coef, [f'x{i}' for i in range(vars_)])), False)} "
                   f"{num(rhs, False)}))")
    if rng.random() < 0.5:
        i = rng.randrange(vars_)
        out.append(f"(assert (>= x{i} {num(sol[i] - rng.randint(0, 3), False)}))")
    out.append("(check-sat)")
    if planted:
        out.append("(get-value (x0 x1))")
    return out


def mixed(n, rng, sort):
    out = ["(set-logic ALL)"]
    out += [f"(declare-fun r{i} () Real)" for i in range(n)]
    out += [f"(declare-fun i{i} () Int)" for i in range(n)]
    for k in range(n):
        r, i = f"r{k}", f"i{rng.randrange(n)}"
        q = Fraction(rng.randint(1, 9), rng.randint(1, 4))
        kind = rng.randrange(6)
        if kind == 0:
            out.append(f"(assert (= (to_int {r}) {i}))")
        elif kind == 1:
            out.append(f"(assert (is_int (* {num(q, True)} {r})))")
        elif kind == 2:
            out.append(f"(assert (< (to_real {i}) {r} (+ (to_real {i}) {num(Fraction(1, 2), True)})))")
        elif kind == 3:
            out.append(f"(assert (or (not (is_int {r})) (> {r} {num(q, True)})))")
        elif kind == 4:
            j = f"i{rng.randrange(n)}"
            out.append(f"(assert (= (+ {r} (to_real {j})) {num(q, True)}))")
        else:
            out.append(f"(assert (>= (to_int (* {num(q, True)} {r})) "
                       f"(+ {i} {num(rng.randint(-3, 3), False)})))")
    for k in range(n):
        out.append(f"(assert (<= {num(-20, True)} r{k} {num(20, True)}))")
        out.append(f"(assert (<= (- 20) i{k} 20))")
    for _ in range(n // 2):
        a, b = rng.sample(range(n), 2)
        out.append(f"(assert (or (= (to_int r{a}) (to_int r{b})) (< r{a} (- r{b} 1.5))))")
    out.append("(check-sat)")
    return out


def strict(n, rng, sort):
    vars_ = n
    point = [Fraction(rng.randint(-30, 30), rng.randint(1, 5)) for _ in range(vars_)]
    out = ["(set-logic QF_LRA)"] + [f"(declare-fun x{i} () Real)" for i in range(vars_)]
    names = [f"x{i}" for i in range(vars_)]
    for _ in range(2 * n):
        idx = rng.sample(range(vars_), min(vars_, rng.randint(2, 4)))
        coef = [Fraction(rng.randint(-9, 9), rng.randint(1, 3)) for _ in idx]
        value = sum(c * point[i] for c, i in zip(coef, idx))
        terms = list(zip(coef, [names[i] for i in idx]))
        kind = rng.random()
        if kind < 0.2:
            out.append(f"(assert (= {linear(terms, True)} {num(value, True)}))")
        elif kind < 0.8:
            # strict, tight at the planted point's value plus a hair: open sets
            bound = value + Fraction(rng.randint(0, 2), rng.randint(1, 7))
            out.append(f"(assert (< {linear(terms, True)} {num(bound, True)}))")
        else:
            bound = value - Fraction(rng.randint(0, 2), rng.randint(1, 7))
            out.append(f"(assert (or (> {linear(terms, True)} {num(bound, True)}) "
                       f"(< {names[idx[0]]} {num(point[idx[0]], True)})))")
    out.append("(check-sat)")
    return out


def incr(n, rng, sort):
    real = sort == "Real"
    vars_ = 6
    out = [f"(set-logic QF_{'LRA' if real else 'LIA'})", "(set-option :produce-unsat-cores true)"]
    out += [f"(declare-const x{i} {sort})" for i in range(vars_)]
    out += [f"(declare-fun p{i} () Bool)" for i in range(4)]
    for i in range(vars_):
        out.append(f"(assert (<= {num(-50, real)} x{i} {num(50, real)}))")
    for k in range(vars_):
        idx = rng.sample(range(vars_), 3)
        terms = [(rng.randint(-5, 5) or 1, f"x{i}") for i in idx]
        out.append(f"(assert (! (=> p{k % 4} (<= {linear(terms, real)} {num(rng.randint(-10, 20), real)})) "
                   f":named a{k}))")
    out.append(f"(define-fun s () {sort} {linear([(1, f'x{i}') for i in range(vars_)], real)})")
    for r in range(n):
        out.append("(push 1)")
        for _ in range(rng.randint(1, 3)):
            i = rng.randrange(vars_)
            rel = rng.choice(["<=", ">=", "<", ">", "="])
            out.append(f"(assert ({rel} x{i} {num(rng.randint(-30, 30), real)}))")
        if rng.random() < 0.3:
            out.append(f"(assert (= (ite p{rng.randrange(4)} x0 x1) {num(rng.randint(-5, 5), real)}))")
        out.append("(check-sat)")
        if rng.random() < 0.3:
            out.append(f"(push 1)\n(assert (>= s {num(rng.randint(0, 100), real)}))\n(check-sat)\n(pop 1)")
        out.append("(pop 1)")
    out.append("(check-sat-assuming (p0 p1 (not p2)))")
    out.append("(check-sat)")
    return out


def card(n, rng, sort):
    rows, cols = n, max(2, n - rng.randint(0, 1))
    cap = 1 if rng.random() < 0.5 else 2
    out = ["(set-logic QF_LIA)"]
    out += [f"(declare-fun b{r}_{c} () Bool)" for r in range(rows) for c in range(cols)]

    def count(cells):
        return "(+ " + " ".join(f"(ite b{r}_{c} 1 0)" for r, c in cells) + ")"

    need = rng.choice([1, 1, cap])
    for r in range(rows):
        out.append(f"(assert (>= {count([(r, c) for c in range(cols)])} {need}))")
    for c in range(cols):
        out.append(f"(assert (<= {count([(r, c) for r in range(rows)])} {cap}))")
    for _ in range(n // 2):
        r1, r2 = rng.sample(range(rows), 2)
        c = rng.randrange(cols)
        out.append(f"(assert (or (not b{r1}_{c}) (not b{r2}_{c})))")
    out.append("(check-sat)")
    return out


def queens(n, rng, sort):
    out = ["(set-logic QF_LIA)"]
    out += [f"(declare-fun q{r}_{c} () Bool)" for r in range(n) for c in range(n)]

    def count(cells):
        return "(+ " + " ".join(f"(ite q{r}_{c} 1 0)" for r, c in cells) + ")"

    for k in range(n):
        out.append(f"(assert (= {count([(k, c) for c in range(n)])} 1))")
        out.append(f"(assert (= {count([(r, k) for r in range(n)])} 1))")
    for d in range(-n + 2, n - 1):
        diag = [(r, r - d) for r in range(n) if 0 <= r - d < n]
        anti = [(r, d + n - 1 - r) for r in range(n) if 0 <= d + n - 1 - r < n]
        out.append(f"(assert (<= {count(diag)} 1))")
        out.append(f"(assert (<= {count(anti)} 1))")
    for _ in range(rng.randint(0, 3)):  # a few cells ruled out: sat or not
        out.append(f"(assert (not q{rng.randrange(n)}_{rng.randrange(n)}))")
    out.append("(check-sat)")
    return out


def unbounded(n, rng, sort):
    out = ["(set-logic QF_LIA)"]
    pairs = max(1, n // 3)
    out += [f"(declare-fun x{i} () Int)" for i in range(2 * pairs)]
    for p in range(pairs):
        x, y = f"x{2 * p}", f"x{2 * p + 1}"
        b = rng.randint(10**3, 10**5)
        a = rng.randint(b + 1, 3 * b)
        width = rng.choice([0, 0, 1, 2])
        lo = rng.randint(-5, 5)
        out.append(f"(assert (<= {num(lo, False)} (- (* {a} {x}) (* {b} {y})) {num(lo + width, False)}))")
        if rng.random() < 0.5:
            out.append(f"(assert (>= {x} {rng.randint(10**4, 10**6)}))")
    if pairs > 1:
        out.append(f"(assert (= (+ x0 (* 3 x2)) (+ x1 {num(rng.randint(-3, 3), False)})))")
    out.append("(check-sat)")
    return out


def knap(n, rng, sort):
    out = ["(set-logic QF_LIA)"]
    rows = max(1, n // 4)
    per = 3 + n % 3
    m = rng.choice([60, 84, 210, 2310])
    for r in range(rows):
        out += [f"(declare-fun x{r}_{i} () Int)" for i in range(per)]
        out.append(f"(declare-fun k{r} () Int)")
    for r in range(rows):
        divisors = [d for d in range(2, m) if m % d == 0]
        coef = [rng.choice(divisors) for _ in range(per)]
        terms = [(c, f"x{r}_{i}") for i, c in enumerate(coef)]
        for i in range(per):
            out.append(f"(assert (<= 0 x{r}_{i} {rng.randint(3, 12)}))")
        out.append(f"(assert (= {linear(terms, False)} (+ {rng.randint(1, m - 1)} (* {m} k{r}))))")
    if rows > 1:
        out.append(f"(assert (distinct k0 k1))")
    out.append("(check-sat)")
    return out


SHAPES = {"sched": sched, "dioph": dioph, "mixed": mixed, "strict": strict, "incr": incr,
          "card": card, "queens": queens, "unbounded": unbounded, "knap": knap}


def generate(shape, size, seed, sort):
    return "\n".join(SHAPES[shape](size, random.Random(seed), sort)) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0],
                                formatter_class=argparse.RawDescriptionHelpFormatter,
                                epilog="\n".join(__doc__.splitlines()[2:]))
    p.add_argument("--shape", choices=sorted(SHAPES), required=True)
    p.add_argument("--size", type=int, default=8)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--sort", choices=["Int", "Real"], default="Int")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    write_script(generate(a.shape, a.size, a.seed, a.sort), a.output)


if __name__ == "__main__":
    main()
