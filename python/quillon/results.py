"""What the functions return where it is more than one thing: tuples with names."""

from typing import NamedTuple

import numpy as np
from numpy.typing import NDArray


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
