# Optimization: exact lexicographic optima against enumeration over small boxes, unbounded and
# popped objectives.
import itertools
import random
from fractions import Fraction

import pytest

import vorn


@pytest.mark.parametrize("seed", range(40))
def test_integral_vertices_against_enumeration(seed):
    # Constraints a·x + b·y <= c with |a|, |b| <= 1 over the box [-4, 4]²: every vertex lies
    # on the grid of halves, so the lexicographic optimum is the best point of that grid.
    rng = random.Random(seed)
    x, y = vorn.Reals("x y")
    rows = [(rng.randint(-1, 1), rng.randint(-1, 1), rng.randint(-3, 3)) for _ in range(4)]
    goals = [((rng.randint(-2, 2), rng.randint(-2, 2)), rng.random() < 0.5) for _ in range(2)]
    halves = [Fraction(i, 2) for i in range(-8, 9)]
    points = [p for p in itertools.product(halves, repeat=2)
              if all(a * p[0] + b * p[1] <= c for a, b, c in rows)]
    o = vorn.Optimize()
    o.add(x >= -4, x <= 4, y >= -4, y <= 4, [a * x + b * y <= c for a, b, c in rows])
    handles = [(o.maximize if up else o.minimize)(g[0] * x + g[1] * y) for g, up in goals]
    assert o.check() == (vorn.sat if points else vorn.unsat), "seed %d" % seed
    if not points:
        return
    key = [lambda p, g=g, up=up: -(g[0] * p[0] + g[1] * p[1]) if up else g[0] * p[0] + g[1] * p[1]
           for g, up in goals]
    best = min(points, key=lambda p: (key[0](p), key[1](p)))
    m = o.model()
    for h, (g, _) in zip(handles, goals):
        expected = g[0] * best[0] + g[1] * best[1]
        assert h.value() == expected, "seed %d" % seed
        assert type(h.value()) is (int if g == (0, 0) else Fraction)  # a constant is an Int
        assert m[g[0] * x + g[1] * y] == expected


def test_fractional_unbounded_and_popped():
    x, y, z = vorn.Reals("x y z")
    o = vorn.Optimize()
    o.add(3 * x + y <= 1, x - y >= 0)
    top = o.maximize(x + y)
    assert o.check() == vorn.sat and top.value() == Fraction(1, 2)
    o.push()
    up = o.maximize(z)
    after = o.minimize(x)
    assert o.check() == vorn.sat
    assert up.value() is vorn.oo and vorn.oo > 10 ** 100
    with pytest.raises(vorn.UsageError):
        after.value()  # not optimized after an unbounded one
    o.pop()
    assert o.check() == vorn.sat and top.value() == Fraction(1, 2)
    with pytest.raises(vorn.UsageError):
        up.value()  # popped
    down = o.minimize(y)
    assert o.check() == vorn.sat and down.value() == Fraction(1, 4)


@pytest.mark.parametrize("seed", range(30))
def test_integers_with_disjunctions_against_enumeration(seed):
    # Int x, y in [-3, 3] under random clauses of two bounds a·x + b·y <= c: the optimum is the
    # best integer point of the box that meets every clause.
    rng = random.Random(1000 + seed)
    x, y = vorn.Ints("x y")
    clauses = [[(rng.randint(-2, 2), rng.randint(-2, 2), rng.randint(-3, 3)) for _ in range(2)]
               for _ in range(4)]
    goal = (rng.randint(-2, 2), rng.randint(-2, 2))
    points = [p for p in itertools.product(range(-3, 4), repeat=2)
              if all(any(a * p[0] + b * p[1] <= c for a, b, c in cl) for cl in clauses)]
    o = vorn.Optimize()
    o.add(x >= -3, x <= 3, y >= -3, y <= 3)
    o.add(*[vorn.Or(*[a * x + b * y <= c for a, b, c in cl]) for cl in clauses])
    h = o.maximize(goal[0] * x + goal[1] * y)
    assert o.check() == (vorn.sat if points else vorn.unsat), "seed %d" % seed
    if points:
        assert h.value() == max(goal[0] * p[0] + goal[1] * p[1] for p in points), "seed %d" % seed
        assert h.epsilon() == 0


def test_strict_bound_approached():
    x = vorn.Real("x")
    o = vorn.Optimize()
    o.add(vorn.Or(x > 2, x < -5), x > -7)
    low = o.minimize(x)
    o.set_certificates()
    assert o.check() == vorn.sat
    assert low.value() == -7 and low.epsilon() == 1  # -7 + epsilon
    assert low.certificate().startswith("(certificate\nformat optimum\noptimum 0 min -7 epsilon")


@pytest.mark.parametrize("seed", range(20))
def test_soft_formulas_against_enumeration(seed):
    # Weighted MaxSAT over 5 Bools in two groups (ids), lexicographic in the order the groups
    # were first used, against all 32 assignments.
    rng = random.Random(2000 + seed)
    bs = vorn.Bools("a b c d e")
    lit = lambda v, pos: bs[v] if pos else vorn.Not(bs[v])
    hard = [[(rng.randrange(5), rng.random() < 0.5) for _ in range(3)] for _ in range(8)]
    soft = [(rng.randrange(5), rng.random() < 0.5, rng.randint(1, 4), rng.choice("gh"))
            for _ in range(6)]
    o = vorn.Optimize()
    o.add(*[vorn.Or(*[lit(v, p) for v, p in cl]) for cl in hard])
    handles = {}
    for v, p, w, g in soft:
        handles[g] = o.add_soft(lit(v, p), w, id=g)
    order = list(dict.fromkeys(g for *_, g in soft))
    points = [p for p in itertools.product([False, True], repeat=5)
              if all(any(p[v] == q for v, q in cl) for cl in hard)]
    assert o.check() == (vorn.sat if points else vorn.unsat), "seed %d" % seed
    if points:
        cost = lambda p, g: sum(w for v, q, w, h in soft if h == g and p[v] != q)
        best = min(tuple(cost(p, g) for g in order) for p in points)
        assert tuple(handles[g].value() for g in order) == best, "seed %d" % seed


@pytest.mark.parametrize("seed", range(10))
def test_box_priority_optimizes_each_objective_alone(seed):
    rng = random.Random(3000 + seed)
    x, y = vorn.Ints("x y")
    rows = [(rng.randint(-2, 2), rng.randint(-2, 2), rng.randint(-2, 4)) for _ in range(3)]
    goals = [(rng.randint(-2, 2), rng.randint(-2, 2)) for _ in range(2)]
    points = [p for p in itertools.product(range(-3, 4), repeat=2)
              if all(a * p[0] + b * p[1] <= c for a, b, c in rows)]
    o = vorn.Optimize()
    o.set("priority", "box")
    o.set_certificates()
    o.add(x >= -3, x <= 3, y >= -3, y <= 3, *[a * x + b * y <= c for a, b, c in rows])
    hs = [o.maximize(g[0] * x + g[1] * y) for g in goals]
    assert o.check() == (vorn.sat if points else vorn.unsat), "seed %d" % seed
    if points:
        assert [h.value() for h in hs] == [max(g[0] * p[0] + g[1] * p[1] for p in points)
                                           for g in goals], "seed %d" % seed
        with pytest.raises(vorn.UsageError):
            hs[0].certificate()
    with pytest.raises(ValueError):
        o.set(priority="pareto")
