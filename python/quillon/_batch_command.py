"""`python3 -m quillon batch`: a folder of images by a recipe, on this machine or on a cluster."""

from __future__ import annotations

import argparse
import json
import logging
import os
import sys
import time
from typing import Any, TextIO

from quillon import batch

NOT_ALL_PASSED = 3  # the exit code of `quillon run`


def visible(text: str) -> str:
    """The text without what a terminal would obey instead of showing it."""
    return "".join(c if c.isprintable() else repr(c)[1:-1] for c in text)


def line_of(record: batch.Record) -> str:
    """The record as one line of JSON, as `quillon run --json` prints it."""
    name = os.fsencode(record["image"])
    shown = {**record, "image": name.decode(errors="replace")}
    if os.fsdecode(name) != shown["image"]:
        shown["image_bytes"] = name.hex()
    return json.dumps(shown)


class ProgressLine:
    """One line on a terminal that tells how far the batch is; nothing elsewhere."""

    def __init__(self, total: int, stream: TextIO = sys.stderr) -> None:
        self.total, self.stream = total, stream
        self.begin, self.done, self.failures = time.monotonic(), 0, 0

    def step(self, record: batch.Record) -> None:
        self.done += 1
        self.failures += not batch.is_inspected(record)
        if self.stream.isatty():
            print("\r\033[K" + self.text(), end="", file=self.stream, flush=True)

    def text(self) -> str:
        seconds = max(time.monotonic() - self.begin, 1e-3)
        rate = self.done / seconds
        left = (self.total - self.done) / rate
        failed = f", {self.failures} not inspected" if self.failures else ""
        return f"{self.done} of {self.total} images{failed}, {rate:.0f} a second, {left:.0f} s left"

    def end(self) -> None:
        if self.stream.isatty():
            print("\r\033[K", end="", file=self.stream, flush=True)


def inspect_folder(arguments: argparse.Namespace) -> int:
    # Dask drops what it waits for when it closes, and asyncio would tell of each.
    logging.getLogger("asyncio").setLevel(logging.CRITICAL)
    images = batch.list_images(arguments.folder)
    work = batch.Batch(arguments.recipe, images, out=arguments.out, resume=arguments.resume,
                       overwrite=arguments.overwrite, pages=not arguments.no_pages,
                       objects=arguments.objects)
    say = lambda text: print(f"quillon: {visible(text)}", file=sys.stderr, flush=True)  # noqa: E731
    records = work.run(arguments.scheduler, chunk=arguments.chunk, say=say)
    passed, failures, progress = 0, [], ProgressLine(len(images))
    try:
        for record in records:
            if not arguments.csv:
                print(line_of(record), flush=True)
            passed += record["verdict"] == "pass"
            if not batch.is_inspected(record):
                failures.append(record)
            progress.step(record)
    finally:
        progress.end()
    if arguments.csv:
        print(work.csv(), end="")
    for record in failures:
        print(visible(f"{record['image']}: {record['error']}"), file=sys.stderr)
    print(f"{len(images)} images: {passed} passed, {len(images) - passed - len(failures)} failed, "
          f"{len(failures)} not inspected", file=sys.stderr)
    return 0 if passed == len(images) else NOT_ALL_PASSED


def run(arguments: argparse.Namespace) -> int:
    try:
        return inspect_folder(arguments)
    except (batch.BatchError, ValueError) as error:
        print(visible(f"quillon: {error}"), file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("quillon: interrupted", file=sys.stderr)
        return 130


def add_command(commands: Any) -> None:
    command = commands.add_parser("batch", description=batch.__doc__.split("\n")[0],
                                  help="inspect a folder of images, here or on a Dask cluster")
    command.add_argument("recipe", metavar="RECIPE", help="recipe to read: a file, or a URL")
    command.add_argument("folder", metavar="FOLDER",
                         help="folder of images as every worker knows it, or a URL")
    command.add_argument("--scheduler", metavar="ADDRESS",
                         help="such as tcp://10.0.0.5:8786 (default: the threads of this process)")
    command.add_argument("--chunk", type=int, default=batch.CHUNK, metavar="N",
                         help="images in one task (default: %(default)s)")
    command.add_argument("--out", metavar="FOLDER",
                         help="folder for results and pages; made if missing")
    command.add_argument("--resume", action="store_true",
                         help="go on with the run whose results are in that folder")
    command.add_argument("--overwrite", action="store_true",
                         help="begin anew in a folder that holds results")
    command.add_argument("--no-pages", action="store_true",
                         help="write the results alone into that folder")
    command.add_argument("--objects", action="store_true", help="tell all that was found too")
    command.add_argument("--csv", action="store_true", help="print CSV instead of lines of JSON")
    command.set_defaults(run=run)
