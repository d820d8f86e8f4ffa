#!/usr/bin/env python3
"""Writes an incremental SMT-LIB script (QF_LRA): a satisfiable base, then rounds of
`(push 1)`, two new atoms, `(check-sat)`, `(pop 1)`.

Examples:
  bench/gen_incremental.py out.smt2                    # 10^3 equations over 2000 variables
  bench/gen_incremental.py --vars 60 out60.smt2        # 30 equations over 60 variables

The base is the equation system bench/gen_sparse.py writes with the same seed, equations and
variables (its asserts are identical, line for line). The generator solves it exactly to get
one point x0 of it, and builds each round's two atoms (sparse inequalities over 2-4 base
variables, coefficients in ±1..9, integer constants) of one of these kinds:

  sat      both atoms hold at x0, some tight: sat by construction;
  moved    constants drawn around x0's value, about half of them on the far side of it, so the
           solver has to leave its previous model; not known by construction (nearly always sat);
  unsat    t <= c with k*t >= k*c + j (strictness mixed so that they always conflict);
  via-base t <= c with (u - t) <= d, u a combination of one or two base equations (u = U on the
           base) and d below U - c: unsat, but only through the base.

Before each check-sat a comment `; expect sat|unsat|none` records the answer by construction
(none for moved rounds); the script starts with one check-sat of the base alone.
"""
import argparse
import math
import random
import sys
from fractions import Fraction

import gen_sparse

RELATIONS = ("<=", "<", ">=", ">")


def exact_point(rows, n, rng):
    """A rational solution of the equations, or None when they are inconsistent. Elimination
    picks the column with the fewest rows (these systems peel without fill-in); the variables
    never picked get small random integers so that x0 is not the origin."""
    eqs = [({v: Fraction(c) for c, v in terms}, Fraction(rhs)) for terms, rhs in rows]
    col = {}
    for i, (row, _) in enumerate(eqs):
        for v in row:
            col.setdefault(v, set()).add(i)
    rhs = [r for _, r in eqs]
    order = []
    while True:
        live = [(len(rs), v) for v, rs in col.items() if rs]
        if not live:
            break
        _, v = min(live)
        r = min(col[v], key=lambda i: (len(eqs[i][0]), i))
        row = eqs[r][0]
        for u in row:
            col[u].discard(r)
        for s in list(col[v]):
            other = eqs[s][0]
            f = other[v] / row[v]
            for u, c in row.items():
                value = other.get(u, 0) - f * c
                if value:
                    other[u] = value
                    col[u].add(s)
                else:
                    other.pop(u, None)
                    col[u].discard(s)
            rhs[s] -= f * rhs[r]
            if not other and rhs[s]:
                return None
        order.append((r, v))
    x = [Fraction(rng.randint(-3, 3)) for _ in range(n)]
    for r, v in reversed(order):
        row = eqs[r][0]
        x[v] = (rhs[r] - sum(c * x[u] for u, c in row.items() if u != v)) / row[v]
    for terms, b in rows:  # the point is the whole reason for this function: make sure of it
        assert sum(c * x[v] for c, v in terms) == b
    return x


def value(terms, x):
    return sum(c * x[v] for c, v in terms)


def random_term(rng, n):
    return [(rng.randint(1, 9) * rng.choice((-1, 1)), v)
            for v in rng.sample(range(n), rng.randint(2, 4))]


def merged(*scaled_terms):
    """Σ scale·term with equal variables combined and zeros dropped, in variable order."""
    acc = {}
    for scale, terms in scaled_terms:
        for c, v in terms:
            acc[v] = acc.get(v, 0) + scale * c
    return [(c, v) for v, c in sorted(acc.items()) if c]


def holding(rng, terms, x, slack):
    """An atom over TERMS that holds at x, `slack` away from tight (0: tight when it can be)."""
    t0 = value(terms, x)
    rel = rng.choice(RELATIONS)
    if rel == "<=":
        return terms, rel, math.ceil(t0) + slack
    if rel == ">=":
        return terms, rel, math.floor(t0) - slack
    if rel == "<":
        return terms, rel, math.floor(t0) + 1 + slack
    return terms, rel, math.ceil(t0) - 1 - slack


def negated(atom):
    """The same atom written the other way round: t <= c as -t >= -c."""
    terms, rel, c = atom
    flip = {"<=": ">=", "<": ">", ">=": "<=", ">": "<"}
    return [(-k, v) for k, v in terms], flip[rel], -c


def round_atoms(rng, kind, n, base, x):
    """The two atoms of one round of KIND and the answer they have by construction."""
    if kind == "sat":
        return [holding(rng, random_term(rng, n), x, rng.choice((0, 0, 1, 3))) for _ in "ab"], "sat"
    if kind == "moved":
        atoms = []
        for _ in "ab":
            terms, rel, c = holding(rng, random_term(rng, n), x, 0)
            away = rng.randint(1, 12)
            atoms.append((terms, rel, c - away if rel in ("<=", "<") else c + away)
                         if rng.random() < 0.5 else (terms, rel, c))
        return atoms, "none"
    t = random_term(rng, n)
    c = math.floor(value(t, x)) + rng.randint(-3, 3)
    strict1 = rng.random() < 0.5
    if kind == "unsat":
        k, j = rng.randint(1, 3), rng.choice((0, 1, 2))
        strict2 = (j == 0 and not strict1) or rng.random() < 0.5
        second = ([(k * a, v) for a, v in t], ">" if strict2 else ">=", k * c + j)
    else:  # via-base
        while True:
            picked = rng.sample(range(len(base)), rng.choice((1, 2)))
            lam = [rng.randint(1, 3) * rng.choice((-1, 1)) for _ in picked]
            u = merged(*((l, base[i][0]) for l, i in zip(lam, picked)), (-1, t))
            if len(u) >= 2:
                break
        U = sum(l * base[i][1] for l, i in zip(lam, picked))
        j = rng.choice((0, 1, 2))
        strict2 = (j == 0 and not strict1) or rng.random() < 0.5
        second = (u, "<" if strict2 else "<=", U - c - j)
    atoms = [(t, "<" if strict1 else "<=", c), second]
    if rng.random() < 0.5:
        atoms = [negated(a) for a in atoms]
    rng.shuffle(atoms)
    return atoms, "unsat"


def smt_atom(atom):
    terms, rel, c = atom
    return f"({rel} {gen_sparse.smt_sum(terms)} {gen_sparse.smt_number(c)})"


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("output")
    p.add_argument("--constraints", type=int, default=None,
                   help="base equations (default 1000, or half of --vars)")
    p.add_argument("--vars", type=int, default=None,
                   help="base variables (default twice the constraints, as gen_sparse.py)")
    p.add_argument("--rounds", type=int, default=1000)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--unsat-share", type=float, default=0.4,
                   help="share of unsat rounds (half direct, half through the base)")
    a = p.parse_args()
    m = a.constraints if a.constraints is not None else (a.vars // 2 if a.vars else 1000)
    n = a.vars or 2 * m
    if m < 1 or n < 4:
        sys.exit("gen_incremental.py: need at least one equation and four variables")
    # The base uses gen_sparse.py's stream unchanged; rounds and x0 draw from their own streams,
    # so the base does not depend on the number of rounds.
    stream = random.Random(a.seed)
    side = random.Random(a.seed * 1000003 + 7)
    for attempt in range(100):
        base = list(gen_sparse.equations(stream, m, n))
        x = exact_point(base, n, side)
        if x is not None:
            break
    else:
        sys.exit("gen_incremental.py: no consistent base drawn; try another seed")
    rng = random.Random(a.seed * 1000003 + 11)
    kinds = ("unsat", "via-base", "moved", "sat")
    weights = (a.unsat_share / 2, a.unsat_share / 2, (1 - a.unsat_share) / 3,
               2 * (1 - a.unsat_share) / 3)
    with open(a.output, "w") as out:
        out.write(f"; gen_incremental.py --constraints {m} --vars {n} --rounds {a.rounds} "
                  f"--seed {a.seed}{f' (base drawn {attempt + 1} times)' if attempt else ''}\n")
        out.write("(set-logic QF_LRA)\n")
        out.writelines(f"(declare-const v{i} Real)\n" for i in range(n))
        for terms, rhs in base:
            out.write(f"(assert (= {gen_sparse.smt_sum(terms)} {gen_sparse.smt_number(rhs)}))\n")
        out.write("; expect sat\n(check-sat)\n")
        for r in range(a.rounds):
            kind = rng.choices(kinds, weights)[0]
            atoms, expected = round_atoms(rng, kind, n, base, x)
            out.write(f"; round {r + 1}: {kind}\n(push 1)\n")
            out.writelines(f"(assert {smt_atom(atom)})\n" for atom in atoms)
            out.write(f"; expect {expected}\n(check-sat)\n(pop 1)\n")
        out.write("(exit)\n")


if __name__ == "__main__":
    main()
