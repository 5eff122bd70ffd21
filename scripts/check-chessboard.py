#!/usr/bin/env python3
"""Measures how far lens calibration straightens the chessboard views of a folder.

For each view a 5 x 5 set of the board's corners, every second column, goes to `quillon
calibrate-lens`; all corners of those rows are then taken back through the fitted cubic. The bend of a row or
column of corners is the largest distance of one from the straight line that fits them best. Prints a
table; fails where a bend above 2 pixels was not at least halved. Arguments: the command-line host,
the folder, and optionally a folder for the corrected pictures.
"""
import pathlib
import subprocess
import sys
import tempfile

import cv2
import numpy as np

BOARD = (9, 6)
SIDE = 5


def find_corners(image):
    """The corners of the board's first five rows, row by row from the top left."""
    found, corners = cv2.findChessboardCorners(image, BOARD)
    if not found:
        return None
    criteria = (cv2.TERM_CRITERIA_EPS + cv2.TERM_CRITERIA_MAX_ITER, 50, 0.001)
    corners = cv2.cornerSubPix(image, corners, (5, 5), (-1, -1), criteria).reshape(6, 9, 2)
    return corners[:SIDE].astype(float)


def upright(grid, steps):
    """The grid row by row from the top left, however the board was held, and its steps across and down."""
    across, down = grid[0, -1] - grid[0, 0], grid[-1, 0] - grid[0, 0]
    if abs(across[0]) < abs(down[0]):
        grid, steps, across, down = grid.transpose(1, 0, 2), steps[::-1], down, across
    if across[0] < 0:
        grid = grid[:, ::-1]
    if down[1] < 0:
        grid = grid[::-1]
    return grid, steps


def bend(corners):
    """The largest distance of a corner from the line that fits its row or column best."""
    worst = 0
    for line in list(corners) + list(corners.transpose(1, 0, 2)):
        centred = line - line.mean(axis=0)
        normal = np.linalg.svd(centred)[2][1]
        worst = max(worst, np.abs(centred @ normal).max())
    return worst


def terms(u, v):
    return np.stack([u**0, u, v, u**2, v**2, u * v, u * v**2, u**2 * v, u**3, v**3], axis=-1)


def straighten(parameters, corners):
    """Where the corners lie once the cubic of a parameter file is undone (Newton's method)."""
    data = pathlib.Path(parameters).read_bytes()
    centre = np.frombuffer(data, "<i4", 2, 24).astype(float)
    cubic = np.frombuffer(data, "<f8", 20, 48).reshape(10, 2)
    target = (corners - centre) * (1, -1)
    at = target.copy()
    for _ in range(50):
        u, v = at[..., 0], at[..., 1]
        miss = terms(u, v) @ cubic - target
        zero, one = u * 0, u * 0 + 1
        du = np.stack([zero, one, zero, 2 * u, zero, v, v**2, 2 * u * v, 3 * u**2, zero], -1) @ cubic
        dv = np.stack([zero, zero, one, zero, 2 * v, u, 2 * u * v, u**2, zero, 3 * v**2], -1) @ cubic
        at -= np.linalg.solve(np.stack([du, dv], -1), miss[..., None])[..., 0]
    return at


def calibrate(program, view, corners, folder, picture):
    """All corners as the calibration from every second column sees them."""
    points, parameters = folder / "points.csv", folder / "lens.bin"
    across = 2 * np.linalg.norm(np.diff(corners, axis=1), axis=2).mean()
    down = np.linalg.norm(np.diff(corners, axis=0), axis=2).mean()
    grid, (across, down) = upright(corners[:, ::2], (across, down))
    np.savetxt(points, grid.reshape(-1, 2), delimiter=",", fmt="%.4f")
    run = lambda *arguments: subprocess.run([program, *map(str, arguments)], check=True)
    run("calibrate-lens", points, parameters, "--step", round(across), round(down), "--image", view)
    run("undistort", view, picture or folder / "out.png", "--parameters", parameters)
    return straighten(parameters, corners)


def main(program, folder, pictures=None):
    views = sorted(pathlib.Path(folder).glob("*.jpg"))
    if not views:
        print(f"SKIPPED: no chessboard views in '{folder}'")
        return 0
    failures = 0
    print("view          bend before   after (pixels)")
    for view in views:
        corners = find_corners(cv2.imread(str(view), cv2.IMREAD_GRAYSCALE))
        if corners is None:
            print(f"{view.name}: OpenCV finds no board")
            failures += 1
            continue
        with tempfile.TemporaryDirectory() as work:
            picture = pathlib.Path(pictures) / (view.stem + ".png") if pictures else None
            straight = calibrate(program, view, corners, pathlib.Path(work), picture)
        before, after = bend(corners), bend(straight)
        failed = before > 2 and after > before / 2
        failures += failed
        print(f"{view.name:14}{before:9.2f}{after:9.2f}{'  NOT HALVED' if failed else ''}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:4]))
