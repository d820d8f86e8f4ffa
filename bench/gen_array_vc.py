#!/usr/bin/env python3
"""Writes verification-condition-like QF_LIA scripts over arrays of Int variables, unrolled as a
VC generator does when it gives up on the array theory: each cell is a variable per step, a read
at a symbolic index is an ite chain over (= i k), a write copies every cell with one ite each.

usage: gen_array_vc.py [--cells N] [--steps S] [--seed S] [--bug] [-o OUT.smt2]

The program runs S steps of a bubble-sort pass (compare cell j with cell j+1 at a symbolic j
within bounds and swap them when out of order) and of a running maximum m over cells read at
symbolic indices, then asserts the negation of: m is at least every cell read, the array's sum
is unchanged, and the cells stay within the input's bounds. That VC is unsat; with --bug the
swap writes one cell wrongly (a[j] := a[j+1] + 1 on one step), which makes it sat.
Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def generate(cells, steps, seed, bug):
    rng = random.Random(seed)
    out = ["(set-info :smt-lib-version 2.6)", "(set-logic QF_LIA)",
           "(set-info :source |unrolled array program: bubble steps and a running maximum|)",
           f"(set-info :status {'sat' if bug else 'unsat'})"]
    decl = lambda name: out.append(f"(declare-fun {name} () Int)")
    for k in range(cells):
        decl(f"a_0_{k}")
        out.append(f"(assert (and (<= (- 50) a_0_{k}) (<= a_0_{k} 50)))")
    decl("m_0")
    out.append("(assert (= m_0 a_0_0))")

    def read(t, idx):
        e = f"a_{t}_{cells - 1}"
        for k in range(cells - 2, -1, -1):
            e = f"(ite (= {idx} {k}) a_{t}_{k} {e})"
        return e

    bug_step = rng.randrange(steps) if bug else -1
    reads = []
    for t in range(steps):
        j, i = f"j_{t}", f"i_{t}"
        decl(j)
        decl(i)
        out.append(f"(assert (and (<= 0 {j}) (< {j} {cells - 1}) (<= 0 {i}) (< {i} {cells})))")
        out.append(f"(define-fun x_{t} () Int {read(t, j)})")
        out.append(f"(define-fun y_{t} () Int {read(t, f'(+ {j} 1)')})")
        out.append(f"(define-fun swap_{t} () Bool (> x_{t} y_{t}))")
        for k in range(cells):
            low = f"(+ y_{t} 1)" if t == bug_step else f"y_{t}"
            cell = (f"(ite (and swap_{t} (= {j} {k})) {low} "
                    f"(ite (and swap_{t} (= (+ {j} 1) {k})) x_{t} a_{t}_{k}))")
            decl(f"a_{t + 1}_{k}")
            out.append(f"(assert (= a_{t + 1}_{k} {cell}))")
        decl(f"m_{t + 1}")
        r = read(t + 1, i)
        out.append(f"(assert (= m_{t + 1} (let ((r {r})) (ite (> r m_{t}) r m_{t}))))")
        reads.append(r)
    last = steps
    sum_of = lambda t: "(+ " + " ".join(f"a_{t}_{k}" for k in range(cells)) + ")"
    post = [f"(>= m_{last} {r})" for r in reads[-3:]]
    post.append(f"(= {sum_of(0)} {sum_of(last)})")
    post += [f"(<= (- 50) a_{last}_{k} 50)" for k in range(cells)]
    out.append(f"(assert (not (and {' '.join(post)})))")
    out.append("(check-sat)")
    out.append("(exit)")
    return "\n".join(out) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("--cells", type=int, default=6)
    p.add_argument("--steps", type=int, default=6)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--bug", action="store_true")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    write_script(generate(a.cells, a.steps, a.seed, a.bug), a.output)


if __name__ == "__main__":
    main()
