# Solving: exact models, push and pop, assumptions, cores, certificates and scripts.
from fractions import Fraction

import pytest

import vorn

x, y = vorn.Reals("x y")
n, k = vorn.Ints("n k")
b, c = vorn.Bools("b c")


@pytest.mark.parametrize("formulas, answer", [
    ([x > 1, x <= 1], vorn.unsat),
    ([3 * x == 1], vorn.sat),
    ([2 * n == 1], vorn.unsat),
    ([vorn.Fraction(7, 2) < n, n < "9/2"], vorn.sat),
    ([vorn.Or(x < 0, x > 1), x >= 0, x <= 1], vorn.unsat),
    ([vorn.Xor(b, c), b == c], vorn.unsat),
    ([vorn.If(b, x, -x) < 0, vorn.If(b, x, -x) == x], vorn.sat),
    ([vorn.Distinct(n, k, 0), n >= 0, k >= 0, n + k <= 1], vorn.unsat),
    ([vorn.If(x > 0, b, c), vorn.Not(b), vorn.Not(c)], vorn.unsat),
    ([], vorn.sat),
])
def test_answers_and_exact_models(formulas, answer):
    s = vorn.Solver()
    s.add(formulas)
    assert s.check() is answer
    assert str(answer) in ("sat", "unsat")
    if answer is vorn.sat:
        m = s.model()
        assert all(m[f] is True for f in formulas)
        assert type(m[n]) is int and type(m[x]) is Fraction and type(m[b]) is bool


def test_model_values_are_exact_and_kept():
    s = vorn.Solver()
    s.add(3 * x == 1, y == x / 7 + "1/10", n == 12345678901234567890123)
    assert s.check() == vorn.sat
    m = s.model()
    assert m[x] == Fraction(1, 3) and m[y] == Fraction(1, 21) + Fraction(1, 10)
    assert m[n] == 12345678901234567890123
    assert m.eval(2 * x + vorn.If(x > 0, n, 0)) == Fraction(2, 3) + 12345678901234567890123
    s.add(x > 5)
    assert s.check() == vorn.unsat
    assert m[x] == Fraction(1, 3)  # the model is kept
    with pytest.raises(vorn.UsageError):
        s.model()


def test_push_pop():
    s = vorn.Solver()
    s.add(x >= 0)
    s.push()
    s.add(x < 0)
    assert s.check() == vorn.unsat and s.num_scopes() == 1
    s.pop()
    assert s.check() == vorn.sat and s.num_scopes() == 0
    with pytest.raises(ValueError):
        s.pop()
    s.push(), s.push()
    s.add(x == -1)
    s.pop(2)
    assert s.check() == vorn.sat


def test_assumptions_and_cores():
    s = vorn.Solver()
    s.add(y <= 100)
    s.assert_and_track(x >= 10, "big")
    s.assert_and_track(y >= 0, "nonnegative")
    assert s.check(x <= 5, b) == vorn.unsat
    assert s.unsat_core() == ["big", "x <= 5"]
    assert s.check(b) == vorn.sat  # the assumptions are forgotten
    assert s.model()[b] is True
    s.assert_and_track(x < 0, c)
    assert s.check() == vorn.unsat
    assert s.unsat_core() == ["big", "c"]


def test_certificate_script_and_statistics():
    s = vorn.Solver()
    s.set_certificates()
    s.add(x + y >= 3, x <= 1, y <= 1)
    assert s.check() == vorn.unsat
    assert s.certificate().startswith("(certificate")
    script = s.to_smt2()
    assert "(declare-const x Real)" in script and script.endswith("(check-sat)\n")
    stats = s.statistics()
    assert stats["checks"] == 1 and isinstance(stats["time"], float)


def test_one_formula_in_two_solvers():
    f = vorn.And(x > 0, n == 2 * x)
    first, second = vorn.Solver(), vorn.Solver()
    first.add(f)
    second.add(f, x < "1/2")
    assert first.check() == vorn.sat and second.check() == vorn.unsat


def test_deep_formulas_do_not_recurse():
    f = x >= 0
    for _ in range(20000):
        f = vorn.And(f, x >= 0)
    s = vorn.Solver()
    s.add(f)
    assert s.check() == vorn.sat and s.model()[f] is True
