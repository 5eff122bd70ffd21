#!/usr/bin/python3
"""Draws the table that `scripts/find-accuracy --only cost` prints, a plot for each thing that grows:
  bench/accuracy/plot_find_costs.py TABLE FILE.svg
"""
import re
import sys

import matplotlib
matplotlib.use("svg")
matplotlib.rcParams.update({"svg.hashsalt": "quillon", "svg.fonttype": "none"})
from matplotlib import pyplot

costs = {}
for line in open(sys.argv[1]):
    cells = [cell.strip() for cell in line.strip().strip("|").split("|")]
    times = [re.match(r"([\d.]+) ms", cell) for cell in cells[2:4]]
    if len(times) == 2 and all(times):
        costs.setdefault(cells[0], []).append((float(cells[1]), *(float(time[1]) for time in times)))
assert len(costs) == 4, f"{sys.argv[1]} has {len(costs)} of the four things that grow"
figure, plots = pyplot.subplots(2, 2, figsize=(7, 5))
for plot, (what, rows) in zip(plots.flat, costs.items()):
    grown, edges, grey = zip(*rows)
    plot.plot(grown, edges, "o-", label="by edges")
    plot.plot(grown, grey, "s-", label="by grey")
    plot.set(xlabel=what, ylabel="ms", xlim=0, ylim=0)
plots[0][0].legend()
figure.tight_layout()
figure.savefig(sys.argv[2], metadata={"Date": None})
