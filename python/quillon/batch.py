"""A recipe over many images on a Dask cluster.

    import quillon.batch

    for record in quillon.batch.run("count.json", images, scheduler="tcp://10.0.0.5:8786"):
        print(record["image"], record["verdict"])

Each record is what `quillon run --json` prints for the image: a dictionary with "image",
"verdict" ("pass", "fail", "unreadable" or "error"), and "measurements" and "failed", or "error".
Records come in the order of the images, one for each, whatever workers come and go. An image
without a pass or a fail is tried once more, by itself; what comes then is reported.

Workers read the recipe and the images by the names given here, and run the command `quillon`:
files lie where every machine sees them, and this package is installed on each.
"""

from __future__ import annotations

import importlib
import json
import os
import subprocess
from collections import deque
from itertools import islice
from pathlib import Path
from typing import Any, Dict, Iterable, Iterator, List, Tuple, Union

Record = Dict[str, Any]
FileName = Union[str, "os.PathLike[str]"]
_Task = Tuple[List[str], Any]  # the images, and the future of their records

IMAGE_ENDINGS = {".png", ".jpg", ".jpeg", ".bmp", ".pgm"}
CHUNK = 16  # images a task: a start of the command and a teaching of templates go with each


class BatchError(Exception):
    """The batch cannot be run: the recipe, the folder or the cluster is not in order."""


def list_images(folder: FileName) -> List[str]:
    """The images in a folder, by name, as `quillon run` finds them."""
    folder = Path(folder)
    if not folder.is_dir():
        raise BatchError(f"{folder}: there is no such folder")
    images = sorted(str(path) for path in folder.iterdir()
                    if path.suffix.lower() in IMAGE_ENDINGS and path.is_file())
    if not images:
        raise BatchError(f"{folder}: there is no image in it (PNG, JPEG, BMP, PGM)")
    return images


def complaint(recipe: str, command: str) -> str:
    """Runs on a worker: what the command says of a recipe that is not in order, else nothing."""
    try:
        checked = subprocess.run([command, "recipe", "check", recipe], capture_output=True,
                                 text=True, errors="replace")
    except OSError as error:
        return f"{command}: {error.strerror}"
    return "" if checked.returncode == 0 else _said(checked.stderr) or f"{command}: cannot check recipes"


def inspect(command: str, recipe: str, images: List[str]) -> List[Record]:
    """Runs on a worker: a record for each image, in order."""
    try:
        finished = subprocess.run([command, "run", "--json", "--jobs", "1", "--", recipe, *images],
                                  stdin=subprocess.DEVNULL, capture_output=True)
    except OSError as error:
        return [_failure(image, f"{command}: {error.strerror}") for image in images]
    records = []
    for image, line in zip(images, finished.stdout.split(b"\n")[:-1]):
        record = json.loads(line)
        if _image_of(record) != Path(image).as_posix():
            break  # whatever happened, no image gets the verdict of another
        records.append({**record, "image": image})
    said = (_said(finished.stderr.decode(errors="replace")) or
            f"{command} ended with code {finished.returncode}")
    return records + [_failure(image, said) for image in images[len(records):]]


def is_inspected(record: Record) -> bool:
    """Whether the image passed or failed, rather than could not be inspected."""
    return record["verdict"] in ("pass", "fail")


def run(recipe: FileName, images: Iterable[FileName], scheduler: Any = None, *,
        command: str = "quillon", chunk: int = CHUNK) -> Iterator[Record]:
    """Yields a record for each image, in order.

    `scheduler` is the address of a Dask scheduler, a distributed.Client, or None for workers on
    this machine. Before the first record every worker checks the recipe: BatchError when that is
    not in order, or when a worker has no command or no package.
    """
    if chunk < 1:
        raise ValueError(f"chunk: a number above 0 is wanted, this is {chunk}")
    recipe = str(Path(recipe).absolute())
    client, is_ours = _connect(scheduler)
    try:
        _check_workers(client, recipe, command)
        yield from _stream(client, recipe, [str(image) for image in images], command, chunk)
    finally:
        if is_ours:
            client.close()


def _connect(scheduler: Any) -> Tuple[Any, bool]:
    try:
        distributed: Any = importlib.import_module("distributed")
    except ImportError:
        raise BatchError("batches need Dask: install python3-distributed") from None
    if isinstance(scheduler, distributed.Client):
        return scheduler, False
    try:
        return distributed.Client(scheduler), True
    except (OSError, ValueError) as error:
        raise BatchError(f"{scheduler}: cannot reach the scheduler: {error}") from None


def _check_workers(client: Any, recipe: str, command: str) -> None:
    try:
        complaints = client.run(complaint, recipe, command)
    except Exception as error:  # a worker that cannot even load this module, for instance
        raise BatchError(f"a worker cannot begin: {error}") from None
    for worker, text in complaints.items():
        if text:
            raise BatchError(f"{text} (worker {worker})")


def _said(errors: str) -> str:
    return errors.strip().removeprefix("quillon: ")


def _image_of(record: Record) -> str:
    """The name of a record's image, of which JSON shows another where it is not UTF-8."""
    if "image_bytes" not in record:
        return str(record["image"])
    return os.fsdecode(bytes.fromhex(record["image_bytes"]))


def _failure(image: str, reason: str) -> Record:
    return {"image": image, "verdict": "error", "error": reason}


def _submit(client: Any, command: str, recipe: str, images: List[str],
            priority: int = 0) -> _Task:
    # Not pure: a second try is a new task, not the remembered first.
    return images, client.submit(inspect, command, recipe, images, pure=False, priority=priority)


def _records(task: _Task) -> List[Record]:
    """The records of a task. One that fails again and again takes its workers with it."""
    images, future = task
    try:
        records: List[Record] = future.result()
        return records
    except Exception as error:  # whatever happened on a worker, or to it
        return [_failure(image, f"{type(error).__name__}: {error}") for image in images]


def _stream(client: Any, recipe: str, images: List[str], command: str,
            chunk: int) -> Iterator[Record]:
    chunks = (images[first:first + chunk] for first in range(0, len(images), chunk))
    # As many tasks ahead as keep all workers busy while the first one is waited for.
    threads = sum(client.nthreads().values())
    ahead = deque(_submit(client, command, recipe, names)
                  for names in islice(chunks, max(8, 4 * threads)))
    while ahead:
        records = _records(ahead.popleft())
        ahead.extend(_submit(client, command, recipe, names) for names in islice(chunks, 1))
        again = {index: _submit(client, command, recipe, [record["image"]], priority=1)
                 for index, record in enumerate(records) if not is_inspected(record)}
        for index, record in enumerate(records):
            yield _records(again[index])[0] if index in again else record
