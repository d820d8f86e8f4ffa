#!/usr/bin/env python3
"""Writes fuzzer-like difference-logic scripts (QF_IDL or QF_RDL): random and/or/xor/=>/ite/not
over atoms x - y <= c, (< (- x y) c), (distinct x y), (= (- x y) c) and bounds, asserted in
groups under push/pop with check-sat-assuming, as fuzzers of difference-logic solvers print them.

usage: gen_dl_fuzz.py [--vars V] [--atoms A] [--asserts K] [--seed S] [--sort Int|Real]
                      [-o OUT.smt2]

Each of the K assertions is a formula of depth up to 3 over A atoms (shared, so that the same
difference recurs with other constants and relations). Every third assertion opens a push;
the script checks after each group, pops one of them and checks again with two atoms assumed
(one negated). The status is unknown: compare the answers of the solvers with each other.
Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(vars_, atoms, asserts, seed, sort):
    rng = random.Random(seed)
    real = sort == "Real"

    def num(c):
        text = f"{abs(c)}.0" if real and rng.random() < 0.7 else str(abs(c))
        if real and rng.random() < 0.2:
            text = f"(/ {abs(c)} {rng.choice([2, 3, 4])})"
        return text if c >= 0 else f"(- {text})"

    def atom():
        x, y = rng.sample(range(vars_), 2)
        c = rng.randint(-6, 6)
        kind = rng.random()
        if kind < 0.35:
            return f"(<= (- x{x} x{y}) {num(c)})"
        if kind < 0.5:
            return f"({rng.choice(['<', '>', '>='])} (- x{x} x{y}) {num(c)})"
        if kind < 0.6:
            return f"(distinct x{x} x{y})"
        if kind < 0.7:
            return f"(= (- x{x} x{y}) {num(c)})"
        if kind < 0.8:
            return f"({rng.choice(['<=', '>='])} x{x} {num(c)})"
        if kind < 0.9:
            return f"(<= x{x} (+ x{y} {num(c)}))"
        return f"(distinct (- x{x} x{y}) {num(c)})"

    pool = [atom() for _ in range(atoms)]

    def formula(depth):
        if depth == 0 or rng.random() < 0.3:
            return rng.choice(pool)
        op = rng.choice(["and", "or", "or", "xor", "=>", "ite", "not", "="])
        if op == "not":
            return f"(not {formula(depth - 1)})"
        if op == "ite":
            return f"(ite {formula(depth - 1)} {formula(depth - 1)} {formula(depth - 1)})"
        n = 2 if op in ("xor", "=>", "=") else rng.randint(2, 4)
        return f"({op} " + " ".join(formula(depth - 1) for _ in range(n)) + ")"

    out = [f"(set-logic QF_{'RDL' if real else 'IDL'})"]
    out += [f"(declare-fun x{i} () {sort})" for i in range(vars_)]
    pushed = 0
    for k in range(asserts):
        if k % 3 == 0 and k > 0:
            out.append("(check-sat)")
            out.append("(push 1)")
            pushed += 1
        out.append(f"(assert {formula(3)})")
    out.append("(check-sat)")
    if pushed:
        out.append("(pop 1)")
        out.append("(check-sat)")
    a, b = rng.sample(pool, 2)
    out.append(f"(check-sat-assuming ({a} (not {b})))")
    return "\n".join(out) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--vars", type=int, default=6)
    p.add_argument("--atoms", type=int, default=30)
    p.add_argument("--asserts", type=int, default=12)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--sort", choices=["Int", "Real"], default="Int")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    write_script(generate(a.vars, a.atoms, a.asserts, a.seed, a.sort), a.output)


if __name__ == "__main__":
    main()
