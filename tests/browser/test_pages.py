"""The pages of runs and reports, as they behave in a browser."""
import json
import os
import shutil

import cv2
import numpy as np
import pytest
from browser import Browser

ROWS, IMAGES = 5400, 10000
COUNT = {"name": "Grains", "steps": [
    {"name": "even", "operation": "median-3x3", "input": "image"},
    {"name": "bright", "operation": "threshold", "input": "even", "above": 120},
    {"name": "grains", "operation": "blobs", "input": "bright", "min_area": 4, "max_area": 100000},
    {"name": "large ones", "operation": "blobs", "input": "bright", "min_area": 90, "max_area": 100000}],
    "measurements": [{"name": "grains", "input": "grains", "value": "count", "min": 30},
                     {"name": "largest", "input": "grains", "value": "area", "which": "largest", "max": 100}]}


def grains(count, width, height, seed=1):
    """A photograph's stand-in: noise, and ellipses on a lattice."""
    rng = np.random.default_rng(seed)
    picture = np.full((height, width), 70, np.float32)
    columns = int(np.ceil(np.sqrt(count * width / height)))
    step = width / columns
    for i in range(count):
        centre = (int((i % columns + 0.5) * step), int((i // columns + 0.5) * step))
        cv2.ellipse(picture, centre, (int(rng.integers(3, 9)), int(rng.integers(3, 9))), 0, 0, 360, 190, -1)
    return np.clip(picture + rng.normal(0, 5, picture.shape), 0, 255).astype(np.uint8)


@pytest.fixture(scope="module")
def job(tmp_path_factory, quillon):
    """A recipe, some pictures with nasty names, and a run over them."""
    folder = tmp_path_factory.mktemp("job")
    (folder / "recipe.json").write_text(json.dumps(COUNT | {"note": "<b>note</b> " + "long" * 60}))
    images = folder / "images"
    images.mkdir()
    names = ["plain", "=1+1", "<img src=x onerror=hacked=1>", "</script><script>hacked=1</script>", "x" * 200,
             "a\u202egnp.exe", "bell\x07 \x1b[31m", "b&amp;'\"c"]
    for i, name in enumerate(names):
        cv2.imwrite(str(folder / "picture.png"), grains(40, 640, 480, i))
        os.replace(folder / "picture.png", images / (name.replace("/", "\u2215") + ".png"))
    (images / "unreadable.png").write_text("no picture")
    quillon("run", folder / "recipe.json", images, "--out", folder / "out")
    return folder


@pytest.fixture(scope="module")
def many(tmp_path_factory, quillon):
    """The index of a run over ten thousand images, of which one was inspected."""
    folder = tmp_path_factory.mktemp("many")
    recipe, images, out = folder / "recipe.json", folder / "images", folder / "out"
    recipe.write_text(json.dumps(COUNT))
    images.mkdir()
    cv2.imwrite(str(images / "part-00000.png"), grains(40, 640, 480))
    quillon("run", recipe, images, "--out", out)
    rng = np.random.default_rng(2)
    [page], [thumbnail] = out.glob("pages/*.html"), out.glob("thumbs/*.jpg")
    with open(out / "results.jsonl", "a", encoding="utf-8") as results:
        for i in range(1, IMAGES):
            name = images / f"part-{i:05}.png"
            name.touch()
            values = {"grains": int(rng.integers(28, 50)), "largest": int(rng.integers(60, 103))}
            failed = [key for key, bad in (("grains", values["grains"] < 30), ("largest", values["largest"] > 100)) if bad]
            if failed:
                os.link(page, out / f"pages/{i + 1:04}-part-{i:05}.html")
                os.link(thumbnail, out / f"thumbs/{i + 1:04}.jpg")
            results.write(json.dumps({"image": name.as_posix(), "verdict": "fail" if failed else "pass",
                                      "measurements": values, "failed": failed}) + "\n")
    return out / "index.html", quillon("run", recipe, images, "--out", out, "--resume", "--csv")


def test_an_index_of_ten_thousand_images(window, many):
    index, csv = many
    times = []
    for _ in range(2):
        window.open(index)
        times.append(window.run("return performance.getEntriesByType('navigation')[0].loadEventEnd"))
    print(f"opened in {min(times):.0f} ms")
    assert min(times) < 2000
    rows = [line.split(",") for line in csv.splitlines()[1:]]
    failed = [row for row in rows if row[1] == "fail"]
    names = lambda: [name.removesuffix(".png") for name in window.texts(".card .name")]  # noqa: E731
    name_of = lambda row: row[0].split("/")[-1].removesuffix(".png")  # noqa: E731
    assert names() == [name_of(row) for row in failed[:60]]
    assert window.texts(".pager span")[0] == f"1 to 60 of {IMAGES}"
    window.click("button[aria-label='Last page']")
    assert names()[-1] == f"part-{IMAGES - 1:05}" and len(names()) == IMAGES % 60
    window.run("""const field = document.querySelector('[type=search]');
        field.value = 'PART -0123'; field.dispatchEvent(new Event('input'))""")
    assert sorted(names()) == [f"part-{i:05}" for i in range(1230, 1240)]
    window.click("[data-filter=pass]")
    assert window.texts(".card .verdict") == ["Pass"] * len([row for row in rows[1230:1240] if row[1] == "pass"])

    # Where one is led back to, from the page of an image, and by a bar of the histogram.
    window.open(index, "#sort=value1&down=1")
    largest = sorted((int(row[3]) for row in rows), reverse=True)[:3]
    assert window.texts(".card dl div:nth-child(2) dd")[:3] == [str(area) for area in largest]
    window.click(".card")
    assert "/pages/" in window.driver.current_url
    window.driver.back()
    assert window.run("return document.querySelector('select').value") == "value1"
    bar = window.find(".histogram[data-measurement='0'] .bin")[0]
    assert window.run("return arguments[0].querySelector('rect:nth-of-type(2)').getAttribute('class')", bar) == "fail"
    window.click("a.card")
    window.driver.back()
    window.run("document.querySelector('.bin').focus()")
    window.keys(".bin", "ENTER")
    assert set(window.texts(".card dl div:first-child dd")) == {"28"}
    assert window.saved(".csv button:last-child") == csv
    assert window.problems() == []


def test_a_page_of_thousands_of_rows(window, tmp_path, quillon):
    cv2.imwrite(str(tmp_path / "grains.png"), grains(ROWS, 2400, 1800))
    (tmp_path / "recipe.json").write_text(json.dumps(COUNT))
    csv = quillon("run", tmp_path / "recipe.json", tmp_path / "grains.png", "--out", tmp_path / "out", "--objects", "--csv")
    [page] = (tmp_path / "out/pages").iterdir()
    assert page.stat().st_size < 8e6
    window.open(page)
    [heading] = window.texts(".tools b")
    rows = int(heading.split()[0])
    assert rows > ROWS
    saved = window.saved(".tools button:last-child")
    assert saved.splitlines() == [line.split(",", 1)[1] for line in csv.split("\n\n")[1].splitlines()]
    assert window.run("return document.querySelectorAll('tbody tr').length") < 120

    # No pause is longer than a tenth of a second, nor is one while the page opens.
    tasks, traced = [], Browser(tmp_path, traced=True)
    for _ in range(3):
        traced.open(page)
        for _ in range(20):  # the drawings come in several frames
            traced.settle()
        tasks.append(traced.longest_task())
    traced.close()
    print("milliseconds of the longest task of opening:", [round(task) for task in tasks])
    assert 1 < sorted(tasks)[1] < 80
    rounds = []  # of which the best counts
    for _ in range(3):
        rounds.append({})
        window.open(page)
        x, y = window.run("const box = document.querySelector('figure:not([hidden]) .frame').getBoundingClientRect();"
                          "return [box.left + box.width / 2, box.top + box.height / 2]")
        actions = {"scrolling": lambda: window.run("document.querySelector('.table').scrollTop = 40000"),
                   "sorting": lambda: window.click("th:nth-child(3) button"),
                   "a row": lambda: window.click("tbody tr:nth-child(6)"),
                   "fitting": lambda: window.click("[data-zoom=fit]"),
                   "pointing": lambda: window.mouse("mouseMoved", x, y),
                   "the wheel": lambda: window.mouse("mouseWheel", x, y, deltaX=0, deltaY=-120),
                   "pressing": lambda: window.mouse("mousePressed", x, y, button="left", clickCount=1),
                   "moving": lambda: window.mouse("mouseMoved", x + 50, y + 30, button="left", buttons=1),
                   "numbers": lambda: window.click("[data-layer='3']")}
        rounds[-1] |= {name: window.work_for(act) for name, act in actions.items()}
    least = {name: round(min(each[name] for each in rounds)) for name in rounds[0]}
    print("milliseconds of work:", least)
    assert max(least.values()) < 100, least
    assert window.problems() == []


# What is painted over the picture that is seen.
PAINTED = """const canvas = document.querySelector('figure:not([hidden]) canvas');
const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
return data.filter((_, i) => i % 4 === 3).filter(Boolean).length"""
ZOOM = "return parseFloat(document.querySelector('.zoom output').textContent)"


def test_steps_zoom_and_keyboard(window, job):
    [page] = (job / "out/pages").glob("*-plain.html")
    window.open(page)
    captions = window.texts(".strip span")
    assert captions[:3] == ["Image", "even", "bright"] and len(captions) == 5
    seen = {}
    for button, caption in zip(window.find(".strip button"), captions):
        window.click(button)
        seen[caption] = window.run(PAINTED), len([box for box in window.find(".toolbar label") if box.is_displayed()])
    assert [painted > 0 for painted, _ in seen.values()] == [False] * 3 + [True] * 2
    assert [shown for _, shown in seen.values()] == [0, 0, 0, 5, 5], "layers of what is seen, and the image behind"
    assert seen[captions[3]][0] > seen[captions[4]][0]
    source = "return document.querySelector('figure:not([hidden]) img').src"
    own = window.run(source)
    window.click("[data-ground]")
    assert window.run(source) != own
    window.keys(".strip button:last-child", "ARROW_LEFT")
    assert window.texts(".strip [aria-pressed=true] span") == [captions[3]]
    window.click("[data-layer='0']")
    assert 0 < window.run(PAINTED) < seen[captions[3]][0]

    # Wheel, buttons, keys, and a drag over a part of the picture.
    x, y, side = window.run("const box = document.querySelector('figure:not([hidden]) .frame').getBoundingClientRect();"
                            "return [box.left + box.width / 2, box.top + box.height / 2, box.height]")
    fit = window.run(ZOOM)
    window.mouse("mouseWheel", x, y, deltaX=0, deltaY=-200)
    assert window.run(ZOOM) > 1.3 * fit
    window.click("[data-zoom='1']")
    assert window.run(ZOOM) == 100
    window.click("[data-zoom=fit]")
    assert window.run(ZOOM) == fit
    window.keys("figure:not([hidden]) .frame", "+")
    assert window.run(ZOOM) > 1.3 * fit
    window.keys("figure:not([hidden]) .frame", "0")
    window.drag((x - side / 8, y - side / 8), (x + side / 8, y + side / 8))
    assert window.run(ZOOM) == pytest.approx(4 * fit, rel=0.1)
    before = window.run("return document.querySelector('figure:not([hidden]) img').style.transform")
    window.drag((x, y), (x - 50, y - 50))
    assert window.run("return document.querySelector('figure:not([hidden]) img').style.transform") != before
    window.click("[data-zoom=fit]")

    # A row by keyboard comes into view, on the picture of its step; a click on the picture picks its row.
    window.keys(".table", "END", "ENTER")
    assert window.texts("tr.pinned td:first-child") == ["large ones"]
    assert window.texts(".strip [aria-pressed=true] span") == [captions[4]]
    assert window.run(ZOOM) > 2 * fit
    window.click("[data-zoom=fit]")
    place = window.run("""const [head, ...rows] = document.getElementById('csv').textContent.trim().split('\\n').map((row) => row.split(','));
        const [, , , x, y] = rows.findLast(([step]) => step === 'grains');
        const [width, height, left, top] = arguments;
        return [left + (+x + 0.5) * width / 640, top + (+y + 0.5) * height / 480]""", *window.run(
        "const {width, height, left, top} = document.querySelector('figure:not([hidden]) img').getBoundingClientRect();"
        "return [width, height, left, top]"))
    window.click(window.find(".strip button")[3])
    window.mouse("mousePressed", *place, button="left", clickCount=1)
    window.mouse("mouseReleased", *place, button="left", clickCount=1)
    assert window.texts("tr.pinned td:nth-child(-n + 2)") == ["grains", "39"]
    window.keys(".table", "HOME", "ARROW_DOWN", "ENTER")
    assert window.texts("tr.pinned td:nth-child(2)") == ["1"]
    window.keys(".table", "ESCAPE")
    assert window.find("tr.pinned, tr.on") == []
    window.click("th:nth-child(3) button")
    areas = [int(text) for text in window.texts("tbody tr[data-row] td:nth-child(3)")]
    assert len(areas) > 9 and areas == sorted(areas)
    window.run("const choice = document.querySelector('.tools select'); choice.value = 1;"
               "choice.dispatchEvent(new Event('change'))")
    assert set(window.texts("tbody tr[data-row] td:first-child")) == {"large ones"}
    assert window.problems() == []


def test_any_name_at_any_width(window, job, quillon):
    first = job / "images/=1+1.png"
    quillon("blobs", first, "--report", job / "report.html")
    pages = [job / "out/index.html", job / "report.html", *sorted((job / "out/pages").iterdir())]
    assert len(pages) == 10
    for page in pages:
        for width in (390, 3840) if page.name in ("index.html", "report.html") else (390,):
            window.shape(width, 1200, "dark")
            window.open(page)
            assert window.run("return document.documentElement.scrollWidth") <= width, page.name
            assert window.run("return typeof hacked") == "undefined"
            assert window.problems() == [], page.name
    window.shape(1280, 900)
    window.open(job / "out/index.html")
    names = window.texts(".card .name")
    assert "<img src=x onerror=hacked=1>.png" in names and "bell\\x07 \\x1b[31m.png" in names and "x" * 200 + ".png" in names
    cells = window.saved(".csv button:last-child")
    assert "onerror" in cells and "\x1b" not in cells
    shutil.copy(first, job / "=2.png")
    recipe = COUNT | {"name": "-x", "steps": [{**step, "name": step["name"].replace("grains", "=grains")} for step in COUNT["steps"]],
                      "measurements": [{"name": "n", "input": "=grains", "value": "count"}]}
    (job / "formula.json").write_text(json.dumps(recipe))
    quillon("run", job / "formula.json", job / "=2.png", "--out", job / "formula")
    window.open(next((job / "formula/pages").iterdir()))
    assert window.saved(".tools button:last-child").splitlines()[1].startswith("\"'=grains\",0,")
    assert window.texts("tbody tr[data-row] td:first-child")[0] == "=grains"
