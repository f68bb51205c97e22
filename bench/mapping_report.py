#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the mapping benchmark with repetitions, randomly interleaved so that a busy spell of the
machine does not fall on one side of a pair, and prints, for each pair, the median times of the
schema and the hand-written code and their ratio, as a Markdown table.
Usage: mapping_report.py MAPPING_BENCH [REPETITIONS]"""
import json
import subprocess
import sys

bench = sys.argv[1]
repetitions = sys.argv[2] if len(sys.argv) > 2 else "10"
run = subprocess.run(
    [bench, "--benchmark_format=json", f"--benchmark_repetitions={repetitions}",
     "--benchmark_report_aggregates_only=true", "--benchmark_min_time=0.2",
     "--benchmark_enable_random_interleaving=true"],
    check=True, capture_output=True, text=True)
medians = {}
for result in json.loads(run.stdout)["benchmarks"]:
    if result.get("aggregate_name") == "median":
        medians[result["run_name"]] = result["real_time"]  # ns

print("| benchmark | schema (µs, median) | hand-written (µs, median) | ratio |")
print("|---|---:|---:|---:|")
for name, schema in sorted(medians.items()):
    if not name.endswith("/schema"):
        continue
    pair = name[: -len("/schema")]
    hand = medians[pair + "/hand"]
    print(f"| {pair} | {schema / 1000:.2f} | {hand / 1000:.2f} | {schema / hand:.3f} |")
