"""Tables of color spaces, single pixels, and whether an array is copied."""

from __future__ import annotations

from typing import TYPE_CHECKING

from . import _quillon
from ._checks import checked
from ._types import Image

if TYPE_CHECKING:
    from .results import ColorTables, Hsi, Lab

__all__ = ["get_hsi_point", "get_lab_point", "hsi_tables", "lab_tables", "needs_copy"]


def hsi_tables() -> ColorTables:
    """The tables of hue, saturation and intensity, by which colors are converted; 48 MB."""
    return _quillon.hsi_tables()


def lab_tables() -> ColorTables:
    """The tables of CIE L*a*b*, scaled to bytes; 48 MB."""
    return _quillon.lab_tables()


@checked
def get_hsi_point(image: Image, x: int, y: int) -> Hsi:
    """Hue, saturation and intensity of one pixel of a converted image."""
    return _quillon.get_hsi_point(image, x, y)


@checked
def get_lab_point(image: Image, x: int, y: int) -> Lab:
    """Lightness, a and b of one pixel of a converted image."""
    return _quillon.get_lab_point(image, x, y)


def needs_copy(image: Image) -> bool:
    """Whether calls copy this array before they read it."""
    return _quillon.needs_copy(image)
