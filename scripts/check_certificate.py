#!/usr/bin/env python3
"""Checks the certificates that `vorn check --certificate` and `vorn optimize --certificate`
print, and with --input FILE that they (and the models printed) are about the problem FILE
states, as read here, with no code of vorn.

    check_certificate.py [--input FILE [--objective-bound 'REL V']] [OUTPUT]

1481 lines, an afternoon's reading: the proof rules first, then the readers (SMT-LIB scripts,
MPS, CPLEX LP, .lin, DIMACS), then the comparison of certificates with the input. Trusted: the
readers here and exact arithmetic (fractions); docs/certificates.md describes the format.

Proof trees: every node is reached once from node 0; a disequality split names a != atom and its
children hold term < c and term > c; an integer split names an Int variable and an integer b,
its children hold var <= b and var >= b + 1; a Farkas leaf's bounds (atoms, or its ancestor
splits' on its side; an inequality over Int variables only counts with its bound rounded to the
integers) combine with positive multipliers into a constant K with every variable cancelled,
K < 0, or K = 0 with a strict bound; a gcd leaf names an equality over Int variables whose scaled
coefficients' gcd does not divide its constant; a lattice leaf combines equalities over Int
variables, with multipliers of any sign, into integer coefficients and a non-integer constant.
"format ray": a point satisfies every atom, and along the ray they keep holding while the
objective improves. "format clauses" (CDCL(T)): a lemma's Farkas multipliers combine the bounds
that the negations of its literals state into a contradiction (the same rule); a learned clause
follows from the clauses before it by unit propagation; the last consists of negated assumptions.
"format optimum" (a script objective, after sat): its refutation is a block of one of these kinds.

With --input, a proof tree's atoms are top-level conjuncts of the assertions and assumptions
active at its check-sat (or rows and bounds of an LP file); an optimum's extra atom is the file's
objective against the optimum; a clause proof's input clauses are Tseitin clauses of its
definitions or state conjuncts of the input (check_clause_input), the terms the tool lifts to
variables (ite, div, mod, to_int, abs) read through the certificate's definitions (Lifted); a
DIMACS refutation's input clauses are clauses of the file; models satisfy the input; a script
objective's optimum is refuted under the input and the earlier optima, and its model attains it
(check_optima). Formulas
are compared as normal forms built here (Formulas). Exit status 0 when every
certificate checks (and, without --input, there is at least one), 1 otherwise.
"""

import copy
import functools
import math
import operator
import re
import sys
import threading
from collections import defaultdict, namedtuple
from fractions import Fraction

UPPER = {"<=": False, "<": True, "=": False}  # relation -> strict, for the upper half
LOWER = {">=": False, ">": True, "=": False}


def parse_terms(words):
    terms = {}
    for word in words:
        var, coeff = word.split(":")
        terms[int(var)] = terms.get(int(var), Fraction(0)) + Fraction(coeff)
    return terms


def parse(lines):
    cert = {"vars": {}, "atoms": {}, "nodes": {}}
    for line in lines:
        words = line.split()
        if words[0] == "var":
            cert["vars"][int(words[1])] = words[2]
        elif words[0] == "atom":
            cert["atoms"][words[1]] = (words[2], Fraction(words[3]), parse_terms(words[4:]))
        elif words[0] == "node":
            cert["nodes"][int(words[1])] = words[2:]
        elif words[0] != "quotient":  # checked against the input only
            raise ValueError("unknown line: " + line)
    return cert


def split_bound(cert, split, high):
    """The bound (terms, c, upper, strict) that split node `split` asserts on one side."""
    node = cert["nodes"][split]
    if node[0] == "split-cut":
        return cut_side(cert, node, high)
    if node[0] == "split-ne":
        rel, c, terms = cert["atoms"][node[1]]
        if rel != "!=":
            raise ValueError("split-ne on a non-disequality")
        return terms, c, not high, True
    var, below = int(node[1]), Fraction(node[2])
    return {var: Fraction(1)}, below + 1 if high else below, not high, False


def rounded(rel, c, terms):
    """The constant of an integral atom's bound once rounded: with the term scaled to coprime
    integer coefficients (factor s), T <= c gives T <= floor(c), T < c gives T <= ceil(c) - 1,
    and the other way round for lower bounds; the bound is then non-strict."""
    scale = math.lcm(*(a.denominator for a in terms.values()))
    g = 0
    for a in terms.values():
        g = math.gcd(g, int(a * scale))
    s = Fraction(scale, g)
    cs = c * s
    k = {"<=": math.floor(cs), "<": math.ceil(cs) - 1, ">=": math.ceil(cs), ">": math.floor(cs) + 1}
    return Fraction(k[rel]) / s


def cut_children(node):
    """A cut split (`split-cut LOW HIGH REL C N:A ...`): its children."""
    if node[3] not in ("<=", "<", ">=", ">") or len(node) < 6:
        raise ValueError("a cut split on no inequality")
    return int(node[1]), int(node[2])


def cut_side(cert, node, high):
    """The bound (terms, c, upper, strict) on one side of a cut split: the inequality itself
    (high) or its negation (low). Any point satisfies one of them, so the low side's subtree
    derives the cut and the high side uses it; over Int variables only a side counts rounded
    (check_farkas rounds strict bounds, rounded() the non-strict one here)."""
    rel, c, terms = node[3], Fraction(node[4]), parse_terms(node[5:])
    if any(a == 0 for a in terms.values()):
        raise ValueError("a cut split with a zero coefficient")
    if not high:
        rel = {"<=": ">", "<": ">=", ">=": "<", ">": "<="}[rel]
    upper = rel in ("<=", "<")
    if rel in ("<=", ">=") and all(cert["vars"].get(v) == "Int" for v in terms):
        c = rounded(rel, c, terms)
    return terms, c, upper, rel in ("<", ">")


def check_farkas(cert, words, path):
    total, k, strict = {}, Fraction(0), False
    for word in words:
        kind, ref, side, mult = word.split(":")
        mult, upper = Fraction(mult), side == "u"
        if mult <= 0:
            raise ValueError("a non-positive multiplier")
        if kind == "atom":
            rel, c, terms = cert["atoms"][ref]
            halves = UPPER if upper else LOWER
            if rel not in halves:
                raise ValueError("atom %s has no %s half" % (ref, side))
            is_strict = halves[rel]
            if rel != "=" and terms and all(cert["vars"][v] == "Int" for v in terms):
                c, is_strict = rounded(rel, c, terms), False
        else:
            if int(ref) not in path:
                raise ValueError("split %s is not an ancestor" % ref)
            terms, c, bound_upper, is_strict = split_bound(cert, int(ref), path[int(ref)])
            if is_strict and terms and all(cert["vars"][v] == "Int" for v in terms):
                c, is_strict = rounded("<" if bound_upper else ">", c, terms), False
            if bound_upper != upper:
                raise ValueError("split %s used on the wrong side" % ref)
        sign = mult if upper else -mult  # upper: m(c - t) >= 0; lower: m(t - c) >= 0
        k += sign * c
        for var, coeff in terms.items():
            total[var] = total.get(var, Fraction(0)) - sign * coeff
        strict = strict or is_strict
    if any(coeff != 0 for coeff in total.values()):
        raise ValueError("a variable does not cancel")
    if not (k < 0 or (k == 0 and strict)):
        raise ValueError("the combination is no contradiction")


def check_gcd(cert, words):
    rel, c, terms = cert["atoms"][words[0]]
    if rel != "=" or any(cert["vars"][v] != "Int" for v in terms):
        raise ValueError("gcd leaf on no integer equality")
    scale = math.lcm(c.denominator, *(a.denominator for a in terms.values()))
    g = 0
    for a in terms.values():
        g = math.gcd(g, int(a * scale))
    if g == 0 or int(c * scale) % g == 0:
        raise ValueError("the gcd divides the constant")


def check_lattice(cert, words):
    """Equalities over Int variables with multipliers of any sign: integer coefficients and a
    non-integer constant in their sum leave no integer point."""
    total, k = {}, Fraction(0)
    for word in words:
        ref, mult = word.rsplit(":", 1)
        rel, c, terms = cert["atoms"][ref]
        if rel != "=" or any(cert["vars"][v] != "Int" for v in terms):
            raise ValueError("lattice leaf on no integer equality")
        k += Fraction(mult) * c
        for var, coeff in terms.items():
            total[var] = total.get(var, Fraction(0)) + Fraction(mult) * coeff
    if any(coeff.denominator != 1 for coeff in total.values()) or k.denominator == 1:
        raise ValueError("the lattice combination has integer solutions")


def check(cert):
    todo, seen = [(0, {})], set()
    while todo:
        index, path = todo.pop()
        if index in seen or index not in cert["nodes"]:
            raise ValueError("node %d missing or reused" % index)
        seen.add(index)
        node = cert["nodes"][index]
        if node[0] in ("split-ne", "split-int", "split-cut"):
            if node[0] == "split-int":
                if cert["vars"].get(int(node[1])) != "Int" or Fraction(node[2]).denominator != 1:
                    raise ValueError("integer split on a non-integer")
            low, high = (int(node[-2]), int(node[-1])) if node[0] != "split-cut" else \
                cut_children(node)
            todo.append((low, {**path, index: False}))
            todo.append((high, {**path, index: True}))
        elif node[0] == "farkas":
            check_farkas(cert, node[1:], path)
        elif node[0] == "gcd":
            check_gcd(cert, node[1:])
        elif node[0] == "lattice":
            check_lattice(cert, node[1:])
        else:
            raise ValueError("unknown node kind " + node[0])


class UnitPropagation:
    """Clauses under permanent unit propagation with two watched literals (the first two of a
    clause); clauses are never removed, so the base assignment only grows. `false` holds the
    negation of every literal of `true`, so that the scans need no negation."""

    def __init__(self):
        self.true, self.false, self.watches, self.trail = set(), set(), defaultdict(list), []
        self.head, self.inconsistent = 0, False

    def assign(self, lit):
        self.true.add(lit)
        self.false.add(-lit)
        self.trail.append(lit)

    def propagate(self):
        """False on a conflict."""
        true, false_lits, watches, trail = self.true, self.false, self.watches, self.trail
        while self.head < len(trail):
            false = -trail[self.head]
            self.head += 1
            ws, kept = watches[false], []
            watches[false] = kept
            for index, c in enumerate(ws):
                if c[0] == false:
                    c[0], c[1] = c[1], false
                first = c[0]
                if first in true:  # satisfied: it keeps its watch
                    kept.append(c)
                    continue
                for k in range(2, len(c)):
                    if c[k] not in false_lits:  # not false: it watches the clause now
                        c[1], c[k] = c[k], false
                        watches[c[1]].append(c)
                        break
                else:
                    kept.append(c)
                    if first in false_lits:
                        kept += ws[index + 1 :]
                        return False
                    true.add(first)
                    false_lits.add(-first)
                    trail.append(first)
        return True

    def add(self, clause):
        lits = list(dict.fromkeys(lit for lit in clause if lit not in self.false))
        if self.inconsistent or any(lit in self.true or -lit in lits for lit in lits):
            return
        for lit in lits[:2] if len(lits) > 1 else ():
            self.watches[lit].append(lits)
        if len(lits) == 1:
            self.assign(lits[0])
        self.inconsistent = not lits or not self.propagate()

    def implied(self, clause):
        """Whether assuming every literal of the clause false propagates to a conflict."""
        base, conflict = len(self.trail), self.inconsistent
        for lit in clause:
            conflict = conflict or lit in self.true
            if not conflict and lit not in self.false:
                self.assign(-lit)
        conflict = conflict or not self.propagate()
        undone = self.trail[base:]
        self.true.difference_update(undone)
        self.false.difference_update(-lit for lit in undone)
        del self.trail[base:]
        self.head = base
        return conflict


def literals(words):
    lits = [int(w) for w in words]
    if 0 in lits:
        raise ValueError("literal 0")
    return lits


def negated_bound(atoms, sorts, lit):
    """The bound that the negation of literal `lit` states (not V: the strict opposite of atom
    V; not -V: the atom itself), its term multiplied by scale / g to coprime integer
    coefficients: (scale, g, {var: int}, the constant so multiplied, upper, strict), over Int
    variables alone rounded as check_farkas rounds it (then non-strict, the constant an
    integer)."""
    rel, c, terms = atoms[abs(lit)]
    rel = {"<=": ">", ">=": "<"}[rel] if lit > 0 else rel
    scale = math.lcm(*(a.denominator for a in terms.values()))
    ints = {v: a.numerator * (scale // a.denominator) for v, a in terms.items()}
    g = math.gcd(*ints.values())
    ints, cs, strict = {v: a // g for v, a in ints.items()}, c * scale / g, rel in ("<", ">")
    if all(sorts[v] == "Int" for v in terms):
        k = {"<=": math.floor(cs), "<": math.ceil(cs) - 1, ">=": math.ceil(cs),
             ">": math.floor(cs) + 1}
        cs, strict = k[rel], False
    elif cs.denominator == 1:
        cs = cs.numerator
    return scale, g, ints, cs, rel in ("<=", "<"), strict


def ratio(word):
    """A rational P or P/Q as (P, Q), Q > 0."""
    p, _, q = word.partition("/")
    p, q = int(p), int(q or 1)
    if q <= 0:
        raise ValueError("bad number " + word)
    return p, q


def check_lemma(atoms, sorts, lits, mults, bounds):
    """The bounds that the negations of the literals state (multipliers as (P, Q)), combined by
    the Farkas rule of proof trees: over the terms scaled to integers (negated_bound, cached in
    `bounds` by literal), the multipliers brought to one denominator, so that the sums are of
    integers (of fractions only for the constants of Real bounds)."""
    if len(mults) != len(lits) or any(p < 0 for p, _ in mults):
        raise ValueError("%d multipliers for %d literals, or a negative one" % (len(mults),
                                                                                  len(lits)))
    used = []
    for lit, (p, q) in zip(lits, mults):
        if p > 0 and abs(lit) not in atoms:
            raise ValueError("literal %d is no atom" % lit)
        if p > 0:
            if lit not in bounds:
                bounds[lit] = negated_bound(atoms, sorts, lit)
            used.append((p, q, bounds[lit]))
    # With t = T·g/scale and c = C·g/scale: upper m(c - t) = m·g/scale·(C - T) >= 0, lower
    # m·g/scale·(T - C) >= 0; each multiplier m·g/scale times `common` is an integer.
    common = math.lcm(*(q * b[0] for _, q, b in used))
    total, k, strict = defaultdict(int), 0, False
    for p, q, (scale, g, ints, cs, upper, is_strict) in used:
        n = p * g * (common // (q * scale)) * (1 if upper else -1)
        k += n * cs
        for var, a in ints.items():
            total[var] -= n * a
        strict = strict or is_strict
    if any(coeff != 0 for coeff in total.values()):
        raise ValueError("a variable does not cancel")
    if not (k < 0 or (k == 0 and strict)):
        raise ValueError("the combination is no contradiction")


def check_hall(atoms, sorts, defines, lits, words):
    """A pigeonhole lemma 'hall A B N:C ...': the terms xN + C (Int xN, each its own, C an
    integer), more of them than the integers of [A, B]; the negations of the literals bound each
    term into [A, B]; and for each two terms some positive literal is an 'and' definition whose
    operands are atoms that all hold when the two terms are equal. Whenever the bounds hold, two
    terms are equal (pigeonhole), and that literal is true."""
    lo, hi = Fraction(words[0]), Fraction(words[1])
    terms = [(int(v), Fraction(c)) for v, c in (w.split(":") for w in words[2:])]
    vs = [v for v, _ in terms]
    if lo.denominator != 1 or hi.denominator != 1 or len(terms) < 2 or len(terms) <= hi - lo + 1:
        raise ValueError("pigeonhole: no more terms than integers in [%s, %s]" % (lo, hi))
    if len(set(vs)) != len(vs) or any(sorts.get(v) != "Int" or c.denominator != 1
                                      for v, c in terms):
        raise ValueError("pigeonhole: a term is no Int variable of its own plus an integer")
    low, high = {}, {}
    for lit in lits:
        if abs(lit) not in atoms or len(atoms[abs(lit)][2]) != 1:
            continue
        _, _, ints, cs, upper, _ = negated_bound(atoms, sorts, lit)
        (v, a), = ints.items()
        if sorts[v] != "Int":
            continue
        if upper == (a > 0):  # x <= a·cs
            high[v] = min(high.get(v, a * cs), a * cs)
        else:
            low[v] = max(low.get(v, a * cs), a * cs)
    for v, c in terms:
        if v not in low or v not in high or low[v] + c < lo or high[v] + c > hi:
            raise ValueError("pigeonhole: the clause does not bound variable %d into [%s, %s]"
                             % (v, lo, hi))
    ands = {v: ls for v, op, ls in defines if op == "and" and ls}
    equal = set()
    for lit in lits:
        pairs = set()
        for o in ands.get(lit, [None]):
            rel, c, t = atoms.get(abs(o or 0), (None, 0, {}))
            (x, a), (y, b) = (list(t.items()) + [(0, 0), (0, 0)])[:2]
            if len(t) != 2 or a != -b or x not in vs or y not in vs:
                pairs.add(None)
                continue
            value = a * (terms[vs.index(y)][1] - terms[vs.index(x)][1])  # at x + cx = y + cy
            holds = value <= c if rel == "<=" else value >= c
            pairs.add(frozenset((x, y)) if holds == (o > 0) else None)
        if len(pairs) == 1 and None not in pairs:
            equal |= pairs
    for i, v in enumerate(vs):
        for w in vs[i + 1:]:
            if frozenset((v, w)) not in equal:
                raise ValueError("pigeonhole: no literal holds when variables %d and %d meet"
                                 % (v, w))


def read_clauses(lines):
    """A clause proof's lines: sorts and atoms by variable, definitions [(var, op, literals)],
    Bool variables {var: name}, selectors, the assumptions and the steps."""
    p = {"sorts": {}, "atoms": {}, "defines": [], "bools": {}, "selects": set(), "assume": [],
         "steps": [], "boxes": {}}
    for line in lines:
        words = line.split()
        if words[0] == "var":
            p["sorts"][int(words[1])] = words[2]
        elif words[0] == "atom":
            var, rel, terms = int(words[1]), words[2], parse_terms(words[4:])
            if var <= 0 or var in p["atoms"] or rel not in ("<=", ">="):
                raise ValueError("bad atom " + words[1])
            if not terms or len(terms) < len(words) - 4 or 0 in terms.values():
                raise ValueError("atom %d: no variable, a repeated one or a zero coefficient" % var)
            p["atoms"][var] = (rel, Fraction(words[3]), terms)
        elif words[0] == "define":
            p["defines"].append((int(words[1]), words[2], literals(words[3:])))
        elif words[0] == "bool":
            p["bools"][int(words[1])] = unquote(line.split(maxsplit=2)[2])
        elif words[0] == "select":
            p["selects"].add(int(words[1]))
        elif words[0] == "box":
            if int(words[1]) <= 0 or int(words[1]) in p["boxes"]:
                raise ValueError("box %s: no guard of its own" % words[1])
            p["boxes"][int(words[1])] = int(words[2])
        elif words[0] == "quotient":  # checked against the input only
            continue
        elif words[0] == "assume":
            p["assume"] = literals(words[1:])
        elif words[0] in ("input", "learned", "lemma"):
            at = len(words)
            if words[0] == "lemma":
                at = next((k for k, w in enumerate(words) if w in ("farkas", "hall")), None)
                if at is None:
                    raise ValueError("a lemma without 'farkas' or 'hall'")
            # The justification as text ('farkas' and the multipliers, or 'hall' and its
            # interval and terms): only check_clauses reads it.
            p["steps"].append((words[0], literals(words[1:at]), words[at:]))
        else:
            raise ValueError("unknown line: " + line)
    return p


def check_clauses(lines):
    p = read_clauses(lines)
    sorts, atoms, steps = p["sorts"], p["atoms"], p["steps"]
    for var, (_, _, terms) in atoms.items():
        if any(sorts.get(v) not in ("Int", "Real") for v in terms):
            raise ValueError("atom %d is over an undeclared variable" % var)
    if not steps:
        raise ValueError("no steps")
    check_boxes(p)
    units, bounds = UnitPropagation(), {}
    for number, (kind, clause, mults) in enumerate(steps):
        try:
            if kind == "lemma" and mults[0] == "hall":
                check_hall(atoms, sorts, p["defines"], clause, mults[1:])
            elif kind == "lemma":
                check_lemma(atoms, sorts, clause, [ratio(m) for m in mults[1:]], bounds)
            elif kind == "learned" and not units.implied(clause):
                raise ValueError("does not follow by unit propagation")
        except ValueError as e:
            raise ValueError("step %d (%s): %s" % (number, kind, e))
        units.add(clause)
    kind, clause, _ = steps[-1]
    if kind != "learned" or any(-lit not in p["assume"] for lit in clause):
        raise ValueError("the last step is no learned clause of negated assumptions")


def check_ray(lines):
    """An unbounded optimization: the point satisfies every atom, and along the ray every atom
    keeps holding (its term does not move against its relation) while the objective improves.
    Int variables count as Real: the optimum is the LP relaxation's."""
    atoms, objective, point, ray, sense = [], {}, {}, {}, None
    for line in lines:
        words = line.split()
        if words[0] == "var":
            continue
        if words[0] == "atom":
            atoms.append((words[2], Fraction(words[3]), parse_terms(words[4:])))
        elif words[0] == "objective":
            sense, objective = words[1], parse_terms(words[2:])
        elif words[0] in ("point", "ray"):
            (point if words[0] == "point" else ray).update(parse_terms(words[1:]))
        else:
            raise ValueError("unknown line: " + line)
    value = lambda terms, at: sum(a * at.get(v, Fraction(0)) for v, a in terms.items() if v)
    for rel, c, terms in atoms:
        at, move = value(terms, point), value(terms, ray)
        holds = {"<=": at <= c, "<": at < c, ">=": at >= c, ">": at > c, "=": at == c}
        keeps = {"<=": move <= 0, "<": move <= 0, ">=": move >= 0, ">": move >= 0, "=": move == 0}
        if rel not in holds or not holds[rel]:
            raise ValueError("the point violates an atom")
        if not keeps[rel]:
            raise ValueError("the ray leaves an atom")
    gain = value(objective, ray)
    if sense not in ("min", "max") or not (gain < 0 if sense == "min" else gain > 0):
        raise ValueError("the ray does not improve the objective")


# ---- The input, read by the checker itself ------------------------------------------------
# An atom is (rel, c, terms) with terms {variable name: coefficient}: Σ a·x REL c. A problem is
# what one check-sat (or an LP file) asks: its top-level literals (which a proof tree may take
# as hypotheses), the declared sorts, and the formulas (which a model must satisfy and a clause
# proof's input clauses must follow from).

NEGATE = {"<=": ">", "<": ">=", ">=": "<", ">": "<=", "=": "!=", "!=": "="}
FLIP = {"<=": ">=", "<": ">", ">=": "<=", ">": "<", "=": "=", "!=": "!="}


class InputError(ValueError):
    pass


def canonical(rel, c, terms, sorts):
    """A key equal for bounds (REL <= or >=) that state the same: over Int variables only,
    rounded to the integers; then divided by the first coefficient (the relation turned round
    when it is negative); a bound without variables is true or false."""
    terms = {v: a for v, a in terms.items() if a != 0}
    if not terms:
        return ("true",) if (0 <= c if rel == "<=" else 0 >= c) else ("false",)
    if all(sorts.get(v) == "Int" for v in terms):
        c = rounded(rel, c, terms)
    s = terms[min(terms)]
    return (FLIP[rel] if s < 0 else rel, c / s, tuple(sorted((v, a / s) for v, a in terms.items())))


TOKEN = re.compile(r'\s+|;[^\n]*|([()])|\|([^|]*)\|?|"((?:[^"]|"")*)"?|([^\s();|"]+)')


def symbol(name):
    """A symbol's one name: bare when it is a simple symbol (|x| is x), in bars otherwise (|1|
    is no numeral)."""
    return name if SIMPLE.match(name) else "|%s|" % name


SIMPLE = re.compile(r"[A-Za-z~!@$%^&*_+=<>.?/-][0-9A-Za-z~!@$%^&*_+=<>.?/-]*\Z")


def tokenize(text):
    """Parentheses, symbols (symbol) and ("str", text) for strings."""
    tokens = []
    for m in TOKEN.finditer(text):
        paren, quoted, string, word = m.groups()
        if paren or word or quoted is not None:
            tokens.append(paren or word or symbol(quoted))
        elif string is not None:
            tokens.append(("str", string))
    return tokens


def sexprs(tokens):
    stack = [[]]
    for t in tokens:
        if t == "(":
            stack.append([])
        elif t == ")" and len(stack) > 1:
            done = stack.pop()
            stack[-1].append(done)
        else:
            stack[-1].append(t)
    return stack[0]


def number(word):
    if isinstance(word, str) and word[:1].isdigit():
        return Fraction(word)
    return None


class Script:
    """Declarations, definitions and assertions by push level, read command by command."""

    def __init__(self):
        self.ever_declared = {}
        self.reset()

    def reset(self):
        self.levels = [{"sorts": {}, "defs": {}, "asserts": [], "objectives": []}]

    def lookup(self, key, name):
        return next((level[key][name] for level in reversed(self.levels) if name in level[key]),
                    None)

    def expand(self, e, env, declared=False):
        """The expression with lets, definitions, names and annotations substituted away; with
        declared, a constant defined by an assertion (= x t) stays x (the tool reads so what
        outlives the assertion: a constant's define-fun, an assertion that names a term)."""
        if isinstance(e, tuple) or e == []:
            raise InputError("a string or an empty application")
        if not isinstance(e, list):
            d = env[e] if e in env else self.lookup("defs", e)
            if declared and isinstance(d, tuple) and len(d) == 3:
                d = None
            if d is None and number(e) is None and e not in ("true", "false") and \
                    not self.lookup("sorts", e):
                raise InputError("undeclared symbol " + e)
            if isinstance(d, tuple) and d[0]:
                raise InputError("%s needs arguments" % e)
            return e if d is None else d if e in env else d[1]
        if e[0] == "let":
            inner = dict(env)
            for name, value in e[1]:
                inner[name] = self.expand(value, env, declared)
            return self.expand(e[2], inner, declared)
        if e[0] == "!":
            body = self.expand(e[1], env, declared)
            for k in range(2, len(e) - 1):
                if e[k] == ":named":
                    self.levels[-1]["defs"][e[k + 1]] = ([], body)
            return body
        args = [self.expand(a, env, declared) for a in e[1:]]
        d = self.lookup("defs", e[0]) if isinstance(e[0], str) else None
        if d is not None and d[0]:
            return self.expand(d[1], dict(zip(d[0], args)))
        if e[0] == "abs" and len(args) == 1:  # the tool's reading: an ite on t >= 0
            return ["ite", [">=", args[0], "0"], args[0], ["-", args[0]]]
        return [e[0]] + args

    def command(self, cmd):
        """Returns ("check", assumptions) for a check-sat, None otherwise."""
        head = cmd[0]
        top = self.levels[-1]
        if head in ("declare-const", "declare-fun"):
            sort = "Fun" if head == "declare-fun" and cmd[2] else cmd[-1]
            top["sorts"][cmd[1]] = sort if isinstance(sort, str) else "Other"
            self.ever_declared[cmd[1]] = top["sorts"][cmd[1]]
        elif head == "define-fun":
            params = [p[0] for p in cmd[2]]
            body = self.expand(cmd[4], {p: p for p in params}, not params)
            top["defs"][cmd[1]] = (params, body)
        elif head == "assert":
            names = mentions(cmd[1], ":named")
            f = self.expand(cmd[1], {}, names)
            top["asserts"].append(f)
            # The tool's reading of (= x t), x a declared Int or Real constant that t's text
            # does not mention: x stands for t in later terms, while the assertion holds.
            if not names and isinstance(cmd[1], list) and len(cmd[1]) == 3 and \
                    cmd[1][0] == "=" and isinstance(cmd[1][1], str) and self.lookup("defs", cmd[1][1]) is None and \
                    self.lookup("sorts", cmd[1][1]) in ("Int", "Real") and \
                    not mentions(cmd[1][2], cmd[1][1]) and self.finite(f[2]):
                top["defs"][cmd[1][1]] = ([], f[2], "assert")  # goes with the assertions
        elif head == "push":
            for _ in range(int(cmd[1]) if len(cmd) > 1 else 1):
                self.levels.append({"sorts": {}, "defs": {}, "asserts": [], "objectives": []})
        elif head == "pop":  # popping every level is an error: nothing changes
            k = int(cmd[1]) if len(cmd) > 1 else 1
            if k < len(self.levels):
                self.levels = self.levels[: len(self.levels) - k]
        elif head == "reset":
            self.reset()
        elif head == "reset-assertions":
            self.levels = [self.levels[0]]
            self.levels[0]["asserts"] = []
            self.levels[0]["defs"] = {k: d for k, d in self.levels[0]["defs"].items()
                                      if len(d) == 2}
            self.levels[0]["objectives"] = []
        elif head in ("minimize", "maximize"):
            top["objectives"].append((head[:3], self.expand(cmd[1], {})))
        elif head == "assert-soft":  # one objective per :id and level: violated weight, minimized
            attributes = dict(zip(cmd[2::2], cmd[3::2]))
            ite = ["ite", self.expand(cmd[1], {}), "0", self.expand(attributes.get(":weight", "1"), {})]
            group = [k for k, o in enumerate(top["objectives"]) if o[2:] == (attributes.get(":id", ""),)]
            if group:
                o = top["objectives"][group[0]]
                top["objectives"][group[0]] = ("min", ["+", o[1], ite], o[2])
            else:
                top["objectives"].append(("min", ite, attributes.get(":id", "")))
        elif head == "check-sat" and len(cmd) == 1:
            return ("check", [])
        elif head == "check-sat-assuming" and len(cmd) == 2:
            return ("check", [self.expand(a, {}) for a in cmd[1]])
        return None

    def finite(self, t):
        """Whether the term t, read as the tool reads it (linear forms, ites folded), is a
        constant or a·v + b for a term ite v of finitely many values: (- (* 2 y) y y) is 0."""
        sorts = {k: v for level in self.levels for k, v in level["sorts"].items()}
        memo = {}
        ites = Lifted(Formulas(sorts), memo)
        try:
            return ites.values(lin(t, sorts, ites)) is not None
        except (InputError, KeyError, IndexError, TypeError):
            return False

    def problem(self, assumptions):
        """Sorts of popped declarations stay: a proof's closed levels may name them."""
        return Problem(dict(self.ever_declared),
                       [f for level in self.levels for f in level["asserts"]] + assumptions,
                       [o for level in self.levels for o in level["objectives"]])


def mentions(e, name, seen=None):
    """Whether the symbol name occurs in e; each shared subterm visited once."""
    seen = set() if seen is None else seen
    if isinstance(e, str) or id(e) in seen:
        return e == name
    seen.add(id(e))
    return any(mentions(a, name, seen) for a in e)


def lin(e, sorts, ites=None):
    """A term as (terms, constant); an InputError when it is not linear in declared variables.
    A term ite, div, mod or to_int is what ites(e) gives (Lifted), when ites is given. Read once
    for each node under ites (its terms: by id): let chains share subterms, which read anew at
    every use would cost exponential time."""
    if isinstance(e, str):
        if number(e) is None and sorts.get(e) not in ("Int", "Real"):
            raise InputError("unknown term " + e)
        return ({}, number(e)) if number(e) is not None else ({e: Fraction(1)}, Fraction(0))
    known = getattr(ites, "terms", None)
    if known is None:
        return compound_lin(e, sorts, ites)
    if id(e) not in known:
        known[id(e)] = compound_lin(e, sorts, ites)
    return known[id(e)]


def compound_lin(e, sorts, ites):
    if e[0] in ("ite", "div", "mod", "to_int"):
        if ites is None:
            raise InputError("a term " + e[0])
        return ites(e)
    op, args = e[0], [lin(a, sorts, ites) for a in e[1:]]
    if op == "+" or op == "to_real":
        return scaled_sum((1, a) for a in args)
    if op == "-":
        return scaled_sum([(-1 if len(args) == 1 else 1, args[0])] + [(-1, a) for a in args[1:]])
    if op == "*" and len([t for t, _ in args if t]) < 2:
        k = math.prod((d for t, d in args if not t), start=Fraction(1))
        return scaled_sum([(k, next(((t, d) for t, d in args if t), ({}, Fraction(1))))])
    if op == "/" and all(not t and d != 0 for t, d in args[1:]):
        return scaled_sum([(1 / math.prod(d for _, d in args[1:]), args[0])])
    raise InputError("unsupported term " + str(op))


def scaled_sum(parts):
    """The sum of k·(terms, constant) over the pairs (k, (terms, constant))."""
    terms, c = {}, Fraction(0)
    for k, (t, d) in parts:
        for v, a in t.items():
            terms[v] = terms.get(v, 0) + k * a
        c += k * d
    return terms, c


ARITH_RELS = ("<=", "<", ">=", ">", "=", "distinct")


def is_bool(e, sorts):
    if isinstance(e, str):
        return e in ("true", "false") or sorts.get(e) == "Bool"
    return e[0] in ("and", "or", "not", "=>", "xor", "=", "<=", "<", ">=", ">", "distinct",
                    "is_int") or divisible(e) or (e[0] == "ite" and is_bool(e[2], sorts))


def divisible(e):
    """k when e is ((_ divisible k) t), else None."""
    h = e[0] if isinstance(e, list) else None
    return number(h[2]) if isinstance(h, list) and h[:2] == ["_", "divisible"] else None


def euclidean(t, d):
    """The Euclidean quotient q of t by d: 0 <= t - d·q < |d|."""
    return Fraction(math.floor(t / d) if d > 0 else math.ceil(t / d))


def atoms_of(e, sorts, ites=None):
    """A comparison (a chain, =, distinct) as its list of atoms."""
    op, args = e[0], [lin(a, sorts, ites) for a in e[1:]]
    pairs = [(args[i], args[j]) for i in range(len(args)) for j in range(i + 1, len(args))] \
        if op == "distinct" else list(zip(args, args[1:]))
    sums = (scaled_sum([(1, t), (-1, u)]) for t, u in pairs)
    return [("!=" if op == "distinct" else op, -c, terms) for terms, c in sums]


Problem = namedtuple("Problem", "sorts formulas objectives", defaults=[()])  # what a check-sat asks


EVAL = {"and": all, "or": any, "not": lambda v: not v[0], "=>": lambda v: not all(v[:-1]) or v[-1],
        "xor": lambda v: sum(map(bool, v)) % 2 == 1, "distinct": lambda v: len(set(v)) == len(v),
        "+": lambda v: sum(v, Fraction(0)), "to_real": lambda v: v[0],
        "-": lambda v: -v[0] if len(v) == 1 else v[0] - sum(v[1:], Fraction(0)),
        "*": lambda v: math.prod(v, start=Fraction(1)),
        "/": lambda v: v[0] / math.prod(v[1:], start=Fraction(1)),
        "div": lambda v: functools.reduce(euclidean, v), "to_int": lambda v: euclidean(v[0], 1),
        "mod": lambda v: v[0] - v[1] * euclidean(v[0], v[1]),
        "is_int": lambda v: v[0].denominator == 1}
EVAL.update({rel: lambda v, holds=holds: all(map(holds, v, v[1:])) for rel, holds in (
    ("=", operator.eq), ("<=", operator.le), ("<", operator.lt), (">=", operator.ge),
    (">", operator.gt))})


def eval_smt(e, model, memo=None):
    """The value of e; each shared subterm once (memo, by identity)."""
    if isinstance(e, str):
        if e in ("true", "false"):
            return e == "true"
        if number(e) is None and e not in model:
            raise ValueError("the model has no value for " + e)
        return model[e] if number(e) is None else number(e)
    memo = {} if memo is None else memo
    if id(e) not in memo:
        if e[0] == "ite":
            v = eval_smt(e[2] if eval_smt(e[1], model, memo) else e[3], model, memo)
        elif divisible(e):
            v = eval_smt(e[1], model, memo) % divisible(e) == 0
        elif not isinstance(e[0], str) or e[0] not in EVAL:
            raise ValueError("cannot evaluate " + str(e[0]))
        else:
            v = EVAL[e[0]]([eval_smt(x, model, memo) for x in e[1:]])
        memo[id(e)] = v
    return memo[id(e)]


def model_value(e):
    if isinstance(e, str):
        return e == "true" if e in ("true", "false") else Fraction(e)
    if e[0] == "-":
        return -model_value(e[1])
    if e[0] == "/":
        return model_value(e[1]) / model_value(e[2])
    raise ValueError("a model value that is no number")


# ---- LP files: MPS, CPLEX LP, .lin, and DIMACS ---------------------------------------------

class LPProblem:
    """Rows and bounds of an LP file as atoms, its objective (terms, constant) and sense."""

    def __init__(self):
        self.atoms, self.sorts, self.objective, self.sense = [], {}, ({}, Fraction(0)), "min"

    def relaxed(self, columns):
        """The problem with the given Int columns taken as Real."""
        p = copy.copy(self)
        p.sorts = {v: "Real" if v in columns else s for v, s in self.sorts.items()}
        return p

    def finish(self, bound=None):
        """Adds `objective REL V` for the bound; names columns as symbol() does."""
        if bound:
            rel, value = bound
            self.atoms.append((rel, Fraction(value) - self.objective[1], self.objective[0]))
        named = lambda terms: {symbol(v): a for v, a in terms.items()}
        self.atoms = [(rel, c, named(terms)) for rel, c, terms in self.atoms]
        self.sorts, self.objective = named(self.sorts), (named(self.objective[0]),
                                                         self.objective[1])
        return self


def infinite(q):
    """An MPS value: a magnitude of 10^30 or more is infinite."""
    return q if q is None or abs(q) < 10 ** 30 else math.copysign(INF, q)


def read_mps(text):
    p, section, rows, kinds, obj, integer = LPProblem(), None, {}, {}, None, False
    rhs, ranges, lower, upper = {}, {}, {}, {}
    for line in text.splitlines():
        if not line.strip() or line.startswith("*"):
            continue
        words = line.split()
        if not line[0].isspace():
            section = words[0]
            if section == "OBJSENSE" and len(words) > 1:
                p.sense = "max" if words[1].upper().startswith("MAX") else "min"
            continue
        if section == "OBJSENSE":
            p.sense = "max" if words[0].upper().startswith("MAX") else "min"
        elif section == "ROWS":
            kinds[words[1]] = words[0].upper()
            if words[0].upper() == "N" and obj is None:
                obj = words[1]
            rows[words[1]] = {}
        elif section == "COLUMNS":
            if len(words) > 2 and words[1] == "'MARKER'":
                integer = "INTORG" in words[2]
                continue
            col = words[0]
            if col not in p.sorts:
                p.sorts[col] = "Int" if integer else "Real"
                lower[col] = Fraction(0)
            for r, v in zip(words[1::2], words[2::2]):
                rows[r][col] = rows[r].get(col, 0) + Fraction(v)
        elif section in ("RHS", "RANGES"):
            pairs = words[1:] if len(words) % 2 else words
            for r, v in zip(pairs[::2], pairs[1::2]):
                (rhs if section == "RHS" else ranges)[r] = Fraction(v)
        elif section == "BOUNDS":
            kind, col = words[0].upper(), words[2]
            v = Fraction(words[3]) if len(words) > 3 else None
            if kind in ("UP", "UI") and v is not None and v < 0 and lower.get(col) == 0:
                lower[col] = None  # a negative upper bound alone frees the lower one
            if kind in ("LO", "LI", "FX", "FR", "MI", "BV"):
                lower[col] = {"FR": None, "MI": None, "BV": Fraction(0)}.get(kind, v)
            if kind in ("UP", "UI", "FX", "FR", "BV"):
                upper[col] = {"FR": None, "BV": Fraction(1)}.get(kind, v)
            if kind in ("LI", "UI", "BV"):
                p.sorts[col] = "Int"
    for r, terms in rows.items():
        b, kind = rhs.get(r, Fraction(0)), kinds[r]
        if kind == "N":
            if r == obj:
                p.objective = (terms, -b)
            continue
        lo, hi = {"E": (b, b), "L": (None, b), "G": (b, None)}[kind]
        if r in ranges:
            q = ranges[r]
            lo, hi = {"E": (b + min(q, 0), b + max(q, 0)), "L": (b - abs(q), b),
                      "G": (b, b + abs(q))}[kind]
        add_bounds(p, terms, infinite(lo), infinite(hi))
    for col in p.sorts:
        add_bounds(p, {col: Fraction(1)}, infinite(lower.get(col)), infinite(upper.get(col)))
    return p


def add_bounds(p, terms, lo, hi):
    """lo <= terms <= hi, a bound None when there is none (lp_atom: the infinite ones)."""
    if lo is not None and lo == hi and abs(lo) != INF:
        return p.atoms.append(("=", lo, terms))
    p.atoms += [lp_atom(rel, b, terms) for rel, b in ((">=", lo), ("<=", hi)) if b is not None]


def lin_text(text, sorts):
    """A .lin side: sums of [number [*|/ number]...] [*] [variable] terms."""
    terms, c = {}, Fraction(0)
    for sign, body in re.findall(r"([+-]?)\s*([^+-]+)", text.replace(" ", "")):
        m = re.fullmatch(r"([0-9./*]*?)\*?([A-Za-z_][A-Za-z0-9_]*)?", body)
        factor = Fraction(1)
        if m.group(1):
            expr = m.group(1).strip("*")
            parts = re.split(r"([*/])", expr)
            factor = Fraction(parts[0])
            for op, q in zip(parts[1::2], parts[2::2]):
                factor = factor * Fraction(q) if op == "*" else factor / Fraction(q)
        factor = -factor if sign == "-" else factor
        if m.group(2):
            sorts.setdefault(m.group(2), "Real")
            terms[m.group(2)] = terms.get(m.group(2), 0) + factor
        else:
            c += factor
    return terms, c


def read_lin(text):
    p = LPProblem()
    for line in text.splitlines():
        line = line.split("#")[0].strip()
        if line:
            left, right = line.split("=")
            t, c = scaled_sum([(1, lin_text(left, p.sorts)), (-1, lin_text(right, p.sorts))])
            p.atoms.append(("=", -c, t))
    return p


LP_SECTIONS = {"minimize": "min", "minimum": "min", "min": "min", "maximize": "max",
               "maximum": "max", "max": "max", "subject to": "st", "such that": "st", "st": "st",
               "s.t.": "st", "bounds": "bounds", "bound": "bounds", "general": "int",
               "generals": "int", "gen": "int", "binary": "bin", "binaries": "bin", "bin": "bin",
               "end": "end"}
LP_TOKEN = re.compile(r"<=|=<|>=|=>|[<>=:+-]|(?:[0-9]+\.?[0-9]*|\.[0-9]+)(?:[eE][+-]?[0-9]+)?"
                      r"(?![0-9])|[^\s<>=:+-]+")
LP_REL = {"<=": "<=", "=<": "<=", "<": "<=", ">=": ">=", "=>": ">=", ">": ">=", "=": "="}
INF = float("inf")  # an LP file's infinity; exact numbers stay Fractions


def lp_number(tok):
    if tok.lower() in ("inf", "infinity"):
        return INF
    return Fraction(tok) if re.fullmatch(r"[0-9.]+([eE][+-]?[0-9]+)?", tok) else None


def lp_expr(toks, k, sorts, constant=False):
    """A sum of terms from toks[k] (only a signed number when `constant`): terms, constant,
    the next index. A term without a sign before it starts the next statement."""
    terms, c, first = {}, Fraction(0), True
    while k < len(toks) and toks[k] not in LP_REL and toks[k + 1 : k + 2] != [":"]:
        sign, start = 1, k
        while toks[k] in ("+", "-"):
            sign, k = (-sign if toks[k] == "-" else sign), k + 1
        if not first and start == k:
            return terms, c, start
        q = lp_number(toks[k])
        if q is not None:
            k += 1
            if constant or k == len(toks) or lp_number(toks[k]) is not None or \
                    toks[k] in LP_REL or toks[k] in ("+", "-", ":"):
                c, first = c + sign * q, False
                if constant:
                    break
                continue
            sign *= q
        sorts.setdefault(toks[k], "Real")
        terms[toks[k]] = terms.get(toks[k], 0) + sign
        k, first = k + 1, False
    return terms, c, k


def read_cplex_lp(text):
    p, section, parts = LPProblem(), None, {}
    for line in text.splitlines():
        line = line.split("\\")[0].strip()
        key = LP_SECTIONS.get(" ".join(line.lower().split()))
        if key:
            section = key
            p.sense = key if key in ("min", "max") else p.sense
        elif line and section == "bounds":  # a bound a line: `lo <= x` ends there
            parts.setdefault(section, []).append(LP_TOKEN.findall(line))
        elif line and section:
            parts.setdefault(section, []).extend(LP_TOKEN.findall(line))
    toks = parts.get(p.sense, [])
    p.objective = lp_expr(toks, 2 if toks[1:2] == [":"] else 0, p.sorts)[:2]
    lower, upper = {}, {}
    for kind, toks in [("st", parts.get("st", []))] + [("bounds", b) for b in parts.get("bounds", [])]:
        k = 0
        while k < len(toks):
            k += 2 if toks[k + 1 : k + 2] == [":"] else 0
            if kind == "bounds" and toks[k + 1].lower() == "free":
                lower[toks[k]], k = -INF, k + 2
                p.sorts.setdefault(toks[k - 2], "Real")
                continue
            left, lc, k = lp_expr(toks, k, p.sorts)
            rel = LP_REL[toks[k]]
            right, rc, k = lp_expr(toks, k + 1, p.sorts, bool(left))
            sides = [(left, lc, rel, right, rc)]
            if not left and k < len(toks) and toks[k] in LP_REL:  # lo <= expr <= hi
                rel2 = LP_REL[toks[k]]
                _, hc, k = lp_expr(toks, k + 1, p.sorts, True)
                sides = [(right, rc, FLIP[rel], {}, lc), (right, rc, rel2, {}, hc)]
                if lc == hc and rel == rel2 == "<=":
                    sides = [(right, rc, "=", {}, lc)]
            for terms, c, r, other, d in sides:
                terms, bound = scaled_sum([(1, (terms, c)), (-1, (other, d))])
                bound = -bound
                if len(terms) == 1 and next(iter(terms.values())) == -1:
                    terms, bound, r = {v: 1 for v in terms}, -bound, FLIP[r]
                v = next(iter(terms))
                if kind == "bounds" and len(terms) == 1 and terms[v] == 1:
                    if r in ("<=", "="):
                        upper[v] = bound
                    if r in (">=", "="):
                        lower[v] = bound
                else:
                    p.atoms.append(lp_atom(r, bound, terms))
    for name in parts.get("int", []) + parts.get("bin", []):
        p.sorts[name] = "Int"
        if name in parts.get("bin", []):
            lower[name], upper[name] = Fraction(0), Fraction(1)
    for v in p.sorts:
        add_bounds(p, {v: Fraction(1)}, lower.get(v, Fraction(0)), upper.get(v, INF))
    return p


def lp_atom(rel, bound, terms):
    """terms REL bound; an infinite bound leaves a true atom (bounding nothing) or the false one."""
    if abs(bound) != INF:
        return (rel, bound, terms)
    holds = (rel == "<=" and bound > 0) or (rel == ">=" and bound < 0)
    return (">=", Fraction(-1 if holds else 1), {})


def read_dimacs(text):
    clauses = [[]]
    for w in (w for line in text.splitlines() if line[:1] not in "cp%" for w in line.split()):
        if w == "0":
            clauses.append([])
        else:
            clauses[-1].append(int(w))
    return clauses if clauses[-1] else clauses[:-1]


# ---- Certificates against the problem ------------------------------------------------------

def unquote(name):
    """A printed name as the readers here name it (symbol)."""
    return symbol(name[1:-1]) if len(name) > 1 and name[0] == name[-1] == "|" else name


def cert_names(lines, problem):
    """By certificate variable: its name, checked against the declarations (a name the input
    declares has the sort declared), and the sorts of the others, variables the tool introduced
    (for a term ite) named #N after their number."""
    names, sorts = {}, dict(problem.sorts)
    for words in (line.split(maxsplit=3) for line in lines if line.startswith("var ")):
        name, n, sort = unquote(words[3]) if len(words) > 3 else "", int(words[1]), words[2]
        relaxed = isinstance(problem, LPProblem) and sort == "Real"
        if name in problem.sorts and problem.sorts[name] != sort and not relaxed:
            raise ValueError("variable %s is %s, not %s" % (name, problem.sorts[name], sort))
        if name not in problem.sorts and not ("@" in name and isinstance(problem, Problem)):
            raise ValueError("variable %s is not declared in the input" % name)
        names[n] = name if name in problem.sorts else "#%d" % n
        sorts.setdefault(names[n], sort)
    return names, sorts


def quotient_lines(lines, names, F, values=None):
    """By (dividend, divisor), the names of the variables that its quotient lines define, and
    the bounds that define them all: 0 <= t - d·q < |d|. Each is an Int variable the tool
    introduced, defined once, by a dividend over variables numbered below it (no cycle); the
    dividend read with values' terms in place of their variables (clause_meanings)."""
    keys, bounds, seen = defaultdict(set), set(), set()
    for words in (line.split() for line in lines if line.startswith("quotient ")):
        v, d, q = int(words[1]), Fraction(words[2]), names[int(words[1])]
        terms, c = named_terms(words[3:], names), parse_terms(words[3:]).get(0, Fraction(0))
        if q[0] != "#" or F.sorts.get(q) != "Int" or d == 0 or v in seen or \
                any(x[0] == "#" and int(x[1:]) >= v for x in terms):
            raise ValueError("bad quotient line for variable %d" % v)
        seen.add(v)
        terms, c = substituted(terms, c, values or {})
        keys[affine(terms, c), d].add(q)
        rest, k = scaled_sum([(1, (terms, c)), (-d, ({q: Fraction(1)}, Fraction(0)))])
        bounds |= {F.atom(">=", -k, rest), F.atom("<", abs(d) - k, rest)}
    return keys, bounds


def number_of(name):
    return int(name[1:])


def lowest(groups):
    """By key, the lowest-numbered of the names that the key defines alike."""
    return {key: min(names, key=number_of) for key, names in groups.items()}


def aliased(read, names, substitute=False):
    """read(names) gives (result, groups of names that their definitions make equal); read
    again with each group named by its lowest-numbered name, until no group merges more. In
    a model every variable takes its definition's value, over variables numbered lower, so
    variables with equal definitions are equal and one name serves them all. With substitute,
    read(names, values) also gives the variables defined as one term (v = t, a term ite whose
    condition the tool found constant): read again with each replaced by its term (values, by
    name), which its value is in such a model, until no more are found."""
    values = {}
    while True:
        result, groups, found = read(names, values) if substitute else read(names) + ({},)
        low = {n: min(g, key=number_of) for g in groups for n in g}
        merged = {v: low.get(n, n) for v, n in names.items()}
        if merged == names and found.keys() <= values.keys():
            return result
        names, to = merged, lambda v: low.get(v, v)
        values.update((v, t) for v, t in found.items() if v not in values)
        values = {to(v): (renamed(dict(t), to), k) for v, (t, k) in values.items()}
        if any(x[0] == "#" and number_of(x) >= number_of(v) for v, (t, _) in values.items()
               for x in t):
            raise ValueError("a definition names a variable numbered as high as its own")


def named_terms(words, names):
    """A certificate's term by the variables' names, summed where names coincide (aliased); its
    constant (0:c) left out."""
    return renamed(parse_terms(words), names)


def renamed(terms, names):
    """terms by names[v] (a dict or a function), summed where names coincide; no constant."""
    out, name = {}, names if callable(names) else names.__getitem__
    for v, a in terms.items():
        if v:
            out[name(v)] = out.get(name(v), 0) + a
    return out


def substituted(terms, c, values):
    """terms REL c with each variable that values gives a term for replaced by it, again in
    the terms it brings (each names only variables numbered below its own: no cycle)."""
    terms, c = dict(terms), Fraction(c)
    while any(v in values for v in terms):
        v = next(v for v in terms if v in values)
        (t, k), a = values[v], terms.pop(v)
        for x, b in t.items():
            terms[x] = terms.get(x, 0) + a * b
        c -= a * k
    return terms, c


def conjuncts(F, problem, ites=None, memo=None):
    """The top-level conjuncts of the problem's formulas (an LP file's rows and bounds); all of
    them (None) when one is false: everything follows then."""
    out, memo = {0}, {} if memo is None else memo
    ites = Lifted(F, memo) if ites is None else ites
    for e in problem.formulas if isinstance(problem, Problem) else problem.atoms:
        try:
            out.update(F.split(formula(F, e, memo, ites) if isinstance(problem, Problem)
                               else F.atom(*e)))
        except (InputError, KeyError, IndexError, TypeError):
            pass  # outside the fragment: what it would justify is rejected
    return None if 1 in out else out


def check_against(lines, problem, optimum=None):
    """Every atom of a proof tree is a top-level literal of the problem; an optimum's extra atom
    is the file's objective against the optimum; a ray lists every atom of the problem; a
    clause proof's input clauses follow from the problem (check_clause_input)."""
    kind = lines[0] if lines and lines[0].startswith("format") else "tree"
    body = lines[1:] if kind != "tree" else lines
    if kind == "format clauses":
        return check_clause_input(body, problem)
    if isinstance(problem, LPProblem):  # the relaxation's certificate names Int columns Real
        relaxed = {unquote(w.split(maxsplit=3)[3]) for w in body if w.startswith("var ") and
                   w.split()[2] == "Real"} & {v for v, s in problem.sorts.items() if s == "Int"}
        if relaxed:
            problem = problem.relaxed(relaxed)
    (names, sorts), seen = cert_names(body, problem), set()

    def read(names):
        F, memo = Formulas(sorts), {}
        quotients, bounds = quotient_lines(body, names, F)
        leaves = conjuncts(F, problem, Lifted(F, memo, {}, lowest(quotients)), memo)
        return (F, names, leaves if leaves is None else leaves | bounds), quotients.values()
    F, names, leaves = aliased(read, names)
    for line in body:
        words = line.split()
        if words[0] != "atom":
            continue
        rel, c, terms = words[2], Fraction(words[3]), named_terms(words[4:], names)
        atom = F.atom(rel, c, terms)
        if F.follows(atom, leaves):
            seen |= F.split(atom)
        elif optimum is not None and is_objective(problem, rel, c, terms, optimum):
            optimum = None  # one objective atom
        else:
            raise ValueError("atom %s is no atom of the input" % words[1])
    if kind == "format ray":
        if leaves is None or not leaves - {0} <= seen:
            raise ValueError("the ray does not list every atom of the input")
        for line in body:
            if line.startswith("objective"):
                words = line.split()
                terms = named_terms(words[2:], names)
                if words[1] != problem.sense or not same_term(terms, problem.objective[0]):
                    raise ValueError("the ray's objective is not the file's")


# ---- Clause proofs against the input -------------------------------------------------------
# A formula is a number, node index · 2 + negation bit, each node stored once, node 0 true (so
# 0 is true and 1 false): equal formulas are equal numbers. The constructors fold what the tool's
# encoder folds (constants, repeated and complementary operands, a constant condition) and put
# operands in one order; every rule is an equivalence, applied alike to the input's formulas and
# to the certificate's definitions, which then meet in the same numbers.

class Formulas:
    def __init__(self, sorts):
        self.sorts, self.nodes, self.index = sorts, [("true",)], {("true",): 0}

    def node(self, key):
        if key not in self.index:
            self.index[key] = len(self.nodes)
            self.nodes.append(key)
        return 2 * self.index[key]

    def atom(self, rel, c, terms):
        """terms REL c as bounds <= and >= (x < c is not x >= c; x = c both bounds)."""
        if rel in ("<", ">", "!="):
            return self.atom(NEGATE[rel], c, terms) ^ 1
        if rel == "=":
            return self.conj([self.atom("<=", c, terms), self.atom(">=", c, terms)])
        key = canonical(rel, c, terms, self.sorts)
        return {("true",): 0, ("false",): 1}.get(key) if len(key) == 1 else \
            self.node(("atom",) + key)

    def conj(self, fs):
        ops = set()
        for f in fs:
            if f == 1 or f ^ 1 in ops:
                return 1
            if f != 0:
                ops.add(f)
        if len(ops) < 2:
            return ops.pop() if ops else 0
        return self.node(("and",) + tuple(sorted(ops)))

    def disj(self, fs):
        return self.conj([f ^ 1 for f in fs]) ^ 1

    def xor(self, a, b):
        if a < 2 or b < 2:
            return b ^ 1 ^ a if a < 2 else a ^ 1 ^ b
        if a >> 1 == b >> 1:
            return 1 ^ (a ^ b)
        return self.node(("xor", min(a, b) & ~1, max(a, b) & ~1)) ^ (a & 1) ^ (b & 1)

    def ite(self, c, t, e):
        if c < 2 or t == e:
            return e if c == 1 else t
        if c & 1:
            c, t, e = c ^ 1, e, t
        return self.node(("ite", c, t & ~1, e ^ (t & 1))) ^ (t & 1)

    def follows(self, f, leaves):
        """Whether f is a conjunction of the leaves (any f when they are all, None)."""
        return leaves is None or self.split(f) <= leaves

    def reach(self, f, into):
        """The formulas under f where the walk stops: it goes into those that into(f, node)
        accepts; each formula once."""
        out, todo, seen = set(), [f], set()
        while todo:
            f = todo.pop()
            if f not in seen:
                seen.add(f)
                node = self.nodes[f >> 1]
                if into(f, node):
                    todo += node[1:]
                else:
                    out.add(f)
        return out

    def split(self, f):
        """The conjuncts of f: through positive and nodes."""
        return self.reach(f, lambda f, node: node[0] == "and" and not f & 1)

    def variables(self, f):
        under = self.reach(f, lambda f, node: node[0] in ("and", "xor", "ite"))
        atoms = [self.nodes[a >> 1] for a in under if self.nodes[a >> 1][0] == "atom"]
        return {v for atom in atoms for v, _ in atom[3]}

    def equality(self, f):
        """(terms, c) when f is the equality terms = c (both its bounds)."""
        node = self.nodes[f >> 1]
        if f & 1 or node[0] != "and" or len(node) != 3 or (node[1] | node[2]) & 1:
            return None
        a, b = self.nodes[node[1] >> 1], self.nodes[node[2] >> 1]
        if a[0] == b[0] == "atom" and a[2:] == b[2:] and {a[1], b[1]} == {"<=", ">="}:
            return dict(a[3]), a[2]
        return None



def formula(F, e, memo, ites):
    """The input formula e (lets and definitions expanded) as a number of F."""
    if id(e) in memo:
        return memo[id(e)]
    if isinstance(e, str):
        if e not in ("true", "false") and F.sorts.get(e) != "Bool":
            raise InputError("unknown formula " + e)
        r = {"true": 0, "false": 1}[e] if e in ("true", "false") else F.node(("bool", e))
    elif e[0] in ARITH_RELS and not is_bool(e[1], F.sorts):
        atoms = atoms_of(e, F.sorts, ites)
        # The tool's reading: a term ite with constant leaves equals a constant by its conditions.
        table = ites.values((atoms[0][2], -atoms[0][1])) if ites and e[0] == "=" and \
            len(e) == 3 else None
        r = table.get(0, 1) if table is not None else \
            F.conj([F.atom(rel, c, terms) for rel, c, terms in atoms])
    elif e[0] == "is_int" or divisible(e):  # the tool's: t = k·(div t k), k 1 for is_int
        if ites is None:
            raise InputError("a quotient")
        k, t = divisible(e) or Fraction(1), lin(e[1], F.sorts, ites)
        terms, c = scaled_sum([(1, t), (-k, ites.quotient(t, k))])
        r = F.atom("=", -c, terms)
    else:
        op, fs = e[0], [formula(F, a, memo, ites) for a in e[1:]]
        if op in ("=>", "or"):
            r = F.disj([f ^ (op == "=>") for f in fs[:-1]] + fs[-1:])
        elif op == "=":
            r = F.conj([F.xor(a, b) ^ 1 for a, b in zip(fs, fs[1:])])
        elif op in ("not", "and", "xor", "ite", "distinct"):
            r = {"not": lambda: fs[0] ^ 1, "and": lambda: F.conj(fs),
                 "xor": lambda: functools.reduce(F.xor, fs), "ite": lambda: F.ite(*fs),
                 "distinct": lambda: F.xor(*fs) if len(fs) == 2 else 1}[op]()
        else:
            raise InputError("unsupported formula " + str(op))
    memo[id(e)] = r
    return r


def affine(terms, c):
    return tuple(sorted((v, a) for v, a in terms.items() if a != 0)), c


MAX_ITE_VALUES = 256  # the tool's IteValues::kMaxValues


class Lifted:
    """The terms the tool lifts to variables of their own, read as the certificate defines them
    (lin() calls it on a term ite, div, mod or to_int): an ite that a constant condition or
    equal branches decide is its branch (the tool folds it so), another is the variable that
    by_branches gives for its condition and branches; a quotient of a constant is a number,
    another the variable of its quotient line (quotients, by dividend and divisor). One that
    the certificate does not define is a fresh variable, which no atom of the certificate
    names (one for equal terms): the conjuncts without it count, whatever its value."""

    def __init__(self, F, memo, by_branches=None, quotients=None):
        self.F, self.memo, self.by_branches, self.quotients = F, memo, by_branches, quotients
        self.fresh, self.ites, self.tables, self.terms = {}, {}, {}, {}

    def __call__(self, e):
        """Each term once: a let-shared ite chain would be read once per path otherwise."""
        if id(e) not in self.terms:
            self.terms[id(e)] = self.read(e)
        return self.terms[id(e)]

    def read(self, e):
        F = self.F
        if e[0] == "ite":
            c = formula(F, e[1], self.memo, self)
            then, other = lin(e[2], F.sorts, self), lin(e[3], F.sorts, self)
            t, u = affine(*then), affine(*other)
            if c < 2 or t == u:
                return other if c == 1 else then
            return self.lifted(self.variable(self.by_branches, (c ^ 1, u, t) if c & 1 else
                                             (c, t, u)), c, then, other)
        args = [lin(a, F.sorts, self) for a in e[1:]] + [({}, Fraction(1))] * (e[0] == "to_int")
        ds = [affine(*d) for d in args[1:]]
        if any(terms or d == 0 for terms, d in ds) or (e[0] != "div" and len(ds) != 1):
            raise InputError("a quotient by no nonzero constant")
        t = args[0]
        for _, d in ds:
            t = self.quotient(t, d)
        return scaled_sum([(1, args[0]), (-ds[0][1], t)]) if e[0] == "mod" else t

    def lifted(self, v, c, then, other):
        self.ites.setdefault(next(iter(v[0])), (c, then, other))
        return v

    def values(self, t):
        """{k: the formula t = k} when the term t, (terms, constant), is a constant or a·v + b
        for a term ite v whose leaves are constants, at most MAX_ITE_VALUES of them, else None:
        the tool's smt/ite_values.h, (= (ite c a b) k) as (ite c (= a k) (= b k))."""
        terms, c = affine(*t)
        if not terms or len(terms) > 1 or terms[0][0] not in self.ites:
            return None if terms else {c: 0}
        (v, a), = terms
        if v not in self.tables:
            cond, then, other = self.ites[v]
            tv, ov = self.values(then), self.values(other)
            keys = set(tv or ()) | set(ov or ())
            self.tables[v] = None if tv is None or ov is None or len(keys) > MAX_ITE_VALUES else \
                {k: self.F.ite(cond, tv.get(k, 1), ov.get(k, 1)) for k in keys}
        return None if self.tables[v] is None else \
            {a * k + c: f for k, f in self.tables[v].items()}

    def quotient(self, t, d):
        terms, c = affine(*t)
        return ({}, euclidean(c, d)) if not terms else self.variable(self.quotients,
                                                                     ((terms, c), d))

    def variable(self, table, key):
        name = table[key] if table and key in table else \
            self.fresh.setdefault(key, "?%d" % len(self.fresh))
        return {name: Fraction(1)}, Fraction(0)


def ite_definition(F, f):
    """(v, (condition, then, else)) when f is the definition of a variable v the tool introduced
    for a term ite: (ite c (= v then) (= v else)), or v = then when both branches are alike;
    v is the highest-numbered such variable in it, and every other one numbers lower."""
    node = F.nodes[f >> 1]
    c, sides = (node[1], node[2:]) if node[0] == "ite" and not f & 1 else (None, (f, f))
    eqs = [F.equality(side) for side in sides]
    if None in eqs:
        return None
    hidden = lambda names: {int(v[1:]) for v in names if v[0] == "#"}
    common = hidden(eqs[0][0]) & hidden(eqs[1][0])
    if not common:
        return None
    v = "#%d" % max(common)
    branches = [affine({x: -a / t[v] for x, a in t.items() if x != v}, k / t[v]) for t, k in eqs]
    under = hidden(F.variables(c) if c else ()) | hidden(set(eqs[0][0]) | set(eqs[1][0]))
    if any(n >= int(v[1:]) for n in under - {int(v[1:])}) or (c and v in F.variables(c)):
        return None
    return v, (c, branches[0], branches[1])


def solution_box(rows):
    """Papadimitriou's bound (J. ACM 28(4), 1981) for bound rows (c, {var: coefficient}) over Int
    variables, each read as itself or its rounded negation: scaled to coprime integers, a row
    measures its largest coefficient and ceil(|c|) + 1; with m rows over n variables and a the
    largest measure, a system of such rows that has an integer solution has one inside
    |x| <= (2n + m)·(m·a)^(2m + 1) (x = x+ - x-, a slack per row: m equations in 2n + m
    columns)."""
    if not rows:
        return 0
    a, names = 0, set()
    for c, terms in rows:
        scale = Fraction(math.lcm(*(t.denominator for t in terms.values())))
        scale /= math.gcd(*(int(t * scale) for t in terms.values()))
        a = max([a, math.ceil(abs(c * scale)) + 1] + [abs(t * scale) for t in terms.values()])
        names.update(terms)
    m = len(rows)
    return (2 * len(names) + m) * (m * int(a)) ** (2 * m + 1)


def mixed_box(rows):
    """The bound on the Int variables for rows (c, {var: coefficient}) over Int and Real
    variables, each read as itself or its negation (docs/certificates.md, "Boxes"): scaled to
    coprime integers, constant included, a row measures its largest entry; strict rows share
    one 0 <= eps <= 1. With m = rows + 2, N = 2·(variables) + m + 1 columns and a the
    largest measure, a system that has a solution integral on its Int variables has one with
    |x| <= (N + 1)·(m·a)^m on each of them."""
    if not rows:
        return 0
    a, names = 0, set()
    for c, terms in rows:
        entries = [c] + list(terms.values())
        scaled = [e * math.lcm(*(f.denominator for f in entries)) for e in entries]
        g = math.gcd(*(int(e) for e in scaled))
        a = max([a] + [abs(e) / g for e in scaled])
        names.update(terms)
    m = len(rows) + 2
    return (2 * len(names) + m + 2) * (m * int(a)) ** m


def check_boxes(p):
    """An assumed box guard g (`box g B`) stands for -B <= x <= B on Int variables: its input
    clauses must each be -g x<=B or -g x>=-B (selectors aside) with x of sort Int, and B must be
    at least the bound of the atoms of the other input clauses and of the assumptions:
    solution_box over Int variables alone, else mixed_box. Every model of those clauses has a counterpart inside the box, so a
    refutation with the box refutes them. A guard not assumed is false in that model, its
    clauses true."""
    boxes, atoms, assumed = p["boxes"], p["atoms"], set(p["assume"])
    defined = {d[0] for d in p["defines"]} | set(p["bools"])
    if set(boxes) & (set(atoms) | p["selects"] | defined):
        raise ValueError("a box guard has another meaning")
    # An assumed atom is a row of the refuted system as much as an input clause's.
    rows = {abs(a): atoms[abs(a)] for a in assumed if abs(a) in atoms}
    for kind, clause, _ in p["steps"]:
        if kind != "input":
            continue
        if any(l in boxes for l in clause):
            raise ValueError("a box guard stands positive in an input clause")
        guards = [-l for l in clause if -l in boxes]
        rest = [l for l in clause if -l not in boxes and -l not in p["selects"]]
        if not guards:
            rows.update((abs(l), atoms[abs(l)]) for l in rest if abs(l) in atoms)
        elif guards[0] in assumed:
            b = boxes[guards[0]]
            one = len(rest) == 1 and rest[0] > 0
            rel, c, terms = atoms.get(rest[0], (None, None, {})) if one else (None, None, {})
            if list(terms.values()) != [1] or c != (b if rel == "<=" else -b):
                raise ValueError("box %d: input clause %s is no bound x <= B or x >= -B" %
                                 (guards[0], clause))
            if any(p["sorts"].get(v) != "Int" for v in terms):
                raise ValueError("box %d: a bound on a Real variable" % guards[0])
    if any(g in assumed for g in boxes):
        counted = [(c, terms) for _, c, terms in rows.values()]
        integral = all(p["sorts"].get(v) == "Int" for _, terms in counted for v in terms)
        least = solution_box(counted) if integral else mixed_box(counted)
        for g, b in boxes.items():
            if g in assumed and b < least:
                raise ValueError("box %d: %d is below the bound %d of the input atoms" %
                                 (g, b, least))


def check_clause_input(lines, problem):
    """Every input clause of the proof follows from the problem: one of the Tseitin clauses
    of a definition; a clause that states a top-level conjunct of an active assertion or
    assumption (or the definition of a term ite's variable, a bound of one between two
    constants, or a bound of a quotient's); or a
    clause of a closed level, with the negation of a selector that the proof does not assume.
    Every assumption is an open level's selector, or a formula or conjunct of the problem."""
    p, (names, sorts) = read_clauses(lines), cert_names(lines, problem)
    F, meaning, inputs, leaves = aliased(lambda names, values: clause_meanings(
        lines, p, problem, names, sorts, values), names, substitute=True)
    follows = lambda f: F.follows(f, leaves)
    for clause, f in inputs:
        if not follows(f):
            raise ValueError("input clause %s follows from no active assertion" %
                             " ".join(map(str, clause)))
    for a in p["assume"]:
        if not (a in p["selects"] or a in p["boxes"] or (-a not in p["selects"] and
                                      follows(meaning[abs(a)] ^ (a < 0)))):
            raise ValueError("assumption %d is no open level nor assumed formula" % a)
    return True


def clause_meanings(lines, p, problem, names, sorts, values):
    """The formulas of the proof's variables, the input clauses to check (those of closed
    levels and definitions' Tseitin clauses set aside) and the leaves they may follow from:
    the problem's conjuncts, the definitions of term ite variables, quotients' bounds. With
    the groups of variables that equal definitions make equal and the variables defined as
    one term (aliased): the tool lifts an ite whose condition is constant only once its atoms
    are canonical ((=> a a) over two spellings of a) and defines it as its branch, which the
    input's reading folds. Atoms read with values' terms in place of their variables."""
    F, meaning, tseitin, selects = Formulas(sorts), {}, set(), p["selects"]

    def lit(l):
        if abs(l) not in meaning:
            raise ValueError("literal %d stands for nothing" % l)
        return meaning[abs(l)] ^ (l < 0)

    def mean(var, f):
        if var in meaning or var in selects:
            raise ValueError("variable %d has two meanings" % var)
        meaning[var] = f
    for v, (rel, c, terms) in p["atoms"].items():
        mean(v, F.atom(rel, *reversed(substituted(renamed(terms, names), c, values))))
    for v, name in p["bools"].items():
        if problem.sorts.get(name) != "Bool":
            raise ValueError("%s is no Bool constant of the input" % name)
        mean(v, F.node(("bool", name)))
    for v, op, ls in p["defines"]:  # operands are defined before: no cycle
        if len(ls) != {"true": 0, "xor": 2, "ite": 3}.get(op, len(ls) or -1):
            raise ValueError("bad definition of %d" % v)
        fs, (a, b, c) = [lit(l) for l in ls], (ls + [0, 0, 0])[:3]
        mean(v, {"true": lambda: 0, "and": lambda: F.conj(fs), "xor": lambda: F.xor(*fs),
                 "ite": lambda: F.ite(*fs)}[op]())
        tseitin.update(frozenset(clause) for clause in {
            "true": [[v]], "and": [[-v, l] for l in ls] + [[v] + [-l for l in ls]],
            "xor": [[-v, a, b], [-v, -a, -b], [v, -a, b], [v, a, -b]],
            "ite": [[-a, -b, v], [-a, b, -v], [a, -c, v], [a, c, -v]]}[op])
    if selects & set(meaning):
        raise ValueError("a selector has another meaning")
    assumed = set(p["assume"])
    inputs = []  # (clause, its formula), without closed levels' clauses and definition clauses
    for clause in (clause for kind, clause, _ in p["steps"] if kind == "input"):
        guards = [l for l in clause if abs(l) in selects]
        if any(l > 0 for l in guards):
            raise ValueError("a selector stands positive in input clause %s" % clause)
        rest = frozenset(l for l in clause if abs(l) not in selects)
        if any(-l in p["boxes"] for l in clause):  # check_boxes checks them
            continue
        if all(-l in assumed for l in guards) and rest not in tseitin:
            inputs.append((clause, F.disj([lit(l) for l in rest])))
    # Term ite variables: one definition each, a proper ite's before one of equal branches,
    # from an input clause or a define line (which a proof that needs no definition clause
    # still prints): any choice of one definition a variable gives it a value in a model.
    candidates = [f for _, f in inputs] + [meaning[v] for v, _, _ in p["defines"]]
    definitions = [(d[1][0] is None, f, d) for f, d in ((f, ite_definition(F, f))
                                                        for f in candidates) if d]
    quotients, bounds = quotient_lines(lines, names, F, values)
    defined = {q: None for q in set().union(*quotients.values())}  # a quotient is no ite
    by_branches, accepted = defaultdict(set), set()
    for _, f, (v, key) in sorted(definitions, key=lambda t: t[0]):
        if defined.setdefault(v, key) == key:
            by_branches[key].add(v)
            accepted.add(f)

    # An ite between two constants lies between them: the tool asserts both bounds.
    for (c, (t, a), (u, b)), vs in by_branches.items():
        if c is not None and not t and not u:
            bounds |= {F.atom(rel, k, {v: Fraction(1)}) for v in vs
                       for rel, k in ((">=", min(a, b)), ("<=", max(a, b)))}
    memo = {}
    leaves = conjuncts(F, problem, Lifted(F, memo, lowest(by_branches), lowest(quotients)), memo)
    if leaves is not None:
        leaves |= bounds.union(*map(F.split, accepted))
    one_term = {v: key[1] for key, vs in by_branches.items() if key[0] is None for v in vs}
    return (F, meaning, inputs, leaves), list(by_branches.values()) + \
        list(quotients.values()), {v: (dict(t), k) for v, (t, k) in one_term.items()}


def same_term(terms, objective):
    clean = lambda t: {v: a for v, a in t.items() if a != 0}
    return clean(terms) == clean(objective)


def is_objective(problem, rel, c, terms, optimum):
    """objective < optimum (> when maximizing), the objective's constant moved, any positive
    scale."""
    obj, const = problem.objective
    obj = {v: a for v, a in obj.items() if a != 0}
    if rel != ("<" if problem.sense == "min" else ">"):
        return False
    if not obj:
        return not terms and c == optimum - const
    v = min(obj)
    if terms.get(v, 0) == 0:
        return False
    s = terms[v] / obj[v]
    return s > 0 and same_term(terms, {x: s * a for x, a in obj.items()}) and \
        c == s * (optimum - const)


def check_lp_model(problem, model, optimum, relaxed):
    value = lambda terms: sum((a * model.get(v, Fraction(0)) for v, a in terms.items()),
                              Fraction(0))
    for rel, c, terms in problem.atoms:
        t = value(terms)
        if not {"<=": t <= c, ">=": t >= c, "=": t == c}[rel]:
            raise ValueError("the model violates a row or bound of the file")
    for v, sort in problem.sorts.items():
        if sort == "Int" and not relaxed and model.get(v, Fraction(0)).denominator != 1:
            raise ValueError("the model gives Int column %s a fraction" % v)
    if optimum is not None and value(problem.objective[0]) + problem.objective[1] != optimum:
        raise ValueError("the model does not attain the optimum")


def output_items(text):
    """The tool's output as a list: words and s-expressions, and ("cert", lines) blocks."""
    items, chunk, block = [], [], None
    for line in text.splitlines():
        if line == "(certificate" and block is None:
            items += sexprs(tokenize("\n".join(chunk)))
            chunk, block = [], []
        elif block is not None and line == ")":
            items.append(("cert", block))
            block = None
        elif block is not None:
            block.append(line)
        else:
            chunk.append(line)
    return items + sexprs(tokenize("\n".join(chunk)))


def is_cert(item):
    return isinstance(item, tuple) and item[0] == "cert"  # not a string the output echoes


def is_model(item):
    return isinstance(item, list) and item != [] and all(
        isinstance(d, list) and d[:1] == ["define-fun"] for d in item)


def read_model(item):
    return {d[1]: model_value(d[4]) for d in item}


def open_text(path):
    import bz2
    import gzip
    return {"bz2": bz2.open, "gz": gzip.open}.get(path.rsplit(".", 1)[-1], open)(path, "rt").read()


def optimum_parts(lines):
    """A `format optimum` block as ((objective, sense, optimum or None when unbounded, whether
    approached), its model {name: value}, the lines of its refutation)."""
    words = lines[1].split() if len(lines) > 1 else []
    if lines[0] != "format optimum" or words[:1] != ["optimum"] or len(words) not in (4, 5) or \
            words[2] not in ("min", "max") or words[4:] not in ([], ["epsilon"]) or \
            (words[3] == "unbounded" and len(words) == 5):
        raise ValueError("bad optimum line")
    model, k = {}, 2
    while k < len(lines) and lines[k].startswith("value "):
        _, v, name = lines[k].split(maxsplit=2)
        model[unquote(name)] = v == "true" if v in ("true", "false") else Fraction(v)
        k += 1
    optimum = None if words[3] == "unbounded" else Fraction(words[3])
    return (int(words[1]), words[2], optimum, len(words) == 5), model, lines[k:]


def check_block(lines):
    """A certificate by its format line; an optimum's refutation by its own."""
    if lines and lines[0] == "format optimum":
        (_, _, optimum, _), _, proof = optimum_parts(lines)
        if (optimum is None) != (not proof):
            raise ValueError("an optimum needs a refutation, an unbounded objective has none")
        if proof:
            check_block(proof)
    elif lines and lines[0] == "format clauses":
        check_clauses(lines[1:])
    elif lines and lines[0] == "format ray":
        check_ray(lines[1:])
    else:
        check(parse(lines))


def smt_number(q):
    return str(q) if q >= 0 else ["-", str(-q)]


def check_optima(blocks, problem):
    """The optimum blocks after one sat: objectives 0, 1, ... in order, all of them unless one
    is unbounded or approached, which ends the order. Each block's model satisfies the problem,
    holds the earlier objectives at their optima and attains its own; its refutation is of a
    better value ("term < optimum", ">" when maximizing; "<=", ">=" when approached) under the
    problem and those earlier optima, against the input like any certificate."""
    fixed, ended = [], False
    for k, lines in enumerate(blocks):
        (index, sense, optimum, approached), model, proof = optimum_parts(lines)
        if ended or index != k or k >= len(problem.objectives) or \
                sense != problem.objectives[k][0]:
            raise ValueError("optimum %d: not the next objective of the input" % index)
        term = problem.objectives[k][1]
        for name, sort in problem.sorts.items():
            model.setdefault(name, False if sort == "Bool" else Fraction(0))
        if any(eval_smt(f, model) is not True for f in problem.formulas + fixed):
            raise ValueError("the model of optimum %d falsifies an assertion" % k)
        if optimum is not None and not approached and eval_smt(term, model) != optimum:
            raise ValueError("the model does not attain optimum %d" % k)
        if optimum is not None:
            better = [{"min": "<", "max": ">"}[sense] + "=" * approached, term,
                      smt_number(optimum)]
            check_against(proof, problem._replace(formulas=problem.formulas + fixed + [better]))
            # As two bounds, as the tool fixes it: an equality over a term ite with constant
            # leaves would read as its conditions.
            fixed += [[rel, term, smt_number(optimum)] for rel in ("<=", ">=")]
        ended = optimum is None or approached
    if blocks and not ended and len(blocks) != len(problem.objectives):
        raise ValueError("%d optimum steps for %d objectives" % (len(blocks),
                                                                 len(problem.objectives)))


def check_cnf_refutation(lines, clauses, unsat):
    """A DIMACS file's refutation: a clause proof over its variables alone (nothing defined
    or assumed) whose input clauses are clauses of the file."""
    if not unsat or lines[:1] != ["format clauses"] or any(
            not line.startswith(("input", "learned")) for line in lines[1:]):
        raise ValueError("a DIMACS refutation holds input and learned clauses only, after unsat")
    for line in lines[1:]:
        if line.startswith("input") and frozenset(literals(line.split()[1:])) not in clauses:
            raise ValueError("%s: no clause of the file" % line)


def check_input(path, items, bound=None):
    """Pairs each certificate and model with the problem it is about and checks it."""
    text, base = open_text(path), path.rsplit(".", 2 if path.endswith((".gz", ".bz2")) else 1)
    ext = base[1] if len(base) > 1 else "smt2"
    words, certs = [w for w in items if isinstance(w, str)], 0
    if ext == "cnf":
        clauses = read_dimacs(text)
        for block in (item[1] for item in items if is_cert(item)):
            check_cnf_refutation(block, {frozenset(c) for c in clauses}, "unsat" in words)
        if "v" in words:
            true = {int(w) for w in words[words.index("v") + 1 :] if w.lstrip("-").isdigit()}
            if any(not any(l in true for l in c) for c in clauses):
                raise ValueError("the model falsifies a clause")
        return
    if ext in ("mps", "lp", "lin"):
        problem = {"mps": read_mps, "lp": read_cplex_lp, "lin": read_lin}[ext](text)
        optimum = Fraction(words[2]) if words[:2] == ["optimal", "objective"] else None
        problem.finish(bound)
        for item in items:
            if is_cert(item):
                check_against(item[1], problem, optimum)
            elif is_model(item):
                check_lp_model(problem, read_model(item), optimum, words[0] in ("optimal", "unbounded"))
        return
    script, problems = Script(), []
    for cmd in sexprs(tokenize(text)):
        try:
            got = script.command(cmd)
        except (InputError, KeyError, IndexError, TypeError):
            got = None  # the tool reports an error for this command too
        if got:
            problems.append(script.problem(got[1]))
    answers = [i for i in items if i in ("sat", "unsat", "unknown")]
    if len(answers) != len(problems):
        raise ValueError("%d answers for %d check-sat commands" % (len(answers), len(problems)))
    current, optima = -1, []
    for item in items + [None]:
        if (item is None or item in ("sat", "unsat", "unknown")) and optima:
            try:
                check_optima(optima, problems[current])
            except ValueError as e:
                raise ValueError("optima of check-sat %d: %s" % (current + 1, e))
            optima = []
        if item in ("sat", "unsat", "unknown"):
            current += 1
        elif is_cert(item) and item[1][:1] == ["format optimum"]:
            if current < 0 or answers[current] != "sat":
                raise ValueError("an optimum after no sat")
            certs += 1
            optima.append(item[1])
        elif is_cert(item):
            if current < 0 or answers[current] != "unsat":
                raise ValueError("a certificate after no unsat")
            certs += 1
            try:
                check_against(item[1], problems[current])
            except ValueError as e:
                raise ValueError("certificate %d: %s" % (certs, e))
        elif is_model(item) and current >= 0 and answers[current] == "sat":
            model, problem = read_model(item), problems[current]
            for name, sort in problem.sorts.items():
                model.setdefault(name, False if sort == "Bool" else Fraction(0))
            for f in problem.formulas:
                if eval_smt(f, model) is not True:
                    raise ValueError("the model of check-sat %d falsifies an assertion"
                                     % (current + 1))


def main():
    args, options = sys.argv[1:], {}
    if "-h" in args or "--help" in args:
        print(__doc__.split("\n\n")[1].strip())
        return 0
    for option in ("--input", "--objective-bound"):
        if option in args:
            k = args.index(option)
            options[option] = args[k + 1]
            del args[k : k + 2]
    path, bound = options.get("--input"), options.get("--objective-bound", "").split()
    text = open(args[0]).read() if args else sys.stdin.read()
    items = output_items(text)
    blocks = [item[1] for item in items if is_cert(item)]
    for number, lines in enumerate(blocks, 1):
        try:
            check_block(lines)
        except (ValueError, KeyError, IndexError, ZeroDivisionError) as e:
            print("certificate %d: invalid: %s" % (number, e))
            return 1
    if path is not None:
        try:
            check_input(path, items, bound)
        except (ValueError, KeyError, IndexError, ZeroDivisionError, InputError, OSError) as e:
            print("against %s: %s" % (path, e))
            return 1
        print("%d certificates checked against %s" % (len(blocks), path))
        return 0
    print("%d certificates checked" % len(blocks))
    return 0 if blocks else 1


def main_with_deep_stack():
    # Generated scripts nest terms thousands deep (let chains) and the readers recurse, so
    # they run on a thread whose stack holds that depth.
    sys.setrecursionlimit(1_000_000)
    threading.stack_size(1 << 30)
    status = []
    reader = threading.Thread(target=lambda: status.append(main()))
    reader.start()
    reader.join()
    return status[0] if status else 1


if __name__ == "__main__":
    sys.exit(main_with_deep_stack())
