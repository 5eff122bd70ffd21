#!/usr/bin/env python3
"""Calibrates a lens from a grid of points, and corrects a picture taken through it."""

import numpy as np
import quillon
from pictures import arguments, write

SIDE, STEP, CENTER = 15, 32, (256, 256)  # of the grid; a bent picture of 512 x 512
given = arguments(__doc__, bend=1.2e-6)
bend = float(given.bend)


def bent(x, y):
    """Where the lens shows the point (x, y), both from the center."""
    factor = 1 - bend * (x ** 2 + y ** 2)
    return x * factor, y * factor


# The grid as it was measured, row by row from the top left.
steps = (np.arange(SIDE) - SIDE // 2) * float(STEP)
grid_y, grid_x = np.meshgrid(steps, steps, indexing="ij")
x, y = bent(grid_x, grid_y)
points = np.rint(np.stack([x + CENTER[0], y + CENTER[1]], -1)).astype(int).reshape(-1, 2)

# A picture of lines along the grid, as the lens shows it.
picture = np.full((512, 512), 30, np.uint8)
along = np.linspace(steps[0], steps[-1], 4000)
for step in steps:
    for x, y in (bent(along, np.full_like(along, step)), bent(np.full_like(along, step), along)):
        picture[np.rint(y + CENTER[1]).astype(int), np.rint(x + CENTER[0]).astype(int)] = 220

lens = quillon.LensCalibration()
lens.build(points, x_pitch=STEP, y_pitch=STEP, x_pixel_size=10000, y_pixel_size=10000)
corrected = lens.calibrate(picture)
print(f"corrected rectangle {tuple(lens.parameters.bound)} of {picture.shape}")
write(given, "correct_lens.png", np.hstack([picture, corrected]))
