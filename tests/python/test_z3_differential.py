# Differential test against z3's Python module: random linear problems over Real, Int and Bool
# constants with Boolean structure (And, Or, Not, Implies, Xor, If terms and formulas,
# Distinct), built by the same code through both modules. The answers must agree, and vorn's
# model must satisfy the formulas in vorn's own evaluation and in z3's.
import os
import random
from fractions import Fraction

import pytest

import vorn

z3 = pytest.importorskip("z3", reason="z3's Python module (python3-z3) is not installed")

# More seeds for a longer hunt: VORN_Z3_SEEDS=10000.
SEEDS = range(int(os.environ.get("VORN_Z3_SEEDS", 300)))


class Build:
    """One random problem, built through `lib` (vorn or z3) from the same seed."""

    def __init__(self, lib, seed):
        self.lib = lib
        self.rng = random.Random(seed)
        self.reals = lib.Reals("x y")
        self.ints = lib.Ints("n k")
        self.bools = lib.Bools("p q")

    def number(self):
        num, den = self.rng.randint(-6, 6), self.rng.choice((1, 1, 2, 3))
        return Fraction(num, den) if self.lib is vorn else z3.Q(num, den)

    def term(self, depth):
        r = self.rng
        if depth > 0 and r.random() < 0.2:
            return self.lib.If(self.formula(depth - 1), self.term(depth - 1), self.term(depth - 1))
        atoms = r.sample(self.reals + self.ints, r.randint(1, 3))
        return self.lib.Sum([r.randint(-3, 3) * a for a in atoms] + [self.number()])

    def formula(self, depth):
        r = self.rng
        kind = r.choice(("cmp", "cmp", "bool") + (("and", "or", "not", "implies", "xor",
                                                  "distinct") if depth > 0 else ()))
        if kind == "cmp":
            a, b = self.term(depth), self.term(depth)
            return r.choice((a <= b, a < b, a >= b, a > b, a == b, a != b))
        if kind == "bool":
            return r.choice(self.bools)
        if kind == "not":
            return self.lib.Not(self.formula(depth - 1))
        if kind == "distinct":
            return self.lib.Distinct(*[self.term(0) for _ in range(r.randint(2, 3))])
        if kind in ("implies", "xor"):
            f = self.lib.Implies if kind == "implies" else self.lib.Xor
            return f(self.formula(depth - 1), self.formula(depth - 1))
        f = self.lib.And if kind == "and" else self.lib.Or
        return f(*[self.formula(depth - 1) for _ in range(r.randint(2, 3))])

    def problem(self):
        return [self.formula(2) for _ in range(self.rng.randint(1, 4))]


@pytest.mark.parametrize("seed", SEEDS)
def test_answers_agree_with_z3(seed):
    ours, theirs = Build(vorn, seed), Build(z3, seed)
    formulas = ours.problem()
    s = vorn.Solver()
    s.add(formulas)
    answer = s.check()
    assert answer is not vorn.unknown, "seed %d: unknown (%s)\n%s" % (seed, s.reason_unknown(),
                                                                     s.to_smt2())
    z = z3.Solver()
    z.add(theirs.problem())
    expected = {"sat": vorn.sat, "unsat": vorn.unsat}[str(z.check())]
    assert answer is expected, "seed %d:\n%s" % (seed, s.to_smt2())
    if answer is vorn.unsat:
        return
    m = s.model()
    assert all(m[f] is True for f in formulas), "seed %d" % seed
    # vorn's values, substituted into z3's formulas, make them true.
    values = [(t, z3.Q(m[o].numerator, m[o].denominator)) for t, o in zip(theirs.reals, ours.reals)]
    values += [(t, z3.IntVal(m[o])) for t, o in zip(theirs.ints, ours.ints)]
    values += [(t, z3.BoolVal(m[o])) for t, o in zip(theirs.bools, ours.bools)]
    substituted = z3.substitute(z3.And(z.assertions()), *values)
    assert z3.is_true(z3.simplify(substituted)), "seed %d" % seed
