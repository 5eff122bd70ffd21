"""Template matching gives what the C exports give on the same steps."""

import ctypes
import threading

import numpy as np
import pytest
import quillon
from c_library import Image, call
from numpy.testing import assert_array_equal
from pictures import LAYOUTS, picture, scene

PLACE = slice(3, 43), slice(8, 56)  # of the template in the scene
KINDS = {"gray": (scene(), "", "Gray"), "color": (scene(color=True), "Color", "Color")}


def model_and_tool(template, kind, use_mask=False):
    """The same template taught to a tool of the C library and to one of the module."""
    tool = ctypes.c_void_p(call("IxCreateNCCTool", returns=ctypes.c_void_p))
    assert call(f"IxCreateNCCMatch{kind}Model", Image(template), tool, use_mask,
                returns=ctypes.c_bool)
    python = quillon.NccTool()
    python.teach(template, use_mask)
    return tool, python


def c_find(tool, kind, image, *arguments, dtype):
    count = call(f"IxFindNCCMatch{kind}Model", Image(image), tool, *arguments, returns=ctypes.c_int)
    results = np.zeros(count, dtype)
    for index in range(count):
        assert call("IxGetNCCMatchResults", tool, index, results[index:], returns=ctypes.c_bool)
    return results


@pytest.mark.parametrize("layout", LAYOUTS)
@pytest.mark.parametrize("kind", KINDS)
@pytest.mark.parametrize("use_mask", [False, True])
def test_correlation_finds_what_the_exports_find(kind, use_mask, layout):
    image, name, level_name = KINDS[kind]
    template = image[PLACE].copy()
    if use_mask:
        template[picture(image.shape[:2])[PLACE] < 30] = 0
    c_tool, tool = model_and_tool(template, name, use_mask)
    with tool:
        assert tool.default_level == call("IxGet_DefaultPyramidLevel", c_tool,
                                          returns=ctypes.c_int) > 0
        for level in range(tool.default_level + 1):
            expected = Image(color=image.ndim == 3)
            call(f"IxGet_Pyramid_{level_name}Image", c_tool, expected, level)
            assert_array_equal(tool.level_image(level), expected.pixels())
            call("IxSetPyramidLevel", c_tool, level)
            tool.current_level = level
            assert tool.current_level == level
            found = tool.find(LAYOUTS[layout](image), 0.5, rotate=True, angle_min=-5,
                              angle_max=5, scale_min=0.9, scale_max=1.1, max_results=3)
            expected = c_find(c_tool, name, image, 0.5, 5.0, -5.0, 1.1, 0.9, True, 3,
                              dtype=found.dtype)
            assert_array_equal(found, expected)
            assert_array_equal(tool.results, found)
        assert len(found) > 0 and abs(found[0]["x"] - 31.5) < 1 and abs(found[0]["y"] - 22.5) < 1
    call("IxDestroyNCCModel", c_tool)


def test_one_position_is_scored_as_by_the_exports():
    image = KINDS["color"][0]
    template, other = image[:40, :50], image[30:70, 40:90]
    c_tool = ctypes.c_void_p(call("IxCreateNCCTool", returns=ctypes.c_void_p))
    call("IxCreateNCCMatchColorModel_ROI", Image(template), c_tool, returns=ctypes.c_bool)
    with quillon.NccTool() as tool:
        tool.teach_roi(template)
        for window in (template, other):
            assert tool.correlate(window) == call(
                "IxFindNCCMatchColorModel_ROI", Image(window), c_tool, returns=ctypes.c_double)
    call("IxDestroyNCCModel", c_tool)


@pytest.mark.parametrize("layout", LAYOUTS)
def test_edges_are_found_as_by_the_exports(layout):
    image = scene()
    c_tool = ctypes.c_void_p(call("IxCreateGeoTool", returns=ctypes.c_void_p))
    call("IxCreateGeoMatchModel", Image(image[PLACE]), c_tool, 60.0, 20.0, returns=ctypes.c_bool)
    turned = quillon.rotate_bilinear(image, 7.0)
    with quillon.GeoMatchTool() as tool:
        tool.teach(LAYOUTS[layout](image[PLACE]), 60, 20)
        for picture_, search in ((image, False), (turned, False), (turned, True)):
            position = np.array([5, 6], np.int32)
            angle = call("IxFindGeoMatchModel", Image(picture_), c_tool, 0.6, 0.3, position,
                         30.0, -40.0, int(search), returns=ctypes.c_double)
            assert tool.find(LAYOUTS[layout](picture_), 0.6, 0.3, angle_search=search,
                             lowest_angle=-40, highest_angle=30,
                             position=(5, 6)) == (*position, angle)
        assert tool.find(image)[:2] == (32, 23)
        nothing = tool.find(np.zeros((90, 90), np.uint8), position=(5, 6))
        assert nothing == (5, 6, 0)
        check_model(tool.model, c_tool)
    call("IxDestroyMatchModel", c_tool)


class GeoLevel(ctypes.Structure):
    _fields_ = [("count", ctypes.c_int32),
                *((name, ctypes.c_void_p) for name in (
                    "x", "y", "gradient_x", "gradient_y", "inverse_magnitude")),
                *((name, ctypes.c_int32) for name in (
                    "width", "height", "reference_x", "reference_y")),
                ("radius", ctypes.c_double)]


def check_model(model, c_tool):
    level = ctypes.POINTER(ctypes.POINTER(GeoLevel)).from_buffer(c_tool).contents.contents
    assert level.count == len(model.points) > 20
    for field in model.points.dtype.names:
        kind = ctypes.c_double if field == "inverse_magnitude" else ctypes.c_int32
        expected = (kind * level.count).from_address(getattr(level, field))
        assert_array_equal(model.points[field], expected)
    assert (model.width, model.height, *model.reference, model.radius) == (
        level.width, level.height, level.reference_x, level.reference_y, level.radius)


GRAY, COLOR = KINDS["gray"][0], KINDS["color"][0]


@pytest.mark.parametrize("use, message", [
    (lambda tool: quillon.NccTool().find(GRAY), "teach() comes first"),
    (lambda tool: quillon.NccTool().level_image(0), "teach() comes first"),
    (lambda tool: quillon.GeoMatchTool().find(GRAY), "teach() comes first"),
    (lambda tool: quillon.GeoMatchTool().model, "teach() comes first"),
    (lambda tool: tool.find(COLOR),
     "image: a gray image is wanted, this is a color one; the template is a gray image"),
    (lambda tool: tool.find(GRAY, angle_min=5, angle_max=4),
     "angle_max: a finite number not below the minimum is wanted, this is 4.000000 with the "
     "minimum 5.000000"),
    (lambda tool: tool.find(GRAY, max_results=0),
     "max_results: a number above 0 is wanted, this is 0"),
    (lambda tool: tool.level_image(9), "level: 0 to 2 is wanted, this is 9"),
    (lambda tool: setattr(tool, "current_level", -1), "level: 0 to 2 is wanted, this is -1"),
    (lambda tool: (tool.teach_roi(COLOR), tool.correlate(COLOR[:, 1:])),
     "image: an array of the template's size, 80 x 120, is wanted, this is one of 80 x 119"),
    (lambda tool: (tool.close(), tool.find(GRAY)), "this NccTool is closed"),
])
def test_what_a_search_lacks_is_said(use, message):
    tool = quillon.NccTool()
    tool.teach(GRAY[PLACE])
    with pytest.raises(ValueError) as caught:
        use(tool)
    assert str(caught.value) == message


def test_one_edge_tool_serves_several_threads():
    tool, found = quillon.GeoMatchTool(), []
    tool.teach(GRAY[PLACE], 60, 20)
    expected = tool.find(GRAY, angle_search=True)
    threads = [threading.Thread(target=lambda: found.append(tool.find(GRAY, angle_search=True)))
               for _ in range(6)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert found == [expected] * 6
