"""What the module is held to: the C library, through ctypes, over images laid out by hand."""

import ctypes as c
import os
from pathlib import Path

import numpy as np

BUILD = Path(os.environ["QUILLON_BUILD"])
library = c.CDLL(str(BUILD / "src" / "libquillon.so"))
_libc = c.CDLL(None)
_libc.malloc.restype = _libc.calloc.restype = c.c_void_p
_libc.malloc.argtypes = [c.c_size_t]
_libc.calloc.argtypes = [c.c_size_t, c.c_size_t]
_libc.free.argtypes = [c.c_void_p]
_libc.free.restype = None

_POINTERS = ["virtual_table", "bitmap", "bits", "rows"]
_WORDS = ["width", "height", "bpp", "stride", "bytes_per_pixel", "palette_entries", "image_size"]
_STATE = ["gains", "coefficients", "coefficient_rows", "map", "map_rows"]
_PARAMETERS = ["center_x", "center_y", "corrected_width", "corrected_height",
               "x_max", "x_min", "y_min", "y_max"]


class _Header(c.Structure):
    _fields_ = ([(name, c.c_void_p) for name in _POINTERS] +
                [(name, c.c_int32) for name in _WORDS] +
                [("memory_dc", c.c_void_p)] +
                [(name, c.c_void_p) for name in _STATE] +
                [(name, c.c_int32) for name in _PARAMETERS])


assert c.sizeof(_Header) == 144


class Image:
    """One image object: empty of the given depth, or with the pixels of an array."""

    def __init__(self, pixels=None, *, color=False):
        color = color if pixels is None else pixels.ndim == 3
        self.header = _Header(bpp=24 if color else 8)
        if pixels is not None:
            self.put(pixels)

    def put(self, pixels):
        """Takes these pixels in place of its own; calibration state stays."""
        _libc.free(self.header.rows)
        _libc.free(self.header.bitmap)
        header, channels = self.header, 3 if pixels.ndim == 3 else 1
        header.height, header.width = pixels.shape[:2]
        header.bytes_per_pixel = channels
        header.palette_entries = 256 if channels == 1 else 0
        header.stride = (header.width * channels + 3) // 4 * 4
        header.image_size = header.stride * header.height
        header.bitmap = header.bits = _libc.calloc(1, header.image_size)
        header.rows = _libc.malloc(8 * header.height)
        rows = (c.c_void_p * header.height).from_address(header.rows)
        for y in range(header.height):
            rows[y] = header.bits + (header.height - 1 - y) * header.stride
        self._view()[:] = pixels.reshape(header.height, -1)

    def _view(self):
        header = self.header
        store = (c.c_uint8 * header.image_size).from_address(header.bits)
        rows = np.frombuffer(store, np.uint8).reshape(header.height, header.stride)
        return rows[::-1, :header.width * (header.bpp // 8)]

    def pixels(self):
        """The pixels as an array of the module's shapes."""
        header = self.header
        if not header.bits:
            return np.zeros((0, 0) if header.bpp == 8 else (0, 0, 3), np.uint8)
        shape = (header.height, header.width) + ((3,) if header.bpp == 24 else ())
        return self._view().reshape(shape).copy()

    def __del__(self):
        for name in ["rows", "bitmap", *_STATE]:
            _libc.free(getattr(self.header, name))


def call(name, *arguments, returns=None):
    """Calls an export: images by pointer, floats as doubles, arrays by address, text as names."""
    function = library[name]
    function.restype = returns
    return function(*map(_convert, arguments))


def _convert(value):
    if isinstance(value, Image):
        return c.byref(value.header)
    if isinstance(value, bool):
        return c.c_bool(value)
    if isinstance(value, (int, np.integer)):
        return c.c_int(int(value))
    if isinstance(value, float):
        return c.c_double(value)
    if isinstance(value, np.ndarray):
        return c.c_void_p(value.ctypes.data)
    return value


def filtered(name, image, *arguments, color=False, in_place=False):
    """The pixels that an export from image to image makes; `color`: of its result."""
    source = Image(image)
    result = source if in_place else Image(color=color)
    call(name, source, result, *arguments)
    return result.pixels()


def worked_on(name, image, *arguments):
    """The pixels after an export that works on its one image."""
    source = Image(image)
    call(name, source, *arguments)
    return source.pixels()
