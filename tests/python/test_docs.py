"""The page about the package: every snippet runs, in order, on pictures of known content."""

import re
from pathlib import Path
from types import SimpleNamespace

import cv2
import numpy as np
import pandas
import pytest
import quillon
from quillon import samples
from test_camera import PLACES, view

PAGE = (Path(__file__).parents[2] / "docs" / "python.md").read_text()
SNIPPETS = re.findall(r"^```python\n(.*?)^```", PAGE, re.MULTILINE | re.DOTALL)
RECIPE = """{"name": "Coins", "steps": [
  {"name": "coins", "operation": "blobs", "input": "image", "band": [100, 255], "min_area": 200},
  {"name": "edges", "operation": "sobel", "input": "image"}],
  "measurements": [{"name": "coins", "input": "coins", "value": "count"}]}"""


class Spark:
    """As much of Spark as hands pandas frames to a function."""

    read = property(lambda self: self)
    format = select = load = lambda self, *_: self

    def mapInPandas(self, function, schema):
        frame = pandas.DataFrame({"path": ["part.png"], "content": [Path("part.png").read_bytes()]})
        result, = function([frame])
        assert [column.split()[0].strip("`") for column in schema.split(", ")] == list(result.columns)
        return result


@pytest.fixture(scope="module")
def run(tmp_path_factory):
    """The names that all snippets left, and what they printed."""
    folder = tmp_path_factory.mktemp("docs")
    tray, parts = samples.tray()
    part = parts[parts["kind"] == "bracket"][0]  # as it lies
    template = quillon.gray(tray)[part["top"]:part["bottom"], part["left"]:part["right"]]
    names = {"template": template, "spark": Spark(), "printed": [],
             "images": [view(*place) for place in PLACES], "camera": [quillon.gray(tray)] * 3,
             "dark_images": [np.full((300, 400), 5, np.uint8)],
             "white_images": [np.full((300, 400), 200, np.uint8)]}
    for name, seed, defects in (("good", 1, 0), ("another", 1, 0), ("tested", 1, 4)):
        names[name] = 255 - samples.board(seed, defects=defects, x=float(name == "another"))[0]
    names["print"] = lambda *values: names["printed"].append(values)
    with pytest.MonkeyPatch.context() as patch:
        patch.chdir(folder)
        cv2.imwrite("part.png", tray)
        Path("count.json").write_text(RECIPE)
        for snippet in SNIPPETS:
            exec(compile(snippet, "docs/python.md", "exec"), names)
    return SimpleNamespace(**names)


def test_every_snippet_does_what_the_page_says(run):
    assert len(SNIPPETS) >= 8
    printed = [value for values in run.printed for value in values]
    assert run.finder.find(run.gray)[0]["score"] > 0.99, "the bracket where it was cut out"
    verdicts = [value for value in printed if isinstance(value, str) and value in ("pass", "fail")]
    assert len(verdicts) == 1 + 3, "the recipe, and each frame of the camera"
    assert run.table["verdict"].tolist() == ["pass"]
    defects = [row for row in run.printed if len(row) == 4 and isinstance(row[0], np.integer)]
    assert 3 <= len(defects) <= 4, "four were drawn"
    assert run.flat.shape == (300, 400) and run.edges.shape == run.image.shape[:2]
    assert len(run.dead) == 0 and np.array_equal(run.even, view(*PLACES[0]).clip(5) - 5), "less the dark"
    places = next(value for value in printed if np.shape(value) == (2, 2))
    assert 5 < np.hypot(*(places[1] - places[0])) < 20, "80 pixels, in millimeters"
