#!/usr/bin/python3
"""Compares `quillon shapes` with OpenCV on every picture of a folder.

    scripts/compare-shapes.py FOLDER [--quillon PROGRAM]

The blobs of bright pixels by `quillon shapes` are compared with those of connectedComponentsWithStats with 8
neighbours: moments with cv2.moments of each blob's mask (and 1/12 for the squares that pixels are), the
hull with cv2.convexHull of the pixels' corners, mean and deviation of grey with cv2.meanStdDev. Prints the
greatest difference of each, relative to the value; exit code 1 when one is beyond the rounding of doubles.
"""
import argparse
import json
import pathlib
import subprocess
import sys

import cv2
import numpy as np

ENDINGS = {".png", ".bmp", ".pgm"}  # decoders of JPEG differ by a grey value or two
MOST = 1e-6  # relative; the hull's corners go through OpenCV as 32-bit integers, exactly


def peer(mask, grey):
    moments = cv2.moments(mask, binaryImage=True)
    area = moments["m00"]
    corners = np.argwhere(mask)
    corners = np.concatenate([corners + offset for offset in ((0, 0), (0, 1), (1, 0), (1, 1))])
    mean, deviation = cv2.meanStdDev(grey, mask=mask)
    mxx, mxy, myy = moments["mu20"] / area + 1 / 12, moments["mu11"] / area, moments["mu02"] / area + 1 / 12
    return {
        "area": area,
        "x": moments["m10"] / area,
        "y": moments["m01"] / area,
        "mxx": mxx,
        "mxy": mxy,
        "myy": myy,
        "circularity": area / (2 * np.pi * (mxx + myy)),
        "hull": cv2.contourArea(cv2.convexHull(corners.astype(np.int32))),
        "mean": mean[0, 0],
        "deviation": deviation[0, 0],
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    root = pathlib.Path(__file__).resolve().parent.parent
    parser.add_argument("--quillon", default=root / "build/linux/src/quillon")
    options = parser.parse_args()
    worst, blobs = {}, 0
    for picture in sorted(path for path in options.folder.iterdir() if path.suffix.lower() in ENDINGS):
        done = subprocess.run([options.quillon, "shapes", picture, "--json"], capture_output=True, text=True)
        if done.returncode:
            print(f"{picture.name}: refused: {done.stderr.strip()}")
            continue
        shapes = json.loads(done.stdout)["shapes"]
        grey = cv2.imread(str(picture), cv2.IMREAD_GRAYSCALE)
        if cv2.imread(str(picture), cv2.IMREAD_UNCHANGED).ndim > 2:
            print(f"{picture.name}: left out: its colours are turned to grey by other weights")
            continue
        _, binary = cv2.threshold(grey, 0, 1, cv2.THRESH_BINARY | cv2.THRESH_OTSU)
        count, labels, stats, centres = cv2.connectedComponentsWithStats(binary, connectivity=8)
        if count - 1 != len(shapes):
            sys.exit(f"{picture.name}: {len(shapes)} blobs here, {count - 1} there")
        if count > 2000:
            print(f"{picture.name}: left out: {count - 1} blobs")
            continue
        blobs += count - 1
        # Both number blobs in an order of their own: each is known by its box, its area and its centre.
        of_box = {}
        for n in range(1, count):
            left, top, width, height, area = (int(value) for value in stats[n])
            of_box.setdefault((left, top, left + width - 1, top + height - 1, area), []).append(n)
        for shape in shapes:
            found = of_box[tuple(shape[side] for side in ("left", "top", "right", "bottom", "area"))]
            n = min(found, key=lambda n: abs(centres[n][0] - shape["x"]) + abs(centres[n][1] - shape["y"]))
            for name, value in peer((labels == n).astype(np.uint8), grey).items():
                away = abs(shape[name] - value) / (1 + abs(value))
                worst[name] = max(worst.get(name, 0), away)
    print(f"{blobs} blobs")
    for name, away in worst.items():
        print(f"{name:12} {away:.1e}")
    return int(not blobs or max(worst.values()) > MOST)


if __name__ == "__main__":
    sys.exit(main())
