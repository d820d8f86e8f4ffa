"""Random unbounded integer problems against z3 and, with a planted point, against the answer sat.

Plain problems (the default): 3-7 Int variables with no bounds, a few inequalities and equalities with even
coefficients against odd constants (so the rational relaxation has fractional vertices that
single-variable branching cannot leave), disequalities, and a few disjunctions. Half of them are
built around a planted integer point, so that they are sat; the others are left to the gcd, and
z3 (run as a black box) says what they are. Every vorn answer runs with --verify (the model or
the certificate checked); `unknown` counts as a failure.

--mixed: Boolean structure over Int terms instead: ite terms, mod and div by constants, to_int
and is_int of terms mixing the sorts,
disjunctions of equalities, disequalities, and Real variables beside the Int ones (QF_LIRA),
at any depth of and/or/not. A planted point (rationals for the Reals) makes every assertion
true by negating the ones it falsifies.

    python3 tests/differential/unbounded_int.py VORN [--count N] [--seed S] [--z3 PATH] [--mixed]
"""

import argparse
import math
import random
import shutil
import subprocess
import sys
import time
from fractions import Fraction


def term(rng, names, even):
    k = rng.randint(1, min(3, len(names)))
    parts = []
    for v in rng.sample(names, k):
        c = rng.choice([-6, -4, -2, 2, 4, 6]) if even else rng.choice([-3, -2, -1, 1, 2, 3])
        parts.append((c, v))
    return parts


def value(parts, point):
    return sum(c * point[v] for c, v in parts)


def render(parts):
    def one(c, v):
        return v if c == 1 else "(* %s %s)" % (("(- %d)" % -c) if c < 0 else str(c), v)
    body = " ".join(one(c, v) for c, v in parts)
    return body if len(parts) == 1 else "(+ %s)" % body


def num(k):
    return "(- %d)" % -k if k < 0 else str(k)


def atom(rng, names, point):
    """One atom; with a point, one that the point satisfies."""
    parts = term(rng, names, rng.random() < 0.7)
    kind = rng.choice(["<=", ">=", "=", "distinct", "distinct", "<=", ">="])
    if point is None:
        k = rng.randint(-9, 9)
        if kind == "=" and rng.random() < 0.5:
            k |= 1
    else:
        v = value(parts, point)
        if kind == "<=":
            k = v + rng.randint(0, 3)
        elif kind == ">=":
            k = v - rng.randint(0, 3)
        elif kind == "=":
            k = v
        else:
            k = v + rng.choice([-3, -2, -1, 1, 2, 3])
    return "(%s %s %s)" % (kind, render(parts), num(k))


def problem(rng):
    n = rng.randint(3, 7)
    names = ["x%d" % i for i in range(n)]
    point = {v: rng.randint(-20, 20) for v in names} if rng.random() < 0.5 else None
    lines = ["(set-logic QF_LIA)"] + ["(declare-fun %s () Int)" % v for v in names]
    for _ in range(rng.randint(1, 5)):
        if rng.random() < 0.25:
            # A disjunction: with a point, its first disjunct holds there.
            first = atom(rng, names, point)
            other = atom(rng, names, None)
            lines.append("(assert (or %s %s))" % (first, other))
        else:
            lines.append("(assert %s)" % atom(rng, names, point))
    lines.append("(check-sat)")
    return "\n".join(lines) + "\n", point is not None


class Mixed:
    """One QF_LIRA problem: every term and formula comes with its value at the point."""

    def __init__(self, rng):
        self.rng = rng
        self.ints = ["x%d" % i for i in range(rng.randint(2, 5))]
        self.reals = ["r%d" % i for i in range(rng.choice((0, 0, 1, 2)))]
        self.point = {v: rng.randint(-20, 20) for v in self.ints}
        self.point.update({v: Fraction(rng.randint(-40, 40), rng.choice((1, 2, 3))) for v in self.reals})

    def linear(self, names, wrap=lambda v: v):
        parts = [(self.rng.choice([-6, -4, -3, -2, -1, 1, 2, 3, 4, 6]), v)
                 for v in self.rng.sample(names, self.rng.randint(1, min(3, len(names))))]
        text = " ".join("(* %s %s)" % (num(c), wrap(v)) for c, v in parts)
        return "(+ %s 0)" % text, sum(c * self.point[v] for c, v in parts)

    def int_term(self, depth):
        kinds = ["lin", "lin", "mod", "ite"] + (["to_int"] if self.reals else [])
        kind = self.rng.choice(kinds if depth > 0 else ["lin"])
        if kind == "lin":
            return self.linear(self.ints)
        if kind == "to_int":
            t, v, *_ = self.real_term(depth - 1)
            return "(to_int %s)" % t, math.floor(v)
        if kind == "ite":
            (c, cv), (a, av), (b, bv) = self.formula(depth - 1), self.int_term(depth - 1), \
                self.int_term(depth - 1)
            return "(ite %s %s %s)" % (c, a, b), av if cv else bv
        (t, v), d = self.int_term(depth - 1), self.rng.choice([-3, 2, 3, 4, 6])
        q = v // d if d > 0 else -(v // -d)  # x = d·q + r with 0 <= r < |d|
        op, value = self.rng.choice([("div", q), ("mod", v - d * q)])
        return "(%s %s %s)" % (op, t, num(d)), value

    def term(self, depth):
        """An Int term, or a Real one over both sorts when there are Reals."""
        if not self.reals or self.rng.random() < 0.5:
            return self.int_term(depth)
        return self.real_term(depth)

    def real_term(self, depth):
        (r, rv), (i, iv) = self.linear(self.reals), self.int_term(depth)
        return "(+ %s (to_real %s))" % (r, i), rv + iv, True

    def formula(self, depth):
        rng = self.rng
        kind = rng.choice(["cmp", "cmp", "eqs"] + (["and", "or", "not"] if depth > 0 else [])
                          + (["is_int"] if self.reals else []))
        if kind == "is_int":
            t, v, _ = self.real_term(depth)
            return "(is_int %s)" % t, Fraction(v).denominator == 1
        if kind in ("and", "or"):
            parts = [self.formula(depth - 1) for _ in range(rng.randint(2, 3))]
            values = [v for _, v in parts]
            return "(%s %s)" % (kind, " ".join(t for t, _ in parts)), \
                all(values) if kind == "and" else any(values)
        if kind == "not":
            t, v = self.formula(depth - 1)
            return "(not %s)" % t, not v
        t, v, *real = self.term(depth)
        if kind == "eqs":  # a disjunction of equalities
            ks = [v + rng.randint(-4, 4) for _ in range(rng.randint(2, 3))]
            return "(or %s)" % " ".join("(= %s %s)" % (t, lit(k)) for k in ks), v in ks
        rel = rng.choice(["<=", ">=", "<", ">", "=", "distinct"])
        k = v + rng.randint(-3, 3) if rng.random() < 0.8 else Fraction(rng.randint(-9, 9), 2)
        holds = {"<=": v <= k, ">=": v >= k, "<": v < k, ">": v > k, "=": v == k,
                 "distinct": v != k}[rel]
        if Fraction(k).denominator != 1 and not real:
            t = "(to_real %s)" % t
        return "(%s %s %s)" % (rel, t, lit(k)), holds

    def problem(self):
        planted = self.rng.random() < 0.5
        lines = ["(set-logic QF_LIRA)"] + ["(declare-fun %s () Int)" % v for v in self.ints]
        lines += ["(declare-fun %s () Real)" % v for v in self.reals]
        for _ in range(self.rng.randint(1, 4)):
            t, v = self.formula(2)
            lines.append("(assert %s)" % (t if v or not planted else "(not %s)" % t))
        return "\n".join(lines + ["(check-sat)"]) + "\n", planted


def lit(k):
    """A constant: an integer, or a fraction (compared with a Real term only)."""
    k = Fraction(k)
    if k.denominator == 1:
        return num(k.numerator)
    return "(/ %s %d)" % (num(k.numerator), k.denominator)


def run(cmd, text, timeout):
    start = time.monotonic()
    try:
        out = subprocess.run(cmd, input=text, capture_output=True, text=True, timeout=timeout)
        answer = out.stdout.split()[0] if out.stdout.split() else "error:" + out.stderr.strip()
        if out.returncode not in (0,):
            answer = "exit%d:%s" % (out.returncode, answer)
    except subprocess.TimeoutExpired:
        answer = "timeout"
    return answer, time.monotonic() - start


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("vorn")
    ap.add_argument("--count", type=int, default=300)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--z3", default=shutil.which("z3"))
    ap.add_argument("--timeout", type=float, default=10)
    ap.add_argument("--keep", help="directory for failing problems")
    ap.add_argument("--mixed", action="store_true", help="Boolean structure, mod/div, Reals")
    args = ap.parse_args()
    failures = 0
    slow = 0
    for i in range(args.count):
        seed = args.seed * 1000003 + i
        rng = random.Random(seed)
        text, planted = Mixed(rng).problem() if args.mixed else problem(rng)
        got, took = run([args.vorn, "check", "--verify", "--certificate", "-"], text, args.timeout)
        want = "sat" if planted else None
        if args.z3:
            z3, _ = run([args.z3, "-in", "-smt2"], text, args.timeout)
            if z3 in ("sat", "unsat"):
                if want is not None and z3 != want:
                    print("seed %d: z3 says %s of a planted problem" % (seed, z3))
                want = z3
        if took > 1:
            slow += 1
        if got not in ("sat", "unsat") or (want is not None and got != want):
            failures += 1
            print("seed %d: vorn %s, expected %s (%.2f s)" % (seed, got, want, took))
            if args.keep:
                with open("%s/fail-%d.smt2" % (args.keep, seed), "w") as f:
                    f.write(text)
    print("%d passed, %d failed" % (args.count - failures, failures))
    if slow:
        print("over 1 s: %d" % slow)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
