"""A script that starts processes where it is read ends with one sentence.

Processes that are started afresh read the script that started them, down to what starts processes
again: multiprocessing refuses that, the Nannies of a Dask client try again without an end, and each
try tells a page. Only a process that is being started so loads this module.
"""

from __future__ import annotations

import fcntl
import os
import signal
import sys
import time
from multiprocessing import process, spawn
from typing import Any

SENTENCE = ("quillon: {} starts processes where it is read, and each of them reads it again: put what "
            "it does below \"if __name__ == '__main__':\" (a batch without a scheduler needs no "
            "processes)")
MOST_SECONDS = 10  # that a script may take to end


def _is_of_same_program(pid: int) -> bool:
    try:
        return os.path.samefile(f"/proc/{pid}/exe", "/proc/self/exe")
    except OSError:  # it has ended
        return False


def _end(script: str) -> None:
    """Tells it once, whatever number of processes comes here, and ends the script that waits for them.

    The lock is kept until the script has ended, or a process that comes next tells it again.
    """
    parent = os.getppid()
    with open(script) as lock:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        if _is_of_same_program(parent):
            print(SENTENCE.format(os.path.basename(script)), file=sys.stderr, flush=True)
            os.kill(parent, signal.SIGTERM)
            until = time.monotonic() + MOST_SECONDS
            while _is_of_same_program(parent) and time.monotonic() < until:
                time.sleep(0.01)
        os._exit(1)


def watch() -> None:
    """Takes the place of multiprocessing's own check, for processes that Dask starts."""
    own: Any = getattr(spawn, "_check_not_importing_main", None)
    script: Any = getattr(sys.modules.get("__mp_main__"), "__file__", None)
    if own is None or script is None:
        return

    def check() -> Any:
        is_being_read = getattr(process.current_process(), "_inheriting", False)
        frame, is_dask = sys._getframe(), False
        while frame is not None and not is_dask:
            is_dask = str(frame.f_globals.get("__name__", "")).startswith("distributed.")
            frame = frame.f_back  # type: ignore[assignment]
        if is_being_read and is_dask:
            try:
                _end(script)
            except OSError:  # another process is telling it
                os._exit(1)
        return own()

    setattr(spawn, "_check_not_importing_main", check)
