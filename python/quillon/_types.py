"""The types that signatures name."""

from __future__ import annotations

import os
from typing import Any, Literal, Sequence, Tuple, Union

import numpy as np
from numpy.typing import NDArray

Image = NDArray[np.uint8]
"""(height, width), or (height, width, 3) in the order blue, green, red."""
FileName = Union[str, bytes, "os.PathLike[str]"]
Source = Union[FileName, Image]
"""A picture in memory, or a file."""
Points = Union[NDArray[np.integer[Any]], Sequence[Tuple[int, int]]]
Kernel = Union[NDArray[np.integer[Any]], Sequence[int], Sequence[Sequence[int]]]
Layout = Literal["contiguous", "library"]
"""Of a new picture: contiguous from the top, or as the library made it, which its functions take
without a copy."""
