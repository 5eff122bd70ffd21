"""What the examples share: pictures to work on, drawing, and where to write."""

import argparse
from pathlib import Path

import cv2
import numpy as np

GREEN, RED, YELLOW = (80, 200, 60), (60, 60, 230), (40, 210, 240)


def arguments(description, **defaults):
    """The folder to write to, and what else an example can be told: name=default."""
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("--out", type=Path, default=Path("."), metavar="FOLDER",
                        help="where pictures are written (default: here)")
    for name, default in defaults.items():
        parser.add_argument(f"--{name}", default=default, help=f"(default: {default})")
    given = parser.parse_args()
    given.out.mkdir(parents=True, exist_ok=True)
    return given


def write(given, name, picture):
    path = given.out / name
    if not cv2.imwrite(str(path), np.ascontiguousarray(picture)):
        raise SystemExit(f"{path}: cannot be written")
    print(f"wrote {path}")


def canvas(gray):
    """A color copy to draw on."""
    return cv2.cvtColor(np.ascontiguousarray(gray), cv2.COLOR_GRAY2BGR)


def washers(size=(360, 480), seed=1):
    """A gray picture of washers and pins on a lit, noisy ground."""
    random = np.random.default_rng(seed)
    height, width = size
    picture = np.tile(np.linspace(50, 90, width), (height, 1))
    for index in range(12):
        x, y = 60 + 120 * (index % 4), 70 + 110 * (index // 4)
        x, y = x + int(random.integers(-12, 13)), y + int(random.integers(-12, 13))
        if index % 3 == 2:
            turned = cv2.boxPoints(((x, y), (70, 16), int(random.integers(0, 180))))
            cv2.fillPoly(picture, [turned.astype(np.int32)], 200)
        else:
            cv2.circle(picture, (x, y), 30 + index % 2 * 8, 210, -1)
            cv2.circle(picture, (x, y), 12, 70, -1)
    noisy = cv2.GaussianBlur(picture, (0, 0), 1) + random.normal(0, 4, size)
    return np.clip(noisy, 0, 255).astype(np.uint8)


def bracket(size=(200, 200), angle=0.0, place=None, seed=2):
    """A gray picture of an L-shaped part with two holes, turned clockwise by `angle` degrees."""
    height, width = size
    x, y = place or (width // 2, height // 2)
    part = np.full(size, 60, np.uint8)
    outline = np.array([(-45, -50), (-15, -50), (-15, 20), (45, 20), (45, 50), (-45, 50)])
    cv2.fillPoly(part, [outline + (x, y)], 190)
    for hole in ((-30, -35), (30, 35)):
        cv2.circle(part, (x + hole[0], y + hole[1]), 8, 60, -1)
    turn = cv2.getRotationMatrix2D((x, y), -angle, 1)
    part = cv2.warpAffine(part, turn, (width, height), borderValue=60)
    noise = np.random.default_rng(seed).normal(0, 3, size)
    return np.clip(cv2.GaussianBlur(part, (0, 0), 0.8) + noise, 0, 255).astype(np.uint8)
