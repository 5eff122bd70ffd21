"""A recipe over many images: on this machine, or on the machines of a Dask cluster.

    import quillon.batch

    for record in quillon.batch.run("count.json", images, scheduler="tcp://10.0.0.5:8786"):
        print(record["image"], record["verdict"])

Each record is what `quillon run --json` prints for the image: a dictionary with "image",
"verdict" ("pass", "fail", "unreadable" or "error"), and "measurements" and "failed", or "error".
Records come in the order of the images, one for each, whatever workers come and go. An image
without a pass or a fail is tried once more, by itself; what comes then is reported.

The recipe and the files that it names are read here and sent along. Images are read by the
workers: a file name is one that every machine knows, a URL such as s3://bucket/1.png is opened with
fsspec. On each machine this package is installed.
"""

from __future__ import annotations

import hashlib
import importlib
import json
import os
import posixpath
import sys
import tempfile
import time
import uuid
from collections import deque
from dataclasses import dataclass, field
from itertools import islice
from pathlib import Path
from typing import (
    Any, Callable, Dict, Generator, Iterable, Iterator, List, NamedTuple, Optional, Tuple)

from . import _quillon
from ._checks import checked, refuse
from ._threads import in_order
from ._types import FileName
from .recipes import Recipe

Record = Dict[str, Any]
Frame = Any  # a pandas.DataFrame

IMAGE_ENDINGS = (".png", ".jpg", ".jpeg", ".tif", ".tiff", ".bmp", ".pgm", ".ppm")
CHUNK = 16  # images a task: what the scheduler does for a task is shared by them


class BatchError(Exception):
    """The batch cannot be run: the recipe, the folder or the cluster is not in order."""


# ---- names and stores


def _is_url(name: str) -> bool:
    return "://" in name


def _fsspec() -> Any:
    try:
        return importlib.import_module("fsspec")
    except ImportError:
        raise BatchError("names with :// need fsspec: install python3-fsspec") from None


def _contents(name: str) -> bytes:
    """What a file holds, in a folder or in a store."""
    if not _is_url(name):
        return Path(name).read_bytes()
    with _fsspec().open(name, "rb") as file:
        data: bytes = file.read()
        return data


def _beside(recipe: str, file: str) -> str:
    """A file that a recipe names."""
    if not _is_url(recipe):
        return os.path.join(os.path.dirname(recipe), file)
    # A store has no folders that lead up.
    scheme, path = recipe.split("://", 1)
    return f"{scheme}://{posixpath.normpath(posixpath.join(posixpath.dirname(path), file))}"


def _list_of_names(name: str, given: Any) -> List[str]:
    if isinstance(given, (str, bytes, os.PathLike)) or not hasattr(given, "__iter__"):
        raise refuse(name, "a list of paths", given)
    names = []
    for i, value in enumerate(given):
        if not isinstance(value, (str, bytes, os.PathLike)):
            raise refuse(f"{name}[{i}]", "a path", value)
        names.append(os.fsdecode(value))
    return names


@checked
def list_images(folder: FileName) -> List[str]:
    """The images in a folder or a store, by name, as `quillon run` finds them."""
    folder = os.fsdecode(folder)
    try:
        if _is_url(folder):
            store, path = _fsspec().core.url_to_fs(folder)
            names = [store.unstrip_protocol(entry["name"]) for entry in store.ls(path, detail=True)
                     if entry["type"] == "file"]
        else:
            names = [entry.path for entry in os.scandir(folder) if not entry.is_dir()]
    except FileNotFoundError:
        raise BatchError(f"{folder}: there is no such folder") from None
    except (OSError, ValueError) as error:
        raise BatchError(f"{folder}: {error}") from None
    images = sorted(name for name in names if name.lower().endswith(IMAGE_ENDINGS))
    if not images:
        raise BatchError(f"{folder}: there is no image in it (PNG, JPEG, TIFF, BMP, PGM, PPM)")
    return images


# ---- the recipe, on its way to the workers


@dataclass(frozen=True)
class Job:
    """A recipe with the files that it names, and what is wanted of each image."""

    text: bytes
    files: Dict[str, bytes]
    objects: bool = False
    pages: bool = False
    digest: str = field(init=False, default="")

    def __post_init__(self) -> None:
        parts = [self.text, *(part for name in sorted(self.files)
                              for part in (os.fsencode(name), self.files[name]))]
        sums = b"".join(hashlib.sha256(part).digest() for part in parts)
        object.__setattr__(self, "digest", hashlib.sha256(
            sums + bytes([self.objects, self.pages])).hexdigest())

    def lay_out(self, folder: str) -> str:
        """Writes the recipe and its files below a folder; the recipe's path."""
        # As deep as the names lead up.
        ups = max((Path(name).parts.count("..") for name in self.files), default=0)
        base = Path(folder, *["recipe"] * (ups + 1))
        base.mkdir(parents=True)
        for name, data in self.files.items():
            path = base / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(data)
        recipe = base / f"{self.digest}.json"
        recipe.write_bytes(self.text)
        return str(recipe)


@checked
def read_job(recipe: FileName, *, objects: bool = False, pages: bool = False) -> Job:
    """The recipe in a file or a store, with the files beside it that it names."""
    name = os.fsdecode(recipe)
    try:
        text = _contents(name)
        # Files with their whole path are read where the workers are.
        names = [file for file in _quillon.recipe_files(text) if not os.path.isabs(file)]
        if not _is_url(name):
            Recipe(name)  # tells all that is wrong
        files = {file: _contents(_beside(name, file)) for file in names}
    except FileNotFoundError as error:
        raise BatchError(f"{error.filename or name}: there is no such file") from None
    except (OSError, ValueError) as error:
        told = str(error)
        raise BatchError(told if name in told else f"{name}: {told}") from None
    return Job(text, files, objects, pages)


# ---- on the workers


class Result(NamedTuple):
    """Of one image: the line of its record, and the files of its page by their names in a run."""

    line: str
    files: Dict[str, bytes]


# By the digests of the jobs: the native recipe, and its folder, which each further thread reads.
_ready: Dict[str, Tuple[Job, _quillon.Recipe, tempfile.TemporaryDirectory[str]]] = {}
_MOST_READY = 32


def prepare(job: Job) -> None:
    """Makes the job's recipe ready in this process; what is ready stays."""
    if job.digest in _ready:
        return
    folder = tempfile.TemporaryDirectory(prefix="quillon-")
    _ready[job.digest] = job, _quillon.Recipe(job.lay_out(folder.name), None), folder
    while len(_ready) > _MOST_READY:
        _ready.pop(next(iter(_ready)))


def _failure(image: str, reason: str, verdict: str = "error") -> Result:
    name = os.fsencode(image)
    record = {"image": name.decode(errors="replace")}
    if os.fsdecode(name) != record["image"]:
        record["image_bytes"] = name.hex()
    return Result(json.dumps({**record, "verdict": verdict, "error": reason}), {})


def _inspect_one(job: Job, recipe: _quillon.Recipe, index: int, image: str) -> Result:
    data = None
    if _is_url(image):
        try:
            data = _contents(image)
        except Exception as error:  # a store's own, for instance of its network
            return _failure(image, f"cannot read image '{image}': {error}", "unreadable")
    if not job.pages:
        return Result(recipe.record(image, data, job.objects, "", index), {})
    with tempfile.TemporaryDirectory() as folder:
        line = recipe.record(image, data, job.objects, folder, index)
        return Result(line, {str(path.relative_to(folder)): path.read_bytes()
                             for path in Path(folder).rglob("*") if path.is_file()})


def inspect(digest: str, first: int, images: List[str]) -> List[Result]:
    """Inspects images by a job that was prepared; `first` is the number of the first one."""
    job, recipe, _ = _ready[digest]
    return [_inspect_one(job, recipe, first + i, image) for i, image in enumerate(images)]


class _Preparation:
    """Prepares a job on every worker that there is or will be."""

    def __init__(self, job: Job) -> None:
        # Another batch of this recipe has its own.
        self.job, self.name = job, f"quillon-{job.digest[:16]}-{uuid.uuid4().hex}"

    def setup(self, worker: Any) -> None:
        prepare(self.job)


# ---- here


def _tell(text: str) -> None:
    print(text, file=sys.stderr, flush=True)


def is_inspected(record: Record) -> bool:
    """Whether the image passed or failed, rather than could not be inspected."""
    return record["verdict"] in ("pass", "fail")


def run(recipe: FileName, images: Iterable[FileName], scheduler: Any = None, *,
        chunk: int = CHUNK, out: Optional[FileName] = None, resume: bool = False,
        overwrite: bool = False, pages: bool = True, objects: bool = False,
        say: Callable[[str], None] = _tell) -> Iterator[Record]:
    """Yields a record for each image, in order.

    `scheduler` is the address of a Dask scheduler, a distributed.Client, or None for the threads of
    this process. Before the first record every worker makes the recipe ready: BatchError when that
    is not in order, or when a worker lacks the package.

    With `out`, a folder on this machine gets what `quillon run --out` leaves there: results, index
    and, unless `pages` is False, a page for each image; `resume` goes on with what is there,
    `overwrite` begins anew. With `objects`, records hold all that was found.
    """
    batch = Batch(recipe, images, out=out, resume=resume, overwrite=overwrite, pages=pages,
                  objects=objects)
    yield from batch.run(scheduler, chunk=chunk, say=say)


class Batch:
    """What run() does; afterwards csv() tells it as a table."""

    @checked
    def __init__(self, recipe: FileName, images: Iterable[FileName], *,
                 out: Optional[FileName] = None, resume: bool = False, overwrite: bool = False,
                 pages: bool = True, objects: bool = False) -> None:
        self._images = _list_of_names("images", images)
        self._job = read_job(recipe, objects=objects, pages=pages and out is not None)
        with tempfile.TemporaryDirectory() as folder:
            try:
                self._run = _quillon.Run(self._job.lay_out(folder), self._images, out, resume,
                                         overwrite, self._job.pages, objects)
            except ValueError as error:
                raise BatchError(str(error)) from None

    def csv(self) -> str:
        """The records as `quillon run --csv` prints them."""
        return self._run.csv()

    def run(self, scheduler: Any = None, *, chunk: int = CHUNK,
            say: Callable[[str], None] = _tell) -> Iterator[Record]:
        """The records; run() says what the arguments mean."""
        if isinstance(chunk, bool) or not isinstance(chunk, int):
            raise refuse("chunk", "a whole number", chunk)
        if chunk < 1:
            raise ValueError(f"chunk: a number above 0 is wanted, this is {chunk}")
        done = self._run.done()
        for image, line in zip(self._images, done):
            yield _record_of(image, line)
        tasks = [(first, self._images[first:first + chunk])
                 for first in range(len(done), len(self._images), chunk)]
        results = (self._here(tasks) if scheduler is None else
                   self._on_cluster(scheduler, tasks, say))
        try:
            for image, result in zip(self._images[len(done):], results):
                yield self._take(image, result)
        finally:
            results.close()
            try:
                self._run.finish()
            except ValueError as error:
                raise BatchError(str(error)) from None

    def _take(self, image: str, result: Result) -> Record:
        """Writes what an image came to, and tells it."""
        try:
            for name, data in result.files.items():
                path = Path(self._run.page_folder(), name)
                part = path.with_name(f".quillon-{path.name}.part")
                part.write_bytes(data)
                part.replace(path)
            return _record_of(image, self._run.append(result.line))
        except (OSError, ValueError) as error:
            raise BatchError(f"cannot write the results: {error}") from None

    def _here(self, tasks: List[_Task]) -> Generator[Result, None, None]:
        prepare(self._job)
        digest = self._job.digest
        work = lambda task: inspect(digest, *task)  # noqa: E731
        for (first, images), results in zip(tasks, in_order(work, tasks, None, None)):
            for i, (image, result) in enumerate(zip(images, results)):
                again = not is_inspected(json.loads(result.line))
                yield inspect(digest, first + i, [image])[0] if again else result

    def _on_cluster(self, scheduler: Any, tasks: List[_Task],
                    say: Callable[[str], None]) -> Generator[Result, None, None]:
        client, is_ours = _connect(scheduler)
        try:
            _wait_for_workers(client, say)
            preparation = _Preparation(self._job)
            try:
                client.register_worker_plugin(preparation)
            except Exception as error:  # a worker that cannot even load this module, for instance
                raise BatchError(f"a worker cannot begin: {error}") from None
            try:
                yield from _stream(client, self._job.digest, tasks)
            finally:
                client.unregister_worker_plugin(preparation.name)
        finally:
            if is_ours:
                client.close()


_Task = Tuple[int, List[str]]  # the number of the first image, and the images


def _record_of(image: str, line: str) -> Record:
    record: Record = json.loads(line)
    record.pop("image_bytes", None)
    return {**record, "image": image}


def _connect(scheduler: Any) -> Tuple[Any, bool]:
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError:
        raise BatchError("clusters need Dask: install python3-distributed") from None
    if isinstance(scheduler, distributed.Client):
        return scheduler, False
    if not isinstance(scheduler, (str, distributed.deploy.Cluster)):
        raise refuse("scheduler", "the address of a scheduler or a distributed.Client", scheduler)
    try:
        return distributed.Client(scheduler), True
    except (OSError, ValueError) as error:
        raise BatchError(f"{scheduler}: cannot reach the scheduler: {error}") from None


def _wait_for_workers(client: Any, say: Callable[[str], None]) -> None:
    if not client.scheduler_info()["workers"]:
        say(f"waiting for workers at {client.scheduler.address}")
        while not client.scheduler_info()["workers"]:
            time.sleep(0.1)


def _submit(client: Any, digest: str, task: _Task, priority: int = 0) -> Tuple[_Task, Any]:
    # Not pure: a second try is a new task, not the remembered first.
    return task, client.submit(inspect, digest, *task, pure=False, priority=priority)


def _results(submitted: Tuple[_Task, Any]) -> List[Result]:
    """The results of a task. One that fails again and again takes its workers with it."""
    (_, images), future = submitted
    try:
        results: List[Result] = future.result()
        return results
    except Exception as error:  # whatever happened on a worker, or to it
        return [_failure(image, f"{type(error).__name__}: {error}") for image in images]


def _stream(client: Any, digest: str, tasks: List[_Task]) -> Iterator[Result]:
    waiting = iter(tasks)
    # As many tasks ahead as keep all workers busy while the first one is waited for.
    threads = sum(client.nthreads().values())
    ahead = deque(_submit(client, digest, task) for task in islice(waiting, max(8, 4 * threads)))
    while ahead:
        first, images = ahead[0][0]
        results = _results(ahead.popleft())
        ahead.extend(_submit(client, digest, task) for task in islice(waiting, 1))
        again = {i: _submit(client, digest, (first + i, [image]), priority=1)
                 for i, (image, result) in enumerate(zip(images, results))
                 if not is_inspected(json.loads(result.line))}
        for i, result in enumerate(results):
            yield _results(again[i])[0] if i in again else result


# ---- data frames


class FrameInspector:
    """A recipe as a function of data frames, for those who have their images in Spark.

        inspector = quillon.batch.FrameInspector("count.json")
        images = spark.read.format("binaryFile").load("s3://bucket/images")
        images.select("path", "content").mapInPandas(inspector, inspector.schema)

    It takes an iterator of pandas frames with the column "path" and, where the images are not read
    by their names, "content", the bytes of their files. It gives frames of as many rows: path,
    verdict, error, a column for each measurement (its name after "m_"; none where there was nothing
    to measure), and the whole record as a line of JSON.
    """

    @checked
    def __init__(self, recipe: FileName, *, objects: bool = False) -> None:
        self._job = read_job(recipe, objects=objects)
        self._names: List[str] = [row["name"] for row in json.loads(self._job.text)["measurements"]]

    @property
    def schema(self) -> str:
        """The columns of the frames that come out, as Spark is told them."""
        measured = "".join("`m_{}` double, ".format(name.replace("`", "``"))
                           for name in self._names)
        return f"path string, verdict string, error string, {measured}record string"

    def __call__(self, frames: Iterable[Frame]) -> Iterator[Frame]:
        pandas: Any = importlib.import_module("pandas")
        prepare(self._job)
        for frame in frames:
            rows = []
            contents = frame["content"] if "content" in frame else [None] * len(frame)
            for path, content in zip(frame["path"], contents):
                line = self._line(path, content)
                record = json.loads(line)
                measured = record.get("measurements", {})
                rows.append([path, record["verdict"], record.get("error"),
                             *(measured.get(name) for name in self._names), line])
            columns = ["path", "verdict", "error", *(f"m_{name}" for name in self._names), "record"]
            result = pandas.DataFrame(rows, columns=columns)
            yield result.astype({f"m_{name}": float for name in self._names})

    def _line(self, path: str, content: Optional[bytes]) -> str:
        if content is None:
            return inspect(self._job.digest, 0, [path])[0].line
        line: str = _ready[self._job.digest][1].record(path, bytes(content), self._job.objects, "",
                                                       0)
        return line
