"""Scheduling on one machine: jobs with exact durations, release times and deadlines, no two
at once. The least makespan is found exactly by bisection over push/pop: an optimal schedule
starts each job at a release time or at the end of another, so the least makespan is a multiple
of 1/12 (every duration is), and bisection over those multiples ends on it."""
from fractions import Fraction

import vorn

# name: (duration, release, deadline), hours
JOBS = {
    "cut": (Fraction(3, 2), 0, 6),
    "drill": (Fraction(5, 4), 1, 5),
    "weld": (2, 0, 8),
    "paint": (Fraction(7, 3), 2, 10),
}


def schedule():
    start = {job: vorn.Real("start_" + job) for job in JOBS}
    end = {job: start[job] + d for job, (d, _, _) in JOBS.items()}
    s = vorn.Solver()
    for job, (_, release, deadline) in JOBS.items():
        s.add(start[job] >= release, end[job] <= deadline)
    names = list(JOBS)
    for i, a in enumerate(names):
        for b in names[i + 1:]:
            s.add(vorn.Or(end[a] <= start[b], end[b] <= start[a]))  # one at a time
    makespan = vorn.Real("makespan")
    s.add([makespan >= end[job] for job in JOBS])
    # Bisection on twelfths: low is infeasible, high feasible; each bound on a level of its own.
    assert s.check() == vorn.sat
    best = s.model()
    low, high = -1, int(best[makespan] * 12) + 1
    while high - low > 1:
        middle = (low + high) // 2
        s.push()
        s.add(makespan <= Fraction(middle, 12))
        if s.check() == vorn.sat:
            best, high = s.model(), middle
        else:
            low = middle
        s.pop()
    return best, start, end, makespan


if __name__ == "__main__":
    model, start, end, makespan = schedule()
    for job in sorted(JOBS, key=lambda j: model[start[j]]):
        print("%-6s %6s .. %s" % (job, model[start[job]], model[end[job]]))
    print("makespan", model[makespan])
