#!/usr/bin/env python3
"""Writes a job-shop scheduling instance as an SMT-LIB 2 script (QF_IDL or QF_RDL).

usage: gen_jobshop.py [--jobs N] [--machines M] [--seed S] [--makespan T] [--sort Int|Real]
                      [--max-duration D] [--status sat|unsat] [--minimize] [-o OUT.smt2]

N jobs run on M machines; each job visits every machine once, in its own order (a random
permutation), and each operation takes a random integer time in 1..D. The script asks whether
all jobs can finish by T: one start time s_j_k per operation k of job j, the order within each
job, one two-way disjunction per pair of operations sharing a machine, starts >= 0 and ends
<= T. Every atom is a bound on a difference, (<= (- x y) c): the start of time is a variable
`origin`, so that bounds on one start are differences too; this keeps the script inside the
difference logics and changes nothing else (a schedule shifted in time is still one).

The same --seed gives the same jobs whatever the sort and makespan, so an Int and a Real
script of one seed differ only in the sort (and their optimum is the same: durations are
integers). With --minimize the script asks for the least makespan instead: every job ends by a
variable `end`, and `(minimize (- end origin))` then `(get-objectives)` follow the check (the
bound T only when --makespan is given). Without -o the script goes to stdout.
"""
import argparse
import random

from script_output import write_script


def instance(jobs, machines, seed, max_duration):
    """[[(machine, duration) for each operation in visiting order] for each job]."""
    rng = random.Random(seed)
    shop = []
    for _ in range(jobs):
        order = list(range(machines))
        rng.shuffle(order)
        shop.append([(m, rng.randint(1, max_duration)) for m in order])
    return shop


def lower_bound(shop):
    """The longest job or the busiest machine: no schedule ends earlier."""
    loads = {}
    for job in shop:
        for m, d in job:
            loads[m] = loads.get(m, 0) + d
    return max(max(sum(d for _, d in job) for job in shop), max(loads.values()))


def script(shop, makespan, sort, status=None, header="", minimize=False):
    def num(c):
        text = f"{abs(c)}.0" if sort == "Real" else str(abs(c))
        return f"(- {text})" if c < 0 else text

    def diff(x, y, c):  # x - y <= c
        return f"(<= (- {x} {y}) {num(c)})"

    name = lambda j, k: f"s_{j}_{k}"
    logic = "QF_IDL" if sort == "Int" else "QF_RDL"
    out = [f"; {header}" if header else "; job-shop scheduling", f"(set-logic {logic})"]
    if status:
        out.append(f"(set-info :status {status})")
    out.append(f"(declare-fun origin () {sort})")
    if minimize:
        out.append(f"(declare-fun end () {sort})")
    out += [f"(declare-fun {name(j, k)} () {sort})"
            for j, job in enumerate(shop) for k in range(len(job))]
    for j, job in enumerate(shop):
        out.append(f"(assert {diff('origin', name(j, 0), 0)})")
        for k in range(1, len(job)):  # s_k >= s_{k-1} + d_{k-1}
            out.append(f"(assert {diff(name(j, k - 1), name(j, k), -job[k - 1][1])})")
        last = len(job) - 1
        if minimize:
            out.append(f"(assert {diff(name(j, last), 'end', -job[last][1])})")
        if makespan is not None:
            out.append(f"(assert {diff(name(j, last), 'origin', makespan - job[last][1])})")
    ops = {}
    for j, job in enumerate(shop):
        for k, (m, d) in enumerate(job):
            ops.setdefault(m, []).append((name(j, k), d))
    for m in sorted(ops):
        on = ops[m]
        for i in range(len(on)):
            for k in range(i + 1, len(on)):
                (a, da), (b, db) = on[i], on[k]
                # a after b, or b after a
                out.append(f"(assert (or {diff(b, a, -db)} {diff(a, b, -da)}))")
    if minimize:
        out += ["(minimize (- end origin))", "(check-sat)", "(get-objectives)", "(exit)"]
    else:
        out += ["(check-sat)", "(exit)"]
    return "\n".join(out) + "\n"


def main():
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--jobs", type=int, default=10)
    p.add_argument("--machines", type=int, default=10)
    p.add_argument("--seed", type=int, default=1)
    p.add_argument("--makespan", type=int,
                   help="the bound on every end (default: the trivial lower bound)")
    p.add_argument("--sort", choices=("Int", "Real"), default="Int")
    p.add_argument("--max-duration", type=int, default=99)
    p.add_argument("--status", choices=("sat", "unsat"), help="write it as :status")
    p.add_argument("--minimize", action="store_true", help="ask for the least makespan")
    p.add_argument("-o", "--output")
    a = p.parse_args()
    shop = instance(a.jobs, a.machines, a.seed, a.max_duration)
    makespan = a.makespan
    if makespan is None and not a.minimize:
        makespan = lower_bound(shop)
    header = (f"gen_jobshop.py --jobs {a.jobs} --machines {a.machines} --seed {a.seed} "
              + (f"--makespan {makespan} " if makespan is not None else "")
              + f"--sort {a.sort} --max-duration {a.max_duration}"
              + (" --minimize" if a.minimize else ""))
    text = script(shop, makespan, a.sort, a.status, header, a.minimize)
    write_script(text, a.output)


if __name__ == "__main__":
    main()
