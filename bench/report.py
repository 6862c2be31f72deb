#!/usr/bin/env python3
"""Runs every benchmark program and prints each figure beside its baseline.

Each file in targets/ describes one benchmark program and its rows:

  {"program": "bench_options",
   "args": ["--benchmark_min_time=0.2"],
   "rows": [{"name": "options load", "benchmark": "BM_Load", "baseline": "BM_LoadBaseline",
             "metric": "real_time" | "items_per_second" | <counter>,
             "unit": "ns", "better": "lower", "target": 1.5}]}

A row without "baseline" is reported with its value alone (a target on the value
itself, e.g. peak memory over body size, goes in "target" with "baseline_value").
A row whose baseline is another program's figure names that program in
"baseline_program" (and the baseline's metric in "baseline_metric" where it
differs); each program runs once per report, with the arguments of its own file.
"""
import argparse
import glob
import json
import os
import subprocess
import sys


def run_program(path, args):
    out = subprocess.run([path, "--benchmark_format=json", *args], capture_output=True, text=True)
    if out.returncode != 0:
        raise RuntimeError(f"{os.path.basename(path)} failed ({out.returncode}): {out.stderr.strip()}")
    return {b["name"]: b for b in json.loads(out.stdout)["benchmarks"]}


def metric(results, name, key):
    if name not in results:
        raise KeyError(f"benchmark {name} not in the program's output")
    entry = results[name]
    if key in entry:
        return float(entry[key])
    raise KeyError(f"benchmark {name} has no '{key}'")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", required=True, help="folder holding the benchmark programs")
    parser.add_argument("--out", required=True, help="JSON file to write the rows to")
    options = parser.parse_args()

    here = os.path.dirname(os.path.abspath(__file__))
    descriptions = {}
    for description_path in sorted(glob.glob(os.path.join(here, "targets", "*.json"))):
        with open(description_path) as f:
            description = json.load(f)
        descriptions[description["program"]] = description

    runs = {}

    def results_of(name):
        # Each program runs once, whether for its own rows or as another's baseline.
        if name not in runs:
            program = os.path.join(options.bin, name)
            if not os.path.exists(program):
                raise RuntimeError(f"{name} not built")
            runs[name] = run_program(program, descriptions.get(name, {}).get("args", []))
        return runs[name]

    rows, failures = [], []
    for description in descriptions.values():
        if not os.path.exists(os.path.join(options.bin, description["program"])):
            failures.append(f"{description['program']}: not built")
            continue
        try:
            results = results_of(description["program"])
            for row in description["rows"]:
                value = metric(results, row["benchmark"], row["metric"])
                if "baseline" in row:
                    source = results_of(row["baseline_program"]) if "baseline_program" in row else results
                    baseline = metric(source, row["baseline"], row.get("baseline_metric", row["metric"]))
                else:
                    baseline = float(row.get("baseline_value", 1.0))
                rows.append({"name": row["name"], "value": value, "unit": row["unit"],
                             "baseline": baseline, "ratio": value / baseline if baseline else None,
                             "better": row["better"], "target": row.get("target")})
        except (RuntimeError, KeyError, ValueError) as error:
            failures.append(f"{description['program']}: {error}")

    width = max([len(r["name"]) for r in rows] + [10])
    print(f"{'benchmark':<{width}}  {'value':>14}  {'baseline':>14}  {'ratio':>7}  target")
    for r in rows:
        ratio = "-" if r["ratio"] is None else f"{r['ratio']:.2f}"
        target = "-" if r["target"] is None else ("<= " if r["better"] == "lower" else ">= ") + str(r["target"])
        met = ""
        if r["target"] is not None and r["ratio"] is not None:
            ok = r["ratio"] <= r["target"] if r["better"] == "lower" else r["ratio"] >= r["target"]
            met = "  ok" if ok else "  MISSED"
        print(f"{r['name']:<{width}}  {r['value']:>14.4g}  {r['baseline']:>14.4g}  {ratio:>7}  {target} {r['unit']}{met}")
    os.makedirs(os.path.dirname(os.path.abspath(options.out)), exist_ok=True)
    with open(options.out, "w") as f:
        json.dump(rows, f, indent=2)
    print(f"\nwrote {options.out}")
    for failure in failures:
        print(f"not measured: {failure}", file=sys.stderr)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
