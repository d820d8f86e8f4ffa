#!/usr/bin/env python3
"""Writes a random sparse system of linear equations for `vorn solve`, as .lin or .smt2.

Example: bench/gen_sparse.py --equations 100000 --variables 200000 --entries 4 out.lin
"""
import argparse
import random
import sys


def equations(rng, m, n, entries=4, max_coeff=9):
    """Yields m equations ([(coefficient, variable index)], rhs) over variables 0..n-1; other
    generators (gen_incremental.py) draw from the same stream to stay in this family."""
    for _ in range(m):
        terms = []
        for v in rng.sample(range(n), entries):
            c = rng.randint(1, max_coeff) * rng.choice((-1, 1))
            terms.append((c, v))
        yield terms, rng.randint(-max_coeff, max_coeff)


def smt_number(k):
    return str(k) if k >= 0 else f"(- {-k})"


def smt_sum(terms):
    """An SMT-LIB sum of (coefficient, variable index) pairs, always as (+ ...) as before."""
    return "(+ " + " ".join(f"(* {smt_number(c)} v{v})" for c, v in terms) + ")"


def main():
    p = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("output", help="file to write; the extension (.lin or .smt2) picks the format")
    p.add_argument("--equations", type=int, default=1000)
    p.add_argument("--variables", type=int, default=None, help="default: twice the equations")
    p.add_argument("--entries", type=int, default=4, help="variables per equation")
    p.add_argument("--max-coeff", type=int, default=9)
    p.add_argument("--seed", type=int, default=1)
    a = p.parse_args()
    n = a.variables or 2 * a.equations
    rng = random.Random(a.seed)
    smt = a.output.endswith(".smt2")
    if not smt and not a.output.endswith(".lin"):
        sys.exit("gen_sparse.py: the output must end in .lin or .smt2")
    with open(a.output, "w") as out:
        if smt:
            out.write("(set-logic QF_LRA)\n")
            out.writelines(f"(declare-const v{i} Real)\n" for i in range(n))
        for terms, rhs in equations(rng, a.equations, n, a.entries, a.max_coeff):
            if smt:
                out.write(f"(assert (= {smt_sum(terms)} {smt_number(rhs)}))\n")
            else:
                out.write(" + ".join(f"{c}*v{v}" for c, v in terms).replace("+ -", "- ") + f" = {rhs}\n")
        if smt:
            out.write("(check-sat)\n")


if __name__ == "__main__":
    main()
