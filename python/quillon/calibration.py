"""A camera and its lens, millimeters in the plane that it looks at, and its uneven light."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Dict, List, Optional, Sequence, Tuple

import numpy as np
from numpy.typing import ArrayLike, NDArray

from . import _quillon
from ._checks import checked, refuse, within
from ._types import FileName, Image, Layout, Source

if TYPE_CHECKING:
    from .results import ChessboardView

__all__ = ["Calibration", "calibrate_shading"]

_CORNER = np.dtype([("column", "i8"), ("row", "i8"), *((name, "f8") for name in
                    ("x", "y", "residual_x", "residual_y"))])
_DEAD_PIXEL = np.dtype([("x", "i8"), ("y", "i8"), ("dark", "f8"), ("white", "f8")])


def _pictures(name: str, images: Sequence[Source]) -> List[Source]:
    if (isinstance(images, (str, bytes, os.PathLike, dict, np.ndarray)) or
            not hasattr(images, "__iter__")):
        raise refuse(name, "a list of pictures", images)
    pictures = list(images)
    if not pictures:
        raise ValueError(f"{name}: a list of pictures is wanted, this is empty")
    return pictures


@checked
def calibrate_shading(file_name: FileName, dark: Sequence[Source], white: Sequence[Source], *,
                      target: Optional[int] = None,
                      max_dead: Optional[int] = None) -> NDArray[np.void]:
    """Writes an offset and a gain for each pixel, the file that shading() takes.

    `dark` are pictures without light, the lens covered, `white` pictures of an even white in the
    light of the parts: arrays or files, of one size; their means are taken. White comes out at the
    gray value `target`, 1 to 255 (default: as bright as it is in the mean).

    Returns a row for each dead pixel, one that says nothing of the light: x, y, dark, white.
    Corrected pictures have there what the nearest living pixel has. ValueError where more than
    `max_dead` are dead (default: a thousandth of all), or white is not brighter than dark.
    """
    darks, whites = _pictures("dark", dark), _pictures("white", white)
    if target is not None:
        within("target", target, 1, 255)
    if max_dead is not None:
        within("max_dead", max_dead, 0, 1_000_000_000)
    dead = _quillon.fit_shading(file_name, darks, whites, target or 0,
                                -1 if max_dead is None else max_dead)
    return np.array([tuple(row) for row in dead], _DEAD_PIXEL)


class Calibration:
    """A camera with its lens: flat pictures, and millimeters.

        camera = quillon.Calibration.from_chessboard(images, square=5.0)
        flat = camera.rectify(image)
        blobs = quillon.blobs(flat)
        print(blobs["width"] * camera.mm_per_pixel)

    The plane that is measured in is that of the chessboard in one of the pictures. A camera file is
    that of `quillon calibrate`; Calibration.load() reads one. Objects can be pickled.
    """

    @checked
    def __init__(self, text: str, name: FileName = "camera") -> None:
        """`text` is what a camera file holds, `name` what messages call it."""
        self._take(_quillon.Camera(text, name))

    def _take(self, native: _quillon.Camera) -> None:
        import json
        self._native = native
        self._file: Dict[str, Any] = json.loads(native.text())
        try:
            self._rms, self._worst = float(self._file["rms"]), float(self._file["worst"])
            self._views = [self._view(view) for view in self._file["views"]]
        except (KeyError, TypeError, ValueError) as error:
            raise ValueError(f"the camera file does not hold its views: {error!r}") from None

    def _view(self, view: Dict[str, Any]) -> ChessboardView:
        from .results import ChessboardView
        corners = np.array([(*corner, 0, 0) for corner in view["corners"]], _CORNER)
        places = np.stack([corners["column"], corners["row"]], -1).astype(float)
        fitted = self._native.project(view["rotation"], view["shift"], places)
        corners["residual_x"] = fitted[:, 0] - corners["x"]
        corners["residual_y"] = fitted[:, 1] - corners["y"]
        return ChessboardView(float(view["rms"]), float(view["worst"]), corners)

    @classmethod
    @checked
    def from_chessboard(cls, images: Sequence[Source], square: float, *,
                        board: Optional[Tuple[int, int]] = None, plane: int = 0,
                        max_rms: float = 0.5) -> Calibration:
        """Fits a camera to pictures of a chessboard, arrays or files.

        `square` is the side of its squares in millimeters, `board` the number of its inner corners
        across and down (default: as many as each picture shows), `plane` the number of the picture
        that shows it lying where is measured. ValueError names a picture that shows fewer than 12
        corners, and the worst one where residuals are larger than `max_rms` pixels (RMS).

        From three pictures all is fitted: focal lengths, center, k1, k2, p1, p2 and k3; from fewer
        a focal length, k1 and k2.
        """
        pictures = _pictures("images", images)
        within("square", square, 1e-6, 1e6)
        within("max_rms", max_rms, 1e-6, 1e6)
        for side in board or ():
            within("board", side, 3, 1000)
        within("plane", plane, 0, len(pictures) - 1)
        return cls(_quillon.fit_chessboards(pictures, square, board, plane, max_rms))

    @classmethod
    @checked
    def load(cls, file_name: FileName) -> Calibration:
        """Reads a camera file."""
        camera = cls.__new__(cls)
        camera._take(_quillon.Camera.load(file_name))
        return camera

    @checked
    def save(self, file_name: FileName) -> None:
        """Writes a camera file, whole or not at all; the operation `rectify` takes it too."""
        self._native.save(file_name)

    def __reduce__(self) -> Any:
        return Calibration, (self._native.text(),)

    # ---- what was fitted

    @property
    def shape(self) -> Tuple[int, int]:
        """(height, width) of the pictures."""
        return self._file["height"], self._file["width"]

    @property
    def square(self) -> float:
        """The side of the board's squares in millimeters."""
        return float(self._file["square"])

    @property
    def rms(self) -> float:
        """The residuals of all corners in pixels, root mean square."""
        return self._rms

    @property
    def worst(self) -> float:
        """The largest residual in pixels."""
        return self._worst

    @property
    def mm_per_pixel(self) -> float:
        """What a pixel of rectify()'s pictures covers in the plane."""
        return self._native.unit_per_pixel()

    @property
    def matrix(self) -> NDArray[np.float64]:
        """Focal lengths and center as the 3 x 3 matrix that other packages take."""
        (fx, fy), (cx, cy) = self._file["focal_length"], self._file["centre"]
        return np.array([[fx, 0, cx], [0, fy, cy], [0, 0, 1]], float)

    @property
    def bend(self) -> NDArray[np.float64]:
        """The bend of the lens: k1, k2, p1, p2, k3, in the order that other packages take."""
        return np.array(self._file["bend"], float)

    @property
    def views(self) -> List[ChessboardView]:
        """The pictures of the board, with their corners and residuals."""
        return list(self._views)

    # ---- what it is for

    def rectify(self, image: Image, *, out: Optional[Image] = None,
                layout: Layout = "contiguous") -> Image:
        """The plane as seen from straight above, without the bend of the lens.

        A gray picture of the camera's shape; the result has the same. What lies outside is black.
        """
        return self._native.rectify(image, out, layout)

    def to_millimeters(self, points: ArrayLike) -> NDArray[np.float64]:
        """Where places (x, y) of pictures lie in the plane, as an array of their shape.

        Millimeters from the first corner of the board in the plane's picture, along its rows and
        its columns. ValueError where the plane is not seen at a place.
        """
        return self._each("points", points, self._native.to_plane)

    def to_pixels(self, places: ArrayLike) -> NDArray[np.float64]:
        """Where places (x, y) of the plane, in millimeters, are seen: to_millimeters() reversed."""
        return self._each("places", places, self._native.from_plane)

    @staticmethod
    def _each(name: str, given: ArrayLike, work: Any) -> NDArray[np.float64]:
        if isinstance(given, np.ma.MaskedArray):
            raise refuse(name, "a plain NumPy array", given)
        try:
            points = np.asarray(given, float)
        except (TypeError, ValueError):
            raise refuse(name, "an array of numbers of shape (2,) or (n, 2)", given) from None
        if points.ndim not in (1, 2) or points.shape[-1] != 2 or not np.isfinite(points).all():
            raise refuse(name, "an array of numbers of shape (2,) or (n, 2)", given)
        result: NDArray[np.float64] = work(points.reshape(-1, 2)).reshape(points.shape)
        return result

    # ---- how it shows itself

    def __repr__(self) -> str:
        height, width = self.shape
        return (f"<quillon.Calibration of {width} x {height} pixels, {len(self._views)} "
                f"views, RMS {self.rms:.3f} pixels, {self.mm_per_pixel:.4g} mm a pixel>")

    def plot(self, axes: Any = None, *, longer: float = 100) -> Any:
        """Draws every corner's residual, so many times longer, with matplotlib; returns the axes."""
        from . import _display
        return _display.plot_residuals(self, axes, longer)

    def _repr_html_(self) -> str:
        from . import _display
        return _display.calibration(self)
