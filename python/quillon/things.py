"""Blobs, matches and defects: structured arrays that show themselves."""

from __future__ import annotations

import weakref
from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from ._checks import check_image, refuse
from ._types import Image

if TYPE_CHECKING:
    from numpy.typing import NDArray

__all__ = ["Things", "show"]


class Things(np.ndarray[Any, np.dtype[np.void]]):
    """A row for each thing that was found; columns are numbers, by their names.

    In a notebook the rows are drawn over the image that they were found in, as long as that is
    there: it is not kept for them.
    """

    _image: Optional[weakref.ReferenceType[Image]] = None

    @classmethod
    def of(cls, rows: NDArray[np.void], image: Optional[Image] = None) -> Things:
        things = rows.view(cls)
        if image is not None:
            things._image = weakref.ref(image)
        return things

    def __array_finalize__(self, other: Any) -> None:
        self._image = getattr(other, "_image", None)

    def __getitem__(self, key: Any) -> Any:
        part = super().__getitem__(key)
        # A column is an array of numbers.
        is_column = isinstance(part, Things) and part.dtype.names is None
        return part.view(np.ndarray) if is_column else part

    @property
    def image(self) -> Optional[Image]:
        """The array that was searched, while it is there."""
        return self._image() if self._image else None

    def outlines(self) -> NDArray[np.float64]:
        """The corners (x, y) of what each row is drawn as, of shape (n, 4, 2).

        Turned rectangles of matches and circles, lines as rectangles without a width, the least
        rectangles of a region's blobs, upright boxes of others.
        """
        names = self.dtype.names or ()
        if "corner1_x" in names:
            return np.stack([np.stack([self[f"corner{n}_x"], self[f"corner{n}_y"]], axis=-1)
                             for n in range(1, 5)], axis=1)
        if "left" not in names:  # of a template tool: the middle stands in the table
            middle = np.stack([self["x"], self["y"]], axis=-1)[:, None]
            return self._turned(middle, self["width"], self["height"])
        left, top, right, bottom = (self[side].astype(float)
                                    for side in ("left", "top", "right", "bottom"))
        if not {"score", "diameter", "length"} & {*names}:
            corners = [(left - 0.5, top - 0.5), (right + 0.5, top - 0.5),
                       (right + 0.5, bottom + 0.5), (left - 0.5, bottom + 0.5)]
            return np.array(corners).transpose(2, 0, 1)
        # The middle of the box around a turned rectangle is the rectangle's.
        middle = np.stack([(left + right) / 2, (top + bottom) / 2], axis=-1)[:, None]
        width, height = ((self["length"], 0 * self["length"]) if "length" in names else
                         (self["width"], self["height"]))
        return self._turned(middle, width, height)

    def _turned(self, middle: NDArray[Any], width: NDArray[Any],
                height: NDArray[Any]) -> NDArray[np.float64]:
        angle = np.deg2rad(self["angle"])
        across = np.stack([np.cos(angle), np.sin(angle)], axis=-1) * width[:, None] / 2
        down = np.stack([-np.sin(angle), np.cos(angle)], axis=-1) * height[:, None] / 2
        signs = np.array([(-1, -1), (1, -1), (1, 1), (-1, 1)])
        turned = signs[:, :1] * across[:, None] + signs[:, 1:] * down[:, None]
        return np.asarray(middle + turned)

    def plot(self, image: Optional[Image] = None, axes: Any = None) -> Any:
        """Draws the rows over the image with matplotlib; returns the axes."""
        from . import _display
        if image is not None:
            check_image("image", image)
        if axes is not None and not hasattr(axes, "imshow"):
            raise refuse("axes", "axes of matplotlib", axes)
        return _display.plot(self, self.image if image is None else image, axes)

    def _repr_html_(self) -> Optional[str]:
        from . import _display
        return _display.html(self) if self.dtype.names else None


class _Shown:
    """An image as notebooks show it."""

    def __init__(self, image: Image, things: Optional[Things]) -> None:
        self._image, self._things = image, things

    def _repr_html_(self) -> str:
        from . import _display
        return _display.picture(self._image, () if self._things is None else [
            *self._things.outlines()])

    def _repr_png_(self) -> bytes:
        from . import _display
        return _display.png(self._image)


def show(image: Image, things: Optional[Things] = None) -> _Shown:
    """Shows an image in a notebook, with things drawn over it."""
    check_image("image", image)
    if things is not None and not isinstance(things, Things):
        raise refuse("things", "an array of things", things)
    return _Shown(image, things)
