# Terms and sorts: what builds, what it means, and the errors that keep Python from silently
# misreading a formula.
from fractions import Fraction

import pytest

import vorn

x, y = vorn.Reals("x y")
n = vorn.Int("n")
b, c = vorn.Bools("b c")


@pytest.mark.parametrize("build, error", [
    (lambda: x * y, ValueError),
    (lambda: (x + 1) * (n - 2), ValueError),
    (lambda: x / y, ValueError),
    (lambda: x + b, TypeError),
    (lambda: b + 1, TypeError),
    (lambda: x <= b, TypeError),
    (lambda: vorn.And(x, b), TypeError),
    (lambda: vorn.Not(x), TypeError),
    (lambda: vorn.If(b, x, c), TypeError),
    (lambda: vorn.If(x, 1, 2), TypeError),
    (lambda: x + 0.5, TypeError),
    (lambda: x + True, TypeError),
    (lambda: x + "one", ValueError),
    (lambda: x + None, TypeError),
    (lambda: bool(x > 1), TypeError),
    (lambda: bool(b), TypeError),
    (lambda: bool(x), TypeError),
    (lambda: 0 < x < 1, TypeError),
    (lambda: x / 0, ZeroDivisionError),
    (lambda: vorn.Real(3), TypeError),
])
def test_errors(build, error):
    with pytest.raises(error):
        build()


@pytest.mark.parametrize("term, sort, text", [
    (x + 2 * y - 3, "Real", "x + 2*y - 3"),
    (2 * n + 1, "Int", "2*n + 1"),
    (n / 2, "Real", "1/2*n"),
    (n + "1/2", "Real", "n + 1/2"),
    (n + Fraction(4, 2), "Int", "n + 2"),
    (x - x, "Int", "0"),
    (-(x - 2 * n) * 3, "Real", "-3*x + 6*n"),
    (vorn.Sum(x for _ in range(3)), "Real", "3*x"),
    (vorn.Sum([n, 1, "2"]), "Int", "n + 3"),
    (vorn.If(b, n, 2), "Int", None),
    (vorn.If(b, n, x), "Real", None),
])
def test_terms_and_sorts(term, sort, text):
    assert term.sort == sort
    if text is not None:
        assert str(term) == text


def test_formulas_combine_and_print():
    f = vorn.And(x <= 1, vorn.Or(b, vorn.Not(c)), vorn.Implies(b, n > 0))
    assert str(f) == "And(x <= 1, Or(b, Not(c)), Implies(b, n > 0))"
    assert str((x > 1) & b | ~c) == "Or(And(x > 1, b), Not(c))"
    assert str(vorn.Distinct(x, y, 1)) == "And(x - y != 0, x != 1, y != 1)"
    assert {x: 1}[x] == 1  # hashable: usable as dictionary keys
