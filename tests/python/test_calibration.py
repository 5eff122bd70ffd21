"""Calibration gives the bytes, and the files, of the C exports."""

import ctypes
import struct
import warnings
import zlib

import numpy as np
import pytest
import quillon
from c_library import Image, call
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, picture

REGION = (2, 40, 1, 30)  # x start, x end, y start, y end


def array_at(address, kind, count):
    return np.array((kind * count).from_address(address))


@pytest.mark.parametrize("target", [200, -5, 300])
def test_a_flat_field_is_that_of_the_exports(tmp_path, target):
    c_file, file = tmp_path / "c", tmp_path / "python"
    holder = Image()
    assert call("IxFFCParaBuild", holder, target, *REGION, bytes(c_file), returns=ctypes.c_uint8)
    field = quillon.FlatField()
    assert field.gains is None
    field.build(target, REGION, file)
    assert file.read_bytes() == c_file.read_bytes()
    loaded = quillon.FlatField()
    assert loaded.load(file) == REGION
    for one in (field, loaded):
        assert_array_equal(one.gains, array_at(holder.header.gains, ctypes.c_double, 256))
        for size in SIZES:
            image = picture(size)
            holder.put(image)
            call("IxFFCCalibrate", holder, *REGION)
            for layout, lay in LAYOUTS.items():
                source = lay(image)
                assert_array_equal(one.calibrate(source, REGION), holder.pixels(), layout)
                assert_array_equal(source, image, "the source changed")
                assert one.calibrate(source, REGION, out=source) is source
                assert_array_equal(source, holder.pixels(), layout)
            assert_array_equal(one.calibrate(image), one.calibrate(image, (0, 9999, 0, 9999)))


def grid(side, bend):
    """A measured grid around (100, 80), bent outwards, row by row from the top left."""
    half = side // 2
    steps = np.arange(-half, half + 1) * 20.0
    v, u = np.meshgrid(steps, steps, indexing="ij")
    factor = 1 + bend * (u ** 2 + v ** 2)
    return np.rint(np.stack([100 + u * factor, 80 + v * factor], -1)).reshape(-1, 2).astype(int)


@pytest.mark.parametrize("size", [(160, 200), (150, 190), (40, 31)])
def test_lens_calibration_is_that_of_the_exports(tmp_path, size):
    c_file, file = tmp_path / "c", tmp_path / "python"
    points = grid(7, 2e-6)
    numbers = [ctypes.c_float(value) for value in (0.02, 0.02, 10.0, 10.0)]
    c_points = points.astype(np.int32)
    image = picture(size)
    holder = Image(image)
    assert call("IxDistortionParaBuild", holder, c_points, len(points), *numbers, bytes(c_file),
                returns=ctypes.c_uint8)
    call("IxDistortionPreCalculate", holder)
    assert call("IxDistortionCalibrate", holder, returns=ctypes.c_uint8)

    built, loaded = quillon.LensCalibration(), quillon.LensCalibration()
    assert built.parameters is None and built.map is None
    assert_array_equal(built.build(points, 0.02, 0.02, 10, 10, file), c_points)
    assert file.read_bytes() == c_file.read_bytes()
    loaded.load(file)
    header = holder.header
    for lens in (built, loaded):
        for layout, lay in LAYOUTS.items():
            source = lay(image)
            assert_array_equal(lens.calibrate(source), holder.pixels(), layout)
            assert lens.calibrate(source, out=source) is source
            assert_array_equal(source, holder.pixels(), layout)
        lens.precalculate(size)
        assert_array_equal(lens.map.ravel(), array_at(header.map, ctypes.c_int32, lens.map.size))
        center, width, height, bound, coefficients = lens.parameters
        assert_array_equal(coefficients.ravel(), array_at(header.coefficients, ctypes.c_double, 20))
        assert (*center, width, height, *bound) == tuple(getattr(header, name) for name in (
            "center_x", "center_y", "corrected_width", "corrected_height", "x_min", "x_max",
            "y_min", "y_max"))


def test_a_lens_serves_images_of_several_sizes():
    lens = quillon.LensCalibration()
    lens.build(grid(5, 1e-6), 0.02, 0.02, 10, 10)
    for size in [(160, 200), (100, 120), (160, 200)]:
        image = picture(size)
        fresh = quillon.LensCalibration()
        fresh.build(grid(5, 1e-6), 0.02, 0.02, 10, 10)
        assert_array_equal(lens.calibrate(image), fresh.calibrate(image))


def test_what_is_missing_is_said(tmp_path):
    short = tmp_path / "short"
    short.write_bytes(b"x" * 100)
    gray, lens, field = picture((20, 20)), quillon.LensCalibration(), quillon.FlatField()
    for use, error, message in [
            (lambda: field.calibrate(gray), ValueError, r"build\(\) or load\(\) comes first"),
            (lambda: lens.calibrate(gray), ValueError, r"build\(\) or load\(\) comes first"),
            (lambda: lens.precalculate((5, 5)), ValueError, r"build\(\) or load\(\) comes first"),
            (lambda: lens.precalculate((0, 5)), ValueError, r"shape: .* this is \(0, 5\)"),
            (lambda: lens.build(grid(5, 0)[1:], 1, 1, 1, 1), ValueError, "this is 24"),
            (lambda: field.build(9, (1, 2, 3)), ValueError, r"region: an array of shape \(4\)"),
            (lambda: field.load(tmp_path / "none"), FileNotFoundError, "none"),
            (lambda: field.load(None), TypeError, "file_name: a path is wanted, this is None"),
            (lambda: field.load(short), ValueError, "file of 2072 bytes is wanted, .* of 100"),
            (lambda: lens.load(short), ValueError, "file of 208 bytes is wanted, .* of 100"),
            (lambda: field.build(9, REGION, tmp_path / "no" / "f"), FileNotFoundError, "no/f"),
            (lambda: lens.build(grid(5, 0), 1, 1, 1, 1, tmp_path), IsADirectoryError, "")]:
        with pytest.raises(error, match=message):
            use()
    lens.build(grid(5, 0), 1e-9, 1e-9, 1, 1)
    assert lens.parameters.corrected_width == 1


def test_what_a_file_leaves_open_is_a_warning(tmp_path):
    """A lens file that does not say for which pictures it was made; a template of 16 bits."""
    file, template = tmp_path / "lens", tmp_path / "template.png"
    quillon.LensCalibration().build(grid(7, 2e-6), 0.02, 0.02, 10, 10, file)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    rows = b"".join(b"\0" + np.arange(20 * y, 20 * y + 20, dtype=">u2").tobytes() for y in range(20))
    template.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">2I5B", 20, 20, 16, 0, 0, 0, 0)) +
                         chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))
    image = picture((160, 200))
    steps = {"name": "n", "steps": [
        {"name": "u", "operation": "undistort", "input": "image", "parameters": str(file)}],
        "measurements": [{"name": "m", "input": "u", "value": "mean"}]}
    for use, message in [
            (lambda: quillon.undistort(image, str(file)), "does not say for which size"),
            (lambda: quillon.Recipe(steps), "does not say for which size"),
            (lambda: quillon.match(image, str(template)), "template.png.*16-bit samples")]:
        with pytest.warns(UserWarning, match=message):
            use()
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            with pytest.raises(UserWarning, match=message):
                use()
