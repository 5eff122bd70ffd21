"""Pictures for tests, in every way an array may lie in memory."""

import numpy as np

# Widths around the blocks of 8 and 16, with and without row padding.
SIZES = [(1, 1), (3, 3), (5, 9), (17, 31), (16, 64), (40, 65), (33, 100)]
USUAL_SIZES = [size for size in SIZES if min(size) >= 3]


def picture(size, *, color=False, seed=0):
    """Smooth ground, noise, and some black and white."""
    height, width = size
    random = np.random.default_rng([height, width, color, seed])
    shape = (height, width) + ((3,) if color else ())
    y, x = np.ogrid[:height, :width]
    ground = (x * 3 + y * 5) % 256
    pixels = (ground[..., None] if color else ground) + random.integers(-20, 20, shape)
    pixels[random.random(shape) < 0.05] = 0
    pixels[random.random(shape) < 0.05] = 255
    return np.clip(pixels, 0, 255).astype(np.uint8)


def scene(size=(80, 120), *, color=False):
    """Bright shapes of several sizes on a dark ground."""
    height, width = size
    y, x = np.ogrid[:height, :width]
    gray = np.full(size, 20, np.uint8)
    for index, (cy, cx, radius) in enumerate([(20, 25, 12), (50, 30, 9), (30, 70, 15),
                                              (60, 95, 10), (10, 110, 5), (70, 60, 3)]):
        gray[(y - cy) ** 2 + (x - cx) ** 2 <= radius ** 2] = 120 + 20 * index
    gray[28:33, 60:80] = 20  # a hole
    if not color:
        return gray
    return np.stack([gray, 255 - gray, gray // 2], axis=-1)


def _spaced(pixels):
    wide = np.full((2 * pixels.shape[0], 3 * pixels.shape[1]) + pixels.shape[2:], 99, np.uint8)
    wide[::2, ::3] = pixels
    return wide[::2, ::3]


def _cut_out(pixels):
    frame = np.full((pixels.shape[0] + 5, pixels.shape[1] + 7) + pixels.shape[2:], 99, np.uint8)
    frame[2:-3, 3:-4] = pixels
    return frame[2:-3, 3:-4]


# The same pixels in other memory; the second kind needs no copy where rows need no padding.
LAYOUTS = {
    "contiguous": np.copy,
    "bottom_up": lambda pixels: pixels[::-1].copy()[::-1],
    "mirrored": lambda pixels: pixels[:, ::-1].copy()[:, ::-1],
    "transposed": lambda pixels: np.array(pixels, order="F"),
    "cut_out": _cut_out,
    "spaced": _spaced,
    "cut_out_bottom_up": lambda pixels: _cut_out(pixels[::-1])[::-1],
}
