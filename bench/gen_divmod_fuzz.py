#!/usr/bin/env python3
"""Writes fuzzer-like QF_LIA scripts over div, mod and abs by constants: nested (div (mod t k) j),
negative divisors, (* k (div t k)), abs in sums, ite over comparisons of them, as fuzzers of
integer solvers print them, with get-value on the integer operations.

usage: gen_divmod_fuzz.py [--vars V] [--asserts K] [--seed S] [-o OUT.smt2]

Terms are sums of up to three variables or earlier terms with small coefficients, and div, mod
and abs over them by constants in ±1..±9 (never 0); each of the K assertions compares two of
them, or is a disjunction or ite of such comparisons. The variables are bounded within ±60 so
that most scripts are decided quickly either way. The status is unknown: compare the answers
of the solvers with each other. Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(vars_, asserts, seed):
    rng = random.Random(seed)

    def num(c):
        return str(c) if c >= 0 else f"(- {-c})"

    terms = [f"x{i}" for i in range(vars_)]

    def term():
        kind = rng.random()
        t = lambda: rng.choice(terms)
        k = rng.choice([-9, -7, -4, -3, -2, -1, 1, 2, 3, 4, 5, 6, 7, 8, 9])
        if kind < 0.25:
            e = f"(div {t()} {num(k)})"
        elif kind < 0.5:
            e = f"(mod {t()} {num(k)})"
        elif kind < 0.6:
            e = f"(abs {t()})"
        elif kind < 0.7:
            e = f"(* {num(k)} (div {t()} {num(k)}))"
        elif kind < 0.8:
            e = f"(div (mod {t()} {num(k)}) {num(rng.choice([2, 3, -2]))})"
        else:
            e = "(+ " + " ".join(f"(* {num(rng.randint(-4, 4))} {t()})" for _ in range(3)) + ")"
        terms.append(e)
        return e

    def compare():
        rel = rng.choice(["<", "<=", "=", ">=", ">", "distinct"])
        return f"({rel} {term()} {rng.choice([term(), num(rng.randint(-20, 20))])})"

    def formula():
        kind = rng.random()
        if kind < 0.5:
            return compare()
        if kind < 0.75:
            return f"(or {compare()} {compare()} {compare()})"
        if kind < 0.9:
            return f"(ite {compare()} {compare()} {compare()})"
        return f"(not (and {compare()} {compare()}))"

    out = ["(set-logic QF_LIA)", "(set-option :produce-models true)"]
    out += [f"(declare-fun x{i} () Int)" for i in range(vars_)]
    out += [f"(assert (and (<= (- 60) x{i}) (<= x{i} 60)))" for i in range(vars_)]
    out += [f"(assert {formula()})" for _ in range(asserts)]
    out.append("(check-sat)")
    return "\n".join(out) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--vars", type=int, default=4)
    p.add_argument("--asserts", type=int, default=8)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("-o", "--output")
    a = p.parse_args()
    write_script(generate(a.vars, a.asserts, a.seed), a.output)


if __name__ == "__main__":
    main()
