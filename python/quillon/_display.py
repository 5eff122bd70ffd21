"""How results show themselves in notebooks."""

from __future__ import annotations

import base64
import html as text
import struct
import zlib
from typing import Any, Iterable, Optional, Sequence

import numpy as np

from ._types import Image
from .calibration import Calibration
from .results import Inspection
from .things import Things

_MOST_ROWS = 20  # of a table
_LONGEST_SIDE = 1000  # of a picture as it is embedded; larger ones lose pixels


def png(image: Image) -> bytes:
    """The image as the bytes of a PNG file, reduced where it is large."""
    step = -(-max(image.shape[:2]) // _LONGEST_SIDE)
    pixels = image[::step, ::step]
    if pixels.ndim == 3:
        pixels = pixels[..., ::-1]
    height, width = pixels.shape[:2]
    rows = np.zeros((height, 1 + pixels[0].size), np.uint8)  # each begins with its filter: none
    rows[:, 1:] = pixels.reshape(height, -1)

    def chunk(name: bytes, data: bytes) -> bytes:
        return (struct.pack(">I", len(data)) + name + data +
                struct.pack(">I", zlib.crc32(name + data)))

    kind = 2 if image.ndim == 3 else 0
    head = struct.pack(">2I5B", width, height, 8, kind, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", head) +
            chunk(b"IDAT", zlib.compress(rows.tobytes(), 1)) + chunk(b"IEND", b""))


def picture(image: Image, outlines: Iterable[Any] = ()) -> str:
    """The image as SVG, with outlines drawn over it."""
    height, width = image.shape[:2]
    shapes = "".join(
        "<polygon points='" + " ".join(f"{x + 0.5:.2f},{y + 0.5:.2f}" for x, y in corners) + "'/>"
        for corners in outlines)
    data = base64.b64encode(png(image)).decode()
    return (f"<svg viewBox='0 0 {width} {height}' style='max-width:100%;width:{min(width, 640)}px'>"
            f"<image width='{width}' height='{height}' href='data:image/png;base64,{data}'/>"
            f"<g fill='none' stroke='#e80' stroke-width='2' vector-effect='non-scaling-stroke'>"
            f"{shapes}</g></svg>")


def _cell(value: object) -> str:
    return f"{value:.4g}" if isinstance(value, float) else text.escape(str(value))


def table(heads: Sequence[str], rows: Iterable[Sequence[object]]) -> str:
    head = "".join(f"<th>{text.escape(name)}</th>" for name in heads)
    body = "".join("<tr>" + "".join(f"<td>{_cell(value)}</td>" for value in row) + "</tr>"
                   for row in rows)
    return f"<table><thead><tr>{head}</tr></thead><tbody>{body}</tbody></table>"


def html(things: Things) -> str:
    """The things drawn over their image, where that is there, and their first rows."""
    rows = things if things.ndim else Things.of(things.reshape(1), things.image)
    shown = table(("", *(rows.dtype.names or ())),
                  [(n, *row) for n, row in enumerate(rows[:_MOST_ROWS].tolist())])
    if len(rows) > _MOST_ROWS:
        shown += f"<p>{_MOST_ROWS} of {len(rows)} rows</p>"
    image = rows.image
    return (picture(image, rows.outlines()) if image is not None else "") + shown


def inspection(result: Inspection) -> str:
    """The verdict, what was measured, and what was found."""
    shown = f"<p><b>{text.escape(result.verdict)}</b></p>" + table(
        ("measurement", "value", ""),
        [(name, "none" if value is None else value, "outside" if name in result.failed else "")
         for name, value in result.measurements.items()])
    for name, things in result.objects.items():
        shown += f"<p>{text.escape(name)}: {len(things)}</p>" + html(things)
    for name, image in result.pictures.items():
        shown += f"<p>{text.escape(name)}</p>" + picture(image)
    return shown


_LONGER = 100  # of residuals, as the command draws them


def calibration(camera: Calibration) -> str:
    """The residuals of all views as arrows over the picture's frame, and a row for each view."""
    height, width = camera.shape
    views, arrows = camera.views, ""
    for n, view in enumerate(views):
        for corner in view.corners:
            x, y = corner["x"], corner["y"]
            to_x, to_y = x + _LONGER * corner["residual_x"], y + _LONGER * corner["residual_y"]
            arrows += (f"<path d='M{x:.1f} {y:.1f}L{to_x:.1f} {to_y:.1f}' "
                       f"stroke='hsl({n * 137 % 360} 80% 40%)'><title>view {n}</title></path>")
    drawn = (f"<svg viewBox='0 0 {width} {height}' style='max-width:100%;width:{min(width, 640)}px'>"
             f"<rect width='{width}' height='{height}' fill='#fff' stroke='#888'/>"
             f"<defs><marker id='quillon-tip' orient='auto' markerWidth='4' markerHeight='4' refX='2' "
             f"refY='2'><path d='M0 0L4 2L0 4Z' stroke='none' fill='#444'/></marker></defs>"
             f"<g fill='none' stroke-width='1.5' marker-end='url(#quillon-tip)'>{arrows}</g></svg>")
    return (f"<p>{text.escape(repr(camera)[1:-1])}</p>{drawn}"
            f"<p>residuals, {_LONGER} times as long</p>" +
            table(("view", "corners", "RMS", "worst"),
                  [(n, len(view.corners), view.rms, view.worst) for n, view in enumerate(views)]))


def plot_residuals(camera: Calibration, axes: Any, longer: float) -> Any:
    from matplotlib import pyplot  # type: ignore[import]
    if axes is None:
        axes = pyplot.subplots()[1]
    for n, view in enumerate(camera.views):
        corners = view.corners
        axes.quiver(corners["x"], corners["y"], longer * corners["residual_x"],
                    longer * corners["residual_y"], angles="xy", scale_units="xy", scale=1,
                    color=f"C{n}", width=0.003)
    height, width = camera.shape
    axes.set(xlim=(-0.5, width - 0.5), ylim=(height - 0.5, -0.5), aspect="equal",
             title=f"residuals, {longer:g} times as long: RMS {camera.rms:.3f} pixels")
    return axes


def plot(things: Things, image: Optional[Image], axes: Any) -> Any:
    from matplotlib import pyplot
    from matplotlib.collections import PolyCollection  # type: ignore[import]
    if axes is None:
        axes = pyplot.subplots()[1]
    if image is not None:
        axes.imshow(image[..., ::-1] if image.ndim == 3 else image, cmap="gray", vmin=0, vmax=255)
    axes.add_collection(PolyCollection(list(things.outlines()), facecolors="none",
                                       edgecolors="tab:orange"))
    if image is None:
        axes.autoscale_view()
        axes.invert_yaxis()
        axes.set_aspect("equal")
    return axes
