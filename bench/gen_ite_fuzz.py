#!/usr/bin/env python3
"""Writes fuzzer-like SMT-LIB 2 scripts: a long chain of let bindings over a few variables,
term ites nested in sums and comparisons, and formulas joined by and, or, xor, => and ite, as
random-formula fuzzers print them (QF_LRA or QF_LIA).

usage: gen_ite_fuzz.py [--vars V] [--lets N] [--conjuncts K] [--seed S] [--sort Real|Int]
                       [-o OUT.smt2]

Each binding is, at random, a term (an ite over an earlier formula and two earlier terms, a sum,
a multiple by a small constant, a negation, often multiplied by 0 or over one variable twice so
that it folds) or a formula (a comparison of two earlier terms, or and/or/xor/=>/ite/not over
earlier formulas). The script asserts the conjunction of K formulas drawn from the last
bindings. The status is unknown; bench/smt_bench.py compares the solvers' answers with each
other (name the file with z3's answer to have it checked). Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(vars_, lets, conjuncts, seed, sort):
    rng = random.Random(seed)
    real = sort == "Real"
    num = lambda c: (f"{abs(c)}.0" if real else str(abs(c))) if c >= 0 else \
        f"(- {f'{abs(c)}.0' if real else abs(c)})"
    terms = [f"v{i}" for i in range(vars_)] + [num(0), num(1), num(-3)]
    formulas = ["true"]
    lines = []
    for i in range(lets):
        name = f"_let_{i}"
        if rng.random() < 0.5:
            t = lambda: rng.choice(terms[-40:] if rng.random() < 0.7 else terms)
            kind = rng.random()
            if kind < 0.45:
                e = f"(ite {rng.choice(formulas[-30:])} {t()} {t()})"
            elif kind < 0.7:
                e = f"(+ {t()} {t()})"
            elif kind < 0.8:
                e = f"(* {num(rng.randint(-3, 3))} {t()})"
            elif kind < 0.9:
                v = rng.choice(terms[:vars_])
                e = f"(+ {t()} (- {v} {v}))"
            else:
                e = f"(- {t()})"
            terms.append(name)
        else:
            f = lambda: rng.choice(formulas[-40:] if rng.random() < 0.7 else formulas)
            kind = rng.random()
            if kind < 0.4 or len(formulas) < 3:
                rel = rng.choice(["<", "<=", "=", ">=", ">", "distinct"])
                e = f"({rel} {rng.choice(terms[-40:])} {rng.choice(terms)})"
            elif kind < 0.55:
                e = f"(xor {f()} {f()})"
            elif kind < 0.7:
                e = f"(=> {f()} {f()})"
            elif kind < 0.8:
                e = f"(or {f()} {f()} {f()})"
            elif kind < 0.9:
                e = f"(ite {f()} {f()} {f()})"
            else:
                e = f"(and {f()} (not {f()}))"
            formulas.append(name)
        lines.append(f"(let (({name} {e}))")
    body = "(and " + " ".join(rng.sample(formulas[-3 * conjuncts:], conjuncts)) + ")"
    out = [f"(set-logic QF_{'LRA' if real else 'LIA'})"]
    out += [f"(declare-fun v{i} () {sort})" for i in range(vars_)]
    out.append("(assert " + " ".join(lines) + " " + body + ")" * (lets + 1))
    out.append("(check-sat)")
    return "\n".join(out) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--vars", type=int, default=2)
    p.add_argument("--lets", type=int, default=4000)
    p.add_argument("--conjuncts", type=int, default=12)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--sort", choices=["Real", "Int"], default="Real")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    text = generate(a.vars, a.lets, a.conjuncts, a.seed, a.sort)
    write_script(text, a.output)


if __name__ == "__main__":
    main()
