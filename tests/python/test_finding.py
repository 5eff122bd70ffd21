"""Blobs, matches, defects and recipes in process are those of the objects and of the truth."""

import base64
import copy
import json
import pickle
import re
import threading

import cv2
import numpy as np
import pytest
import quillon
from numpy.testing import assert_allclose, assert_array_equal
from pictures import LAYOUTS, scene

GRAY, COLOR = scene(), scene(color=True)
PLACE = slice(3, 43), slice(8, 56)
WHOLE = [(0, 0), (GRAY.shape[1], 0), (GRAY.shape[1], GRAY.shape[0] - 1), (0, GRAY.shape[0] - 1)]
RECIPE = {
    "name": "Parts",
    "steps": [{"name": "smooth", "operation": "median-3x3", "input": "image"},
              {"name": "hue", "operation": "hsi", "input": "color", "channel": "hue"},
              {"name": "parts", "operation": "blobs", "input": "smooth", "min_area": 50},
              {"name": "none", "operation": "blobs", "input": "image", "band": [1, 2]}],
    "measurements": [{"name": "parts", "input": "parts", "value": "count", "min": 5, "max": 9},
                     {"name": "largest", "input": "parts", "value": "area", "which": "largest",
                      "max": 10},
                     {"name": "nothing", "input": "none", "value": "x"}],
}


def board(defects=()):
    """Dark lines on a bright ground; and those with bites and spots, x, y, side, value."""
    picture = np.full((240, 320), 200, np.uint8)
    random = np.random.default_rng(3)
    for _ in range(40):
        x, y = random.integers(5, 290), random.integers(5, 210)
        cv2.rectangle(picture, (int(x), int(y)), (int(x + random.integers(4, 25)),
                                                  int(y + random.integers(4, 25))), 40, -1)
    for x, y, side, value in defects:
        picture[y:y + side, x:x + side] = value
    return picture


@pytest.mark.parametrize("layout", LAYOUTS)
def test_blobs_are_those_of_a_region(layout):
    with quillon.Region() as region:
        region.set_polygon(WHOLE)
        region.label(GRAY, 100, 255)
        region.compute_features()
        region.select_area(40, 800)
        expected = region.selected_blobs()
    found = quillon.blobs(LAYOUTS[layout](GRAY), band=(100, 255), min_area=40, max_area=800)
    assert 2 < len(found) == len(expected)
    for name, other in [("area", "area"), ("x", "center_x"), ("y", "center_y"), ("width", "width"),
                        ("height", "height"), ("angle", "angle")]:
        assert_array_equal(found[name], expected[other])
    for blob in found:
        box = GRAY[blob["top"]:blob["bottom"] + 1, blob["left"]:blob["right"] + 1] >= 100
        assert box.sum() >= blob["area"] and box[0].any() and box[:, -1].any()
    assert all(found.dtype[name].shape == () for name in found.dtype.names)
    assert quillon.blobs(GRAY, band=(1, 2)).shape == (0,)
    assert quillon.blobs(GRAY, band=(1, 2)).dtype == found.dtype


def test_matches_are_those_of_the_tools():
    template = GRAY[PLACE]
    with quillon.NccTool() as tool:
        tool.teach(template)
        expected = tool.find(GRAY, 0.6, max_results=3)
    for found in (quillon.match(GRAY, template, min_score=0.6, max=3),
                  quillon.Prepared("match", template=template, min_score=0.6, max=3)(GRAY)):
        for name in ("x", "y", "angle", "scale", "score"):
            assert_array_equal(found[name], expected[name])
    found = quillon.match_color(COLOR, COLOR[PLACE], max=1)[0]
    assert abs(found["x"] - 31.5) < 0.1 and abs(found["y"] - 22.5) < 0.1
    assert (round(found["left"]), round(found["bottom"])) in [(8, 42), (8, 43), (7, 42), (7, 43)]
    with quillon.GeoMatchTool() as tool:
        tool.teach(template, 80, 30)
        x, y, _ = tool.find(GRAY, 0.5, 0.7)
    assert [(row["x"], row["y"]) for row in quillon.locate(GRAY, template)] == [(x, y)]


PART = slice(60, 160), slice(80, 200)  # of a board, which has edges of both directions


def test_a_finder_carries_its_template_wherever_it_goes():
    image, template = quillon.rotate_bilinear(board(), 6), board()[PART]
    finder = quillon.Finder(template, angle=(-10, 10), max=3)
    expected = quillon.find(image, template.copy(), angle=(-10, 10), max=3)
    template[:] = 0
    for one in (finder, pickle.loads(pickle.dumps(finder))):
        assert_array_equal(one.find(image), expected)
        assert_array_equal(one(image=image), expected)
    assert abs(expected[0]["angle"] - 6) < 0.2


def test_objects_carry_what_they_were_taught(tmp_path):
    points = np.array([(60 + 16 * x, 50 + 16 * y) for y in range(-2, 3) for x in range(-2, 3)])
    template, image = GRAY[PLACE].copy(), np.pad(GRAY, ((0, 30), (0, 0)))

    def calibrated(kind, *build):
        built, loaded = kind(), kind()
        built.build(*build, tmp_path / "file")
        loaded.load(tmp_path / "file")
        return built, loaded

    ncc, color, edges = quillon.NccTool(), quillon.NccTool(), quillon.GeoMatchTool()
    ncc.teach(template)
    ncc.current_level = 0
    color.teach_roi(COLOR)
    edges.teach(template, 60, 20)
    rows = [(ncc, lambda tool: (tool.find(image), tool.current_level)),
            (color, lambda tool: tool.correlate(COLOR)), (edges, lambda tool: tool.find(image)),
            (quillon.NccTool(), type), (quillon.FlatField(), lambda field: field.gains)]
    for made, build in ((quillon.FlatField, (200, (0, 100, 0, 90))),
                        (quillon.LensCalibration, (points, 16, 16, 10000, 10000))):
        rows += [(one, lambda one: one.calibrate(image)) for one in calibrated(made, *build)]
    expected = [use(one) for one, use in rows]
    template[:], points[:] = 0, 0
    (tmp_path / "file").unlink()
    for (one, use), told in zip(rows, expected):
        for again in (pickle.loads(pickle.dumps(one)), copy.deepcopy(pickle.loads(pickle.dumps(one)))):
            assert pickle.dumps(use(again)) == pickle.dumps(told)
    with pytest.raises(TypeError, match="a Region cannot be pickled: send the image"):
        pickle.dumps(quillon.Region())


def test_what_was_found_shows_itself_over_the_image():
    image = COLOR.copy()
    found = quillon.blobs(quillon.gray(image), min_area=50)
    assert found.image is None, "a picture on the way is not kept"
    assert type(found["area"]) is np.ndarray and found[1:].dtype == found.dtype
    table = found._repr_html_()
    assert table.count("<tr>") == 1 + len(found) and "<svg" not in table
    found = quillon.match_color(image, image[PLACE])
    assert found[:1].image is image and pickle.loads(pickle.dumps(found)).image is None
    drawing = found._repr_html_()
    shown = base64.b64decode(re.search("base64,([^']*)'", drawing)[1])
    assert_array_equal(cv2.imdecode(np.frombuffer(shown, np.uint8), cv2.IMREAD_COLOR), image)
    assert drawing.count("<polygon") == len(found)
    # The corners of what is drawn are those of the truth: a template turned by 20 degrees.
    scene_ = quillon.rotate_bilinear(board(), 20)
    turned = quillon.find(scene_, board()[PART], max=1)
    corners = turned.outlines()[0]
    assert corners.mean(axis=0) == pytest.approx([turned[0]["x"], turned[0]["y"]], abs=0.6)
    assert np.hypot(*(corners[1] - corners[0])) == pytest.approx(120, abs=1e-6)
    assert np.rad2deg(np.arctan2(*(corners[1] - corners[0])[::-1])) == pytest.approx(20, abs=0.2)
    # A circle, and the side of a board's part, as they are drawn.
    disc, side = np.zeros((60, 70), np.uint8), np.zeros((60, 70), np.uint8)
    cv2.circle(disc, (30, 25), 12, 255, -1)
    side[:, 35:] = 255
    circle = quillon.fit_circle(disc, (30, 25, 6, 18)).outlines()[0]
    assert circle.mean(axis=0) == pytest.approx([30, 25], abs=0.3)
    assert np.ptp(circle, axis=0) == pytest.approx([24.5, 24.5], abs=1.5)
    line = quillon.fit_line(side, (35, 30, 20, 30, 0)).outlines()[0]
    assert line[:, 0] == pytest.approx(34.5, abs=0.3) and np.ptp(line[:, 1]) > 20
    # The tables of objects are drawn as those of the functions are.
    with quillon.Region() as region, quillon.NccTool() as tool:
        region.set_polygon(WHOLE)
        region.label(GRAY, 100, 255)
        region.compute_features()
        blobs = region.selected_blobs()
        tool.teach(board()[PART])
        matches = tool.find(scene_, rotate=True, angle_min=10, angle_max=30, max_results=1)
        for table, searched, again in ((blobs, GRAY, region.selected_blobs()),
                                       (matches, scene_, tool.results)):
            assert table.image is again.image is searched
            assert table._repr_html_().count("<polygon") == len(table) > 0
            assert_array_equal(again.outlines(), table.outlines())
    assert_allclose(matches.outlines(), turned.outlines(), atol=1.5)
    whole = blobs[blobs["area"] > 200]
    assert_allclose(whole.outlines().mean(axis=1), np.stack([whole["center_x"], whole["center_y"]], -1),
                    atol=3)
    import matplotlib
    matplotlib.use("Agg")
    axes = turned.plot(board())
    assert len(axes.images) == 1 and len(axes.collections[0].get_paths()) == 1
    del scene_, searched
    assert len(found.plot().images) == 1 and not turned.plot().images
    result = quillon.Recipe(RECIPE).run(image, pictures=True)._repr_html_()
    assert "<b>fail</b>" in result and result.count("<svg") == 2 and "outside" in result


def test_a_template_may_be_a_file(tmp_path):
    cv2.imwrite(str(tmp_path / "part.png"), GRAY[PLACE])
    assert_array_equal(quillon.match(GRAY, tmp_path / "part.png"), quillon.match(GRAY, GRAY[PLACE]))
    with pytest.raises(ValueError, match="none.png"):
        quillon.match(GRAY, str(tmp_path / "none.png"))
    with pytest.raises(TypeError):
        quillon.match(GRAY, 5)


def test_boards_are_inspected_in_memory():
    good = board()
    inspector = quillon.BoardInspector(good)
    assert len(inspector.inspect(good)) == 0 and inspector.tolerance == 3
    assert quillon.BoardInspector([good, good], tolerance=5).tolerance == 5
    defects = inspector.inspect(board([(150, 100, 14, 40), (60, 200, 12, 200)]))
    assert len(defects) >= 1
    spot = defects[defects["extra"] > 50]
    for x, y, _, __ in [(150, 100, 14, 40)]:
        assert ((spot["left"] <= x) & (spot["right"] >= x) & (spot["top"] <= y + 13)).any()
    assert_array_equal(quillon.inspect(board([(150, 100, 14, 40), (60, 200, 12, 200)]), good),
                       defects)
    again = pickle.loads(pickle.dumps(inspector))
    assert_array_equal(again.inspect(board([(150, 100, 14, 40), (60, 200, 12, 200)])), defects)
    with pytest.raises(ValueError, match="tolerance: a whole number from 1 to 12 is wanted"):
        quillon.BoardInspector(good, tolerance=13)


def test_a_recipe_gives_all_that_its_steps_give():
    recipe = quillon.Recipe(RECIPE)
    smooth = quillon.median_3x3(GRAY)
    parts = quillon.blobs(smooth, min_area=50)
    result = recipe.run(COLOR, pictures=True)
    assert recipe.name == "Parts" and result.verdict == "fail"
    assert_array_equal(result.pictures["hue"], quillon.hsi(COLOR, "hue"))
    for layout, lay in LAYOUTS.items():
        result = recipe.run(lay(GRAY), pictures=True)
        assert result.measurements == {"parts": len(parts), "largest": parts["area"].max(),
                                       "nothing": None}, layout
        assert result.verdict == "fail" and result.failed == ["largest"]
        assert_array_equal(result.objects["parts"], parts)
        assert len(result.objects["none"]) == 0 and list(result.objects) == ["parts", "none"]
        assert_array_equal(result.pictures["smooth"], smooth)
    assert recipe.run(GRAY).pictures == {}


def test_a_mask_and_a_polygon_say_what_of_a_template_counts():
    image, template = quillon.rotate_bilinear(board(), 6), board()[PART].copy()
    expected = quillon.find(image, template, angle=(-10, 10), max=1)
    template[:, :8] = np.arange(len(template))[:, None] * 37 % 256
    mask = np.zeros_like(template)
    mask[:, 10:] = 255
    right, bottom = template.shape[1] - 1, template.shape[0] - 1
    polygon = [(10, 0), (right, 0), (right, bottom), (10, bottom)]
    for by in ("edges", "gray"):
        inside = quillon.find(image, template, by=by, mask=mask, angle=(-10, 10), max=1)
        finder = quillon.Finder(template, by=by, polygon=polygon, angle=(-10, 10), max=1)
        assert_array_equal(pickle.loads(pickle.dumps(finder)).find(image), inside)
        assert np.hypot(inside["x"] - expected["x"], inside["y"] - expected["y"]) < 0.2
        assert inside["score"] > quillon.find(image, template, by=by, angle=(-10, 10),
                                              min_score=0.1, max=1)["score"] + 0.03
    with pytest.raises(ValueError, match="its mask"):
        quillon.find(image, template, mask=mask[1:])


def test_a_recipe_of_a_file_finds_what_lies_beside_it(tmp_path):
    steps = [{"name": "found", "operation": "match", "input": "image", "template": "part.png"}]
    recipe = {"name": "Find", "steps": steps,
              "measurements": [{"name": "n", "input": "found", "value": "count", "min": 1}]}
    (tmp_path / "find.json").write_text(json.dumps(recipe))
    with pytest.raises(ValueError, match="step 'found', field 'template': .*part.png"):
        quillon.Recipe(tmp_path / "find.json")
    cv2.imwrite(str(tmp_path / "part.png"), GRAY[PLACE])
    for made in (quillon.Recipe(tmp_path / "find.json"), quillon.Recipe(recipe, folder=tmp_path)):
        result = made.run(GRAY)
        assert result.verdict == "pass"
        assert_array_equal(result.objects["found"], quillon.match(GRAY, GRAY[PLACE]))
        with pytest.raises(ValueError, match="step 'found'|an array"):
            made.run(GRAY[:0])


@pytest.mark.parametrize("change, message", [
    ({"steps": [{"name": "a", "operation": "no", "input": "image"}]}, "'no'"),
    ({"steps": [{"name": "a", "operation": "mean", "input": "image", "size": 4}]}, "odd"),
    ({"extra": 1}, "extra"),
])
def test_what_is_wrong_with_a_recipe_is_said(change, message):
    with pytest.raises(ValueError, match=message):
        quillon.Recipe({**RECIPE, **change})


def test_a_step_that_cannot_be_done_is_an_exception():
    crop = {"name": "part", "operation": "crop", "input": "image", "left": 500, "top": 0,
            "width": 9, "height": 9}
    recipe = quillon.Recipe({"name": "x", "steps": [crop], "measurements": [
        {"name": "m", "input": "part", "value": "mean"}]})
    with pytest.raises(ValueError, match="step 'part': the part to crop ends at column 509"):
        recipe.run(GRAY)


def test_one_recipe_inspects_a_stream_of_frames_on_several_threads():
    recipe = pickle.loads(pickle.dumps(quillon.Recipe(RECIPE)))
    frames = [scene((80 + 8 * n, 120)) for n in range(12)]
    expected = [recipe.run(frame).objects["parts"] for frame in frames]
    taken = []

    def camera(last=None):
        for n in range(last or 10**9):
            taken.append(n)
            yield frames[n % len(frames)]

    for n, result in zip(range(36), recipe.run_all(camera(), 3, ahead=5)):
        assert_array_equal(result.objects["parts"], expected[n % len(frames)])
        assert n <= len(taken) - 1 <= n + 5, "taken before they are wanted"
    assert len(list(recipe.run_all(camera(7), 2))) == 7
    results = recipe.run_all([GRAY, GRAY[:0], GRAY], 2)
    assert next(results).verdict == "fail"
    with pytest.raises(ValueError, match="image: an array with pixels is wanted"):
        next(results)
    with pytest.raises(ZeroDivisionError):
        list(recipe.run_all(1 // 0 for _ in "x"))
    with pytest.raises(ValueError, match="threads: a number above 0 is wanted, this is 0"):
        recipe.run_all([], 0)


def test_a_result_comes_out_while_the_next_frame_is_waited_for():
    is_known = threading.Event()

    def camera():
        yield GRAY
        assert is_known.wait(60)
        yield GRAY

    results = quillon.Recipe(RECIPE).run_all(camera(), 2)
    next(results)
    is_known.set()
    assert len(list(results)) == 1
