#!/usr/bin/env python3
"""Reads the benchmark's JSON from standard input and prints its table of medians and ratios."""
import collections
import json
import statistics
import sys

LEVELS = ["sse2", "avx2", "avx512"]


def main():
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    for run in json.load(sys.stdin)["benchmarks"]:
        if run.get("run_type") == "aggregate":
            continue
        operation, size, column = run["name"].split("/")[:3]
        times[operation, size][column].append(run["cpu_time"])
    levels = [l for l in LEVELS if any(l in row for row in times.values())]
    plain = ["plain"] if any("plain" in row for row in times.values()) else []
    shown = levels + ["fresh", "opencv", "memcpy"] + plain
    header = ["operation", "size"] + shown
    header += [f"cv/{l}" for l in levels] + [f"{levels[-1]}/memcpy"]
    header += [f"plain/{l}" for l in levels if plain]
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    for (operation, size), columns in times.items():
        median = {c: statistics.median(v) for c, v in columns.items()}
        figure = lambda c: f"{median[c]:.0f}" if c in median else ""
        ratio = lambda a, b: f"{median[a] / median[b]:.2f}" if a in median and b in median else ""
        row = [operation, size] + [figure(c) for c in shown]
        row += [ratio("opencv", l) for l in levels] + [ratio(levels[-1], "memcpy")]
        row += [ratio("plain", l) for l in levels if plain]
        print("| " + " | ".join(row) + " |")


if __name__ == "__main__":
    main()
