"""Pictures from files and into them, by the readers of the command line."""

from __future__ import annotations

from typing import Any, Optional

import numpy as np

from . import _quillon
from ._checks import checked, refuse, within
from ._types import FileName, Image

__all__ = ["decode_image", "read_image", "write_image"]


@checked
def read_image(file_name: FileName, *, color: Optional[bool] = None,
               depth: Optional[int] = None) -> Image:
    """Reads PNG, JPEG, TIFF, BMP, PGM or PPM as a gray or a color image, as the file is;
    a BMP is always color.

    With `color`, True or False, it is one or the other. Of samples of 16 bits `depth` says how many
    bits are used, where the file does not. A file that is cut short or damaged is a ValueError; what
    it leaves open, and how that was decided, is a warning.
    """
    return _read(file_name, None, color, depth)


@checked
def decode_image(data: bytes, *, name: FileName = "data", color: Optional[bool] = None,
                 depth: Optional[int] = None) -> Image:
    """What read_image() makes of a file with these bytes; `name` is what messages call it."""
    if not isinstance(data, (bytes, bytearray, memoryview)):
        raise refuse("data", "the bytes of a file", data)
    return _read(name, bytes(data), color, depth)


def _read(name: Any, data: Optional[bytes], color: Optional[bool], depth: Optional[int]) -> Image:
    if depth is not None:
        within("depth", depth, 8, 16)
    image = _quillon.read_picture(name, data, color is not False, depth or 0)
    return np.repeat(image[..., None], 3, axis=2) if color and image.ndim == 2 else image


@checked
def write_image(file_name: FileName, image: Image) -> None:
    """Writes an image as PNG or BMP, by the ending of the name; whole or not at all."""
    _quillon.write_picture(file_name, image)
