"""A camera fitted to drawn chessboards is the one that they were drawn with; its files, and those of its
uneven light, are those of the command."""

import os
import pickle
import subprocess
from pathlib import Path

import cv2
import numpy as np
import pytest
import quillon
from numpy.testing import assert_allclose, assert_array_equal

COMMAND = Path(os.environ["QUILLON_BUILD"]) / "src" / "quillon"
LENS = np.array([[520, 0, 203], [0, 516, 148], [0, 0, 1]], float)
PLACES = [((0.1, -0.1, 0.1), (-4, -3, 16)), ((0.5, 0.1, -0.2), (-4, -2.8, 17)),
          ((-0.1, 0.5, 0.1), (-3.8, -3.1, 17)), ((-0.3, -0.3, 0.3), (-3.7, -3.5, 18))]
ACROSS, DOWN, SIDE = 9, 7, 32


def view(rotation, shift):
    """A board of 9 x 7 inner corners before the camera."""
    rows, columns = np.indices(((DOWN + 1) * SIDE, (ACROSS + 1) * SIDE)) // SIDE
    flat = np.pad(np.where((rows + columns) % 2, 210, 30).astype(np.uint8), SIDE, constant_values=210)
    # From pixels of the flat picture to squares from the first inner corner.
    squares = np.array([[1 / SIDE, 0, -2 + 0.5 / SIDE], [0, 1 / SIDE, -2 + 0.5 / SIDE], [0, 0, 1]])
    turn = cv2.Rodrigues(np.array(rotation, float))[0]
    seen = LENS @ np.column_stack([turn[:, 0], turn[:, 1], shift]) @ squares
    picture = cv2.warpPerspective(flat, seen, (400, 300), flags=cv2.INTER_AREA, borderValue=210)
    return cv2.GaussianBlur(picture, (5, 5), 1)


@pytest.fixture(scope="module")
def views():
    return [view(*place) for place in PLACES]


@pytest.fixture(scope="module")
def camera(views):
    return quillon.Calibration.from_chessboard(views, square=5.0)


def corners_of(place):
    turned, shift = (np.array(part, float) for part in place)
    return cv2.projectPoints(np.array([[x, y, 0] for y in range(DOWN) for x in range(ACROSS)], float),
                             turned, shift, LENS, None)[0].reshape(-1, 2)


def test_a_camera_is_the_one_that_was_drawn(camera):
    assert camera.rms < 0.1 and camera.worst < 0.4 and camera.shape == (300, 400)
    assert_allclose(camera.matrix, LENS, atol=3)
    assert len(camera.views) == len(PLACES) and camera.square == 5
    residuals = np.concatenate([np.stack([v.corners["residual_x"], v.corners["residual_y"]], -1)
                                for v in camera.views])
    assert np.sqrt((residuals ** 2).sum(-1).mean()) == pytest.approx(camera.rms)
    for found, place in zip(camera.views, PLACES):
        assert_allclose(np.stack([found.corners["x"], found.corners["y"]], -1), corners_of(place),
                        atol=0.15)
    # The corners of the board in the plane are 5 mm from each other, from the first on.
    grid = 5.0 * np.array([[x, y] for y in range(DOWN) for x in range(ACROSS)])
    assert_allclose(camera.to_millimeters(corners_of(PLACES[0])), grid, atol=0.03)
    assert_allclose(camera.to_pixels(grid), corners_of(PLACES[0]), atol=0.15)
    assert_allclose(camera.to_millimeters(camera.to_pixels((12.5, 7))), (12.5, 7), atol=1e-6)
    # And in a flat picture of another view's plane, squares have the length of the scale.
    other = quillon.Calibration.from_chessboard([view(*place) for place in PLACES], square=5.0,
                                                board=(ACROSS, DOWN), plane=2)
    flat = other.rectify(view(*PLACES[2]))
    found, places = cv2.findChessboardCorners(flat, (ACROSS, DOWN))
    rows = places.reshape(DOWN, ACROSS, 2)
    steps = np.hypot(*np.moveaxis(np.diff(rows, axis=1), -1, 0)) * other.mm_per_pixel
    assert found and steps.mean() == pytest.approx(5, abs=0.01)


def test_a_camera_file_is_that_of_the_command(camera, views, tmp_path):
    names = [tmp_path / f"{n}.png" for n in range(len(views))]
    for name, picture in zip(names, views):
        cv2.imwrite(str(name), picture)
    subprocess.run([COMMAND, "calibrate", tmp_path / "command.json", *names, "--board",
                    str(ACROSS), str(DOWN), "--square", "5"], check=True, capture_output=True)
    file = tmp_path / "camera.json"
    for images in (views, names):
        quillon.Calibration.from_chessboard(images, 5).save(file)
        assert file.read_bytes() == (tmp_path / "command.json").read_bytes()
    color = quillon.Calibration.from_chessboard([np.dstack([picture] * 3) for picture in views], 5)
    assert_allclose(color.matrix, camera.matrix, atol=0.5)
    flat = quillon.rectify(views[1], file)
    for one in (camera, quillon.Calibration.load(file), pickle.loads(pickle.dumps(camera))):
        assert_array_equal(one.rectify(views[1]), flat)
        assert_array_equal(one.views[1].corners, camera.views[1].corners)
        assert repr(one) == repr(camera)


def test_a_shading_file_is_that_of_the_command(tmp_path):
    random = np.random.default_rng(5)
    dark = [random.integers(4, 9, (30, 40), np.uint8) for _ in range(3)]
    white = [random.integers(150, 200, (30, 40), np.uint8) for _ in range(2)]
    for picture in white:
        picture[7, 11] = 10
    names = {"dark": [], "white": []}
    for kind, pictures in (("dark", dark), ("white", white)):
        for n, picture in enumerate(pictures):
            names[kind].append(tmp_path / f"{kind}{n}.png")
            cv2.imwrite(str(names[kind][-1]), picture)
    command, file = tmp_path / "command", tmp_path / "python"
    for options in ({}, {"target": 210, "max_dead": 1}):
        subprocess.run([COMMAND, "calibrate-shading", command, "--dark", *names["dark"], "--white",
                        *names["white"], *(part for name, value in options.items() for part in
                                           ("--" + name.replace("_", "-"), str(value)))],
                       check=True, capture_output=True)
        for darks, whites in ((dark, white), (names["dark"], names["white"])):
            dead = quillon.calibrate_shading(file, darks, whites, **options)
            assert file.read_bytes() == command.read_bytes()
            assert dead[["x", "y", "white"]].tolist() == [(11, 7, 10)]
            assert dead["dark"][0] == pytest.approx(np.mean([one[7, 11] for one in dark]), abs=1 / 256)
    assert abs(float(quillon.shading(white[0], file).mean()) - 210) < 10
    before = file.read_bytes()
    fit = quillon.calibrate_shading
    for work, error, words in [
            (lambda: fit(file, dark[0], white), TypeError, "dark: a list of pictures is wanted"),
            (lambda: fit(file, dark, []), ValueError, "white: a list of pictures is wanted, this is empty"),
            (lambda: fit(file, dark, white, target=256), ValueError, "target: a number from 1 to 255"),
            (lambda: fit(file, dark, white, target=0), ValueError, "target: a number from 1 to 255"),
            (lambda: fit(file, dark, white, max_dead=0), ValueError, "dead"),
            (lambda: fit(file, dark, white, max_dead=-1), ValueError, "max_dead: a number from 0"),
            (lambda: fit(file, dark, [white[0], white[1][1:]]), ValueError, "white\\[1\\]"),
            (lambda: fit(file, white, dark), ValueError, "bright"),
            (lambda: fit(tmp_path / "no" / "file", dark, white), ValueError, "there is no folder")]:
        with pytest.raises(error, match=words):
            work()
    assert file.read_bytes() == before


def test_a_camera_shows_its_residuals(camera):
    assert repr(camera).startswith("<quillon.Calibration of 400 x 300 pixels, 4 views, RMS 0.0")
    shown = camera._repr_html_()
    assert shown.count("<title>") == len(PLACES) * ACROSS * DOWN and shown.count("<tr>") == 5
    import matplotlib
    matplotlib.use("Agg")
    axes = camera.plot()
    assert len(axes.collections) == len(PLACES) and axes.get_ylim() == (299.5, -0.5)


def test_what_is_no_camera_is_refused_with_a_reason(camera, views, tmp_path):
    fit = quillon.Calibration.from_chessboard
    blank = np.zeros((300, 400), np.uint8)
    (tmp_path / "other.json").write_text('{"kind": "recipe"}')
    for work, error, words in [
            (lambda: fit(views[0], 5), TypeError, "images: a list of pictures is wanted, this is an array"),
            (lambda: fit([], 5), ValueError, "images: a list of pictures is wanted, this is empty"),
            (lambda: fit(views, 0), ValueError, "square: a number from 1e-06 to 1e\\+06"),
            (lambda: fit(views, "5"), TypeError, "square: a number is wanted, this is '5'"),
            (lambda: fit(views, 5, board=(2, 7)), ValueError, "board: a number from 3 to 1000 is wanted"),
            (lambda: fit(views, 5, board=9), TypeError, "board: a pair of whole numbers"),
            (lambda: fit(views, 5, plane=4), ValueError, "plane: a number from 0 to 3 is wanted"),
            (lambda: fit(views, 5, max_rms=1e-3), ValueError, "beyond the limit of 0.001; the worst"),
            (lambda: fit([views[0], blank], 5), ValueError, "'images\\[1\\]' shows 0 corners of a board;"),
            (lambda: fit([views[0], views[1][1:]], 5), ValueError, "400 x 300"),
            (lambda: fit([views[0], None], 5), TypeError, "images\\[1\\]: "),
            (lambda: camera.rectify(blank[1:]), ValueError, "400 x 300"),
            (lambda: camera.to_millimeters([1, 2, 3]), TypeError, "points: an array of numbers of shape"),
            (lambda: camera.to_millimeters((1e6, 0)), ValueError, "not seen at \\(1"),
            (lambda: quillon.Calibration.load(tmp_path / "other.json"), ValueError, "no camera file"),
            (lambda: quillon.Calibration.load(tmp_path / "none.json"), ValueError, "none.json"),
            (lambda: quillon.Calibration("{}"), ValueError, "'camera' is no camera file")]:
        with pytest.raises(error, match=words):
            work()
