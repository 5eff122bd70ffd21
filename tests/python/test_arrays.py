"""What may be passed as an image, what is refused and how, and what is copied."""

import threading
import time

import cv2
import numpy as np
import pytest
import quillon
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, picture

GRAY = picture((12, 16))
COLOR = picture((12, 16), color=True)
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
    (lambda: quillon.rgb(GRAY, "red"), ValueError,
     "image: an array of shape (height, width, 3) is wanted, this is one of (12, 16)"),
    (lambda: quillon.sobel(np.ma.masked_less(GRAY, 50)), TypeError,
     "image: a plain NumPy array is wanted, this is a masked one, and nothing here goes by its "
     "mask; give array.filled(0), or array.data to use all of it"),
    (lambda: quillon.gray(COLOR[..., :2]), ValueError,
     "image: an array of shape (height, width, 3) is wanted, this is one of (12, 16, 2)"),
    (lambda: quillon.threshold(GRAY[:0], 5), ValueError,
     "image: an array with pixels is wanted, this is one of (0, 16)"),
    (lambda: quillon.sobel(GRAY, out=np.zeros((5, 5), np.uint8)), ValueError,
     "out: an array of shape (12, 16) is wanted, this is one of (5, 5)"),
    (lambda: quillon.sobel(GRAY, out=np.zeros((12, 16))), TypeError,
     "out: an array of uint8 is wanted, this is one of float64"),
    (lambda: quillon.sobel(GRAY, out=READ_ONLY), ValueError, "out: a writable array is wanted"),
    (lambda: quillon.otsu(READ_ONLY, out=READ_ONLY), ValueError,
     "out: a writable array is wanted"),
    (lambda: quillon.mean(GRAY, 4), ValueError,
     "size: an odd whole number from 1 to 32767 is wanted, this is 4"),
    (lambda: quillon.threshold(GRAY, 256), ValueError,
     "above: a whole number from 0 to 255 is wanted, this is 256"),
    *((lambda level=level: quillon.threshold(GRAY, level), TypeError,
       f"above: a whole number from 0 to 255 is wanted, this is {level!r}")
      for level in (1.5, "5", None, True, 2j)),
    (lambda: quillon.threshold(GRAY, 2**70), ValueError,
     "above: a whole number from 0 to 255 is wanted, this is 1180591620717411303424"),
    (lambda: quillon.convolution_3x3(GRAY, np.ones((3, 4), int)), ValueError,
     "kernel: a list of 9 whole numbers from -1000000 to 1000000 is wanted, "
     "this is an array of shape (3, 4) of int64"),
    (lambda: quillon.convolution_3x3(GRAY, np.ones((3, 3))), TypeError,
     "kernel: a list of 9 whole numbers from -1000000 to 1000000 is wanted, "
     "this is an array of shape (3, 3) of float64"),
    (lambda: quillon.add(GRAY, GRAY[1:]), ValueError,
     "the pictures have different sizes, 16 x 12 and 16 x 11"),
    (lambda: quillon.gain_offset(GRAY, float("nan")), ValueError,
     "gain: a number from -1000 to 1000 is wanted, this is nan"),
    (lambda: quillon.scale(GRAY, 2, 2, out=GRAY.copy()), ValueError,
     "out: an array of shape (24, 32) is wanted, this is one of (12, 16)"),
    (lambda: quillon.dilation(GRAY[:2], 1, 1), ValueError,
     "the picture has 16 x 2 pixels, at least 3 x 3 are needed"),
    (lambda: quillon.hsi(COLOR, "Hue"), ValueError,
     "channel: one of hue, saturation, intensity is wanted, this is 'Hue'"),
    (lambda: quillon.double_threshold(GRAY, (200, 20)), ValueError,
     "between: low is above high in (200, 20)"),
    (lambda: quillon.blobs(GRAY, band=(0, 9), dark=True), ValueError,
     "blobs: argument 'dark': cannot be given together with 'band'"),
    (lambda: quillon.mean(GRAY), TypeError,
     "mean() missing 1 required positional argument: 'size'"),
    (lambda: quillon.mean(GRAY, 3, 4), TypeError,
     "mean() takes 2 positional arguments but 3 were given"),
    (lambda: quillon.mean(GRAY, 3, size=3), TypeError,
     "mean() got multiple values for argument 'size'"),
    (lambda: quillon.mean(GRAY, radius=3), TypeError,
     "mean() got an unexpected keyword argument 'radius'"),
    (lambda: quillon.Prepared("no"), ValueError,
     "name: the name of an operation is wanted, this is 'no'"),
    (lambda: quillon.Prepared("mean", 4), ValueError,
     "size: an odd whole number from 1 to 32767 is wanted, this is 4"),
    (lambda: quillon.Prepared("mean", sizes=4), TypeError,
     "mean: missing a required argument: 'size'"),
    (lambda: quillon.Prepared("add")(GRAY), TypeError, "add: a and b are wanted, this is an image"),
    (lambda: quillon.Finder(GRAY, angles=4), TypeError,
     "find: got an unexpected keyword argument 'angles'"),
    (lambda: quillon.Finder(GRAY, max=1.5), TypeError,
     "max: a whole number from 1 to 10000 is wanted, this is 1.5"),
    (lambda: quillon.NccTool().find(GRAY, max=5), TypeError,
     "NccTool.find() got an unexpected keyword argument 'max'"),
    (lambda: quillon.NccTool().find(GRAY, max_results=5.0), TypeError,
     "max_results: a whole number is wanted, this is 5.0"),
    (lambda: quillon.NccTool().find(GRAY, GRAY), TypeError,
     "min_score: a number is wanted, this is an array of shape (12, 16) of uint8"),
    (lambda: quillon.NccTool().find(GRAY, rotate=1), TypeError,
     "rotate: True or False is wanted, this is 1"),
    (lambda: quillon.GeoMatchTool().find(GRAY, position=(1, 2.5)), TypeError,
     "position: a whole number is wanted, this is 2.5"),
    (lambda: quillon.Region().label(GRAY, "1", 2), TypeError,
     "low: a whole number is wanted, this is '1'"),
    (lambda: quillon.Region().label(GRAY, 2**31, 2), ValueError,
     "low: a whole number of 32 bits is wanted, this is 2147483648"),
    (lambda: quillon.FlatField().load(5), TypeError, "file_name: a path is wanted, this is 5"),
    (lambda: quillon.LensCalibration().precalculate(5), TypeError,
     "shape: a pair of whole numbers is wanted, this is 5"),
    (lambda: quillon.Recipe(5), TypeError, "recipe: a path or a dictionary is wanted, this is 5"),
    (lambda: quillon.Recipe({}, folder=5), TypeError, "folder: a path is wanted, this is 5"),
    (lambda: quillon.flat_field(GRAY, GRAY), ValueError,
     "'parameters' is a picture; a file is needed"),
    (lambda: quillon.match_color(COLOR, GRAY), ValueError,
     "'template' is a grey picture; one in colour is needed"),
    (lambda: quillon.get_hsi_point(COLOR, 16, 0), IndexError,
     "(x, y): a pixel of the image is wanted, this is (16, 0)"),
    (lambda: quillon.pyramid(GRAY), ValueError,
     "nothing came out; the picture may be too small"),
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


def test_results_are_what_other_packages_take():
    for size in [(9, 13), (8, 16), (1, 3), (70, 5000)]:  # rows of several blocks, and padded ones
        image = picture(size)
        kept = quillon.invert(image, layout="library")
        assert kept.strides == (-((size[1] + 3) // 4 * 4), 1) and kept.flags.writeable
        made = quillon.invert(image)
        assert_array_equal(made, 255 - image)
        assert_array_equal(kept, made)
        cv2.rectangle(made, (1, 1), (4, 4), 255)
    color = picture((9, 13), color=True)
    assert_array_equal(quillon.color_to_hsi(color), quillon.color_to_hsi(color, layout="library"))


@pytest.mark.parametrize("color", [False, True])
def test_arrays_are_copied_unless_they_lie_as_the_library_stores_rows(color):
    for width, padded in [(16, False), (12, False), (13, True), (3, True)]:
        image = picture((9, width), color=color)
        result = (quillon.color_to_hsi if color else quillon.invert)(image, layout="library")
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
    expected = quillon.median_5x5(image)
    results = [None] * 8

    def work(index):
        for _ in range(5):
            results[index] = quillon.median_5x5(image)

    threads = [threading.Thread(target=work, args=(index,)) for index in range(len(results))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for result in results:
        assert_array_equal(result, expected)


def test_pictures_come_from_files_and_go_into_them(tmp_path):
    gray, color = GRAY, picture((40, 50), color=True)
    for ending in (".png", ".bmp", ".pgm", ".ppm", ".tif"):
        for image in (gray, color):
            if (ending, image.ndim) in ((".pgm", 3), (".ppm", 2)):
                continue
            file = tmp_path / f"picture{ending}"
            assert cv2.imwrite(str(file), image)
            assert_array_equal(quillon.read_image(file), image)
            assert_array_equal(quillon.decode_image(file.read_bytes()), image)
            assert_array_equal(quillon.read_image(file, color=False), quillon.gray(image))
            assert_array_equal(quillon.read_image(file, color=True), cv2.imread(str(file)))
            if ending in (".png", ".bmp"):
                quillon.write_image(file, image[::-1])
                assert_array_equal(cv2.imread(str(file), cv2.IMREAD_UNCHANGED), image[::-1])
    deep = np.rint(gray * (4095 / 255)).astype(np.uint16)  # 12 bits of 16
    cv2.imwrite(str(tmp_path / "deep.png"), deep)
    assert_array_equal(quillon.read_image(tmp_path / "deep.png", depth=12), gray)
    data = file.read_bytes()
    for work, words in ((lambda: quillon.read_image(tmp_path / "none.png"), "none.png"),
                        (lambda: quillon.decode_image(data[:40], name="cut.tif"), "cut.tif"),
                        (lambda: quillon.read_image(tmp_path / "deep.png", depth=7), "^depth: a number"),
                        (lambda: quillon.write_image(tmp_path / "1.jpg", gray), "1.jpg")):
        with pytest.raises(ValueError, match=words):
            work()


def test_other_threads_run_during_a_call():
    begun, done = threading.Event(), []

    def work():
        begun.set()
        quillon.lab_tables()  # the longest call there is
        done.append(True)

    thread, ticks = threading.Thread(target=work), 0
    thread.start()
    begun.wait()
    while not done:
        time.sleep(0.001)
        ticks += 1
    thread.join()
    assert ticks > 3
