#!/usr/bin/env python3
"""Writes a random sparse system of linear equations for `vorn solve`, as .lin or .smt2.

Example: bench/gen_sparse.py --equations 100000 --variables 200000 --entries 4 out.lin
"""
import argparse
import random
import sys


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
        for _ in range(a.equations):
            terms = []
            for v in rng.sample(range(n), a.entries):
                c = rng.randint(1, a.max_coeff) * rng.choice((-1, 1))
                terms.append((c, v))
            rhs = rng.randint(-a.max_coeff, a.max_coeff)
            if smt:
                body = " ".join(f"(* {c} v{v})" if c > 0 else f"(* (- {-c}) v{v})" for c, v in terms)
                out.write(f"(assert (= (+ {body}) {rhs}))\n" if rhs >= 0 else f"(assert (= (+ {body}) (- {-rhs})))\n")
            else:
                out.write(" + ".join(f"{c}*v{v}" for c, v in terms).replace("+ -", "- ") + f" = {rhs}\n")
        if smt:
            out.write("(check-sat)\n")


if __name__ == "__main__":
    main()
