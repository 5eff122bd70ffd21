"""Drawn pictures to try things on, and the truth about them: those of `quillon sample`."""

from __future__ import annotations

from typing import Tuple

import numpy as np
from numpy.typing import NDArray

from . import _quillon
from ._checks import checked, within
from ._types import Image

_BOX = [(side, "i8") for side in ("left", "top", "right", "bottom")]
_PART = np.dtype([("kind", "U16"), ("area", "i8"), ("x", "f8"), ("y", "f8"), ("angle", "f8"), *_BOX])
_DEFECT = np.dtype([("name", "U20"), *_BOX])


def _seed(seed: int) -> None:
    within("seed", seed, 0, 2**31 - 1)


def _large_enough(shape: Tuple[int, int], least: int) -> None:
    if min(shape) < least or max(shape) > 16384:
        raise ValueError(f"shape: sides from {least} to 16384 are wanted, this is {tuple(shape)}")


@checked
def tray(seed: int = 1, shape: Tuple[int, int] = (900, 1200)) -> Tuple[Image, NDArray[np.void]]:
    """A color picture of metal parts on a dark tray; and for each part its kind and place."""
    _large_enough(shape, 200)
    _seed(seed)
    image, parts = _quillon.draw_tray(seed, shape)
    return image, np.array(parts, _PART)


def bracket() -> Image:
    """One of the tray's brackets alone: a template."""
    return _quillon.draw_bracket()


@checked
def dot_grid(shape: Tuple[int, int] = (900, 1200)) -> Tuple[Image, NDArray[np.float64]]:
    """A square grid of dots seen through a lens; and their centers (x, y), row by row."""
    _large_enough(shape, 200)
    image, centers = _quillon.draw_dot_grid(shape)
    return image, np.array(centers)


@checked
def board(seed: int = 1, shape: Tuple[int, int] = (640, 640), *, defects: int = 0, x: float = 0,
          y: float = 0, degrees: float = 0, stretch_x: float = 1,
          stretch_y: float = 1) -> Tuple[Image, NDArray[np.void]]:
    """A gray picture of a circuit board, moved, turned and stretched; and its defects."""
    _large_enough(shape, 200)
    _seed(seed)
    within("defects", defects, 0, 1000)
    for name, value, least, most in (("x", x, -16384, 16384), ("y", y, -16384, 16384),
                                     ("degrees", degrees, -360, 360), ("stretch_x", stretch_x, 0.5, 2),
                                     ("stretch_y", stretch_y, 0.5, 2)):
        within(name, value, least, most)
    image, drawn = _quillon.draw_board(seed, shape, defects, x, y, degrees, stretch_x, stretch_y)
    return image, np.array(drawn, _DEFECT)
