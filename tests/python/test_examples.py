"""Every example runs, prints what it found and writes its picture."""

import os
import re
import subprocess
import sys
from pathlib import Path

import cv2
import pytest

EXAMPLES = Path(__file__).parents[2] / "python" / "examples"
# What each must say: numbers in brackets are held to the truth of its drawing.
FOUND = {
    "count_parts": (r"(12) parts", [12], 0),
    "find_pattern": (r"angle ([-\d.]+)  scale ([\d.]+)  score (\S+)", [17, 1.1, 1], 0.05),
    "find_outline": (r"x (\d+)  y (\d+)  angle (\S+)", [230, 160, -20], 1),
    "correct_lens": (r"rectangle \((\d+), (\d+), (\d+), (\d+)\)", [32, 480, 32, 480], 0),
    "filters": (r"wrote", [], 0),
}


def test_all_examples_are_known():
    assert {path.stem for path in EXAMPLES.glob("*.py")} == {*FOUND, "pictures"}


@pytest.mark.parametrize("name", FOUND)
def test_an_example_finds_what_it_drew(name, tmp_path):
    pattern, truth, tolerance = FOUND[name]
    # From another folder: examples find what they share by themselves.
    printed = subprocess.run([sys.executable, EXAMPLES / f"{name}.py", "--out", tmp_path],
                             cwd=tmp_path, env=os.environ, check=True, text=True,
                             stdout=subprocess.PIPE).stdout
    found = re.search(pattern, printed)
    assert found, printed
    assert [float(number) for number in found.groups()] == pytest.approx(truth, abs=tolerance)
    picture = cv2.imread(str(tmp_path / f"{name}.png"))
    assert picture.shape[0] >= 200 and picture.std() > 5
