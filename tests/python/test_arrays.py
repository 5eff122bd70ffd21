"""What may be passed as an image, what is refused and how, and what is copied."""

import threading
import time

import numpy as np
import pytest
import quillon
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, picture

GRAY = picture((12, 16))
COLOR = picture((12, 16), color=True)
TABLES = [np.arange(1 << 24, dtype=np.uint8)] * 3
READ_ONLY = GRAY.copy()
READ_ONLY.setflags(write=False)


@pytest.mark.parametrize("call, error, message", [
    (lambda: quillon.sobel([[1, 2], [3, 4]]), TypeError,
     "image: a NumPy array is wanted, this is list"),
    (lambda: quillon.sobel(None), TypeError, "image: a NumPy array is wanted, this is NoneType"),
    (lambda: quillon.sobel(GRAY.astype(float)), TypeError,
     "image: an array of uint8 is wanted, this is one of float64"),
    (lambda: quillon.sobel(GRAY > 3), TypeError,
     "image: an array of uint8 is wanted, this is one of bool"),
    (lambda: quillon.sobel(COLOR), ValueError,
     "image: an array of shape (height, width) is wanted, this is one of (12, 16, 3)"),
    (lambda: quillon.color_to_gray(GRAY), ValueError,
     "image: an array of shape (height, width, 3) is wanted, this is one of (12, 16)"),
    (lambda: quillon.color_to_gray(COLOR[..., :2]), ValueError,
     "image: an array of shape (height, width, 3) is wanted, this is one of (12, 16, 2)"),
    (lambda: quillon.threshold(GRAY[:0], 5), ValueError,
     "image: an array with pixels is wanted, this is one of (0, 16)"),
    (lambda: quillon.sobel(GRAY, out=np.zeros((5, 5), np.uint8)), ValueError,
     "out: an array of shape (12, 16) is wanted, this is one of (5, 5)"),
    (lambda: quillon.sobel(GRAY, out=np.zeros((12, 16))), TypeError,
     "out: an array of uint8 is wanted, this is one of float64"),
    (lambda: quillon.sobel(GRAY, out=READ_ONLY), ValueError, "out: a writable array is wanted"),
    (lambda: quillon.otsu_threshold(READ_ONLY, out=READ_ONLY), ValueError,
     "out: a writable array is wanted"),
    (lambda: quillon.mean_smoothing(GRAY, 4), ValueError,
     "size: an odd number above 0 is wanted, this is 4"),
    (lambda: quillon.arbitrary_convolution_3x3(GRAY, np.ones((3, 4), int)), ValueError,
     "kernel: an array of shape (3, 3) is wanted, this is one of (3, 4)"),
    (lambda: quillon.arbitrary_convolution_3x3(GRAY, np.ones((3, 3))), TypeError,
     "kernel: whole numbers are wanted, these are float64"),
    (lambda: quillon.arbitrary_convolution_3x3(GRAY, [2**31] * 9), ValueError,
     "kernel: a number of 32 bits is wanted, this is 2147483648"),
    (lambda: quillon.add(GRAY, GRAY[1:]), ValueError,
     "b: an array of the shape of a, (12, 16), is wanted, this is one of (11, 16)"),
    (lambda: quillon.shift_left(GRAY, -1), ValueError,
     "bits: a number of at least 0 is wanted, this is -1"),
    (lambda: quillon.scale(GRAY, 0.01, 1), ValueError,
     "scale_x: a factor that makes 16 pixels 1 to 32767 is wanted, this is 0.010000"),
    (lambda: quillon.scale(GRAY, 1, float("nan")), ValueError,
     "scale_y: a factor that makes 12 pixels 1 to 32767 is wanted, this is nan"),
    (lambda: quillon.scale(GRAY, 2, 2, out=GRAY.copy()), ValueError,
     "out: an array of shape (24, 32) is wanted, this is one of (12, 16)"),
    (lambda: quillon.rotate(GRAY, float("inf")), ValueError,
     "angle: a finite number is wanted, this is inf"),
    (lambda: quillon.dilation(GRAY[:2], 1, 1), ValueError,
     "image: an array of at least 3 x 3 pixels is wanted, this is one of 2 x 16"),
    (lambda: quillon.get_hsi(COLOR, 3), ValueError, "channel: 0, 1 or 2 is wanted, this is 3"),
    (lambda: quillon.get_hsi_point(COLOR, 16, 0), IndexError,
     "(x, y): a pixel of the image is wanted, this is (16, 0)"),
    (lambda: quillon.color_to_hsi(COLOR, [GRAY] * 3), ValueError,
     "tables[0]: a contiguous array of 16777216 uint8 is wanted, this is another object"),
    (lambda: quillon.color_to_hsi(COLOR, [GRAY]), TypeError,
     "tables: three arrays are wanted, as hsi_tables() or lab_tables() makes"),
    (lambda: quillon.pyramid(GRAY), ValueError,
     "image: an array of at least 16 x 16 pixels is wanted, this is one of 12 x 16"),
    (lambda: quillon.Region().set_polygon([]), ValueError,
     "points: an array of shape (n, 2) is wanted, this is one of (0,)"),
    (lambda: quillon.Region().set_polygon([(0.5, 1), (2, 3)]), TypeError,
     "points: whole numbers are wanted, these are float64"),
    (lambda: quillon.Region().display(), ValueError, "assign_image() comes first"),
    (lambda: quillon.Region().blob_area(0), IndexError,
     "n: one of 0 blobs is wanted, this is 0"),
])
def test_wrong_arguments_are_named_with_what_they_are_and_what_is_wanted(call, error, message):
    with pytest.raises(error) as caught:
        call()
    assert str(caught.value) == message


@pytest.mark.parametrize("level", [1.5, "5", None, 2**31])
def test_numbers_of_another_kind_are_refused(level):
    with pytest.raises(TypeError, match="threshold: int"):
        quillon.threshold(GRAY, level)


def test_results_lie_as_the_library_stores_them_and_are_used_where_they_lie():
    # The address of an in-place result tells whether the array itself was worked on.
    result = quillon.sobel(picture((9, 13)))
    assert result.strides == (-16, 1) and result.flags.writeable
    address = result.ctypes.data
    quillon.threshold(result, 10, out=result)
    assert result.ctypes.data == address and set(np.unique(result)) <= {0, 255}


@pytest.mark.parametrize("color", [False, True])
def test_arrays_are_copied_unless_they_lie_as_the_library_stores_rows(color):
    for width, padded in [(16, False), (12, False), (13, True), (3, True)]:
        image = picture((9, width), color=color)
        result = quillon.color_to_hsi(image, TABLES) if color else quillon.invert(image)
        for name, lay in LAYOUTS.items():
            assert quillon.needs_copy(lay(image)) == (padded or name != "bottom_up"), name
        assert not quillon.needs_copy(result), "a result as it is"
        assert quillon.needs_copy(result[1:]) == padded, "a part of it"
        assert quillon.needs_copy(result[::-1]) and quillon.needs_copy(result[:, 1:])


def test_results_live_as_long_as_their_arrays():
    rows = [quillon.sobel(picture((50, 60), seed=seed))[10] for seed in range(50)]
    for seed, row in enumerate(rows):
        assert_array_equal(row, quillon.sobel(picture((50, 60), seed=seed))[10])


def test_calls_on_several_threads_run_at_a_time_and_give_the_same_bytes():
    image = picture((400, 500))
    expected = quillon.median_filter_5x5(image)
    results = [None] * 8

    def work(index):
        for _ in range(5):
            results[index] = quillon.median_filter_5x5(image)

    threads = [threading.Thread(target=work, args=(index,)) for index in range(len(results))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result in results:
        assert_array_equal(result, expected)


def test_other_threads_run_during_a_call():
    begun, done = threading.Event(), []

    def work():
        begun.set()
        quillon.hsi_tables()  # the longest call there is
        done.append(True)

    thread, ticks = threading.Thread(target=work), 0
    thread.start()
    begun.wait()
    while not done:
        time.sleep(0.001)
        ticks += 1
    thread.join()
    assert ticks > 5
