"""Wrong arguments of every function and object: the message names the argument, what is wanted and what it is."""

import inspect
import itertools
import re

import cv2
import numpy as np
import pytest
import quillon
from pictures import picture, scene
from quillon import batch, samples

GRAY, COLOR = scene(), scene(color=True)
PART = GRAY[3:43, 8:56].copy()
BOARD = samples.board(shape=(300, 300))[0]
NAN = float("nan")
GRID = np.array([(60 + 16 * x, 50 + 16 * y) for y in range(-2, 3) for x in range(-2, 3)])
RECIPE = {"name": "Parts", "steps": [{"name": "parts", "operation": "blobs", "input": "image"}],
          "measurements": [{"name": "parts", "input": "parts", "value": "count"}]}

# What is wrong for arguments of a kind, as annotations have it.
ARRAYS = [np.zeros((300, 300)), np.zeros(1000, np.uint8), np.zeros((3, 3, 3, 3), np.uint8),
          np.zeros((0, 0), np.uint8), np.zeros((90, 90), np.int16), "text", 3, {}, [1.5] * 1000, object()]
NO_NAMES = [1.5, True, {}, [1.5] * 1000, np.zeros((300, 300)), object()]
NO_PAIRS = [1.5, 3, "text", (1, 2, 3), (1.5, 2), np.zeros((300, 300)), object()]
WRONG = {
    "Image": [*ARRAYS, None], "Optional[Image]": ARRAYS, "Source": [*NO_NAMES, None],
    "int": [1.5, "3", None, True, {}, [3], 2**70, np.zeros((300, 300)), object()],
    "float": ["3", None, True, {}, [3.0], NAN, np.zeros((300, 300)), object()],
    "bool": [1, "True", None, 0.0, [], np.zeros((300, 300)), object()],
    "FileName": [*NO_NAMES, None], "Optional[FileName]": NO_NAMES, "str": [1.5, None, b"text", object()],
    "Tuple[int, int]": [*NO_PAIRS, None], "Optional[Tuple[int, int]]": NO_PAIRS,
    "Layout": [1, None, "rows", b"library", object()],
    "Points": [1.5, None, "text", [], [1, 2], [(1.5, 2)], [(2**70, 1)], np.zeros((300, 300)), object()],
    "Sequence[int]": [1.5, None, "text", [], [1, 2, 3], [1.5] * 4, np.zeros((300, 300)), object()],
    "ArrayLike": ["text", (1, 2, 3), [NAN, 1], np.zeros((300, 300)), object()],
    "Iterable[Image]": [1.5, None, "text", GRAY, {}, object()],
    "Sequence[Source]": [1.5, None, "text", GRAY, [], object()],
    "Iterable[FileName]": [1.5, None, "text", [1.5], object()],
    "Optional[int]": [1.5, "3", True, [3], object()],
    "Optional[bool]": [1, "True", 0.0, [], object()], "bytes": [1.5, None, "text", GRAY, object()],
    "Optional[Things]": [1.5, "text", GRAY, object()],
}
WRONG["Optional[Sequence[int]]"] = [value for value in WRONG["Sequence[int]"] if value is not None]
WRONG["Union[FileName, Dict[str, Any]]"] = [1.5, True, None, [1.5] * 1000, GRAY, object()]
WRONG["Union[Source, Sequence[Source]]"] = [1.5, None, {}, [1.5], object()]


def made(kind, *calls):
    """An object on which these methods were called."""
    one = kind()
    for name, *values in calls:
        getattr(one, name)(*values)
    return one


@pytest.fixture(scope="module")
def calls(tmp_path_factory):
    """Functions with arguments that they take, by their names; each is called again and again."""
    folder = tmp_path_factory.mktemp("messages")
    (folder / "parts.json").write_text(batch.json.dumps(RECIPE))
    field = made(quillon.FlatField, ("build", 200, (0, 50, 0, 50), folder / "field"))
    lens = made(quillon.LensCalibration, ("build", GRID, 16, 16, 10000, 10000, folder / "lens"))
    region = made(quillon.Region, ("set_polygon", [(0, 0), (120, 0), (120, 79), (0, 79)]),
                  ("label", GRAY, 100, 255), ("compute_features",))
    ncc, correlation = made(quillon.NccTool, ("teach", PART)), made(quillon.NccTool, ("teach_roi", COLOR))
    edges = made(quillon.GeoMatchTool, ("teach", PART, 60, 20))
    recipe, found = quillon.Recipe(RECIPE), quillon.blobs(GRAY)
    mean, finder, boards = quillon.Prepared("mean", 3), quillon.Finder(PART), quillon.BoardInspector(BOARD)
    tile = np.tile(np.kron([[0, 1], [1, 0]], np.ones((20, 20))), (3, 4)).astype(np.uint8) * 200
    camera = quillon.Calibration.from_chessboard([np.pad(tile, 30)], 5, max_rms=100)
    return [
        (region.set_polygon, [(0, 0), (120, 0), (120, 79), (0, 79)]), (region.assign_image, GRAY),
        (region.label, GRAY, 100, 255), (region.fill_up, GRAY, 255), (region.blob_area, 0),
        (region.blob_center, 0), (region.blob_bound, 0), (region.blob_min_rect, 0),
        (region.blob_gray_mean, GRAY, 0), (region.blob_color_mean, COLOR, 0), (region.gray_mean, GRAY),
        (region.color_mean, COLOR), (region.select_area, 0, 9**5), (region.select_width, 0, 9**5),
        (region.select_height, 0, 9**5), (region.select_center, 0, 999, 0, 999),
        (ncc.teach, PART), (correlation.teach_roi, COLOR), (ncc.find, GRAY), (correlation.correlate, COLOR),
        (ncc.level_image, 0), (edges.teach, PART, 60, 20), (edges.find, GRAY),
        (field.build, 200, (0, 50, 0, 50)), (field.load, folder / "field"), (field.calibrate, GRAY),
        (lens.build, GRID, 16, 16, 10000, 10000), (lens.load, folder / "lens"),
        (lens.precalculate, (80, 120)), (lens.calibrate, GRAY),
        (camera.from_chessboard, [np.pad(tile, 30)], 5.0, {"max_rms": 100.0}),
        (camera.load, folder / "camera.json"), (camera.save, folder / "camera.json"),
        (camera.rectify, np.pad(tile, 30)), (camera.to_millimeters, (80, 80)), (camera.to_pixels, (5, 5)),
        (quillon.write_image, folder / "1.png", GRAY), (quillon.read_image, folder / "1.png"),
        (quillon.decode_image, cv2.imencode(".png", GRAY)[1].tobytes()),
        (quillon.Recipe, RECIPE), (recipe.run, GRAY), (recipe.run_all, [GRAY]),
        (quillon.Finder, PART), (finder.find, GRAY), (quillon.BoardInspector, BOARD),
        (boards.inspect, BOARD), (quillon.Prepared, "mean", 3), (mean, GRAY),
        (quillon.show, GRAY), (quillon.needs_copy, GRAY), (quillon.get_hsi_point, COLOR, 0, 0),
        (quillon.get_lab_point, COLOR, 0, 0), (found.plot,),
        (samples.tray, 1, (200, 200)), (samples.board, 1, (200, 200)), (samples.dot_grid, (200, 200)),
        (batch.list_images, folder), (batch.read_job, folder / "parts.json"),
        (batch.Batch, folder / "parts.json", ["1.png"]), (batch.FrameInspector, folder / "parts.json"),
        *((getattr(quillon, name), *[picture((40, 50))] * count) for name, count in
          (("invert", 1), ("add", 2), ("bitwise_xor", 2), ("pyramid", 1), ("blobs", 1))),
        (quillon.match, GRAY, PART), (quillon.find, GRAY, PART), (quillon.inspect, BOARD, BOARD),
        (quillon.flat_field, GRAY, folder / "field"), (quillon.undistort, GRAY, folder / "lens"),
    ]


def tried(function, values):
    result = function(**values)
    return list(result) if inspect.isgenerator(result) else result


def test_a_message_names_the_argument_what_is_wanted_and_what_it_is(calls):
    kinds, silent = set(), []
    # Files are there when they are read.
    writers = ("save", "write_image")
    for function, *values in sorted(calls, key=lambda row: getattr(row[0], "__name__", "") not in writers):
        named = values.pop() if values and isinstance(values[-1], dict) and "max_rms" in values[-1] else {}
        signature = inspect.signature(function)
        good = {**dict(signature.bind(*values).arguments), **named}
        extra = good.pop("args", ())
        if extra:  # of an object that takes any operation's
            good["size"] = extra[0]
        if "images" in good and isinstance(good["images"], tuple):
            good["image"] = good.pop("images")[0]
        try:
            tried(function, good)
        except batch.BatchError:  # a folder without an image
            pass
        for row in signature.parameters.values():
            kind = row.annotation if row.kind not in (row.VAR_POSITIONAL, row.VAR_KEYWORD) else None
            for wrong in WRONG.get(kind, ()):
                kinds.add(kind)
                try:
                    tried(function, {**good, row.name: wrong})
                except (TypeError, ValueError) as error:
                    message = str(error)
                else:
                    message = "taken"
                pattern = rf"{row.name}(\[\d+\])?: .*\b(is|are) wanted, (this|these) (is|are)( one of)? .+"
                if not re.fullmatch(pattern, message) or len(message) > 180:
                    silent.append(f"{function}({row.name}={str(wrong)[:30]}): {message}"[:300])
        with pytest.raises(TypeError, match="nonsense") as caught:
            tried(function, {**good, "nonsense": 1})
        assert len(str(caught.value)) < 120
    assert not silent, "\n".join(silent)
    assert kinds == {*WRONG}, "a kind of arguments was not tried"


def test_every_function_of_the_package_is_in_that_table(calls):
    """But for those without an argument, and the operations, whose numbers another test walks."""
    tried_names = {getattr(function, "__qualname__", type(function).__name__) for function, *_ in calls}
    classes = [one for one in map(vars(quillon).get, quillon.__all__) if inspect.isclass(one)]
    functions = [getattr(module, name) for module in (samples, batch, quillon.files) for name in vars(module)
                 if name in ("tray", "board", "dot_grid", "list_images", "read_job", *quillon.files.__all__)]
    methods = [value for one in classes for name, value in inspect.getmembers(one, inspect.isroutine)
               if name[0] != "_" and getattr(value, "__module__", "").startswith("quillon")]
    for function in itertools.chain(functions, methods):
        rows = [name for name in inspect.signature(function).parameters if name not in ("self", "rows")]
        if rows and function.__qualname__ not in ("Calibration.plot", "Things.of"):
            assert function.__qualname__ in tried_names, function.__qualname__
