#!/usr/bin/env python3
"""Writes unbounded systems of integer equalities as SMT-LIB (QF_LIA).

usage: gen_lattice.py --rows M [--seed S] [--off] [--box U] [--choices K] > FILE.smt2

M equalities over round(1.5·M) unbounded Int variables, A = U·D·A0: A0 is an M×M identity
block beside small random entries, mixed by random column additions (its columns span Z^M), D is diagonal with one entry
k in 2..5 and the rest 1, U is unimodular (random row additions). The right-hand side is A·x for
a random integer x (on the lattice: sat) or, with --off, that plus a vector of U·D·Z^M that is
not in the lattice (unsat). The scaled row is mixed with another one first, so that as a rule
no gcd test of one row refutes the off-lattice systems (with M = 1 it does). With --box U every
variable lies in [0, U] and x is drawn from that box: knapsack-style equalities. With --choices K
the system is one of K alternatives, each switched on by a Boolean (at least one is): K
right-hand sides, each that above plus A·z for a random integer z; with --off all of them lie
off the lattice, else one at random lies on it.
"""
import argparse
import random


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--rows", type=int, required=True)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--off", action="store_true")
    ap.add_argument("--box", type=int)
    ap.add_argument("--choices", type=int, default=0)
    a = ap.parse_args()
    rng = random.Random(a.seed * 7919 + a.rows)
    m, n = a.rows, round(1.5 * a.rows)
    a0 = [[(1 if i == j else 0) if j < m else rng.randint(-3, 3) for j in range(n)]
          for i in range(m)]
    # Random column additions (a unimodular V on the right) hide the identity block; the
    # columns still span Z^M.
    for _ in range(2 * n):
        c, e = rng.sample(range(n), 2)
        f = rng.choice([-2, -1, 1, 2])
        for row in a0:
            row[c] += f * row[e]
    k_row, k = rng.randrange(m), rng.randint(2, 5)
    d = [k if i == k_row else 1 for i in range(m)]
    mat = [[d[i] * v for v in a0[i]] for i in range(m)]
    # U: random row additions keep the lattice of the columns' row span unimodularly equivalent.
    shift = [0] * m
    shift[k_row] = rng.randint(1, k - 1)  # D·Z^M misses e_k·shift: off the lattice
    def add(r, s, f):
        mat[r] = [x + f * y for x, y in zip(mat[r], mat[s])]
        shift[r] += f * shift[s]

    if m > 1:  # the scaled row first, so that no row keeps the factor k to itself
        add(k_row, (k_row + 1) % m, 1)
    for _ in range(3 * m):
        r, s = rng.sample(range(m), 2) if m > 1 else (0, 0)
        if r != s:
            add(r, s, rng.choice([-2, -1, 1, 2]))
    x = [rng.randint(0, a.box) if a.box else rng.randint(-20, 20) for _ in range(n)]
    rhs = [sum(c * v for c, v in zip(row, x)) for row in mat]
    if a.choices:
        on = -1 if a.off else rng.randrange(a.choices)
        alternatives = []
        for j in range(a.choices):
            z = [rng.randint(-5, 5) for _ in range(n)]
            moved = [b + sum(c * v for c, v in zip(row, z)) for row, b in zip(mat, rhs)]
            if j != on:
                moved = [b + s for b, s in zip(moved, shift)]
            alternatives.append(moved)
    elif a.off:
        rhs = [b + s for b, s in zip(rhs, shift)]
    print("(set-logic QF_LIA)")
    print("(set-info :status %s)" % ("unsat" if a.off else "sat"))
    for j in range(n):
        print("(declare-const x%d Int)" % j)

    def num(v):
        return str(v) if v >= 0 else "(- %d)" % -v

    if a.box:
        for j in range(n):
            print("(assert (and (<= 0 x%d) (<= x%d %d)))" % (j, j, a.box))
    def equality(row, b):
        terms = " ".join("(* %s x%d)" % (num(c), j) for j, c in enumerate(row) if c != 0)
        return "(= (+ %s 0) %s)" % (terms, num(b))

    if a.choices:
        for j in range(a.choices):
            print("(declare-const s%d Bool)" % j)
        print("(assert (or %s))" % " ".join("s%d" % j for j in range(a.choices)))
        for j, alt in enumerate(alternatives):
            for row, b in zip(mat, alt):
                print("(assert (=> s%d %s))" % (j, equality(row, b)))
    else:
        for row, b in zip(mat, rhs):
            print("(assert %s)" % equality(row, b))
    print("(check-sat)")
    print("(exit)")


if __name__ == "__main__":
    main()
