#!/usr/bin/env python3
"""Reads the JSON results of the bench programs and the figures of
bench/targets.txt; prints one table (figure, time, reference, ratio,
target, met or missed) and writes the same rows as JSON.

usage: summarize.py TARGETS RESULTS_DIR SUMMARY_JSON

A program's results are RESULTS_DIR/<program>.json, written with
--benchmark_out. Times are the medians of the repetitions; a benchmark
measured in real time (its name says real_time) is read in real time,
any other in CPU time."""

import json
import operator
import sys
from pathlib import Path

RULES = {"<=": operator.le, ">=": operator.ge}


def read_targets(path):
    rows = []
    for number, line in enumerate(Path(path).read_text().splitlines(), 1):
        line = line.strip()
        if not line or line.startswith("#"):
            continue
        parts = line.split(None, 4)
        if len(parts) != 5:
            sys.exit(f"{path}:{number}: expected program, benchmark, reference, rule, figure")
        program, benchmark, reference, rule, figure = parts
        if rule != "-" and (rule[:2] not in RULES or not rule[2:]):
            sys.exit(f"{path}:{number}: a rule is <=N, >=N or -")
        rows.append({"program": program, "benchmark": benchmark, "reference": reference,
                     "rule": rule, "figure": figure})
    return rows


def read_medians(path):
    """name -> (median time, unit) of one program's results."""
    medians = {}
    for run in json.loads(Path(path).read_text())["benchmarks"]:
        if run.get("aggregate_name") != "median":
            continue
        name = run["run_name"]
        key = "real_time" if "real_time" in name else "cpu_time"
        medians[name] = (run[key], run["time_unit"])
    return medians


def judge(row, medians):
    found = medians.get(row["program"])
    if found is None:
        return dict(row, status="no results")
    if row["benchmark"] not in found or row["reference"] not in found:
        return dict(row, status="not measured")
    (time, unit), (ref, ref_unit) = found[row["benchmark"]], found[row["reference"]]
    if unit != ref_unit or ref <= 0:
        return dict(row, status="not comparable")
    ratio = time / ref
    status = "-"
    if row["rule"] != "-":
        rule, limit = RULES[row["rule"][:2]], float(row["rule"][2:])
        status = "met" if rule(ratio, limit) else "MISSED"
    return dict(row, time=time, reference_time=ref, unit=unit, ratio=round(ratio, 3),
                status=status)


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    targets, results, summary = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
    rows = read_targets(targets)
    medians = {}
    for program in {row["program"] for row in rows}:
        path = results / f"{program}.json"
        if path.exists():
            medians[program] = read_medians(path)
    judged = [judge(row, medians) for row in rows]

    header = ("figure", "time", "reference", "ratio", "target", "result")
    lines = [header]
    for r in judged:
        if "ratio" in r:
            lines.append((r["figure"], f"{r['time']:.1f} {r['unit']}",
                          f"{r['reference_time']:.1f} {r['unit']}", f"{r['ratio']:.2f}",
                          r["rule"], r["status"]))
        else:
            lines.append((r["figure"], "", "", "", r["rule"], r["status"]))
    widths = [max(len(line[i]) for line in lines) for i in range(len(header))]
    print()
    print("Medians of repeated runs; ratio = time / reference, both from the same program run.")
    for n, line in enumerate(lines):
        print("  ".join(cell.ljust(w) if i == 0 else cell.rjust(w)
                        for i, (cell, w) in enumerate(zip(line, widths))).rstrip())
        if n == 0:
            print("  ".join("-" * w for w in widths))
    summary.parent.mkdir(parents=True, exist_ok=True)
    summary.write_text(json.dumps({"rows": judged}, indent=2) + "\n")
    print(f"\nwritten to {summary}")
    missed = sum(r["status"] == "MISSED" for r in judged)
    unmeasured = sum("ratio" not in r for r in judged)
    print(f"{len(judged)} figures: {missed} missed, {unmeasured} not measured")


if __name__ == "__main__":
    main()
