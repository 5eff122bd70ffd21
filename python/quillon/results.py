"""What the functions return where it is more than one thing: tuples with names."""

from typing import Dict, List, NamedTuple, Optional, Tuple

import numpy as np
from numpy.typing import NDArray

from .things import Things


class ColorTables(NamedTuple):
    """Three tables of 16777216 entries, at blue + 256 * green + 65536 * red."""

    first: NDArray[np.uint8]
    second: NDArray[np.uint8]
    third: NDArray[np.uint8]


class Hsi(NamedTuple):
    """Hue, saturation and intensity of a pixel, 0 to 255 each."""

    hue: int
    saturation: int
    intensity: int


class Lab(NamedTuple):
    """CIE L*a*b* of a pixel, scaled to 0 to 255 each."""

    lightness: int
    a: int
    b: int


class Point(NamedTuple):
    """A place in pixels; whole numbers are pixel centers."""

    x: float
    y: float


class Bound(NamedTuple):
    """First and last columns and rows, inclusive."""

    left: int
    right: int
    top: int
    bottom: int


class MinRect(NamedTuple):
    """The rectangle of least area around the centers of a blob's pixels."""

    center: Point
    height: float  # length of the first side
    width: float  # length of the second side
    angle: float  # of the first side, degrees
    corners: Tuple[Point, Point, Point, Point]


class ColorMean(NamedTuple):
    """Means of the three channels."""

    red: float
    green: float
    blue: float


class GeoMatch(NamedTuple):
    """Where an edge template was found: its reference point, and its angle in degrees."""

    x: int
    y: int
    angle: float


class GeoModel(NamedTuple):
    """An edge template at full resolution."""

    points: NDArray[np.void]  # x, y, gradient_x, gradient_y, inverse_magnitude
    width: int
    height: int
    reference: Point
    radius: float  # from the reference point to the farthest point


class FlatFieldRegion(NamedTuple):
    """Columns and rows, the ends exclusive."""

    x_start: int
    x_end: int
    y_start: int
    y_end: int


class LensParameters(NamedTuple):
    """What corrects a lens."""

    center: Point
    corrected_width: int
    corrected_height: int
    bound: Bound
    coefficients: NDArray[np.float64]  # ten terms, x and y


class ChessboardView(NamedTuple):
    """A picture of a chessboard, and how far its corners lie from where the fit has them."""

    rms: float  # pixels
    worst: float
    corners: NDArray[np.void]  # column, row; x, y; residual_x, residual_y: to where the fit has it


class Inspection(NamedTuple):
    """What a recipe found in an image."""

    verdict: str  # "pass" or "fail"
    measurements: Dict[str, Optional[float]]  # None where there was nothing to measure
    failed: List[str]  # the measurements that are outside their limits
    objects: Dict[str, Things]  # of each step that finds things, a row for each
    pictures: Dict[str, NDArray[np.uint8]]  # of each step that makes one, where asked for

    def _repr_html_(self) -> str:
        from . import _display
        return _display.inspection(self)
