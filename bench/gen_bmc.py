#!/usr/bin/env python3
"""Writes bounded-model-checking SMT-LIB 2 scripts: K steps of a small random linear transition
system, and whether a safety property fails within them.

usage: gen_bmc.py [--vars V] [--modes M] [--steps K] [--seed S] [--sort Int|Real]
                  [--bound C] [-o OUT.smt2]

State x0..x{V-1} (of the sort given); the first half of the variables move by modes, the rest
by guarded updates. A mode has a guard (a linear comparison over two or three variables) and
an affine update of the moded variables (x := x + c, x := x ± y + c); each step takes one
enabled mode or leaves them as they are, an `or` of the modes' conjunctions. A guarded
variable's next value is an `ite` over its own guard, x + a or x − b, or x plus an input u_t in
[0, 2] for the first of them. Every state stays in the box [-B, B] (an environment assumption,
B = 8 · K), and the initial state is in [0, 3]. The property is Σ w·x <= C (small weights of
both signs); the last assertion says that it fails at some step 0..K. The answer depends on C:
near the largest value reachable in K steps, one bound is sat and the next unsat. The same
--seed gives the same system for either sort (Real constants may be halves). Without -o the
script goes to stdout; name the file by z3's answer, as bench/smt_bench.py reads it.
"""
import argparse
import random

from script_output import write_script


def generate(vars_, modes, steps, seed, sort, bound):
    rng = random.Random(seed)
    real = sort == "Real"

    def num(c):
        s = f"{abs(c)}.0" if real else str(abs(c))
        return s if c >= 0 else f"(- {s})"

    def const(c):  # Real constants with halves, so that rational bounds occur
        return f"(/ {num(2 * c + 1)} 2.0)" if real and rng.random() < 0.3 else num(c)

    xs = [f"x{i}" for i in range(vars_)]
    moded, guarded = xs[: (vars_ + 1) // 2], xs[(vars_ + 1) // 2:]

    def comparison():
        a, b = rng.sample(xs, 2)
        terms = [(1, a), (rng.choice([-2, -1, 2]), b)]
        if vars_ > 2 and rng.random() < 0.5:
            terms.append((1, rng.choice([x for x in xs if x not in (a, b)])))
        return rng.choice(["<=", ">=", "<"]), terms, rng.randint(-6, 6)

    def update(x):
        kind = rng.random()
        if kind < 0.5:
            return (x, None, 0, rng.choice([-2, -1, 1, 2, 3]))
        return (x, rng.choice([y for y in xs if y != x]), rng.choice([1, -1]), rng.randint(-2, 2))

    mode_list = [(comparison(), [update(x) for x in moded]) for _ in range(modes)]
    ite_list = [(x, comparison(), rng.randint(1, 3), rng.randint(1, 3)) for x in guarded]
    weights = {x: rng.choice([1, 1, 2, -1]) for x in rng.sample(xs, min(3, vars_))}

    lines = [f"(set-logic QF_{'LRA' if real else 'LIA'})"]
    box = 8 * steps
    for t in range(steps + 1):
        for x in xs:
            lines.append(f"(declare-fun {x}_{t} () {sort})")
        if t < steps and guarded:
            lines.append(f"(declare-fun u_{t} () {sort})")

    def at(comp, t):
        rel, terms, c = comp
        body = " ".join(f"{v}_{t}" if k == 1 else f"(* {num(k)} {v}_{t})" for k, v in terms)
        return f"({rel} (+ {body}) {num(c)})"

    def affine(u, t):
        x, y, sign, c = u
        if y is None:
            return f"(+ {x}_{t} {const(c)})"
        return f"({'+' if sign > 0 else '-'} {x}_{t} {y}_{t} {const(c)})"

    for x in xs:
        lines.append(f"(assert (and (<= {num(0)} {x}_0) (<= {x}_0 {num(3)})))")
    for t in range(steps):
        choices = []
        for guard, updates in mode_list:
            eqs = " ".join(f"(= {u[0]}_{t + 1} {affine(u, t)})" for u in updates)
            choices.append(f"(and {at(guard, t)} {eqs})")
        stay = " ".join(f"(= {x}_{t + 1} {x}_{t})" for x in moded)  # a step may stutter
        lines.append(f"(assert (or {' '.join(choices)} (and {stay})))")
        for i, (x, guard, a, b) in enumerate(ite_list):
            step = f"(+ {x}_{t} u_{t})" if i == 0 else f"(+ {x}_{t} {const(a)})"
            lines.append(f"(assert (= {x}_{t + 1} (ite {at(guard, t)} {step} (- {x}_{t} {const(b)}))))")
        if guarded:
            lines.append(f"(assert (and (<= {num(0)} u_{t}) (<= u_{t} {num(2)})))")
        for x in xs:
            lines.append(f"(assert (and (<= {num(-box)} {x}_{t + 1}) (<= {x}_{t + 1} {num(box)})))")
    prop = lambda t: " ".join(f"(* {num(w)} {x}_{t})" for x, w in weights.items())
    fails = " ".join(f"(> (+ {prop(t)}) {num(bound)})" for t in range(steps + 1))
    lines.append(f"(assert (or {fails}))")
    lines.append("(check-sat)")
    lines.append("(exit)")
    return "\n".join(lines) + "\n"


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--vars", type=int, default=4)
    ap.add_argument("--modes", type=int, default=3)
    ap.add_argument("--steps", type=int, default=10)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--sort", choices=["Int", "Real"], default="Int")
    ap.add_argument("--bound", type=int, default=20)
    ap.add_argument("-o", "--output")
    a = ap.parse_args()
    write_script(generate(a.vars, a.modes, a.steps, a.seed, a.sort, a.bound), a.output)


if __name__ == "__main__":
    main()
