#!/usr/bin/env python3
"""Checks the unsat certificates that `vorn check --certificate` prints.

Reads the tool's output (a file or standard input), finds every "(certificate" block and checks
it with exact rationals, sharing nothing with the solver: every proof node is reached once from
node 0; a disequality split names a != atom and its children hold term < c and term > c; an
integer split names an Int variable and an integer b, its children hold var <= b and var >= b + 1;
a Farkas leaf's bounds (atoms, or the bounds of its ancestor splits on its side; an inequality
over Int variables only counts with its bound rounded to the integers) combine with
positive multipliers into a constant K with every variable cancelled, K < 0, or K = 0 with a
strict bound; a gcd leaf names an equality over Int variables whose scaled coefficients' gcd does
not divide its constant; a lattice leaf combines equalities over Int variables, with multipliers
of any sign, into integer coefficients and a non-integer constant.

A block whose first line is "format ray" shows an unbounded optimization: a point that satisfies
every atom and a ray along which they keep holding while the objective improves.

A block whose first line is "format clauses" is a clause proof (CDCL(T)): atoms are DIMACS
variables standing for bounds; input clauses are taken as given; a lemma's Farkas multipliers
combine the bounds that the negations of its literals state into a contradiction (the same rule,
Int atoms rounded); a learned clause must follow from the clauses before it by unit propagation;
the last clause must consist of negated assumptions. The format is described in
docs/certificates.md.

Exit status 0 when every certificate checks (and there is at least one), 1 otherwise.
"""

import math
import sys
from collections import defaultdict
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
        else:
            raise ValueError("unknown line: " + line)
    return cert


def split_bound(cert, split, high):
    """The bound (terms, c, upper, strict) that split node `split` asserts on one side."""
    node = cert["nodes"][split]
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
        if node[0] in ("split-ne", "split-int"):
            if node[0] == "split-int":
                if cert["vars"].get(int(node[1])) != "Int" or Fraction(node[2]).denominator != 1:
                    raise ValueError("integer split on a non-integer")
            low, high = int(node[-2]), int(node[-1])
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
    """Clauses under permanent unit propagation with two watched literals; clauses are never
    removed, so the base assignment only grows and a satisfied clause can be dropped."""

    def __init__(self):
        self.true = set()  # literals true now
        self.watches = defaultdict(list)  # literal -> clauses (lists) watching it, by c[0], c[1]
        self.trail = []
        self.head = 0
        self.inconsistent = False

    def assign(self, lit):
        self.true.add(lit)
        self.trail.append(lit)

    def propagate(self):
        """False on a conflict."""
        true, watches = self.true, self.watches
        while self.head < len(self.trail):
            false_lit = -self.trail[self.head]
            self.head += 1
            ws = watches[false_lit]
            keep = []
            for index, c in enumerate(ws):
                if c[0] == false_lit:
                    c[0], c[1] = c[1], c[0]
                if c[0] in true:
                    keep.append(c)
                    continue
                for k in range(2, len(c)):
                    if -c[k] not in true:
                        c[1], c[k] = c[k], c[1]
                        watches[c[1]].append(c)
                        break
                else:
                    keep.append(c)
                    if -c[0] in true:
                        keep.extend(ws[index + 1 :])
                        watches[false_lit] = keep
                        return False
                    self.assign(c[0])
            watches[false_lit] = keep
        return True

    def add(self, clause):
        if self.inconsistent:
            return
        lits = []
        for lit in clause:
            if lit in self.true or -lit in lits:
                return
            if -lit not in self.true and lit not in lits:
                lits.append(lit)
        if not lits:
            self.inconsistent = True
        elif len(lits) == 1:
            self.assign(lits[0])
            self.inconsistent = not self.propagate()
        else:
            self.watches[lits[0]].append(lits)
            self.watches[lits[1]].append(lits)

    def implied(self, clause):
        """Whether assuming every literal of the clause false propagates to a conflict."""
        if self.inconsistent:
            return True
        base = len(self.trail)
        conflict = False
        for lit in clause:
            if lit in self.true:
                conflict = True
                break
            if -lit not in self.true:
                self.assign(-lit)
        if not conflict:
            conflict = not self.propagate()
        for lit in self.trail[base:]:
            self.true.discard(lit)
        del self.trail[base:]
        self.head = base
        return conflict


def literals(words):
    lits = [int(w) for w in words]
    if 0 in lits:
        raise ValueError("literal 0")
    return lits


def negation_bounds(atoms, sorts):
    """By literal: the bound (terms, c, upper, strict) that its negation states. Not V is the
    strict opposite of atom V, not -V the atom itself; Int atoms rounded."""
    bounds = {}
    for var, (rel, c, terms) in atoms.items():
        for lit, r in ((var, {"<=": ">", ">=": "<"}[rel]), (-var, rel)):
            bound, strict = c, r in ("<", ">")
            if all(sorts[v] == "Int" for v in terms):
                bound, strict = rounded(r, c, terms), False
            bounds[lit] = (terms, bound, r in ("<=", "<"), strict)
    return bounds


def check_lemma(bounds, lits, mults):
    """The bounds stated by the negations of the literals, combined with the multipliers."""
    if len(mults) != len(lits):
        raise ValueError("%d multipliers for %d literals" % (len(mults), len(lits)))
    total, k, strict = {}, Fraction(0), False
    for lit, mult in zip(lits, mults):
        if mult < 0:
            raise ValueError("a negative multiplier")
        if mult == 0:
            continue
        if lit not in bounds:
            raise ValueError("literal %d is no atom" % lit)
        terms, c, upper, is_strict = bounds[lit]
        sign = mult if upper else -mult  # upper: m(c - t) >= 0; lower: m(t - c) >= 0
        k += sign * c
        for var, coeff in terms.items():
            total[var] = total.get(var, Fraction(0)) - sign * coeff
        strict = strict or is_strict
    if any(coeff != 0 for coeff in total.values()):
        raise ValueError("a variable does not cancel")
    if not (k < 0 or (k == 0 and strict)):
        raise ValueError("the combination is no contradiction")


def check_clauses(lines):
    sorts, atoms, assumptions, steps = {}, {}, [], []
    for line in lines:
        words = line.split()
        if words[0] == "var":
            sorts[int(words[1])] = words[2]
        elif words[0] == "atom":
            var, rel = int(words[1]), words[2]
            if var <= 0 or var in atoms or rel not in ("<=", ">="):
                raise ValueError("bad atom " + words[1])
            terms = {}
            for word in words[4:]:
                v, a = word.split(":")
                if int(v) in terms or Fraction(a) == 0:
                    raise ValueError("atom %d: a repeated variable or a zero coefficient" % var)
                terms[int(v)] = Fraction(a)
            if not terms:
                raise ValueError("atom %d has no variable" % var)
            atoms[var] = (rel, Fraction(words[3]), terms)
        elif words[0] == "assume":
            assumptions = literals(words[1:])
        elif words[0] in ("input", "learned"):
            steps.append((words[0], literals(words[1:]), None))
        elif words[0] == "lemma":
            at = words.index("farkas")
            steps.append(("lemma", literals(words[1:at]), [Fraction(w) for w in words[at + 1 :]]))
        else:
            raise ValueError("unknown line: " + line)
    for var, (_, _, terms) in atoms.items():
        if any(sorts.get(v) not in ("Int", "Real") for v in terms):
            raise ValueError("atom %d is over an undeclared variable" % var)
    if not steps:
        raise ValueError("no steps")
    bounds = negation_bounds(atoms, sorts)
    units = UnitPropagation()
    for number, (kind, clause, mults) in enumerate(steps):
        try:
            if kind == "lemma":
                check_lemma(bounds, clause, mults)
            elif kind == "learned" and not units.implied(clause):
                raise ValueError("does not follow by unit propagation")
        except ValueError as e:
            raise ValueError("step %d (%s): %s" % (number, kind, e))
        units.add(clause)
    kind, clause, _ = steps[-1]
    if kind != "learned" or any(-lit not in assumptions for lit in clause):
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


def main():
    text = open(sys.argv[1]).read() if len(sys.argv) > 1 else sys.stdin.read()
    # Variable lines: "var N SORT NAME", the name may hold spaces; keep the sort only.
    blocks, current = [], None
    for line in text.splitlines():
        if line == "(certificate":
            current = []
        elif line == ")" and current is not None:
            blocks.append(current)
            current = None
        elif current is not None:
            words = line.split(maxsplit=3)
            current.append(" ".join(words[:3]) if words[0] == "var" else line)
    for number, lines in enumerate(blocks, 1):
        try:
            if lines and lines[0] == "format clauses":
                check_clauses(lines[1:])
            elif lines and lines[0] == "format ray":
                check_ray(lines[1:])
            else:
                check(parse(lines))
        except (ValueError, KeyError, IndexError, ZeroDivisionError) as e:
            print("certificate %d: invalid: %s" % (number, e))
            return 1
    print("%d certificates checked" % len(blocks))
    return 0 if blocks else 1


if __name__ == "__main__":
    sys.exit(main())
