"""A batch on a cluster of two worker processes gives what one run of the command gives."""

import io
import json
import os
import signal
import subprocess
import sys
import time
from pathlib import Path

import distributed
import numpy as np
import pytest
from pictures import scene
from quillon import _batch_command, batch

COMMAND = str(Path(os.environ["QUILLON_BUILD"]) / "src" / "quillon")
RECIPE = {
    "name": "Parts",
    "steps": [{"name": "bright", "operation": "threshold", "input": "image", "above": 100},
              {"name": "parts", "operation": "blobs", "input": "bright"}],
    "measurements": [{"name": "parts", "input": "parts", "value": "count", "min": 5}],
}
# The command, noting for which worker it works on what. Some images break it.
SPY = """#!/bin/sh
[ "$1" = recipe ] || echo "$PPID $*" >>'{folder}/log'
case "$*" in
  *breaks-once*) mkdir '{folder}/once' 2>/dev/null && kill -9 $$ ;;
  *breaks*) kill -9 $$ ;;
esac
sleep 0.05
exec '{command}' "$@"
"""


def write_pgm(path, pixels):
    path.write_bytes(b"P5 %d %d 255\n" % pixels.shape[::-1] + pixels.tobytes())


@pytest.fixture
def job(tmp_path):
    """A recipe, a folder of 48 images and the spying command."""
    folder = tmp_path / "images"
    folder.mkdir()
    for index in range(48):
        image = scene()
        image[:, :10 * (index % 12)] = 20  # fewer and fewer parts
        write_pgm(folder / f"{index:02}.pgm", image)
    (tmp_path / "recipe.json").write_text(json.dumps(RECIPE))
    spy = tmp_path / "spy"
    spy.write_text(SPY.format(folder=tmp_path, command=COMMAND))
    spy.chmod(0o755)
    return tmp_path


def tries(job):
    """(worker, images) of each start of the command."""
    lines = (job / "log").read_text().splitlines()
    return [(int(line.split()[0]), [word for word in line.split() if word.endswith(".pgm")])
            for line in lines]


def wait_for_a_start(job, worker):
    """Until the worker begins something, or, with nothing left to begin, a second."""
    def starts():
        return [process for process, _ in tries(job)].count(worker)

    before, deadline = starts(), time.monotonic() + 1
    while starts() == before and time.monotonic() < deadline:
        time.sleep(0.005)


def in_one_run(job, images):
    printed = subprocess.run([COMMAND, "run", job / "recipe.json", *images, "--json"],
                             capture_output=True, text=True).stdout
    return [json.loads(line) for line in printed.splitlines()]


@pytest.fixture(scope="module")
def cluster(tmp_path_factory):
    """The address of a scheduler on the loopback address, and its two worker processes."""
    folder = tmp_path_factory.mktemp("cluster")
    file = folder / "scheduler.json"
    start = lambda module, *arguments: subprocess.Popen(  # noqa: E731
        [sys.executable, "-m", f"distributed.cli.{module}", "--host", "127.0.0.1",
         "--no-dashboard", "--scheduler-file", str(file), *arguments],
        cwd=folder, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    scheduler = start("dask_scheduler", "--port", "0")
    workers = [start("dask_worker", "--no-nanny", "--nthreads", "1", "--death-timeout", "60")
               for _ in range(2)]
    try:
        deadline = time.monotonic() + 120
        while not (file.exists() and file.read_text().endswith("}")):
            assert scheduler.poll() is None and time.monotonic() < deadline
            time.sleep(0.05)
        address = json.loads(file.read_text())["address"]
        with distributed.Client(address, timeout=120) as client:
            client.wait_for_workers(2, timeout=120)
        yield address, workers
    finally:
        for process in [*workers, scheduler]:
            process.kill()
            process.wait()


def told_by(finished, *beginnings):
    """What the command itself wrote beside its records; Dask remarks when a machine is slow."""
    return [line for line in finished.stderr.splitlines() if line.startswith(beginnings)]


def test_failures_are_tried_once_more_and_then_reported_by_file(job, cluster):
    images = job / "images"
    (images / "10-breaks-once.pgm").write_bytes((images / "10.pgm").read_bytes())
    (images / "20-breaks.pgm").write_bytes((images / "20.pgm").read_bytes())
    (images / "30-unreadable.pgm").write_bytes(b"nothing")
    names = batch.list_images(images)
    command = [sys.executable, "-m", "quillon", "batch", job / "recipe.json", images,
               "--scheduler", cluster[0], "--chunk", "8", "--command", job / "spy"]
    finished = subprocess.run(command, capture_output=True, text=True, timeout=300)
    assert finished.returncode == 3
    records = [json.loads(line) for line in finished.stdout.splitlines()]
    assert [record["image"] for record in records] == names

    good = [name for name in names if "breaks.pgm" not in name]
    expected = {record["image"]: record for record in in_one_run(job, good)}
    for record in records:
        if "breaks.pgm" in record["image"]:
            assert record["verdict"] == "error" and record["error"].endswith("code -9")
        else:
            assert record == expected[record["image"]]
    alone = [images for _, images in tries(job) if len(images) == 1]
    for name in names:
        tried = sum(name in images for _, images in tries(job))
        assert tried == 1 + ([name] in alone), name
    for name in ("10-breaks-once", "20-breaks", "30-unreadable"):
        assert [str(images / f"{name}.pgm")] in alone

    told = told_by(finished, str(images), "51 images")
    assert told[0].startswith(str(images / "20-breaks.pgm") + ": ")
    assert told[1].startswith(str(images / "30-unreadable.pgm") + ": ")
    passed = sum(record["verdict"] == "pass" for record in records)
    assert told[2:] == [f"51 images: {passed} passed, {49 - passed} failed, 2 not inspected"]


def test_a_batch_that_cannot_begin_says_why(job, cluster):
    (job / "bad.json").write_text('{"name": "Bad", "steps": 3}')
    for arguments, message in [
            ((job / "bad.json", job / "images"), "bad.json"),
            ((job / "recipe.json", job / "none"), "none: there is no such folder"),
            ((job / "recipe.json", job), "there is no image in it"),
            ((job / "recipe.json", job / "images", "--command", "/no/such"),
             "/no/such: No such file"),
            ((job / "recipe.json", job / "images", "--scheduler", "nonsense://"), "nonsense")]:
        command = [sys.executable, "-m", "quillon", "batch", "--command", COMMAND, "--scheduler",
                   cluster[0], *arguments]
        finished = subprocess.run(command, capture_output=True, text=True, timeout=300)
        assert finished.returncode == 1 and finished.stdout == ""
        told = told_by(finished, "quillon: ")
        assert len(told) == 1 and message in told[0]


def test_no_image_is_lost_or_counted_twice_when_a_worker_dies(job, cluster):
    address, workers = cluster
    images = batch.list_images(job / "images")
    records = []
    for record in batch.run(job / "recipe.json", images, address, command=str(job / "spy"),
                            chunk=2):
        records.append(record)
        if len(records) == 16:
            wait_for_a_start(job, workers[0].pid)
            workers[0].send_signal(signal.SIGKILL)
            workers[0].wait()
    assert records == in_one_run(job, images)
    assert [record["image"] for record in records] == images
    first, second = ({tuple(names) for worker, names in tries(job) if worker == process.pid}
                     for process in workers)
    assert first - second, "the first worker did a part"
    assert second - first, "and the second one the rest"
    assert first & second, "what the first one had begun was begun again"


def test_without_a_scheduler_this_machine_does_the_work(job):
    command = [sys.executable, "-m", "quillon", "batch", job / "recipe.json", job / "images",
               "--command", COMMAND]
    finished = subprocess.run(command, cwd=job, capture_output=True, text=True, timeout=300)
    records = [json.loads(line) for line in finished.stdout.splitlines()]
    assert records == in_one_run(job, batch.list_images(job / "images"))


def test_each_record_is_matched_with_its_image_whatever_it_is_called(job, monkeypatch):
    monkeypatch.chdir(job / "images")
    names = ["--out=zz.pgm", "-x.pgm", "[a].pgm", "a\u2028b.pgm", "a\x85.pgm", "a\nb.pgm",
             "\udcfe.pgm", "\udcff.pgm"]
    for index, name in enumerate(names):
        Path(f"{index + 10}.pgm").rename(name)
    names.insert(3, "00.pgm")
    recipe = str(job / "recipe.json")
    records = batch.inspect(COMMAND, recipe, names)
    assert [record["image"] for record in records] == names
    for name, record in zip(names, records):
        assert batch.inspect(COMMAND, recipe, [name]) == [record]
        line = _batch_command.line_of(record)
        assert line.isascii() and "\n" not in line
        assert json.loads(line).get("image_bytes", os.fsencode(name).hex()) == os.fsencode(name).hex()
    assert len({_batch_command.line_of(record) for record in records}) == len(names)
    # A command that leaves one out gives no image the verdict of another.
    liar = job / "liar"
    liar.write_text(f"#!/bin/sh\n'{COMMAND}' \"$@\" | sed 1d\n")
    liar.chmod(0o755)
    assert {record["verdict"] for record in batch.inspect(str(liar), recipe, names)} == {"error"}
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
