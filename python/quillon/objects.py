"""Objects of the library: blobs step by step, template tools, calibration."""

from __future__ import annotations

import copy
import os
import weakref
from typing import TYPE_CHECKING, Any, Optional, Sequence, Tuple, TypeVar

import numpy as np
from numpy.typing import NDArray

from . import _quillon
from ._checks import checked
from ._types import FileName, Image, Layout, Points
from .things import Things

if TYPE_CHECKING:
    from .results import (
        Bound, ColorMean, FlatFieldRegion, GeoMatch, GeoModel, LensParameters, MinRect, Point)

__all__ = ["FlatField", "GeoMatchTool", "LensCalibration", "NccTool", "Region"]

Self = TypeVar("Self", bound="_Owner")


class _Remade:
    """What a pickle carries of an object: the call that made its contents, which is made again."""

    _made: Tuple[Any, ...] = ()  # the method's name and its arguments, as they were then

    def _keep(self, name: str, *values: Any) -> None:
        self._made = (name, *copy.deepcopy(values))

    def __reduce__(self) -> Any:
        return _remade, (type(self), self._made)

    def _load_contents(self, contents: bytes) -> None:
        """load() of what a file held."""
        import tempfile
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "parameters")
            with open(path, "wb") as file:
                file.write(contents)
            getattr(self, "load")(path)


def _remade(kind: Any, made: Tuple[Any, ...]) -> Any:
    one = kind()
    if made:
        getattr(one, made[0])(*made[1:])
    return one


def _remade_ncc(made: Tuple[Any, ...], level: int) -> Any:
    tool = _remade(NccTool, made)
    if made:
        tool.current_level = level
    return tool


def _contents(file_name: FileName) -> bytes:
    with open(file_name, "rb") as file:
        return file.read()


class _Owner:
    """What owns memory of the library."""

    _native: Any

    def close(self) -> None:
        """Releases the memory. Closing again does nothing."""
        self._native.close()

    def __enter__(self: Self) -> Self:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()


class Region(_Owner):
    """A region of interest, and the blobs found in it.

        with quillon.Region() as region:
            region.set_polygon([(0, 0), (width, 0), (width, height), (0, height)])
            region.label(image, 128, 255)
            region.compute_features()
            print(region.selected_blobs()["area"])

    Selections work within the current one; all bounds are inclusive. A Region stays in its process:
    what it found can be pickled.
    """

    _native: _quillon.Region
    _labelled: Optional[weakref.ReferenceType[Image]] = None

    def __init__(self) -> None:
        self._native = _quillon.Region()

    def __reduce__(self) -> Any:
        raise TypeError("a Region cannot be pickled: send the image, or selected_blobs()")

    def set_polygon(self, points: Points) -> None:
        """Makes the inside of a closed polygon of points (x, y) the region of interest.

        Points in clockwise order as displayed: all boundary pixels belong to it. In the other
        order, the rows of upper and lower boundaries do not. Beyond 300,000 runs the lower rows
        are dropped.
        """
        self._native.set_polygon(points)

    def assign_image(self, image: Image) -> None:
        """Takes a copy of an image for display(), on a new black picture."""
        self._native.assign_image(image)

    def display(self) -> Image:
        """A color picture: the region as lines of red 125, combined with the image by exclusive-or.

        The picture is not cleared in between: a second call shows the lines combined with the
        image on black. For the first picture again, assign again.
        """
        return self._native.display()

    @checked
    def label(self, image: Image, low: int, high: int) -> None:
        """Finds the blobs: touching pixels from low to high inside the region of interest.

        Where the region ends exactly at the last column, that column is left out; a region that
        reaches beyond the image labels all of it. Beyond 300,000 runs or 50,000 labels the rest is
        not labelled.
        """
        self._native.label(image, low, high)
        self._labelled = weakref.ref(image)

    @checked
    def fill_up(self, image: Image, value: int = 255, *, out: Optional[Image] = None,
                layout: Layout = "contiguous") -> Image:
        """The image with its holes filled: groups of pixels other than `value` become it.

        Groups that touch the top row or the last column stay. Uses the tables of the blobs: label
        again before reading them.
        """
        return self._native.fill_up(image, value, out, layout)

    @property
    def blob_count(self) -> int:
        """The number of blobs of the last labelling."""
        return self._native.blob_count()

    @checked
    def blob_area(self, n: int) -> int:
        """The pixels of blob n."""
        return self._native.blob_area(n)

    @checked
    def blob_center(self, n: int) -> Point:
        """The mean column and row of blob n."""
        return self._native.blob_center(n)

    @checked
    def blob_bound(self, n: int) -> Bound:
        """The first and last columns and rows of blob n."""
        return self._native.blob_bound(n)

    @checked
    def blob_min_rect(self, n: int) -> MinRect:
        """The rectangle of least area around the pixel centers of blob n."""
        return self._native.blob_min_rect(n)

    @checked
    def blob_gray_mean(self, image: Image, n: int) -> float:
        """The mean of a gray image's pixels in blob n."""
        return self._native.blob_gray_mean(image, n)

    @checked
    def blob_color_mean(self, image: Image, n: int) -> ColorMean:
        """The means of a color image's pixels in blob n."""
        return self._native.blob_color_mean(image, n)

    def gray_mean(self, image: Image) -> float:
        """The mean of a gray image's pixels in the region of interest."""
        return self._native.gray_mean(image)

    def color_mean(self, image: Image) -> ColorMean:
        """The means of a color image's pixels in the region of interest."""
        return self._native.color_mean(image)

    def compute_features(self) -> bool:
        """Fills the feature table and selects all of it. False when nothing was labelled."""
        return self._native.compute_features()

    @checked
    def select_area(self, min_area: int, max_area: int) -> bool:
        """Keeps blobs of these areas selected. False, and no change, without a selection."""
        return self._native.select_area(min_area, max_area)

    @checked
    def select_width(self, min_width: int, max_width: int) -> bool:
        """Keeps blobs selected by the width of their minimum rectangle."""
        return self._native.select_width(min_width, max_width)

    @checked
    def select_height(self, min_height: int, max_height: int) -> bool:
        """Keeps blobs selected by the height of their minimum rectangle."""
        return self._native.select_height(min_height, max_height)

    @checked
    def select_center(self, x_min: int, x_max: int, y_min: int, y_max: int) -> bool:
        """Keeps blobs selected whose center lies in a rectangle."""
        return self._native.select_center(x_min, x_max, y_min, y_max)

    def reselect(self) -> bool:
        """Selects all blobs again. An empty selection stays empty: compute_features() undoes it."""
        return self._native.reselect()

    @property
    def selected_count(self) -> int:
        """The number of selected blobs."""
        return self._native.selected_count()

    def selected_blobs(self) -> Things:
        """The selected blobs as a structured array, drawn over the labelled image in a notebook.

        Columns: area, center_x, center_y; of the minimum rectangle rect_center_x, rect_center_y,
        height, width, angle, and corner1_x to corner4_y; selected.
        """
        rows = self._native.selected_blobs()
        return Things.of(rows.view(_scalar_columns(rows.dtype, "corners", _CORNERS)),
                         self._labelled() if self._labelled else None)


_CORNERS = [f"corner{n}_{axis}" for n in range(1, 5) for axis in "xy"]


def _scalar_columns(kind: np.dtype[np.void], column: str, names: Sequence[str]) -> np.dtype[np.void]:
    """The same record, a column of several numbers as columns of one each."""
    fields = []
    for name, (part, offset, *_) in (kind.fields or {}).items():
        if name == column:
            number = part.base
            fields += [(inner, number, offset + i * number.itemsize)
                       for i, inner in enumerate(names)]
        else:
            fields.append((name, part, offset))
    inner_names, formats, offsets = zip(*fields)
    return np.dtype({"names": inner_names, "formats": formats, "offsets": offsets,
                     "itemsize": kind.itemsize})


class NccTool(_Remade, _Owner):
    """A template, found by correlation in other images.

        with quillon.NccTool() as tool:
            tool.teach(template)
            for match in tool.find(image, 0.8, rotate=True, angle_min=-30, angle_max=30):
                print(match["x"], match["y"], match["angle"], match["score"])
    """

    _native: _quillon.NccTool
    _searched: Optional[weakref.ReferenceType[Image]] = None

    def __reduce__(self) -> Any:
        return _remade_ncc, (self._made, self.current_level if self._made else 0)

    def __init__(self) -> None:
        self._native = _quillon.NccTool()

    @checked
    def teach(self, image: Image, use_mask: bool = False) -> None:
        """Takes a gray or color image as the template, in place of an earlier one.

        With `use_mask`, pixels of value 0 (all three bytes, in color) do not take part.
        """
        self._native.teach(image, use_mask)
        self._keep("teach", image, use_mask)

    def teach_roi(self, image: Image) -> None:
        """Takes a color template at full resolution only, for correlate()."""
        self._native.teach_roi(image)
        self._keep("teach_roi", image)

    @checked
    def find(self, image: Image, min_score: float = 0.7, *, rotate: bool = False,
             angle_min: float = 0.0, angle_max: float = 0.0, scale_min: float = 1.0,
             scale_max: float = 1.0, max_results: int = 50) -> Things:
        """The matches as a structured array, best first: width, height, x, y, angle, scale, score.

        (x, y) is the center; angles are degrees, clockwise as displayed, searched with `rotate`
        alone; scales are relative to the template. At most 500 results.
        """
        rows = self._native.find(image, min_score, rotate, angle_min, angle_max, scale_min,
                                 scale_max, max_results)
        self._searched = weakref.ref(image)
        return Things.of(rows, image)

    @property
    def results(self) -> Things:
        """The matches of the last search again."""
        return Things.of(self._native.results(), self._searched() if self._searched else None)

    def correlate(self, image: Image) -> float:
        """The correlation, -1 to 1, of a color image with a color template of its size.

        0 for a flat image. With a flat template the value is not a number, or infinite.
        """
        return self._native.correlate(image)

    @property
    def default_level(self) -> int:
        """The coarsest level of the template's pyramid."""
        return self._native.default_level()

    @property
    def current_level(self) -> int:
        """The level where a search starts; may be set from 0 to default_level."""
        return self._native.current_level()

    @current_level.setter
    @checked
    def current_level(self, level: int) -> None:
        self._native.set_current_level(level)

    @checked
    def level_image(self, level: int) -> Image:
        """A level of the template's pyramid as an image."""
        return self._native.level_image(level)


class GeoMatchTool(_Remade, _Owner):
    """A template's edges, found in other images whatever the contrast.

        with quillon.GeoMatchTool() as tool:
            tool.teach(template, high=60, low=20)
            x, y, angle = tool.find(image, 0.7, angle_search=True)

    Several searches may run at a time.
    """

    _native: _quillon.GeoMatchTool

    def __init__(self) -> None:
        self._native = _quillon.GeoMatchTool()

    @checked
    def teach(self, image: Image, high: float, low: float) -> None:
        """Takes the edge points of a gray image as the template, in place of an earlier one.

        Of the greatest gradient as 255, an edge point has `high`, or `low` beside one that has
        `high`.
        """
        self._native.teach(image, high, low)
        self._keep("teach", image, high, low)

    @checked
    def find(self, image: Image, min_score: float = 0.7, greediness: float = 0.5, *,
             angle_search: bool = False, lowest_angle: float = -180.0,
             highest_angle: float = 180.0, position: Tuple[int, int] = (0, 0)) -> GeoMatch:
        """Where the template's reference point is, (x, y), and its angle in degrees.

        Positive angles turn clockwise as displayed; without `angle_search` the angle is 0.
        Greediness near 1 is fastest, near 0 nothing good is missed. Where nothing is above score
        0, the place stays `position`.
        """
        return self._native.find(image, min_score, greediness, angle_search, lowest_angle,
                                 highest_angle, position)

    @property
    def model(self) -> GeoModel:
        """The template: its edge points as a structured array, size, reference point and radius."""
        return self._native.model()


class FlatField(_Remade):
    """Evens out brightness by a gain per gray level.

    A region is four numbers: x_start, x_end, y_start, y_end, the ends exclusive.
    """

    def __init__(self) -> None:
        self._native = _quillon.FlatField()

    @checked
    def build(self, target: int, region: Sequence[int],
              file_name: Optional[FileName] = None) -> None:
        """Makes the gains target / level, and writes them with the region to a file."""
        self._native.build(target, region, file_name)
        self._keep("build", target, region)

    @checked
    def load(self, file_name: FileName) -> FlatFieldRegion:
        """Takes gains and region from a file, and returns the region."""
        region = self._native.load(file_name)
        self._keep("_load_contents", _contents(file_name))
        return region

    def calibrate(self, image: Image, region: Optional[Sequence[int]] = None, *,
                  out: Optional[Image] = None, layout: Layout = "contiguous") -> Image:
        """The image with its region, or all of it, times the gains, truncated, 255 at most."""
        return self._native.calibrate(image, region, out, layout)

    @property
    def gains(self) -> Optional[NDArray[np.float64]]:
        """The 256 gains, or None. Level 0 stays black whatever its gain."""
        return self._native.gains()


class LensCalibration(_Remade):
    """Corrects lens distortion by a bivariate cubic.

    Build or load, then calibrate any number of images.
    """

    def __init__(self) -> None:
        self._native = _quillon.LensCalibration()

    @checked
    def build(self, points: Points, x_pitch: float, y_pitch: float, x_pixel_size: float,
              y_pixel_size: float, file_name: Optional[FileName] = None) -> NDArray[np.int32]:
        """Fits the cubic to points (x, y) measured on a square grid, and writes a file.

        The grid has an odd number of points a side, row by row from the top left; a step is
        int(pitch * 10000 / pixel_size + 0.5) pixels. Returns the points relative to the middle
        one, y upwards.
        """
        places = self._native.build(points, x_pitch, y_pitch, x_pixel_size, y_pixel_size, file_name)
        self._keep("build", points, x_pitch, y_pitch, x_pixel_size, y_pixel_size)
        return places

    @checked
    def load(self, file_name: FileName) -> None:
        """Takes parameters from a file."""
        self._native.load(file_name)
        self._keep("_load_contents", _contents(file_name))

    @checked
    def precalculate(self, shape: Tuple[int, int]) -> None:
        """Makes the map for images of (height, width); calibrate() does so by itself."""
        self._native.precalculate(shape)

    def calibrate(self, image: Image, *, out: Optional[Image] = None,
                  layout: Layout = "contiguous") -> Image:
        """The image without distortion, nearest pixel; places outside the source are 0.

        Where the width is not a multiple of 4, the library shears the rows: cut or pad images to
        one.
        """
        return self._native.calibrate(image, out, layout)

    @property
    def parameters(self) -> Optional[LensParameters]:
        """Center, corrected rectangle and coefficients, or None."""
        return self._native.parameters()

    @property
    def map(self) -> Optional[NDArray[np.int32]]:
        """Pairs (source x, source y) of the corrected rectangle, or None before a map is made."""
        return self._native.map()
