"""Work on a stream of things by several threads."""

from __future__ import annotations

import os
import queue
import threading
from concurrent.futures import Future, ThreadPoolExecutor
from typing import Callable, Iterable, Iterator, Optional, TypeVar

from ._checks import refuse

Item = TypeVar("Item")
Result = TypeVar("Result")


def _at_least_one(name: str, given: Optional[int], otherwise: int) -> int:
    if given is None:
        return otherwise
    if isinstance(given, bool) or not isinstance(given, int):
        raise refuse(name, "a whole number", given)
    if given < 1:
        raise ValueError(f"{name}: a number above 0 is wanted, this is {given}")
    return given


def in_order(work: Callable[[Item], Result], items: Iterable[Item], threads: Optional[int],
             ahead: Optional[int]) -> Iterator[Result]:
    """The results in the order of the items; never more than `ahead` items are under way."""
    count = _at_least_one("threads", threads, len(os.sched_getaffinity(0)))
    return _stream(work, iter(items), count, _at_least_one("ahead", ahead, 2 * count))


def _stream(work: Callable[[Item], Result], items: Iterator[Item], threads: int,
            ahead: int) -> Iterator[Result]:
    under_way: queue.SimpleQueue[Optional[Future[Result]]] = queue.SimpleQueue()
    room, is_left = threading.Semaphore(ahead), threading.Event()
    pool = ThreadPoolExecutor(threads)

    def take() -> None:
        # On a thread of its own: results come out while the next item is waited for.
        try:
            while room.acquire() and not is_left.is_set():
                item = next(items, _END)
                if item is _END or is_left.is_set():
                    break
                under_way.put(pool.submit(work, item))  # type: ignore[arg-type]
        except BaseException as error:
            failed: Future[Result] = Future()
            failed.set_exception(error)
            under_way.put(failed)
        under_way.put(None)

    threading.Thread(target=take, daemon=True).start()
    try:
        while (future := under_way.get()) is not None:
            result = future.result()
            room.release()
            yield result
    finally:
        is_left.set()
        room.release()
        pool.shutdown(wait=False, cancel_futures=True)


_END = object()
