#!/usr/bin/env python3
"""Reads files of the benchmark's JSON and prints its table of medians and ratios, and their geometric means."""
import collections
import json
import math
import statistics
import sys

LEVELS = ["sse2", "avx2", "avx512"]


def microseconds(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.3g}"


def main():
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    runs = [run for path in sys.argv[1:] for run in json.load(open(path))["benchmarks"]]
    for run in runs:
        if run.get("run_type") == "aggregate":
            continue
        operation, size, column = run["name"].split("/")[:3]
        times[operation, size][column].append(run["cpu_time"])
    levels = [l for l in LEVELS if any(l in row for row in times.values())]
    plain = ["plain"] if any("plain" in row for row in times.values()) else []
    shown = levels + ["fresh", "opencv", "memcpy"] + plain
    header = ["operation", "size"] + shown
    ratios = [(f"cv/{l}", "opencv", l) for l in levels]
    ratios += [(f"cv at {l}/{l}", f"opencv_{l}", l) for l in levels[:-1]]
    ratios += [(f"{levels[-1]}/memcpy", levels[-1], "memcpy")]
    ratios += [(f"plain/{l}", "plain", l) for l in levels if plain]
    header += [name for name, _, _ in ratios]
    print("| " + " | ".join(header) + " |")
    print("|" + "---|" * len(header))
    logarithms = collections.defaultdict(lambda: collections.defaultdict(list))
    for (operation, size), columns in sorted(times.items()):
        median = {c: statistics.median(v) for c, v in columns.items()}
        row = [operation, size] + [microseconds(median[c]) if c in median else "" for c in shown]
        for name, above, below in ratios:
            if above not in median or below not in median:
                row.append("")
                continue
            row.append(f"{median[above] / median[below]:.2f}")
            if name.startswith("cv"):
                logarithms[size][name].append(math.log(median[above] / median[below]))
        print("| " + " | ".join(row) + " |")
    for size, columns in logarithms.items():
        means = (f"{name} {math.exp(statistics.mean(v)):.2f}" for name, v in columns.items())
        print(f"\nGeometric means at {size}: " + ", ".join(means) + ".")


if __name__ == "__main__":
    main()
