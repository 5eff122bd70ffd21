"""Every operation that makes a picture gives the bytes of its C export; and how all are called."""

import ctypes
import inspect
import itertools
import json
import pickle

import numpy as np
import pytest
import quillon
from c_library import Image, call, filtered, worked_on
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, SIZES, USUAL_SIZES, picture

OPERATIONS = quillon._quillon.OPERATIONS
EXPORT_OF = {name: export for export, name in reversed(quillon._quillon.EXPORTS.items())}
SIGNATURES = {name: inspect.signature(getattr(quillon, name)) for name in OPERATIONS}
PICTURES = [name for name in OPERATIONS if "out" in SIGNATURES[name].parameters]
UNTRIED = ("image", "a", "b", "out", "layout")
CHANNELS = {"rgb": ("red", "green", "blue"), "hsi": ("hue", "saturation", "intensity"),
            "lab": ("L", "a", "b")}

# What arguments are tried with, by their names; those of one function in turns.
VALUES = {
    "above": (0, 100, 255), "between": ((20, 200), (0, 255)), "bits": (0, 3, 8),
    "gain": (1.7, -1000.0), "offset": (-20.0, 3.5), "x": (1.0, 2.5, 0.6), "y": (1.0, 3.0, 0.9),
    "dx": (3, 0, -32767), "dy": (-2, 0), "angle": (0.0, 90.0, -17.3), "size": (1, 3, 9, 101),
    "horizontal": (1, 0, 5), "vertical": (1, 2, 0), "radius": (0, 1, 4), "value": (255, 1, 77),
    "left": (0, 1), "top": (0, 2), "width": (1, 2), "height": (1,),
}
KERNELS = {size: np.random.default_rng(size).integers(-9, 12, (size, size)).astype(np.int32)
           for size in (3, 5, 7)}


def argument_sets(name):
    names = [row for row in SIGNATURES[name].parameters if row not in UNTRIED]
    if name in CHANNELS:
        return [(channel,) for channel in CHANNELS[name]]
    if names == ["kernel"]:
        return [(KERNELS[int(name[-1])],)]
    if names == ["parameters"]:
        return [(OPERATIONS[name],)]  # a file, made by the test
    columns = [VALUES[row] for row in names]
    turns = max(map(len, columns), default=1)
    return [tuple(column[turn % len(column)] for column in columns) for turn in range(turns)]


@pytest.fixture(scope="module")
def tables():
    """The tables of both colour spaces, from the C library."""
    made = {}
    for space, create in (("hsi", "IxCreateCToHSI"), ("lab", "IxCreateCToLab")):
        made[space] = [np.zeros(1 << 24, np.uint8) for _ in range(3)]
        call(create, *made[space])
    return made


def filled_up(image, value):
    """In a black frame, which tells groups that touch an edge from holes."""
    region = ctypes.c_void_p(call("CreateRLERegion", returns=ctypes.c_void_p))
    result = Image(np.pad(image, 1))
    call("IxBinaryFillUp", result, region, value)
    call("DestroyRLERegion", region)
    return result.pixels()[1:-1, 1:-1]


def flat_field(file):
    holder, region = Image(), np.zeros(4, np.int32)
    call("IxFFCParaBuild", holder, 200, 2, 40, 1, 30, bytes(file))

    def corrected(image):
        holder.put(image)
        call("IxFFCParaLoad", holder, region, bytes(file))
        call("IxFFCCalibrate", holder, *region)
        return holder.pixels()
    return corrected


def expected_of(name, images, arguments, tables):
    """The same from the C library, by the shape of the export."""
    converters = {"color_to_hsi": ("IxColorToHSI", "hsi"), "color_to_lab": ("IxColorToLab", "lab")}
    if name == "crop":
        left, top, width, height = arguments
        return images[0][top:top + height, left:left + width]
    if name == "rgb":
        return images[0][..., 2 - CHANNELS[name].index(arguments[0])]
    if name in converters:
        export, space = converters[name]
        return filtered(export, images[0], *tables[space], color=True)
    if name in CHANNELS:
        converted = filtered("IxColorToHSI", images[0], *tables[name], color=True)
        return filtered(EXPORT_OF[name], converted, CHANNELS[name].index(arguments[0]))
    if name == "fill_holes":
        return filled_up(images[0], *arguments)
    if len(images) == 2:
        result = Image()
        call(EXPORT_OF[name], *map(Image, images), result)
        return result.pixels()
    flat = [number for row in arguments for number in (row if type(row) is tuple else (row,))]
    if OPERATIONS[name] == "thresholds":
        return worked_on(EXPORT_OF[name], images[0], *flat)
    in_place = name.split("_")[0] in ("dilation", "erosion", "opening", "closing")
    return filtered(EXPORT_OF[name], images[0], *flat, in_place=in_place)


def sizes_of(name):
    least = 16 if name == "pyramid" else 3 if OPERATIONS[name] in ("morphology", "geometry") else 1
    return [size for size in SIZES if min(size) >= least]


def images_of(name, size):
    color = OPERATIONS[name] == "colour"
    images = [picture(size, color=color, seed=seed)
              for seed, row in enumerate(SIGNATURES[name].parameters) if row in ("image", "a", "b")]
    if len(images) == 2:
        images[1][::3] = images[0][::3]
    if name == "fill_holes":
        images[0][images[0] > 120] = 255
    return images


def check(name, images, arguments, expected):
    function = getattr(quillon, name)
    for layout, lay in LAYOUTS.items():
        sources = [lay(image) for image in images]
        made = function(*sources, *arguments)
        assert_array_equal(made, expected, layout)
        assert made.flags.c_contiguous and made.flags.writeable
        for source, image in zip(sources, images):
            assert_array_equal(source, image, "a source changed")
        kept = function(*sources, *arguments, layout="library")
        assert_array_equal(kept, expected, layout)
        assert not quillon.needs_copy(kept)
        out = lay(np.full_like(expected, 7))
        assert function(*sources, *arguments, out=out) is out
        assert_array_equal(out, expected, layout)
        if expected.shape == sources[-1].shape:
            assert function(*sources, *arguments, out=sources[-1]) is sources[-1]
            assert_array_equal(sources[-1], expected, layout)


@pytest.mark.parametrize("name", [name for name in PICTURES if OPERATIONS[name] != "calibration"])
def test_an_operation_gives_the_bytes_of_its_export(name, tables):
    for size, arguments in itertools.product(sizes_of(name), argument_sets(name)):
        images = images_of(name, size)
        if name == "scale" and arguments[0] < 1 and 1 in size:
            continue
        if name == "translate" and (abs(arguments[0]) >= size[1] or abs(arguments[1]) >= size[0]):
            with pytest.raises(ValueError, match="nothing is left of the picture"):
                quillon.translate(*images, *arguments)
            continue
        check(name, images, arguments, expected_of(name, images, arguments, tables))


def test_corrections_give_the_bytes_of_their_exports(tmp_path):
    file = tmp_path / "flat"
    corrected = flat_field(file)
    for size in SIZES[-2:]:  # the region lies in these
        image = picture(size)
        check("flat_field", [image], (file,), corrected(image))
    with pytest.raises(ValueError, match="ends at column 40, row 30, outside the picture of 31 x 17"):
        quillon.flat_field(picture((17, 31)), file)
    lens, file = quillon.LensCalibration(), tmp_path / "lens"
    y, x = np.mgrid[-2:3, -2:3] * 16.0
    bend = 1 + 1e-5 * (x ** 2 + y ** 2)
    points = np.rint(np.stack([x * bend + 60, y * bend + 50], -1)).astype(int).reshape(-1, 2)
    lens.build(points, 16, 16, 10000, 10000, file)
    image = picture((100, 120))
    # The export takes and gives pictures upside down, about the middle point of the grid.
    rows = 2 * lens.parameters.center.y - np.arange(len(image))
    there = (rows >= 0) & (rows < len(image))
    flipped = np.where(there[:, None], image[rows.clip(0, len(image) - 1)], np.uint8(0))
    check("undistort", [image], (file,), lens.calibrate(flipped)[::-1])


def test_shading_is_its_formula(tmp_path):
    """A file written here, of other levels in every pixel; one pixel is dead."""
    random, file = np.random.default_rng(3), tmp_path / "shading"
    image = picture((17, 31))
    dark = random.integers(0, 9 * 256, image.shape)
    white = dark + random.integers(20 * 256, 230 * 256, image.shape)
    white[4, 7] = dark[4, 7]
    head = {"kind": "shading", "width": 31, "height": 17, "target": 190, "dark_pictures": 1, "white_pictures": 1}
    data = json.dumps(head).encode() + b"\n" + dark.astype("<u2").tobytes() + white.astype("<u2").tobytes()
    checksum = 0xcbf29ce484222325  # FNV-1a
    for byte in data:
        checksum = (checksum ^ byte) * 0x100000001b3 % 2**64
    file.write_bytes(data + b"%016x" % checksum)
    white[4, 7] += 1  # its value is that of the pixel to its left
    even = np.floor(190 * (256.0 * image - dark) / (white - dark) + 0.5).clip(0, 255).astype(np.uint8)
    even[4, 7] = even[4, 6]
    check("shading", [image], (file,), even)
    file.write_bytes(data + b"%016x" % (checksum ^ 1))
    with pytest.raises(ValueError, match="is no shading file: its checksum is wrong"):
        quillon.shading(image, file)


def test_every_operation_is_called_and_described_as_the_table_has_it():
    assert len(OPERATIONS) > 60 and list(OPERATIONS)[:1] == ["gray"]
    assert str(SIGNATURES["mean"]) == (
        "(image: 'Image', size: 'int', *, out: 'Optional[Image]' = None, "
        "layout: 'Layout' = 'contiguous') -> 'Image'")
    assert str(SIGNATURES["match"]).startswith(
        "(image: 'Image', template: 'Source', *, angle: 'Optional[Sequence[float]]' = None, ")
    for made, name in ((quillon.Finder, "find"), (quillon.BoardInspector, "inspect")):
        assert list(inspect.signature(made).parameters) == list(SIGNATURES[name].parameters)[1:]
    for name in OPERATIONS:
        text = inspect.getdoc(getattr(quillon, name))
        assert not text[0].islower() and "." in text.splitlines()[0], name
        assert pickle.loads(pickle.dumps(getattr(quillon, name))) is getattr(quillon, name)
        for row in SIGNATURES[name].parameters:
            assert row in UNTRIED or f"\n{row}: " in text, (name, row)
    assert "side of the window, in pixels (an odd whole number from 1 to 32767)" in (
        quillon.mean.__doc__)


def test_numbers_outside_the_table_are_refused_for_every_argument():
    parts = picture((40, 50))
    for name, signature in SIGNATURES.items():
        images = images_of(name, (40, 50))
        required = {row: value for row, value in zip(
            [row.name for row in signature.parameters.values() if row.default is row.empty
             and row.name not in ("image", "a", "b")], argument_sets(name)[0])
        } if name in PICTURES else {"template": parts, "good": parts,
                                    "box": (20, 15, 10, 10, 0), "ring": (20, 15, 2, 9)}
        required = {row: value for row, value in required.items() if row in signature.parameters}
        if "layout" in signature.parameters and "parameters" not in signature.parameters:
            with pytest.raises(ValueError, match="^layout: one of contiguous, library is wanted"):
                getattr(quillon, name)(*images, **required, layout="Library")
        for row in signature.parameters:
            if row in (*UNTRIED, "parameters", "template", "good", "mask"):
                continue
            for wrong in (float("nan"), 10**30, -10**30, "x", [], object()):
                with pytest.raises((ValueError, TypeError), match=f"^{row}: .* is wanted, this is"):
                    getattr(quillon, name)(*images, **{**required, row: wrong})


def test_a_chain_gives_what_copies_between_its_links_give():
    # Some filters read the byte behind a row: it must not carry over from one result to the next.
    for size in SIZES:
        linked = copied = picture(size)
        for function in (quillon.sobel, quillon.median_3x3, quillon.laplacian, quillon.prewitt):
            linked, copied = function(linked), function(np.ascontiguousarray(copied))
            assert_array_equal(linked, copied)


def test_numbers_may_be_of_numpy_and_kernels_flat():
    image = picture(USUAL_SIZES[-1])
    kernel = KERNELS[3]
    for given in (kernel.ravel(), kernel.tolist(), kernel.ravel().tolist(), kernel.astype(">i8")):
        assert_array_equal(quillon.convolution_3x3(image, given),
                           quillon.convolution_3x3(image, kernel))
    assert_array_equal(quillon.mean(image, size=np.uint8(9)), quillon.mean(image, 9))
    assert_array_equal(quillon.rotate(image, np.float32(30)), quillon.rotate(image, 30))
    assert_array_equal(quillon.double_threshold(image, np.array([20, 200])),
                       quillon.double_threshold(image, [20, 200]))
