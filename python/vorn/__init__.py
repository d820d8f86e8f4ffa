"""vorn from Python: exact linear arithmetic, decided and optimized.

Declare constants, state linear constraints with Python's operators, decide them exactly::

    import vorn
    x, y = vorn.Reals("x y")
    n = vorn.Int("n")
    s = vorn.Solver()
    s.add(x + 2 * y <= 4, x - y >= vorn.Fraction(1, 3), vorn.Or(n == 1, n == x))
    if s.check() == vorn.sat:
        m = s.model()
        print(m[x], m[n])          # Fraction and int: values are exact

Values are exact: Real values are fractions.Fraction, Int values int, Bool values bool.
Constants may be int, Fraction or str ("1/3", "0.25"); a float is refused (TypeError) because
it is not the number it was written as. Terms are linear: a product of two terms that are not
constant raises ValueError; a term where a formula belongs (or the reverse) raises TypeError,
and so does bool() of a formula, so that ``if x > 1:`` cannot silently misbehave.

Terms and formulas belong to no solver: one formula may be added to several solvers.
"""

from decimal import Decimal
from fractions import Fraction
import math
import numbers

from . import _vorn
from ._vorn import ParseError, UsageError, VerificationFailure

__all__ = [
    "Real", "Int", "Bool", "Reals", "Ints", "Bools", "Sum", "And", "Or", "Not", "Implies",
    "Xor", "If", "Distinct", "Solver", "Optimize", "Model", "Term", "Formula", "CheckResult",
    "sat", "unsat", "unknown", "oo", "check_file", "optimize_file", "OptimizeResult",
    "Fraction", "ParseError", "UsageError", "VerificationFailure",
]


class CheckResult:
    """The answer of a check: ``vorn.sat``, ``vorn.unsat`` or ``vorn.unknown``."""

    __slots__ = ("_name",)

    def __init__(self, name):
        self._name = name

    def __str__(self):
        return self._name

    def __repr__(self):
        return self._name


sat = CheckResult("sat")
unsat = CheckResult("unsat")
unknown = CheckResult("unknown")
_RESULTS = (sat, unsat, unknown)


class _Infinity:
    """The value of an unbounded objective: ``vorn.oo`` or ``-vorn.oo``; greater (smaller) than
    every number."""

    __slots__ = ("_sign",)

    def __init__(self, sign):
        self._sign = sign

    def __neg__(self):
        return _MINUS_OO if self._sign > 0 else oo

    def __repr__(self):
        return "oo" if self._sign > 0 else "-oo"

    def __eq__(self, other):
        return self is other

    def __hash__(self):
        return hash(("oo", self._sign))

    def __lt__(self, other):
        return self._sign < 0 and other is not self

    def __gt__(self, other):
        return self._sign > 0 and other is not self

    def __le__(self, other):
        return self is other or self < other

    def __ge__(self, other):
        return self is other or self > other


oo = _Infinity(1)
_MINUS_OO = _Infinity(-1)


# ---- numbers


def _number(value):
    """An exact constant: int, or Fraction when not integral."""
    if type(value) is int:
        return value
    if isinstance(value, bool):
        raise TypeError("a bool is not a number here: use vorn.Bool or True/False in formulas")
    if isinstance(value, str):
        try:
            value = Fraction(value.strip())
        except (ValueError, ZeroDivisionError) as e:
            raise ValueError("not an exact number: %r" % value) from e
    elif isinstance(value, float):
        raise TypeError("floats are inexact: give an int, a Fraction or a str such as '0.1'")
    elif isinstance(value, (numbers.Rational, Decimal)):
        value = Fraction(value)
    else:
        raise TypeError("expected a term or an exact number, not %s" % type(value).__name__)
    return value.numerator if value.denominator == 1 else value


def _from_pair(pair, integral):
    numerator, denominator = pair
    if integral:
        return numerator
    return Fraction(numerator, denominator)


# ---- terms


class _Var:
    """A declared constant: its name and sort ("Real", "Int" or "Bool")."""

    __slots__ = ("name", "sort")

    def __init__(self, name, sort):
        self.name = name
        self.sort = sort


class _Ite:
    """An if-then-else term, a summand of terms."""

    __slots__ = ("cond", "then", "otherwise", "sort")

    def __init__(self, cond, then, otherwise):
        self.cond = cond
        self.then = then
        self.otherwise = otherwise
        self.sort = "Int" if then.sort == "Int" and otherwise.sort == "Int" else "Real"


class Term:
    """A linear term over Real and Int constants: Σ coefficient · atom + constant, an atom a
    declared constant or an If term. Built with ``+``, ``-``, ``*`` and ``/`` by constants,
    ``vorn.Sum`` and ``vorn.If``; compared with ``==``, ``!=``, ``<``, ``<=``, ``>``, ``>=`` into
    formulas. Its sort is Int when every atom is Int and every number integral, Real otherwise.
    Terms are immutable values."""

    __slots__ = ("_lin", "_const")
    __hash__ = object.__hash__

    def __init__(self, lin, const=0):
        self._lin = lin  # atom -> non-zero coefficient
        self._const = const

    @property
    def sort(self):
        """"Int" or "Real"."""
        if type(self._const) is not int:
            return "Real"
        for atom, c in self._lin.items():
            if type(c) is not int or atom.sort != "Int":
                return "Real"
        return "Int"

    def _plus(self, other, sign):
        other = _term(other)
        lin = dict(self._lin)
        for atom, c in other._lin.items():
            v = lin.get(atom, 0) + sign * c
            if v:
                lin[atom] = v
            else:
                lin.pop(atom, None)
        return Term(lin, self._const + sign * other._const)

    def _scaled(self, factor):
        if not factor:
            return Term({}, 0)
        return Term({a: c * factor for a, c in self._lin.items()}, self._const * factor)

    def __add__(self, other):
        return self._plus(other, 1)

    def __radd__(self, other):
        return self._plus(other, 1)

    def __sub__(self, other):
        return self._plus(other, -1)

    def __rsub__(self, other):
        return _term(other)._plus(self, -1)

    def __neg__(self):
        return self._scaled(-1)

    def __pos__(self):
        return self

    def __mul__(self, other):
        if isinstance(other, Term):
            if not other._lin:
                return self._scaled(other._const)
            if not self._lin:
                return other._scaled(self._const)
            raise ValueError("a product of two non-constant terms is not linear: %s * %s"
                             % (self, other))
        if isinstance(other, Formula):
            raise TypeError("a formula is not a number: %s" % other)
        return self._scaled(_number(other))

    __rmul__ = __mul__

    def __truediv__(self, other):
        if isinstance(other, Term):
            if other._lin:
                raise ValueError("a quotient by a non-constant term is not linear")
            other = other._const
        divisor = _number(other)
        if divisor == 0:
            raise ZeroDivisionError("division of a term by zero")
        return self._scaled(_number(Fraction(1) / divisor))

    def _compare(self, other, relation):
        return Formula("cmp", relation, self._plus(other, -1))

    def __le__(self, other):
        return self._compare(other, 0)

    def __lt__(self, other):
        return self._compare(other, 1)

    def __ge__(self, other):
        return self._compare(other, 2)

    def __gt__(self, other):
        return self._compare(other, 3)

    def __eq__(self, other):
        return self._compare(other, 4)

    def __ne__(self, other):
        return self._compare(other, 5)

    def __bool__(self):
        raise TypeError("a term has no truth value: compare it (x > 0) and decide with a Solver")

    def __repr__(self):
        return _term_text(self)


def _term(value):
    if isinstance(value, Term):
        return value
    if isinstance(value, Formula):
        raise TypeError("a formula where a term belongs: %s (use vorn.If for a 0/1 term)" % value)
    return Term({}, _number(value))


def _variable(name, sort):
    if not isinstance(name, str):
        raise TypeError("a name is a str, not %s" % type(name).__name__)
    v = _Var(name, sort)
    return Formula("var", v) if sort == "Bool" else Term({v: 1}, 0)


def Real(name):
    """A new Real constant called `name`: a Term."""
    return _variable(name, "Real")


def Int(name):
    """A new Int constant called `name`: a Term."""
    return _variable(name, "Int")


def Bool(name):
    """A new Bool constant called `name`: a Formula."""
    return _variable(name, "Bool")


def Reals(names):
    """Real constants, one per name of the space-separated `names` (or of an iterable)."""
    return [Real(n) for n in (names.split() if isinstance(names, str) else names)]


def Ints(names):
    """Int constants, one per name of the space-separated `names` (or of an iterable)."""
    return [Int(n) for n in (names.split() if isinstance(names, str) else names)]


def Bools(names):
    """Bool constants, one per name of the space-separated `names` (or of an iterable)."""
    return [Bool(n) for n in (names.split() if isinstance(names, str) else names)]


def Sum(*terms):
    """The sum of the terms and numbers given, or of one iterable of them; linear in their
    total size."""
    if len(terms) == 1 and not isinstance(terms[0], (Term, Formula, int, Fraction, str)):
        terms = terms[0]
    lin = {}
    const = 0
    for t in terms:
        t = _term(t)
        const += t._const
        for atom, c in t._lin.items():
            lin[atom] = lin.get(atom, 0) + c
    return Term({a: c for a, c in lin.items() if c}, const)


# ---- formulas

_RELATIONS = ("<=", "<", ">=", ">", "==", "!=")


class Formula:
    """A formula: a comparison of terms, a Bool constant, True or False, or And, Or, Not,
    Implies, Xor, If, Distinct of formulas. ``&``, ``|``, ``~`` and ``^`` are And, Or, Not and
    Xor; ``==`` and ``!=`` between formulas are equivalence and its negation. A formula has no
    truth value of its own: bool() raises TypeError (ask a model: ``m[f]``)."""

    __slots__ = ("_op", "_args")
    __hash__ = object.__hash__

    def __init__(self, op, *args):
        self._op = op  # "const", "var", "cmp", "not", "and", "or", "implies"
        self._args = args

    def __and__(self, other):
        return And(self, other)

    def __rand__(self, other):
        return And(other, self)

    def __or__(self, other):
        return Or(self, other)

    def __ror__(self, other):
        return Or(other, self)

    def __invert__(self):
        return Not(self)

    def __xor__(self, other):
        return Xor(self, other)

    def __eq__(self, other):
        other = _formula(other)
        return Or(And(self, other), And(Not(self), Not(other)))

    def __ne__(self, other):
        return Xor(self, other)

    def __bool__(self):
        raise TypeError("a formula has no truth value in Python: decide it with a Solver "
                        "(and combine formulas with vorn.And, vorn.Or, not and/or)")

    def __repr__(self):
        return _formula_text(self)


_TRUE = Formula("const", True)
_FALSE = Formula("const", False)


def _formula(value):
    if isinstance(value, Formula):
        return value
    if isinstance(value, bool):
        return _TRUE if value else _FALSE
    raise TypeError("expected a formula, not %s" % (
        "a term: %s" % value if isinstance(value, Term) else type(value).__name__))


def _formulas(fs):
    """The formulas given, an iterable among them standing for its items."""
    out = []
    for f in fs:
        if isinstance(f, (Formula, bool)):
            out.append(_formula(f))
        elif isinstance(f, Term):
            raise TypeError("a term where a formula belongs: %s" % (f,))
        else:
            try:
                items = iter(f)
            except TypeError:
                raise TypeError("expected a formula, not %s" % type(f).__name__) from None
            out.extend(_formula(g) for g in items)
    return out


def And(*fs):
    """All of the formulas (given one by one or in iterables); And() is True."""
    return Formula("and", *_formulas(fs))


def Or(*fs):
    """Any of the formulas (given one by one or in iterables); Or() is False."""
    return Formula("or", *_formulas(fs))


def Not(f):
    """The negation of a formula."""
    return Formula("not", _formula(f))


def Implies(a, b):
    """a implies b."""
    return Formula("implies", _formula(a), _formula(b))


def Xor(a, b):
    """Exactly one of a and b."""
    a, b = _formula(a), _formula(b)
    return Or(And(a, Not(b)), And(Not(a), b))


def If(cond, then, otherwise):
    """`then` where the formula `cond` holds, `otherwise` where not: a term when both are terms
    or numbers, a formula when both are formulas (TypeError when mixed)."""
    cond = _formula(cond)
    if isinstance(then, Formula) or isinstance(otherwise, Formula) or \
            isinstance(then, bool) or isinstance(otherwise, bool):
        then, otherwise = _formula(then), _formula(otherwise)
        return Or(And(cond, then), And(Not(cond), otherwise))
    then, otherwise = _term(then), _term(otherwise)
    return Term({_Ite(cond, then, otherwise): 1}, 0)


def Distinct(*terms):
    """Pairwise different terms (given one by one or as one iterable)."""
    if len(terms) == 1 and not isinstance(terms[0], Term):
        terms = tuple(terms[0])
    terms = [_term(t) for t in terms]
    return And([a != b for i, a in enumerate(terms) for b in terms[i + 1:]])


# ---- text


def _number_text(c):
    return str(c) if type(c) is int or c.denominator != 1 else str(c.numerator)


def _term_text(t):
    parts = []
    for atom, c in t._lin.items():
        name = atom.name if isinstance(atom, _Var) else "If(%r, %r, %r)" % (
            atom.cond, atom.then, atom.otherwise)
        magnitude = -c if c < 0 else c
        text = name if magnitude == 1 else "%s*%s" % (_number_text(magnitude), name)
        parts.append(("- " if c < 0 else "+ ") + text)
    if t._const or not parts:
        parts.append(("- " if t._const < 0 else "+ ") + _number_text(abs(t._const)))
    text = " ".join(parts)
    return text[2:] if text.startswith("+ ") else "-" + text[2:]


def _formula_text(f):
    op, args = f._op, f._args
    if op == "const":
        return str(args[0])
    if op == "var":
        return args[0].name
    if op == "cmp":
        t = args[1]
        lhs = Term(t._lin, 0)
        return "%s %s %s" % (lhs, _RELATIONS[args[0]], _number_text(-t._const))
    if op == "not":
        return "Not(%r)" % (args[0],)
    name = {"and": "And", "or": "Or", "implies": "Implies"}[op]
    return "%s(%s)" % (name, ", ".join(repr(a) for a in args))


# ---- walking formulas


def _children(node):
    """The formulas and If atoms that `node` (a Formula or an _Ite) is made of."""
    if isinstance(node, _Ite):
        out = [node.cond]
        out.extend(a for a in node.then._lin if isinstance(a, _Ite))
        out.extend(a for a in node.otherwise._lin if isinstance(a, _Ite))
        return out
    op = node._op
    if op == "cmp":
        return [a for a in node._args[1]._lin if isinstance(a, _Ite)]
    if op in ("const", "var"):
        return ()
    return node._args


def _post_order(root, memo, build):
    """memo[id(node)] = (node, build(node)) for `root` and everything it is made of, children
    first, without recursion (a chain of And built in a loop is as deep as it is long)."""
    if id(root) in memo:
        return memo[id(root)][1]
    stack = [root]
    while stack:
        node = stack[-1]
        if id(node) in memo:
            stack.pop()
            continue
        pending = [c for c in _children(node) if id(c) not in memo]
        if pending:
            stack.extend(pending)
            continue
        stack.pop()
        memo[id(node)] = (node, build(node))
    return memo[id(root)][1]


# ---- solving


class Model:
    """The model of a Sat answer, exact and kept: later changes to the solver do not change it.
    ``m[t]`` and ``m.eval(t)`` give the value of any term (int for an Int term, Fraction for a
    Real one) or formula (bool); a constant the solver never saw is 0 (False)."""

    def __init__(self, values):
        self._values = values  # _Var -> int, Fraction or bool

    def eval(self, expr):
        """The exact value of a term, formula or number under the model."""
        if isinstance(expr, Formula):
            return self._walk(expr)
        if isinstance(expr, bool):
            return expr
        t = _term(expr)
        memo = {}
        value = self._sum(t, memo)
        return value if t.sort != "Int" else int(value)

    __getitem__ = eval

    def _sum(self, t, memo):
        value = t._const
        for atom, c in t._lin.items():
            if isinstance(atom, _Var):
                value += c * self._values.get(atom, 0)
            else:
                value += c * _post_order(atom, memo, lambda n: self._node(n, memo))
        return Fraction(value)

    def _walk(self, f):
        memo = {}
        return _post_order(f, memo, lambda n: self._node(n, memo))

    def _node(self, node, memo):
        if isinstance(node, _Ite):
            branch = node.then if memo[id(node.cond)][1] else node.otherwise
            return self._sum(branch, memo)
        op, args = node._op, node._args
        if op == "const":
            return args[0]
        if op == "var":
            return bool(self._values.get(args[0], False))
        if op == "cmp":
            v = self._sum(args[1], memo)
            return (v <= 0, v < 0, v >= 0, v > 0, v == 0, v != 0)[args[0]]
        if op == "not":
            return not memo[id(args[0])][1]
        if op == "and":
            return all(memo[id(a)][1] for a in args)
        if op == "or":
            return any(memo[id(a)][1] for a in args)
        return (not memo[id(args[0])][1]) or memo[id(args[1])][1]  # implies

    def decls(self):
        """The constants the model gives values to, as terms (Bool ones as formulas)."""
        return [Formula("var", v) if v.sort == "Bool" else Term({v: 1}, 0) for v in self._values]

    def __repr__(self):
        return "[" + ", ".join("%s = %s" % (v.name, _number_text(x) if not isinstance(x, bool)
                                            else x) for v, x in self._values.items()) + "]"


class Solver:
    """Decides linear formulas over Real, Int and Bool constants exactly, incrementally
    (push/pop) and under assumptions.

    ``add(*formulas)`` asserts; ``check(*assumptions)`` answers ``vorn.sat``, ``vorn.unsat`` or
    ``vorn.unknown`` (a limit, an interrupt, or the integer search's branch limit:
    ``reason_unknown()`` says which); ``model()`` after sat; ``unsat_core()`` after unsat.
    A check releases the GIL; Ctrl-C stops it with KeyboardInterrupt and leaves the solver
    usable; ``interrupt()`` from another thread makes it answer unknown."""

    def __init__(self):
        self._s = _vorn.Solver()
        self._vars = {}  # _Var -> handle of this solver
        # id(node) -> (node, handle), in the order translated; what a level or a check's
        # assumptions translated goes with them, so that a long incremental run stays small.
        self._memo = {}
        self._levels = []  # len(self._memo) at each push
        self._assumptions = []  # of the last check, with their handles
        self._last = None

    # translation into the C++ solver's terms and formulas
    def _var(self, v):
        h = self._vars.get(v)
        if h is None:
            make = {"Real": self._s.real, "Int": self._s.integer, "Bool": self._s.boolean}
            h = self._vars[v] = make[v.sort](v.name)
        return h

    def _term_handle(self, t):
        memo = self._memo
        parts = [(self._var(a) if isinstance(a, _Var) else memo[id(a)][1], c)
                 for a, c in t._lin.items()]
        return _vorn.linear(parts, t._const)

    def _build(self, node):
        if isinstance(node, _Ite):
            return _vorn.ite(self._memo[id(node.cond)][1], self._term_handle(node.then),
                             self._term_handle(node.otherwise))
        op, args = node._op, node._args
        if op == "cmp":
            return _vorn.compare(args[0], self._term_handle(args[1]))
        if op == "var":
            return self._var(args[0])
        if op == "const":
            return _vorn.constant(args[0])
        memo = self._memo
        if op == "not":
            return _vorn.not_(memo[id(args[0])][1])
        if op == "and":
            return _vorn.and_([memo[id(a)][1] for a in args])
        if op == "or":
            return _vorn.or_([memo[id(a)][1] for a in args])
        return _vorn.implies(memo[id(args[0])][1], memo[id(args[1])][1])

    def _handle(self, f):
        return _post_order(_formula(f), self._memo, self._build)

    def add(self, *formulas):
        """Asserts the formulas (given one by one or in iterables)."""
        for f in _formulas(formulas):
            self._s.add(self._handle(f))

    append = add

    def assert_and_track(self, formula, name):
        """Asserts `formula` under `name` (a str, or a Bool whose name is used): unsat_core()
        then names it when the refutation needs it."""
        name = name._args[0].name if isinstance(name, Formula) and name._op == "var" else name
        self._s.add_named(self._handle(formula), str(name))

    def check(self, *assumptions):
        """sat, unsat or unknown: the assertions together with the assumptions (formulas, forgotten
        after the check)."""
        assumed = _formulas(assumptions)
        translated = len(self._memo)
        self._assumptions = [(f, self._handle(f)) for f in assumed]
        try:
            self._last = _RESULTS[self._s.check([h for _, h in self._assumptions])]
        finally:
            self._forget(translated)
        return self._last

    def _forget(self, size):
        while len(self._memo) > size:
            self._memo.popitem()

    def model(self):
        """The model of the last check, which must have answered sat (UsageError otherwise),
        nothing added, pushed or popped since."""
        if self._last is not sat:
            raise UsageError("no model: the last check did not answer sat")
        variables = list(self._vars.items())
        terms = [(v, h) for v, h in variables if v.sort != "Bool"]
        bools = [(v, h) for v, h in variables if v.sort == "Bool"]
        values = {}
        for (v, _), pair in zip(terms, self._s.values([h for _, h in terms])):
            values[v] = _from_pair(pair, v.sort == "Int")
        for (v, _), truth in zip(bools, self._s.truths([h for _, h in bools])):
            values[v] = truth
        return Model(values)

    def unsat_core(self):
        """After unsat: the names (str) of the tracked assertions (assert_and_track) and the
        assumptions, as str(), that the refutation needs."""
        names = list(self._s.unsat_core_names())
        if self._assumptions:
            handles = [h for _, h in self._assumptions]
            names += [str(self._assumptions[i][0]) for i in self._s.core_indices(handles)]
        return names

    def push(self):
        """Opens a level: what is added from now on goes at the matching pop()."""
        self._s.push(1)
        self._levels.append(len(self._memo))

    def pop(self, n=1):
        """Removes the last n levels (ValueError past the first, changing nothing)."""
        self._s.pop(n)
        if n > 0:
            self._forget(self._levels[-n])
            del self._levels[-n:]

    def num_scopes(self):
        """The number of levels pushed and not popped."""
        return self._s.level()

    def reason_unknown(self):
        """After unknown: "timeout", "memout", "interrupted", "conflict limit", "integer branch
        limit", or the construct outside the linear fragment. Empty after sat and unsat."""
        return self._s.reason_unknown()

    def set_time_limit(self, seconds):
        """A time limit per check (int, Fraction or str seconds; 0: none): unknown, "timeout"."""
        ms = _number(seconds) * 1000
        if ms < 0:
            raise ValueError("a time limit is not negative")
        self._s.set_time_limit(math.ceil(ms))

    def set_conflict_limit(self, n):
        """At most n conflicts of the Boolean search per check (0: none): unknown, "conflict
        limit". Deterministic, unlike the time limit."""
        self._s.set_conflict_limit(int(n))

    def interrupt(self):
        """From any thread: the running check, or else the next one, answers unknown soon,
        reason "interrupted"."""
        self._s.interrupt()

    def statistics(self):
        """The counters of this solver's checks: a dict from name to int ("time": float
        seconds)."""
        return self._s.statistics()

    def set_certificates(self, on=True):
        """Keep what certificate() needs, from the next check on."""
        self._s.set_certificates(bool(on))

    def certificate(self):
        """After unsat of a check made with certificates on (set_certificates): the certificate as
        `vorn check --certificate` prints it."""
        return self._s.certificate()

    def to_smt2(self):
        """The assertions as an SMT-LIB script that `vorn check` (or another solver) reads."""
        return self._s.to_smt2()

    sexpr = to_smt2

    def __repr__(self):
        return "<vorn.Solver at level %d>" % self._s.level()


class _ObjectiveHandle:
    """An objective of Optimize.minimize or maximize; value() after check() answered sat."""

    def __init__(self, solver, handle, term, maximize):
        self._solver = solver
        self._handle = handle
        self._term = term
        self._maximize = maximize

    def value(self):
        """The exact optimum (int for an Int term, Fraction for a Real one), oo or -oo when
        unbounded; UsageError when the last check did not optimize it (the message says
        why)."""
        if self._solver._last is not sat:
            raise UsageError("no optimum: the last check did not answer sat")
        pair = self._solver._s.objective_value(self._handle)
        if pair is None:
            return oo if self._maximize else -oo
        return _from_pair(pair, self._term.sort == "Int")

    def epsilon(self):
        """0 when value() is attained; with strict bounds the optimum may only be approached:
        -1 when it is value() - epsilon (a supremum), 1 when value() + epsilon (an infimum)."""
        if self._solver._last is not sat:
            raise UsageError("no optimum: the last check did not answer sat")
        return self._solver._s.objective_epsilon(self._handle)

    def certificate(self):
        """After sat of a check made with certificates on (set_certificates): the optimum's
        block as `vorn check --certificate` prints it after sat (the optimum, the model and the
        refutation of a better value)."""
        if self._solver._last is not sat:
            raise UsageError("no optimum: the last check did not answer sat")
        return self._solver._s.objective_certificate(self._handle)

    def __repr__(self):
        return "%s(%s)" % ("maximize" if self._maximize else "minimize", self._term)


class Optimize(Solver):
    """A Solver that also optimizes: minimize(t), maximize(t) and add_soft(f) add objectives,
    optimized lexicographically in the order given at every check that answers sat (popped with
    their level); each returns a handle whose value() is the exact optimum after check()."""

    def __init__(self):
        super().__init__()
        self._soft = {}  # (id, level) -> the handle of that group of soft formulas

    def add_soft(self, formula, weight=1, id=None):
        """Adds a soft formula (z3's add_soft): the soft formulas of one id on one level are one
        objective, placed where the first of them was added, minimizing the total weight of
        those violated. Returns that objective's handle; value() is the least such weight."""
        weight = _number(weight)
        if weight < 0:
            raise ValueError("the weight of a soft formula is a number of at least 0")
        key = ("" if id is None else str(id), self.num_scopes())
        handle = self._s.add_soft(self._handle(formula), weight, key[0])
        penalty = If(formula, 0, weight)
        group = self._soft.get(key)
        if group is None:
            group = self._soft[key] = _ObjectiveHandle(self, handle, penalty, False)
        else:
            group._term = group._term + penalty
        return group

    def pop(self, n=1):
        super().pop(n)
        level = self.num_scopes()
        self._soft = {k: h for k, h in self._soft.items() if k[1] <= level}

    def minimize(self, term):
        """Adds the objective: the least value of `term`."""
        term = _term(term)
        return _ObjectiveHandle(self, self._s.minimize(self._objective(term)), term, False)

    def maximize(self, term):
        """Adds the objective: the greatest value of `term`."""
        term = _term(term)
        return _ObjectiveHandle(self, self._s.maximize(self._objective(term)), term, True)

    def _objective(self, term):
        _post_order(Formula("cmp", 4, term), self._memo, self._build)  # its If atoms
        return self._term_handle(term)

    def set(self, *args, **keys):
        """z3's options of an optimizer, as set("priority", "box") or set(priority="box"):
        priority "lex" (the default: each objective with those before it at their optima) or
        "box" (each on its own; the model is the first one's, and certificate() is refused);
        timeout in milliseconds (0: none)."""
        if len(args) % 2:
            raise ValueError("set() takes names and values in pairs")
        keys = dict(zip(args[::2], args[1::2]), **keys)
        for name, value in keys.items():
            if name == "priority" and value in ("lex", "box"):
                self._s.set_box(value == "box")
            elif name == "timeout":
                self.set_time_limit(Fraction(_number(value), 1000))
            else:
                raise ValueError("unsupported option %s=%r (priority lex or box, timeout)" %
                                 (name, value))

    def objectives_unknown(self):
        """After sat: why the objectives were not optimized; empty when they were."""
        return self._s.objectives_unknown()


# ---- files


def check_file(path):
    """The answers of `vorn check PATH` (an SMT-LIB script, .lin, MPS, CPLEX LP or DIMACS file,
    compressed or not) as a list of str, one per command that answers (a multi-line answer,
    such as a model, is one item). ParseError when the file cannot be read."""
    return _vorn.check_file(str(path))


class OptimizeResult:
    """What optimize_file found: `status` ("optimal", "infeasible", "unbounded", "unknown"),
    `objective` (exact Fraction, when optimal), `model` (dict from column name to exact value,
    when optimal; Int columns integral) and `reason_unknown`."""

    def __init__(self, status, objective, model, reason_unknown):
        self.status = status
        self.objective = objective
        self.model = model
        self.reason_unknown = reason_unknown

    def __repr__(self):
        return "OptimizeResult(status=%r, objective=%r)" % (self.status, self.objective)


def optimize_file(path):
    """The exact optimum of the objective of a .lin, MPS or CPLEX LP file, as `vorn optimize`
    finds it: an OptimizeResult. ParseError when the file cannot be read, ValueError when it
    states no objective."""
    status, optimum, model, reason = _vorn.optimize_file(str(path))
    objective = None if optimum is None else Fraction(*optimum)
    values = {name: Fraction(*pair) for name, pair in model.items()}
    return OptimizeResult(status, objective, values, reason)
