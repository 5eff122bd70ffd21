"""A batch, here or on a cluster, gives what one run of the command gives."""

import io
import json
import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import cv2
import fsspec
import numpy as np
import pandas
import pytest
from cluster import Cluster, Trouble
from numpy.testing import assert_array_equal
from pictures import scene
from quillon import _batch_command, batch

COMMAND = str(Path(os.environ["QUILLON_BUILD"]) / "src" / "quillon")
RECIPE = {
    "name": "Parts",
    "steps": [{"name": "bright", "operation": "threshold", "input": "image", "above": 100},
              {"name": "parts", "operation": "blobs", "input": "bright"},
              {"name": "places", "operation": "match", "input": "image",
               "template": "../templates/part.png", "max": 2}],
    "measurements": [{"name": "parts", "input": "parts", "value": "count", "min": 5},
                     {"name": "score", "input": "places", "value": "score", "which": "largest"}],
}
# More images make the test of the books longer, and no other.
BOOKS = int(os.environ.get("QUILLON_BATCH_IMAGES", 400))


def draw(folder, count):
    """Small images, the later ones with fewer parts."""
    folder.mkdir()
    for n in range(count):
        image = scene((80, 120))
        image[:, 120 - n % 97:] = 20
        cv2.imwrite(str(folder / f"{n:06}.pgm"), image)


@pytest.fixture
def job(tmp_path):
    """A folder with a recipe, the template that it names, and images."""
    (tmp_path / "recipes").mkdir()
    (tmp_path / "templates").mkdir()
    (tmp_path / "recipes" / "parts.json").write_text(json.dumps(RECIPE))
    cv2.imwrite(str(tmp_path / "templates" / "part.png"), scene()[3:43, 8:56])
    draw(tmp_path / "images", 48)
    return tmp_path


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    with Cluster(tmp_path_factory.mktemp("cluster")) as made:
        yield made


def run_here(job, *arguments):
    return subprocess.run([COMMAND, "run", job / "recipes" / "parts.json", *arguments],
                          capture_output=True, text=True)


def run_batch(job, *arguments, **options):
    command = [sys.executable, "-m", "quillon", "batch", job / "recipes" / "parts.json", *arguments]
    return subprocess.run(command, capture_output=True, text=True, timeout=300, **options)


def records_of(text):
    return [json.loads(line) for line in text.splitlines()]


def told_by(finished, *beginnings):
    """What the command itself wrote beside its records; Dask remarks when a machine is slow."""
    return [line for line in finished.stderr.splitlines() if line.startswith(beginnings)]


def files_in(folder):
    return {str(path.relative_to(folder)): path.read_bytes()
            for path in folder.rglob("*") if path.is_file() and path.name[0] != "."}


@pytest.mark.parametrize("on_cluster", [False, True])
def test_the_folder_of_a_batch_is_that_of_a_run(job, cluster, on_cluster):
    where = ["--scheduler", cluster.address, "--chunk", "5"] if on_cluster else []
    images = job / "images"
    (images / "000007.pgm").write_bytes(b"nothing")
    expected = run_here(job, images, "--json", "--objects", "--out", job / "expected")
    made = run_batch(job, images, *where, "--objects", "--out", job / "made")
    assert made.returncode == expected.returncode == 3
    assert records_of(made.stdout) == records_of(expected.stdout)
    assert files_in(job / "made") == files_in(job / "expected") and len(files_in(job / "made")) > 90
    again = run_batch(job, images, *where, "--objects", "--out", job / "made")
    assert again.returncode == 1 and "--resume goes on with it" in again.stderr
    passed = sum(record["verdict"] == "pass" for record in records_of(made.stdout))
    assert told_by(made, str(images), "48 images")[0].startswith(str(images / "000007.pgm") + ": ")
    assert told_by(made, "48 images") == [
        f"48 images: {passed} passed, {47 - passed} failed, 1 not inspected"]

    # Killed in the middle: the first records are there, the last of them half.
    results = job / "made" / "results.jsonl"
    whole = results.read_bytes()
    results.write_bytes(whole[:len(whole) // 2])
    resumed = run_batch(job, images, *where, "--objects", "--csv", "--out", job / "made",
                        "--resume")
    assert files_in(job / "made") == files_in(job / "expected")
    assert resumed.stdout == run_here(job, images, "--csv", "--objects").stdout


def test_a_full_disk_ends_a_batch_and_resume_goes_on(job):
    """The limit on the size of a file stands for the disk: the results do not fit."""
    out = ["--out", job / "made", "--no-pages"]
    limited = ["bash", "-c", 'ulimit -f 4; exec "$@"', "bash"]
    full = subprocess.run([*limited, sys.executable, "-m", "quillon", "batch",
                           job / "recipes" / "parts.json", job / "images", *out],
                          capture_output=True, text=True)
    assert full.returncode == 1 and len(full.stderr.splitlines()) == 1
    assert "results.jsonl" in full.stderr
    run_batch(job, job / "images", *out, "--resume")
    run_here(job, job / "images", "--out", job / "expected", "--no-pages")
    assert files_in(job / "made") == files_in(job / "expected")


def test_a_batch_that_cannot_begin_says_why(job, cluster):
    (job / "recipes" / "bad.json").write_text('{"name": "Bad", "steps": 3}')
    missing = json.dumps(RECIPE).replace("part.png", "none.png")
    (job / "recipes" / "missing.json").write_text(missing)
    for recipe, folder, where, message in [
            ("bad.json", "images", cluster.address, "bad.json"),
            ("missing.json", "images", cluster.address, "none.png"),
            ("none.json", "images", cluster.address, "none.json: there is no such file"),
            ("parts.json", "none", cluster.address, "none: there is no such folder"),
            ("parts.json", "recipes", cluster.address, "there is no image in it"),
            ("parts.json", "images", "nonsense://", "nonsense")]:
        command = [sys.executable, "-m", "quillon", "batch", job / "recipes" / recipe,
                   job / folder, "--scheduler", where]
        finished = subprocess.run(command, capture_output=True, text=True, timeout=300)
        assert finished.returncode == 1 and finished.stdout == "", recipe
        told = told_by(finished, "quillon: ")
        assert len(told) == 1 and message in told[0]
    for chunk, error in ((0, ValueError), (2.5, TypeError)):
        with pytest.raises(error, match="^chunk: "):
            list(batch.run(job / "recipes" / "parts.json", [job / "images"], chunk=chunk))


def test_a_batch_waits_for_workers(job, tmp_path):
    with Cluster(tmp_path, workers=0) as empty:
        said = []

        def say(text):
            said.append(text)
            empty.add_worker()

        work = batch.Batch(job / "recipes" / "parts.json", batch.list_images(job / "images")[:3])
        assert len(list(work.run(empty.address, say=say))) == 3
        assert said == [f"waiting for workers at {empty.address}"]


def test_the_books_balance_whatever_happens_to_workers_and_files(job, tmp_path):
    folder = tmp_path / "many"
    draw(folder, BOOKS)
    expected = records_of(run_here(job, folder, "--json").stdout)
    images = batch.list_images(folder)
    with Cluster(tmp_path, workers=3) as busy:
        trouble, records = Trouble(busy), []
        for record in batch.run(job / "recipes" / "parts.json", images, busy.address, chunk=4,
                                out=tmp_path / "out", pages=False):
            records.append(record)
            if len(records) % max(60, BOOKS // 20) == 30:
                trouble.strike()
            if len(records) % 50 == 1:  # a file that has not had its turn vanishes
                Path(images[-len(records)]).unlink(missing_ok=True)
    assert trouble.killed > 2 and trouble.slowed > 2
    assert [record["image"] for record in records] == images
    gone = 0
    for record, plain in zip(records, expected):
        if record["verdict"] == "unreadable":
            gone += 1
            assert not Path(record["image"]).exists()
        else:
            assert record == plain
    assert 1 <= gone <= len(images) // 50 + 1
    written = (tmp_path / "out" / "results.jsonl").read_text().splitlines()[1:]
    assert [json.loads(line) for line in written] == records


def test_a_script_needs_no_main_guard(job):
    script = job / "script.py"
    script.write_text(f"""import quillon
for record in quillon.batch.run({str(job / 'recipes/parts.json')!r},
                                quillon.batch.list_images({str(job / 'images')!r})):
    print(record["verdict"])
""")
    finished = subprocess.run([sys.executable, script], capture_output=True, text=True)
    assert finished.stderr == "" and len(finished.stdout.splitlines()) == 48
    # With a client of its own it needs one, and is told so: Dask alone tries again without an end.
    script.write_text("""import distributed, quillon, warnings
warnings.simplefilter("ignore")
client = distributed.Client(n_workers=2, dashboard_address=None)
list(quillon.batch.run("parts.json", ["1.png"], client))
""")
    finished = subprocess.run([sys.executable, "-W", "ignore", script], capture_output=True, text=True,
                              timeout=120)
    assert finished.returncode == -signal.SIGTERM and finished.stdout == ""
    assert re.fullmatch("quillon: script.py starts processes where it is read, .* put what it does "
                        "below \"if __name__ == '__main__':\" .*\n", finished.stderr)


def test_recipes_and_images_lie_in_any_store(job, cluster):
    expected = records_of(run_here(job, job / "images", "--json").stdout)
    memory = fsspec.filesystem("memory")
    for path in [*job.glob("recipes/*"), *job.glob("templates/*"), *job.glob("images/*")]:
        memory.pipe(f"/store/{path.relative_to(job)}", path.read_bytes())
    for store, scheduler in (("memory://store", None), (f"file://{job}", cluster.address)):
        images = batch.list_images(f"{store}/images")
        assert len(images) == 48 and all("://" in image for image in images)
        records = list(batch.run(f"{store}/recipes/parts.json", [*images, f"{store}/none.png"],
                                 scheduler))
        assert [{**record, "image": Path(record["image"]).name} for record in records[:-1]] == [
            {**record, "image": Path(record["image"]).name} for record in expected]
        assert records[-1]["verdict"] == "unreadable" and "none.png" in records[-1]["error"]
    with pytest.raises(batch.BatchError, match="^memory://none: there is no such folder"):
        batch.list_images("memory://none")


def test_data_frames_hold_the_same_records(job):
    inspector = batch.FrameInspector(job / "recipes" / "parts.json", objects=True)
    assert inspector.schema == ("path string, verdict string, error string, `m_parts` double, "
                                "`m_score` double, record string")
    images = batch.list_images(job / "images")
    (job / "images" / "000007.pgm").write_bytes(b"nothing")
    by_name = pandas.DataFrame({"path": images})
    by_content = by_name.assign(content=[Path(image).read_bytes() for image in images])
    expected = records_of(run_here(job, *images, "--json", "--objects").stdout)
    for frame in (by_name, by_content):
        parts = list(inspector(iter([frame[:30], frame[30:], frame[:0]])))
        assert [len(part) for part in parts] == [30, 18, 0]
        table = pandas.concat(parts, ignore_index=True)
        assert [json.loads(line) for line in table["record"]] == expected
        assert list(table["verdict"]) == [record["verdict"] for record in expected]
        measured = [record.get("measurements", {}).get("parts", np.nan) for record in expected]
        assert_array_equal(table["m_parts"], np.array(measured, float))
        assert table.dtypes[["m_parts", "m_score"]].tolist() == [float, float]


def test_each_record_is_matched_with_its_image_whatever_it_is_called(job, monkeypatch):
    monkeypatch.chdir(job / "images")
    names = ["--out=zz.pgm", "-x.pgm", "[a].pgm", "a\u2028b.pgm", "a\x85.pgm", "a\nb.pgm",
             "\udcfe.pgm", "\udcff.pgm"]
    for index, name in enumerate(names):
        Path(f"{index + 10:06}.pgm").rename(name)
    names.insert(3, "000000.pgm")
    records = list(batch.run(job / "recipes" / "parts.json", names))
    assert [record["image"] for record in records] == names
    for name, record in zip(names, records):
        line = _batch_command.line_of(record)
        assert line.isascii() and "\n" not in line and record["verdict"] in ("pass", "fail")
        assert json.loads(line).get("image_bytes", os.fsencode(name).hex()) == os.fsencode(name).hex()
    assert len({_batch_command.line_of(record) for record in records}) == len(names)
    assert _batch_command.visible("a\x1b[31m\u2028\udcff") == "a\\x1b[31m\\u2028\\udcff"


def test_the_progress_line_tells_how_far_the_batch_is(monkeypatch):
    clock = iter(np.arange(0.0, 100.0, 2.0))
    monkeypatch.setattr(_batch_command.time, "monotonic", lambda: next(clock))
    terminal = io.StringIO()
    terminal.isatty = lambda: True
    line = _batch_command.ProgressLine(8, terminal)
    for verdict in ("pass", "fail", "unreadable", "error"):
        line.step({"verdict": verdict})
    shown = terminal.getvalue().split("\r\033[K")[1:]
    assert shown[0] == "1 of 8 images, 0 a second, 14 s left"
    assert shown[3] == "4 of 8 images, 2 not inspected, 0 a second, 8 s left"
