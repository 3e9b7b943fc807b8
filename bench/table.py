"""Prints the median, minimum and maximum times of a queue_bench result, and the model's share of a block inquiry.

    table.py RESULT.json
"""

import json
import sys

with open(sys.argv[1]) as file:
    runs = json.load(file)["benchmarks"]
medians, spreads = {}, {}
for run in runs:
    name = run["run_name"].removesuffix("/real_time").split("/repeats")[0].removesuffix("/real_time")
    if run.get("aggregate_name") == "median":
        medians[name] = run["real_time"]
    elif run.get("run_type") == "iteration":
        spreads.setdefault(name, []).append(run["real_time"])

print(f"{'':28}{'median':>12}{'minimum':>12}{'maximum':>12}   nanoseconds for a request and its reply")
for name, median in medians.items():
    print(f"{name:28}{median:12.0f}{min(spreads[name]):12.0f}{max(spreads[name]):12.0f}")
for name in ("SimulatedDevice/Block3", "ShippedProgram/Block3"):
    share = medians["ModelAlone/Block3"] / medians[name]
    print(f"The model's share of {name}: {share:.0%}")
