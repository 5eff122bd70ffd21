"""Regions, blobs and their selection give what the C exports give on the same steps."""

import ctypes
import threading

import numpy as np
import pytest
import quillon
from c_library import Image, call
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, picture, scene

POLYGONS = {
    "beyond the image": [(-1, -1), (130, -1), (130, 90), (-1, 90)],
    "counter-clockwise": [(5, 5), (5, 60), (90, 60), (90, 5)],
    "triangle": [(60, 2), (118, 75), (2, 75)],
}


class Steps:
    """A region of the C library and one of the module, labelled alike."""

    def __init__(self, image, polygon, low=100, high=255):
        self.c = ctypes.c_void_p(call("CreateRLERegion", returns=ctypes.c_void_p))
        points = np.array(polygon, np.int32)
        call("IxPointToRegion", self.c, points, len(points))
        call("IxGrayBlobLabel", Image(image), self.c, low, high)
        self.python = quillon.Region()
        self.python.set_polygon(polygon)
        self.python.label(image, low, high)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        call("DestroyRLERegion", self.c)
        self.python.close()

    def read(self, export, *arguments, count, dtype):
        result = np.full(count, 77, dtype)
        call(export, *arguments, result)
        return result

    def selected(self):
        """The C library's records of the selection."""
        count = call("IxGetSelectBlobCount", self.c, returns=ctypes.c_int)
        records = np.zeros(count, self.python.selected_blobs().dtype)
        call("IxGetBlobList", self.c, records)
        return records


def flat(value):
    """A named tuple, tuples inside it included, as one list of numbers."""
    return [number for item in value
            for number in (flat(item) if isinstance(item, tuple) else [item])]


@pytest.mark.parametrize("polygon", POLYGONS.values(), ids=POLYGONS)
@pytest.mark.parametrize("layout", LAYOUTS)
def test_blobs_are_those_of_the_exports(polygon, layout):
    gray, color = LAYOUTS[layout](scene()), LAYOUTS[layout](scene(color=True))
    with Steps(gray, polygon) as steps:
        region = steps.python
        assert region.blob_count == call("IxGetBlobCount", steps.c, returns=ctypes.c_int) > 2
        for n in range(region.blob_count):
            assert region.blob_area(n) == call("IxGetnBlobArea", steps.c, n, returns=ctypes.c_int)
            for value, export, count, dtype in [
                    (region.blob_center(n), "IxGetnBlobCenter", 2, np.float32),
                    (region.blob_bound(n), "IxGetnBlobBound", 4, np.int32),
                    (region.blob_min_rect(n), "IxGetBlobMinRect", 13, np.float32)]:
                assert flat(value) == steps.read(export, steps.c, n, count=count,
                                                 dtype=dtype).tolist()
            assert region.blob_gray_mean(gray, n) == call(
                "IxGetnBlobGrayMean", Image(gray), steps.c, n, returns=ctypes.c_double)
            assert list(region.blob_color_mean(color, n)) == steps.read(
                "IxGetnBlobColorMean", Image(color), steps.c, n, count=3, dtype=float).tolist()
        assert region.gray_mean(gray) == call(
            "IxGetnRegionGrayMean", Image(gray), steps.c, returns=ctypes.c_double)
        assert list(region.color_mean(color)) == steps.read(
            "IxGetnRegionColorMean", Image(color), steps.c, count=3, dtype=float).tolist()


def test_selections_are_those_of_the_exports():
    with Steps(scene(), POLYGONS["beyond the image"]) as steps:
        region = steps.python
        assert region.selected_count == 0 and region.selected_blobs().size == 0
        assert not region.select_area(0, 1000)
        for method, export, arguments, swapped in [
                ("compute_features", "IxComputeAllBlobFeature", (), ()),
                ("select_area", "IxSelectBlobArea", (50, 600), (600, 50)),
                ("select_width", "IxSelectBlobWidth", (7, 25), (25, 7)),
                ("select_height", "IxSelectBlobHeight", (5, 25), (25, 5)),
                ("select_center", "IxLocateBlobCenter", (20, 100, 10, 70), (20, 100, 10, 70)),
                ("select_area", "IxSelectBlobArea", (10**6, 10**7), (10**7, 10**6)),
                ("reselect", "IxReSelectBlob", (), ()),
                ("compute_features", "IxComputeAllBlobFeature", (), ())]:
            result = getattr(region, method)(*arguments)
            assert result == call(export, steps.c, *swapped, returns=ctypes.c_bool), method
            assert region.selected_count == call("IxGetSelectBlobCount", steps.c,
                                                 returns=ctypes.c_int), method
            blobs = region.selected_blobs()
            for field in blobs.dtype.names:
                assert_array_equal(blobs[field], steps.selected()[field], method)
        assert blobs.dtype.itemsize == 80 and blobs["corner4_y"].shape == (region.blob_count,)


@pytest.mark.parametrize("size", SIZES)
@pytest.mark.parametrize("value", [255, 0, 77])
def test_filling_holes_gives_the_bytes_of_its_export(size, value):
    image = picture(size)
    image[image > 120] = value
    with Steps(image, POLYGONS["triangle"]) as steps:
        expected = Image(image)
        call("IxBinaryFillUp", expected, steps.c, value)
        for layout, lay in LAYOUTS.items():
            source = lay(image)
            assert_array_equal(steps.python.fill_up(source, value), expected.pixels(), layout)
            assert_array_equal(source, image, "the source changed")
            assert steps.python.fill_up(source, value, out=source) is source
            assert_array_equal(source, expected.pixels(), layout)


def test_the_display_is_that_of_the_export():
    image = scene()
    with Steps(image, POLYGONS["triangle"]) as steps:
        assigned = Image(image)
        call("IxImgAssignToRegion", steps.c, assigned)
        steps.python.assign_image(image)
        stride = (image.shape[1] * 3 + 3) // 4 * 4
        for _ in range(2):  # the second call shows the image on black
            handle = call("IxGetRegDisplay", steps.c, returns=ctypes.c_void_p)
            store = (ctypes.c_uint8 * (stride * image.shape[0])).from_address(-(-handle // 64) * 64)
            rows = np.frombuffer(store, np.uint8).reshape(image.shape[0], stride)[::-1]
            expected = rows[:, :image.shape[1] * 3].reshape(*image.shape, 3)
            assert_array_equal(steps.python.display(), expected)


def test_a_closed_region_says_so():
    with quillon.Region() as region:
        region.label(scene(), 100, 255)
    region.close()
    for use in (lambda: region.blob_count, lambda: region.label(scene(), 1, 2),
                lambda: region.set_polygon([(0, 0)])):
        with pytest.raises(ValueError, match="this Region is closed"):
            use()


def test_a_region_serves_one_thread_at_a_time():
    region, image = quillon.Region(), scene((300, 400))
    region.set_polygon([(0, 0), (400, 0), (400, 299), (0, 299)])
    region.label(image, 100, 255)
    count, wrong = region.blob_count, []

    def work():
        for _ in range(30):
            region.label(image, 100, 255)
            if region.blob_count != count or not region.compute_features():
                wrong.append(region.blob_count)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not wrong
