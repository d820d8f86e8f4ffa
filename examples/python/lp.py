"""A production plan as a linear program: exact optima from vorn.Optimize, and the same
problem read from a CPLEX LP file by vorn.optimize_file."""
import os
import tempfile

import vorn

# Two products on three machines: hours per unit, hours available, profit per unit.
chairs, tables = vorn.Reals("chairs tables")
o = vorn.Optimize()
o.add(chairs >= 0, tables >= 0,
      2 * chairs + 3 * tables <= 120,   # saw
      4 * chairs + tables <= 100,       # lathe
      chairs + 2 * tables <= 70)        # finishing
profit = o.maximize(30 * chairs + 40 * tables)
assert o.check() == vorn.sat
m = o.model()
print("profit", profit.value(), "chairs", m[chairs], "tables", m[tables])

LP = """Maximize
 profit: 30 chairs + 40 tables
Subject To
 saw: 2 chairs + 3 tables <= 120
 lathe: 4 chairs + tables <= 100
 finishing: chairs + 2 tables <= 70
End
"""
with tempfile.TemporaryDirectory() as d:
    path = os.path.join(d, "plan.lp")
    with open(path, "w") as f:
        f.write(LP)
    result = vorn.optimize_file(path)
print(result.status, "objective", result.objective, "model", result.model)
assert result.objective == profit.value()
