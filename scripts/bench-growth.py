#!/usr/bin/python3
"""Runs quillon_growth, prints its tables, and draws docs/images/growth.svg.

Arguments: the program, or a file of what it printed.
"""
import collections
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# What a plot's x is, what its y is, by how much nanoseconds a call are divided, and whether x is logarithmic.
PLOTS = {
    "size": ("pixels", "ns a pixel", lambda x: x, True),
    "radius": ("radius, 1920 x 1080", "ns a pixel", lambda _: 1920 * 1080, True),
    "blobs": ("squares, 1920 x 1080", "ms a call", lambda _: 1e6, True),
    "angles": ("degrees to both sides, 1280 x 1024", "ms a call", lambda _: 1e6, False),
    "scales": ("percent to both sides, 1280 x 1024", "ms a call", lambda _: 1e6, False),
}


def read(source):
    if os.access(source, os.X_OK):
        text = subprocess.run([source], check=True, stdout=subprocess.PIPE, text=True).stdout
    else:
        text = pathlib.Path(source).read_text()
    plots = collections.defaultdict(lambda: collections.defaultdict(dict))
    for line in text.splitlines():
        plot, series, x, nanoseconds = line.split()
        plots[plot][series][float(x)] = float(nanoseconds)
    return plots


def table(plot, series):
    label, unit, divisor, _ = PLOTS[plot]
    print(f"\n| {label} | " + " | ".join(series) + " |\n|" + "---|" * (len(series) + 1))
    for x in next(iter(series.values())):
        cells = (f"{points[x] / divisor(x):.3f}" for points in series.values())
        print(f"| {x:.0f} | " + " | ".join(cells) + " |")
    print(f"\nIn {unit}.")


def overhead(series):
    """What a call of 64 x 64 pixels takes beyond their share of a larger one's time."""
    small, large = 64 * 64, 256 * 256
    print("\n| 64 x 64 pixels | us a call | us beyond its pixels |\n|---|---|---|")
    for name, points in series.items():
        a_pixel = (points[large] - points[small]) / (large - small)
        print(f"| {name} | {points[small] / 1e3:.2f} | {(points[small] - a_pixel * small) / 1e3:.2f} |")


def draw(plots, path):
    import matplotlib
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.hashsalt": "quillon", "svg.fonttype": "none", "font.size": 8})
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(len(plots), figsize=(6.4, 2.9 * len(plots)))
    for axis, (plot, series) in zip(axes, plots.items()):
        label, unit, divisor, logarithmic = PLOTS[plot]
        for name, points in series.items():
            axis.plot(list(points), [y / divisor(x) for x, y in points.items()], linewidth=1,
                      label=name.replace("_", " "))
        axis.set_xscale("log" if logarithmic else "linear")
        axis.set_yscale("log" if logarithmic else "linear")
        axis.set_xlabel(label)
        axis.set_ylabel(unit)
        axis.legend(fontsize=6, ncol=2)
        axis.minorticks_off()
        axis.grid(alpha=0.3)
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    plots = read(sys.argv[1])
    for plot, series in plots.items():
        table(plot, series)
    overhead(plots["size"])
    draw(plots, ROOT / "docs/images/growth.svg")


if __name__ == "__main__":
    main()
