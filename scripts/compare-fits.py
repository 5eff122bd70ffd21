#!/usr/bin/python3
"""Compares `quillon fit-circle` and `fit-ellipse` with OpenCV on discs that are drawn exactly.

    scripts/compare-fits.py [--quillon PROGRAM] [--discs COUNT] [--seed SEED]

Discs and ellipses of known places, blurred, with noise of 5 grey values. OpenCV's fitEllipse goes through the
pixels of the outline at the grey value halfway, and its moments are those of all pixels above that. Prints the
deviation of the place and the bias and deviation of the diameter, in pixels; exit code 1 where Quillon's are not
the smaller ones.
"""
import argparse
import json
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

SIDE, DARK, BRIGHT, NOISE = 64, 60, 180, 5


def drawn(x, y, a, b, blur, random):
    """An ellipse of half axes a and b, drawn eight times as fine."""
    fine = 8
    v, u = (np.mgrid[:SIDE * fine, :SIDE * fine] + 0.5) / fine - 0.5
    size = np.hypot((u - x) / a, (v - y) / b)
    slope = np.hypot((u - x) / a**2, (v - y) / b**2) / np.maximum(size, 1e-9)
    inside = np.clip(0.5 - (size - 1) / np.maximum(slope, 1e-9) * fine, 0, 1)
    smooth = cv2.GaussianBlur(inside, (0, 0), blur * fine, borderType=cv2.BORDER_REPLICATE)
    grey = DARK + (BRIGHT - DARK) * smooth.reshape(SIDE, fine, SIDE, fine).mean((1, 3))
    return np.rint(np.clip(grey + random.normal(0, NOISE, grey.shape), 0, 255)).astype(np.uint8)


def by_opencv(picture):
    """Place and mean diameter: by fitEllipse of the outline, and by moments."""
    _, binary = cv2.threshold(picture, (DARK + BRIGHT) // 2, 255, cv2.THRESH_BINARY)
    outlines, _ = cv2.findContours(binary, cv2.RETR_EXTERNAL, cv2.CHAIN_APPROX_NONE)
    outline = max(outlines, key=len)
    (x, y), (width, height), _ = cv2.fitEllipse(outline)
    moments = cv2.moments(binary, binaryImage=True)
    # The outline runs through the middles of the outermost pixels: half of one is missing all around.
    yield "cv2.fitEllipse", x, y, (width + height) / 2 + 1
    area = moments["m00"]
    yield "cv2.moments", moments["m10"] / area, moments["m01"] / area, 2 * np.sqrt(area / np.pi)


def by_quillon(program, name, file):
    ring = ["--ring", *map(str, ((SIDE - 1) / 2, (SIDE - 1) / 2, 10, 30)), "--sign", "falling"]
    shape, = json.loads(subprocess.check_output([program, name, file, *ring, "--json"])).popitem()[1]
    return f"quillon {name}", shape["x"], shape["y"], shape["diameter"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--quillon", default=root / "build/linux/src/quillon")
    parser.add_argument("--discs", type=int, default=25)
    parser.add_argument("--seed", type=int, default=100000)
    options = parser.parse_args()
    print("| shape | blur | by | place: deviation | diameter: bias | diameter: deviation |\n|---|---|---|---|---|---|")
    good = True
    for shape, blur in (("disc", 0.7), ("disc", 1.5), ("ellipse", 0.7), ("ellipse", 1.5)):
        errors = {}
        for i in range(options.discs):
            random = np.random.default_rng(options.seed + i)
            x, y = (SIDE - 1) / 2 + random.uniform(-1, 1, 2)
            a = 20 + random.uniform(-1, 1)
            b = a if shape == "disc" else 0.8 * a
            picture = drawn(x, y, a, b, blur, random)
            with tempfile.TemporaryDirectory() as scratch:
                file = pathlib.Path(scratch) / "disc.png"
                cv2.imwrite(str(file), picture)
                ours = by_quillon(options.quillon, "fit-circle" if shape == "disc" else "fit-ellipse", file)
            for name, u, v, diameter in (ours, *by_opencv(picture)):
                # Moments tell the disc of the same area, the others the mean of both diameters.
                truth = 2 * np.sqrt(a * b) if name == "cv2.moments" else a + b
                errors.setdefault(name, []).append((u - x, v - y, diameter - truth))
        spreads = []
        for name, rows in errors.items():
            dx, dy, size = np.array(rows).T
            place = np.sqrt((dx**2 + dy**2).mean() / 2)
            spreads.append((place, np.sqrt((size**2).mean())))
            print(f"| {shape} | {blur} | {name} | {place:.4f} | {size.mean():+.4f} | {size.std():.4f} |")
        good = good and all(ours <= theirs for peer in spreads[1:] for ours, theirs in zip(spreads[0], peer))
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
