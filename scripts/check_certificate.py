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
not divide its constant. The format is described in docs/certificates.md.

Exit status 0 when every certificate checks (and there is at least one), 1 otherwise.
"""

import math
import sys
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
        else:
            raise ValueError("unknown node kind " + node[0])


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
            check(parse(lines))
        except (ValueError, KeyError, IndexError, ZeroDivisionError) as e:
            print("certificate %d: invalid: %s" % (number, e))
            return 1
    print("%d certificates checked" % len(blocks))
    return 0 if blocks else 1


if __name__ == "__main__":
    sys.exit(main())
