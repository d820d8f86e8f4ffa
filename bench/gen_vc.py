#!/usr/bin/env python3
"""Writes verification-condition-like SMT-LIB 2 scripts: a bounded unrolling of a small random
program (a control-flow graph over a program counter and a few Int or Real variables), with
the error location's reachability as the property, as software model checkers emit them.

usage: gen_vc.py [--locations L] [--vars V] [--steps K] [--seed S] [--sort Int|Real]
                 [-o OUT.smt2]

Location l has a guard (a linear comparison of the variables), a successor and an update for
each outcome (x := x + c, x := y + c or x := c). Each step t declares pc_t (of the variables'
sort) and the variables at t and defines them by nested ites over pc_{t-1} = l, the shape
verification conditions have after the program counter is made explicit; assertions at every
step are implications (pc_t = l => invariant candidate), and the last one says that the error
location is reached within K steps. The status is unknown: name the file by z3's answer to have
bench/smt_bench.py check it. Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(locations, vars_, steps, seed, sort):
    rng = random.Random(seed)
    real = sort == "Real"

    def num(c):
        s = f"{abs(c)}.0" if real else str(abs(c))
        return s if c >= 0 else f"(- {s})"

    def half(c):  # Real constants with halves, so that rational bounds occur
        return f"(/ {num(c)} 2.0)" if real and rng.random() < 0.3 else num(c)

    err = locations - 1
    xs = [f"x{i}" for i in range(vars_)]
    prog = []
    for loc in range(err):
        a, b = rng.sample(xs, 2) if vars_ > 1 else (xs[0], xs[0])
        rel = rng.choice(["<", "<=", ">=", ">", "="])
        guard = (rel, a, b, rng.randint(-3, 3))
        outs = []
        for _ in range(2):
            nxt = rng.randrange(locations) if rng.random() < 0.3 else (loc + rng.choice([1, 2])) % locations
            var = rng.choice(xs)
            kind = rng.random()
            if kind < 0.6:
                upd = ("inc", var, rng.choice([-2, -1, 1, 1, 2, 3]))
            elif kind < 0.85:
                upd = ("copy", var, rng.choice(xs), rng.randint(-2, 2))
            else:
                upd = ("set", var, rng.randint(-5, 5))
            outs.append((nxt, upd))
        prog.append((guard, outs))

    lines = [f"(set-logic QF_{'LRA' if real else 'LIA'})"]
    for t in range(steps + 1):
        lines.append(f"(declare-fun pc_{t} () {sort})")
        for x in xs:
            lines.append(f"(declare-fun {x}_{t} () {sort})")
    lines.append(f"(assert (= pc_0 {num(0)}))")
    for x in xs:
        lines.append(f"(assert (and (<= {num(0)} {x}_0) (<= {x}_0 {num(10)})))")

    def guard_of(loc, t):
        rel, a, b, c = prog[loc][0]
        return f"({rel} {a}_{t} (+ {b}_{t} {half(c)}))"

    def value_after(x, upd, t):
        if upd[1] != x:
            return f"{x}_{t}"
        if upd[0] == "inc":
            return f"(+ {x}_{t} {half(upd[2])})"
        if upd[0] == "copy":
            return f"(+ {upd[2]}_{t} {num(upd[3])})"
        return half(upd[2])

    for t in range(steps):
        pc_next = "pc_" + str(t)  # the error location stays
        for loc in reversed(range(err)):
            (_, outs) = prog[loc]
            pc_next = (f"(ite (= pc_{t} {num(loc)}) (ite {guard_of(loc, t)} {num(outs[0][0])} "
                       f"{num(outs[1][0])}) {pc_next})")
        lines.append(f"(assert (= pc_{t + 1} {pc_next}))")
        for x in xs:
            e = f"{x}_{t}"
            for loc in reversed(range(err)):
                (_, outs) = prog[loc]
                e = (f"(ite (= pc_{t} {num(loc)}) (ite {guard_of(loc, t)} "
                     f"{value_after(x, outs[0][1], t)} {value_after(x, outs[1][1], t)}) {e})")
            lines.append(f"(assert (= {x}_{t + 1} {e}))")
        # Invariant candidates at some locations: implications the search must respect.
        for loc in rng.sample(range(err), min(2, err)):
            a, b = rng.choice(xs), rng.choice(xs)
            lines.append(f"(assert (=> (= pc_{t + 1} {num(loc)}) (<= {a}_{t + 1} "
                         f"(+ {b}_{t + 1} {num(rng.randint(4, 12))}))))")
    reach = " ".join(f"(= pc_{t} {num(err)})" for t in range(1, steps + 1))
    lines.append(f"(assert (or {reach}))")
    lines.append("(check-sat)")
    lines.append("(exit)")
    return "\n".join(lines) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--locations", type=int, default=10)
    ap.add_argument("--vars", type=int, default=3)
    ap.add_argument("--steps", type=int, default=12)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--sort", choices=["Int", "Real"], default="Int")
    ap.add_argument("-o", "--output")
    a = ap.parse_args()
    text = generate(a.locations, a.vars, a.steps, a.seed, a.sort)
    write_script(text, a.output)


if __name__ == "__main__":
    main()
