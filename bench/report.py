#!/usr/bin/env python3
"""Turns the benchmark JSON files into a Markdown report and a data file for the plot.

usage: report.py RESULTS_DIR REPORT.md SCALING.dat [ANALYSIS.md]

RESULTS_DIR holds Google Benchmark JSON files (and e2e.json and incremental.json in the same
shape) and, when perf was available, pivot_profile.txt. ANALYSIS.md, hand-written, is copied in
after the tables.
"""
import json
import math
import pathlib
import sys

import incremental

UNITS = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}
SKIP = {"name", "run_name", "run_type", "repetitions", "repetition_index", "threads",
        "iterations", "real_time", "cpu_time", "time_unit", "family_index",
        "per_family_instance_index", "aggregate_name", "aggregate_unit", "label"}


def ms(run):
    return run["real_time"] * UNITS[run.get("time_unit", "ns")]


def key(run):
    """('BM_PivotStream', (10000, 100, 0)) from 'BM_PivotStream/10000/100/0/iterations:3'."""
    family, *args = run["name"].split("/")
    return family, tuple(int(a) if a.isdigit() else a for a in args if ":" not in a)


def fmt(value):
    return f"{value:.3g}" if value < 1000 else f"{value:,.0f}"


def counters(run):
    parts = [f"{k}={v:.4g}" for k, v in run.items() if k not in SKIP and isinstance(v, float)]
    if run.get("label"):
        parts.append(run["label"])
    return ", ".join(parts)


class Results:
    def __init__(self, directory):
        self.files = {}
        self.runs = {}
        for path in sorted(directory.glob("*.json")):
            runs = [r for r in json.loads(path.read_text())["benchmarks"]
                    if r.get("run_type") != "aggregate"]
            self.files[path.stem] = runs
            for run in runs:
                self.runs[key(run)] = run

    def get(self, family, *args):
        return self.runs.get((family, tuple(args)))

    def family(self, family):
        return sorted((args, run) for (f, args), run in self.runs.items() if f == family)


def per_item_us(run, items):
    return ms(run) * 1e3 / items


def ratio(reference, ours):
    return f"{reference / ours:.1f}×" if reference and ours else "–"


def reference_table(res):
    lines = ["## Against the reference tableau", "",
             "The reference keeps each row as a `std::map` from variable to `mpq_class` and does "
             "the same operations (`bench/reference_tableau.h`). Ratio = reference time / vorn "
             "time.", "",
             "| workload | size | vorn (µs per op) | reference (µs per op) | ratio |",
             "|---|---|---:|---:|---:|"]
    for big, label in ((0, "small"), (1, "big")):
        ours, ref = res.get("BM_EquationSubstitute", big), res.get("BM_GmpMapSubstitute", big)
        if ours and ref:
            a, b = per_item_us(ours, 2), per_item_us(ref, 2)
            lines.append(f"| substitution 20 into 20 entries, {label} coefficients | 1 row | "
                         f"{fmt(a)} | {fmt(b)} | {ratio(b, a)} |")
    for args, ours in res.family("BM_EnterAfterCheck"):
        ref = res.get("BM_EnterAfterCheck_reference", *args)
        if ref:
            a, b = per_item_us(ours, args[0]), per_item_us(ref, args[0])
            lines.append(f"| entering one equation after check | {args[0]} rows | {fmt(a)} | "
                         f"{fmt(b)} | {ratio(b, a)} |")
    for args, ours in res.family("BM_PivotStream"):
        ref = res.get("BM_PivotStream_reference", *args)
        if ref:
            a, b = per_item_us(ours, 2), per_item_us(ref, 2)
            lines.append(f"| pivot, {args[3]}-{args[4]} entries per row, {args[1] / 100:g}× "
                         f"structural variables | {args[0]} rows | {fmt(a)} | {fmt(b)} | "
                         f"{ratio(b, a)} |")
    for args, ours in res.family("BM_EliminateRestore"):
        ref = res.get("BM_EliminateRestore_reference", *args)
        if not ref:
            continue
        for what in ("elimination", "restoration"):
            a = ours[f"ns_per_{what}"] / 1e3
            b = ref[f"ns_per_{what}"] / 1e3
            lines.append(f"| {what} of {args[1]}% of the variables | {args[0]} rows | {fmt(a)} | "
                         f"{fmt(b)} | {ratio(b, a)} |")
    return lines + [""]


def cpu_ms(run):
    return run["cpu_time"] * UNITS[run.get("time_unit", "ns")]


def cell_ms(run):
    """A solver's wall time (CPU time), or why there is none."""
    if run is None:
        return "–"
    if run.get("timeout"):
        return f"> {fmt(ms(run))} (limit)"
    return (f"{fmt(ms(run))} ({fmt(cpu_ms(run))})" +
            ("" if run.get("right", 1) else " (wrong answer)"))


def ratio_to(run, ours):
    """Their CPU time / ours: a busy machine stretches wall times unevenly."""
    if run is None:
        return "–"
    if run.get("timeout"):
        return f">{ms(run) / ms(ours):.0f}× (wall)"
    return f"{cpu_ms(run) / cpu_ms(ours):.0f}×"


def simplex_table(res):
    lines = ["## The simplex against z3, cvc5 and glpsol", "",
             "Instances from `bench/lra_instances.h`. vorn: `simplex_bench`, in process: a "
             "`vorn::lra::Simplex` is built from the generated instance in memory (variables, "
             "box bounds, one term and its bounds per constraint) and checked once; nothing is "
             "parsed. The others (`bench/solvers.py`): the binaries on the same instance written "
             "by `write_lra_instances`, end to end (start, parse, decide, exit): `z3 FILE.smt2` "
             "and `cvc5 FILE.smt2` with their default `check-sat`, `glpsol --exact --freemps "
             "FILE.mps` (GLPK's exact rational simplex, empty objective). Times are wall (CPU) in "
             "ms; ratio = their CPU time / vorn's CPU time for build + check (wall times when "
             "they hit the limit). Every answer is checked against the one the instance has by "
             "construction.", "",
             "| instance | vorn build + check | vorn check | pivots | pivots per CPU s | heap "
             "(MB) | z3 | cvc5 | glpsol --exact | z3 / vorn | cvc5 / vorn | glpsol / vorn |",
             "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"]
    rows = [(f"sparse, m = {args[0]}, {'feasible' if args[1] else 'infeasible'}", run,
             ("sparse", *args)) for args, run in res.family("BM_SimplexSparse")]
    rows += [(f"square, m = {args[0]}", run, ("square", *args))
             for args, run in res.family("BM_SimplexSquare")]
    for label, ours, other_key in rows:
        others = [res.get(solver, *other_key) for solver in ("z3", "cvc5", "glpsol")]
        lines.append(f"| {label} | {cell_ms(ours)} | {fmt(ours['check_ms'])} "
                     f"({fmt(ours.get('check_cpu_ms', ours['check_ms']))}) | "
                     f"{ours['pivots']:.0f} | {fmt(ours['pivots_per_s'])} | "
                     f"{ours['heap_MB']:.1f} | " + " | ".join(cell_ms(o) for o in others) +
                     " | " + " | ".join(ratio_to(o, ours) for o in others) + " |")
    if not any(res.family(s) for s in ("z3", "cvc5", "glpsol")):
        lines += ["", "No results from `bench/solvers.py` (z3, cvc5 and glpsol not installed?)."]
    return lines + [""]


def check_table(res):
    """`vorn check` beside the others on the same files, once bench/solvers.py has run it."""
    ours = res.family("vorn") + res.family("vorn-mps")
    if not ours:
        return []
    lines = ["## `vorn check` end to end", "",
             "`bench/solvers.py`: every program on the same file, end to end (start, parse, "
             "decide, exit); wall (CPU) in ms and the answer. Netlib: the problem as it is and "
             "with its objective bounded just below and just above the known optimum.", "",
             "| instance | vorn .smt2 | vorn .mps | z3 | cvc5 | glpsol --exact |",
             "|---|---:|---:|---:|---:|---:|"]

    def cell(run):
        if run is None:
            return "–"
        answer = {1.0: "sat", 0.0: "unsat"}.get(run.get("sat"), "unknown")
        return f"{cell_ms(run)}{'' if run.get('timeout') else ' ' + answer}"

    for args in sorted({args for args, _ in ours}):
        lines.append(f"| {'/'.join(map(str, args))} | " + " | ".join(
            cell(res.get(s, *args)) for s in ("vorn", "vorn-mps", "z3", "cvc5", "glpsol")) + " |")
    return lines + [""]


def equations_table(res):
    lines = ["## Systems of equations against z3 and cvc5", "",
             "The random systems that `vorn solve` is timed on (`bench/gen_sparse.py`: m "
             "equations of 4 entries over 2m variables, seed 1, the `.smt2` files of "
             "`bench/e2e.py`). `vorn solve`, end to end, decides them and also writes every "
             "variable's definition over the kept ones; z3 and cvc5, end to end on the same "
             "file with their default `check-sat`, only decide them. `compare_bench` "
             "(`BM_Solve_vorn`) is the library alone on a system of the same shape: entering "
             "through `check` and eliminating every variable.", "",
             "Times in ms, wall (CPU where measured).", "",
             "| equations | vorn solve, end to end | library only | z3 | cvc5 |",
             "|---:|---:|---:|---:|---:|"]
    sizes = sorted({args[1] for s in ("z3", "cvc5") for args, _ in res.family(s)
                    if args[0] == "equations"})
    for m in sizes:
        ours, lib = res.get("vorn_solve_smt2", m), res.get("BM_Solve_vorn", m)
        cells = [fmt(ms(ours)) if ours else "–", cell_ms(lib)]
        cells += [cell_ms(res.get(s, "equations", m)) for s in ("z3", "cvc5")]
        lines.append(f"| {m} | " + " | ".join(cells) + " |")
    return lines + [""]


def allocation_table(res):
    lines = ["## Allocations", "",
             "Every malloc, calloc and realloc of the process is counted around the timed loop "
             "(`bench/alloc_counter.cpp`), after one warm-up round.", "",
             "| workload | allocations per operation |", "|---|---:|"]
    for args, run in res.family("BM_EquationSubstitute"):
        lines.append(f"| substitution, {'big' if args[0] else 'small'} coefficients | "
                     f"{run['allocs_per_substitution']:.3g} |")
    for args, run in res.family("BM_PivotStream"):
        lines.append(f"| pivot, {args[0]} rows of {args[3]}-{args[4]} entries, "
                     f"{args[1] / 100:g}× structurals, {args[2]}% big "
                     f"| {run['allocs_per_pivot']:.3g} |")
    return lines + [""]


def memory_table(res):
    lines = ["## Memory", "",
             "Heap bytes in use after building the tableau (glibc `mallinfo2`, so malloc's own "
             "headers count), divided by the number of stored coefficients.", "",
             "| workload | rows | entries per row | bytes per coefficient |", "|---|---:|---|---:|"]
    for args, run in res.family("BM_EnterThroughCheck"):
        lines.append(f"| entering through check, {args[1]}% big | {args[0]} | 3-10 | "
                     f"{run['bytes_per_coeff']:.1f} |")
    for args, run in res.family("BM_MemoryDensity"):
        lines.append(f"| entering through check | {args[0]} | {args[1]}-{args[2]} | "
                     f"{run['bytes_per_coeff']:.1f} |")
    return lines + [""]


def e2e_table(res):
    runs = res.files.get("e2e")
    if not runs:
        return []
    lines = ["## End to end: `vorn solve`", "",
             "Generated systems of m equations with 4 entries over 2m variables "
             "(`bench/gen_sparse.py`), solved for all variables; wall time and peak resident "
             "memory of the whole process, parsing and printing included, and the phases that "
             "`--stats` reports (read: file and parser; tableau: slack rows and `check`; "
             "eliminate: `eliminate_greedy`; definitions: reading and resolving them).", "",
             "| input | equations | wall (ms) | read | tableau | eliminate | definitions | "
             "peak RSS (MB) |", "|---|---:|---:|---:|---:|---:|---:|---:|"]
    for run in runs:
        family, _, size = run["name"].partition("/")
        phases = " | ".join(fmt(run[f"{p}_ms"]) if f"{p}_ms" in run else "–"
                            for p in ("read", "tableau", "eliminate", "definitions"))
        lines.append(f"| `{family}` {'' if size.isdigit() else size} | "
                     f"{int(run['equations'])} | {fmt(ms(run))} | {phases} | "
                     f"{run['peak_rss_MB']:.0f} |")
    if not any(r["name"].startswith("vorn_solve_shared/") for r in runs):
        lines += ["", "No SMT-LIB inputs were found under `../shared/`."]
    return lines + [""]


def incremental_table(res):
    runs = res.files.get("incremental")
    return incremental.report_section(runs) if runs else []


def reader_table(res):
    runs = res.files.get("reader_bench")
    if not runs:
        return []
    lines = ["## Reading input", "",
             "The tool's readers on the systems of `bench/gen_sparse.py` (4 entries per equation "
             "over twice as many variables), the text already in memory (`reader_bench`, wall "
             "time).", "", "| format | equations | input (MB) | time (ms) | MB/s |",
             "|---|---:|---:|---:|---:|"]
    for run in runs:
        family, size = run["name"].split("/")[:2]
        kind = ".lin" if "Lin" in family else ".smt2"
        lines.append(f"| {kind} | {size} | {run['MB']:.2f} | {fmt(ms(run))} | "
                     f"{run['MB'] * 1e3 / ms(run):.0f} |")
    return lines + [""]


# Families whose cost against size is plotted and given growth exponents: (family, fixed
# trailing arguments, label).
SCALING = [("BM_EnterThroughCheck", (0,), "entering through check"),
           ("BM_PivotStream", (100, 0, 3, 10), "pivot, 1x structurals"),
           ("BM_PivotStream", (200, 0, 3, 10), "pivot, 2x structurals"),
           ("BM_EliminateRestore", (50,), "eliminating 50%"),
           ("BM_Solve_vorn", (), "solve (check + greedy elimination)"),
           ("BM_SimplexSparse", (1,), "simplex, sparse feasible (build + check)"),
           ("BM_SimplexSparse", (0,), "simplex, sparse infeasible (build + check)")]


def scaling(res):
    series = {}
    for family, fixed, label in SCALING:
        for args, run in res.family(family):
            if args[1:] == fixed:
                series.setdefault(label, []).append((args[0], ms(run)))
    e2e = [(int(r["equations"]), ms(r)) for r in res.files.get("e2e", [])
           if r["name"].startswith("vorn_solve_lin_triangular/")]
    if e2e:
        series["vorn solve --triangular (.lin)"] = e2e
    lines = ["## Scaling", "", "![cost against size](scaling.svg)", "",
             "Growth exponent k in cost ∝ size^k between consecutive sizes (1 is linear; a "
             "pivot's cost is per pivot, so 0 means size-independent):", "",
             "| workload | sizes | k |", "|---|---|---:|"]
    for label, points in series.items():
        points.sort()
        for (n0, t0), (n1, t1) in zip(points, points[1:]):
            lines.append(f"| {label} | {n0} → {n1} | "
                         f"{math.log(t1 / t0) / math.log(n1 / n0):.2f} |")
    return lines + [""], series


def profile(directory):
    path = directory / "pivot_profile.txt"
    if not path.exists():
        return ["## Profile", "", "perf was not available: no profile.", ""]
    return ["## Profile of the pivot stream", "",
            "`perf record` of `BM_PivotStream/10000/100/0/3/10` (flat profile, symbols above 1%):",
            "", "```", *path.read_text().rstrip().splitlines(), "```", ""]


def raw(res):
    lines = ["## All results", ""]
    for stem, runs in res.files.items():
        lines += [f"### {stem}", "", "| benchmark | time (ms) | counters |", "|---|---:|---|"]
        lines += [f"| `{r['name']}` | {ms(r):.4g} | {counters(r)} |" for r in runs]
        lines.append("")
    return lines


def main():
    directory = pathlib.Path(sys.argv[1])
    res = Results(directory)
    lines = ["# vorn performance", "",
             "Generated by `bench/run` (release preset, one run on the machine named below). "
             "Times are wall-clock. Runs on a shared virtual machine vary by about ±20%.", ""]
    context = next((json.loads(p.read_text()).get("context") for p in directory.glob("*.json")
                    if "context" in json.loads(p.read_text())), None)
    if context:
        lines += [f"Machine: {context.get('num_cpus')} CPUs at {context.get('mhz_per_cpu')} MHz, "
                  f"run {context.get('date')}.", ""]
    for section in (reference_table, simplex_table, check_table, equations_table,
                    allocation_table, memory_table, reader_table, e2e_table, incremental_table):
        lines += section(res)
    scaling_lines, series = scaling(res)
    lines += scaling_lines + profile(directory)
    if len(sys.argv) > 4 and pathlib.Path(sys.argv[4]).exists():
        lines += pathlib.Path(sys.argv[4]).read_text().rstrip().splitlines() + [""]
    lines += raw(res)
    pathlib.Path(sys.argv[2]).write_text("\n".join(lines) + "\n")
    with open(sys.argv[3], "w") as out:
        for label, points in series.items():
            out.write(f'"{label}"\n')
            out.writelines(f"{n} {t}\n" for n, t in sorted(points))
            out.write("\n\n")


if __name__ == "__main__":
    main()
