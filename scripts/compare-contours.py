#!/usr/bin/python3
"""Compares fits through contours with OpenCV on drawn discs and ellipses.

    scripts/compare-contours.py [--seed FIRST] [--quillon PROGRAM]

Bright discs, and ellipses with half axes of 30 and 20 pixels or so, on dark ground: drawn six times as fine, blurred,
gathered, with noise of standard deviation 5; with a bite out of the rim where it says so. Each goes through
`fit-contour-circles` or `fit-contour-ellipses`, and through OpenCV: threshold by Otsu, findContours, and fitEllipse
through the longest contour. OpenCV's points are the centres of the outermost bright pixels, so half a pixel is added
to each side of its ellipse. Prints bias and deviation of the mean diameter and of the centre's column, in pixels;
exit code 1 when ours are beyond the bounds below.
"""
import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

SIDE, FINE, COUNT = 100, 6, 50
MOST_BIAS, MOST_DEVIATION = 0.06, 0.05  # pixels of the diameter, by blurs up to 1.5


def draw(random, blur, kind, has_bite):
    """The picture, its mean diameter and the column of its centre."""
    at = (np.arange(SIDE * FINE) + 0.5) / FINE - 0.5
    x, y = np.meshgrid(at, at)
    cx, cy = (SIDE - 1) / 2 + random.uniform(-1, 1, 2)
    if kind == "circle":
        a = b = 20 + random.uniform(-1, 1)
    else:
        a, b = 30 + random.uniform(-1, 1), 20 + random.uniform(-1, 1)
    turn = random.uniform(0, np.pi)
    u, v = (x - cx) * np.cos(turn) + (y - cy) * np.sin(turn), (y - cy) * np.cos(turn) - (x - cx) * np.sin(turn)
    inside = (u / a) ** 2 + (v / b) ** 2 < 1
    if has_bite:
        inside &= np.hypot(u, v - b) > 5
    fine = cv2.GaussianBlur(np.where(inside, 180.0, 60.0), (0, 0), blur * FINE)
    grey = fine.reshape(SIDE, FINE, SIDE, FINE).mean(axis=(1, 3)) + random.normal(0, 5, (SIDE, SIDE))
    return np.clip(np.rint(grey), 0, 255).astype(np.uint8), a + b, cx


def by_opencv(grey):
    _, binary = cv2.threshold(grey, 0, 255, cv2.THRESH_OTSU)
    contours, _ = cv2.findContours(binary, cv2.RETR_EXTERNAL, cv2.CHAIN_APPROX_NONE)
    (x, _), (width, height), _ = cv2.fitEllipse(max(contours, key=len))
    return (width + height) / 2 + 1, x


def by_quillon(program, path, kind):
    done = subprocess.run([program, f"fit-contour-{kind}s", path, "--around", "bright", "--json"],
                          capture_output=True, text=True, check=True)
    things = json.loads(done.stdout)["circles"]
    if len(things) != 1:
        sys.exit(f"{len(things)} contours of one {kind}")
    return things[0]["diameter"], things[0]["x"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--seed", type=int, default=100000)
    parser.add_argument("--quillon", default=root / "build/linux/src/quillon")
    options = parser.parse_args()
    print("| shape | blur | bite | diameter | OpenCV | column | OpenCV |\n|---|---|---|---|---|---|---|")
    is_good = True
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "drawn.png"
        for kind in ("circle", "ellipse"):
            for blur, has_bite in ((0.7, False), (1.0, False), (1.5, False), (1.0, True)):
                errors = []
                for i in range(COUNT):
                    grey, diameter, column = draw(np.random.default_rng(options.seed + i), blur, kind, has_bite)
                    cv2.imwrite(str(path), grey)
                    truth = np.array([diameter, column])
                    errors.append([by_quillon(options.quillon, path, kind) - truth, by_opencv(grey) - truth])
                errors = np.array(errors)  # image, ours or theirs, diameter or column
                bias, deviation = errors.mean(axis=0), errors.std(axis=0, ddof=1)
                is_good &= abs(bias[0, 0]) < MOST_BIAS and deviation[0, 0] < MOST_DEVIATION
                cells = [f"{bias[who, what]:+.4f}, {deviation[who, what]:.4f}" for what in (0, 1) for who in (0, 1)]
                print(f"| {kind} | {blur} | {'yes' if has_bite else 'no'} | {' | '.join(cells)} |", flush=True)
    return 0 if is_good else 1


if __name__ == "__main__":
    sys.exit(main())
