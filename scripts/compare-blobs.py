#!/usr/bin/python3
"""Compares `quillon blobs` with OpenCV on every picture of a folder.

    scripts/compare-blobs.py FOLDER [--quillon PROGRAM] [--report FOLDER]

Each picture is thresholded once by `quillon otsu`; its bright and its dark pixels are then labelled by
`quillon blobs` and by connectedComponentsWithStats with 8 neighbours. Equal must be: the number of
blobs; area, box and mean grey of each; the centre's row, and its column but for the half pixel that each
run of an odd sum loses; and the area of the turned rectangle, to the precision of floats.
A picture that quillon refuses, because its tables hold 20000 blobs, is listed as refused.
With --report, the report pages are kept in that folder. Exit code 1 when anything differs.
"""

import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

ENDINGS = {".png", ".jpg", ".jpeg", ".bmp", ".pgm"}


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True)


def opencv_blobs(binary, grey):
    """Left, top, right, bottom, area, x, y, mean, area of the smallest rectangle; a row for each blob."""
    count, labels, stats, centres = cv2.connectedComponentsWithStats(binary, connectivity=8)
    sums = np.bincount(labels.ravel(), weights=grey.ravel().astype(float), minlength=count)
    rows = []
    for n in range(1, count):
        left, top, width, height, area = (int(value) for value in stats[n])
        ys, xs = np.nonzero(labels[top : top + height, left : left + width] == n)
        (_, (w, h), _) = cv2.minAreaRect(np.column_stack((xs, ys)).astype(np.float32))
        rows.append((left, top, left + width - 1, top + height - 1, area, *centres[n], sums[n] / area, w * h))
    return rows


def quillon_blobs(found):
    keys = ("left", "top", "right", "bottom", "area", "x", "y", "mean")
    return [tuple(blob[key] for key in keys) + (blob["width"] * blob["height"],) for blob in found["blobs"]]


def differences(ours, theirs):
    """What is not equal, as texts; at most the first of each kind."""
    if len(ours) != len(theirs):
        return [f"{len(ours)} blobs, OpenCV {len(theirs)}"]
    # Box and area first; the centre tells blobs apart that share both.
    order = lambda blob: (*blob[:5], round(blob[6], 6), blob[5])
    found = {}
    for a, b in zip(sorted(ours, key=order), sorted(theirs, key=order)):
        lost = b[5] - a[5]  # of the column, at most half a pixel a run, and a run has a pixel
        checks = {
            "box and area": a[:5] == b[:5],
            "column": -1e-9 <= lost <= 0.5,
            "row": abs(a[6] - b[6]) < 1e-9,
            "mean grey": abs(a[7] - b[7]) < 1e-9,
            # One pixel is 1 x 1 for us, a point for OpenCV.
            "rectangle": a[4] == 1 or abs(a[8] - b[8]) <= 1e-4 * b[8] + 0.01,
        }
        for name, same in checks.items():
            if not same:
                found.setdefault(name, f"{name}: {a}, OpenCV {b}")
    return list(found.values())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--quillon", default=root / "build/linux/src/quillon")
    parser.add_argument("--report", type=pathlib.Path)
    options = parser.parse_args()
    pictures = sorted(path for path in options.folder.iterdir() if path.suffix.lower() in ENDINGS)
    if not pictures:
        sys.exit(f"no pictures in {options.folder}")
    if options.report:
        options.report.mkdir(parents=True, exist_ok=True)

    failed = False
    print(f"{'picture':24} {'pixels':6} {'blobs':>6} {'area':>9}  result")
    for picture in pictures:
        with tempfile.TemporaryDirectory() as scratch:
            for command in ("gray", "otsu"):
                made = run(options.quillon, command, picture, f"{scratch}/{command}.png")
                if made.returncode != 0:
                    sys.exit(made.stderr)
            grey = cv2.imread(f"{scratch}/gray.png", cv2.IMREAD_GRAYSCALE)
            bright = cv2.imread(f"{scratch}/otsu.png", cv2.IMREAD_GRAYSCALE)
        for name, binary, flags in (("bright", bright, []), ("dark", 255 - bright, ["--dark"])):
            if options.report:
                flags = [*flags, "--report", options.report / f"{picture.stem}-{name}.html"]
            answer = run(options.quillon, "blobs", picture, "--json", *flags)
            if answer.returncode != 0:
                refused = "can be measured" in answer.stderr or "too many blobs" in answer.stderr
                failed = failed or not refused
                print(f"{picture.name:24} {name:6} {'':>16}  {answer.stderr.strip()}")
                continue
            ours = quillon_blobs(json.loads(answer.stdout))
            wrong = differences(ours, opencv_blobs(binary, grey))
            failed = failed or bool(wrong)
            area = sum(blob[4] for blob in ours)
            print(f"{picture.name:24} {name:6} {len(ours):6} {area:9}  {'; '.join(wrong) or 'equal'}")
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
