"""Functions from an image to an image give the bytes of their C exports."""

import math

import numpy as np
import pytest
import quillon
from c_library import Image, call, filtered, worked_on
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, USUAL_SIZES, picture

KERNELS = {size: np.random.default_rng(size).integers(-9, 12, (size, size)).astype(np.int32)
           for size in (3, 5, 7)}
LARGE = np.array([[2**31 - 1, -2**31, 1]] * 3, np.int64)

# Python name, C name, Python arguments, C arguments where they differ.
FILTERS = [
    *((python, export, ()) for export, python in quillon.EXPORTS.items() if python in (
        "sobel", "prewitt", "roberts", "laplacian", "laplacian_sharpening", "median_filter_3x3",
        "median_filter_5x5", "gaussian_smoothing_3x3", "gaussian_smoothing_5x5",
        "gaussian_smoothing_7x7", "mean_smoothing_3x3", "mean_smoothing_5x5",
        "mean_smoothing_7x7")),
    *(("mean_smoothing", "IxMeanSmoothing", (size,)) for size in (1, 3, 9, 101)),
    *((f"arbitrary_convolution_{size}x{size}", f"IxArbitraryConvolution{size}x{size}", (kernel,))
      for size, kernel in KERNELS.items()),
    *(("shift_left", "IxImageShiftLeft", (bits,)) for bits in (0, 3, 8, 2**31 - 1)),
    ("shift_right", "IxImageShiftRight", (3,)),
    ("invert", "IxImageInvert", ()),
    *(("gain_offset", "IxImageGainOffset", numbers)
      for numbers in ((1.7, -20.0), (math.nan, 0.0), (math.inf, -math.inf))),
    ("translate", "IxImageTranslation", (3, -2)),
    ("translate", "IxImageTranslation", (2**31 - 1, 0)),
    *((python, export, (angle,)) for angle in (0.0, 90.0, -17.3)
      for python, export in (("rotate", "IxImageRotation"),
                             ("rotate_bilinear", "IxImageRotationBilinear"))),
]
# By rectangles, diamonds and circles; images of at least 3 x 3 pixels.
MORPHOLOGY = [
    (python + suffix, export + element, passes)
    for python, export in (
        ("dilation", "IxDilation"), ("erosion", "IxErosion"), ("opening", "IxOpening"),
        ("closing", "IxClosing"), ("morph_gradient", "IxMorphGradient"),
        ("white_top_hat", "IxMorphWhiteTopHat"), ("black_top_hat", "IxMorphBlackTopHat"))
    for suffix, element, choices in (
        ("", "", ((1, 1), (0, 2), (5, 0), (-1, -1))), ("_diamond", "Diamond", ((0,), (1,), (4,))),
        ("_circle", "Circle", ((0,), (1,), (4,))))
    for passes in choices
]
PAIRS = [("add", "IxImageAdd"), ("subtract", "IxImageSub"), ("multiply", "IxImageMul"),
         ("divide", "IxImageDiv"), ("bitwise_and", "IxImageBirwiseAND"),
         ("bitwise_or", "IxImageBirwiseOR"), ("bitwise_xor", "IxImageBirwiseXOR"),
         ("equal", "IxImageEqual"), ("not_equal", "IxImageNOTEqual")]
POINT_FUNCTIONS = [
    *(("threshold", "IxThreshold", (level,)) for level in (-1, 0, 100, 255, 300, -2**31)),
    *(("double_threshold", "IxDoubleThreshold", bounds) for bounds in ((20, 200), (200, 20))),
    ("otsu_threshold", "IxOtsuThreshold", ()),
]


@pytest.mark.parametrize("python, export, arguments, size", [
    (*case, size) for cases, sizes in ((FILTERS, SIZES), (MORPHOLOGY, USUAL_SIZES))
    for case in cases for size in sizes] + [
    ("pyramid", "IxImgPyramid", (), size) for size in ((16, 16), (33, 100), (65, 47))])
def test_a_filter_gives_the_bytes_of_its_export(python, export, arguments, size):
    image = picture(size)
    function = getattr(quillon, python)
    expected = filtered(export, image, *arguments)
    expected_in_place = filtered(export, image, *arguments, in_place=True)
    for layout, lay in LAYOUTS.items():
        source = lay(image)
        assert_array_equal(function(source, *arguments), expected, layout)
        assert_array_equal(source, image, "the source changed")
        out = lay(np.full_like(expected, 7))
        assert function(source, *arguments, out=out) is out
        assert_array_equal(out, expected, layout)
        assert function(source, *arguments, out=source) is source
        assert_array_equal(source, expected_in_place, layout)


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("python, export, arguments", POINT_FUNCTIONS)
def test_a_point_function_gives_the_bytes_of_its_export(python, export, arguments, size):
    image = picture(size)
    function = getattr(quillon, python)
    expected = worked_on(export, image, *arguments)
    for layout, lay in LAYOUTS.items():
        source = lay(image)
        assert_array_equal(function(source, *arguments), expected, layout)
        assert_array_equal(source, image, "the source changed")
        assert function(source, *arguments, out=source) is source
        assert_array_equal(source, expected, layout)


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("python, export", PAIRS)
def test_two_images_give_the_bytes_of_their_export(python, export, size):
    a, b = picture(size), picture(size, seed=1)
    b[::3] = a[::3]
    source, other, result = Image(a), Image(b), Image()
    call(export, source, other, result)
    function = getattr(quillon, python)
    for layout, lay in LAYOUTS.items():
        first, second = lay(a), lay(b)
        assert_array_equal(function(first, second), result.pixels(), layout)
        assert function(first, second, out=second) is second
        assert_array_equal(second, result.pixels(), layout)


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("scales", [(1.0, 1.0), (2.5, 3.0), (0.6, 0.9)])
def test_scaling_gives_the_bytes_of_its_export(size, scales):
    image = picture(size)
    expected = filtered("IxImageScaling", image, *scales)
    for layout, lay in LAYOUTS.items():
        assert_array_equal(quillon.scale(lay(image), *scales), expected, layout)


@pytest.mark.parametrize("size", SIZES)
def test_color_to_gray_gives_the_bytes_of_its_export(size):
    image = picture(size, color=True)
    expected = filtered("IxColorToGray", image)
    for layout, lay in LAYOUTS.items():
        assert_array_equal(quillon.color_to_gray(lay(image)), expected, layout)


def test_a_chain_gives_what_copies_between_its_links_give():
    # Some filters read the byte behind a row: it must not carry over from one result to the next.
    for size in SIZES:
        linked = copied = picture(size)
        for function in (quillon.sobel, quillon.median_filter_3x3, quillon.laplacian,
                         quillon.prewitt):
            linked, copied = function(linked), function(np.ascontiguousarray(copied))
            assert_array_equal(linked, copied)


def test_kernels_may_be_lists_and_hold_any_32_bit_weight():
    image = picture((20, 30))
    expected = filtered("IxArbitraryConvolution3x3", image, LARGE.astype(np.int32))
    assert_array_equal(quillon.arbitrary_convolution_3x3(image, LARGE), expected)
    assert_array_equal(quillon.arbitrary_convolution_3x3(image, LARGE.ravel().tolist()), expected)
