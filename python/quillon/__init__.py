"""Image processing for machine vision, on NumPy arrays.

Gray images are uint8 arrays of shape (height, width), color images uint8 arrays of shape
(height, width, 3) in the order blue, green, red. Functions that make an image return a new array,
contiguous from the top, or, given `out=array`, fill that one, which may be an input; functions
that find things return a structured array, a row for each. Wrong arrays and numbers raise
TypeError or ValueError, naming the argument, what it is and what is wanted; calls run without the
interpreter lock.

`python3 -m quillon --help` lists the functions.
"""

from __future__ import annotations

from typing import TYPE_CHECKING, Any

from . import calibration as _calibration, files as _files, objects as _objects, operations as _operations, pixels as _pixels
from . import prepared as _prepared, recipes as _recipes, things as _things
from .calibration import *  # noqa: F403
from .exports import EXPORTS
from .files import *  # noqa: F403
from .objects import *  # noqa: F403
from .operations import *  # noqa: F403
from .pixels import *  # noqa: F403
from .prepared import *  # noqa: F403
from .recipes import *  # noqa: F403
from .things import *  # noqa: F403
from .version import __version__

__all__ = ["EXPORTS", "__version__", "batch", "results", "samples"]
for _module in (_calibration, _files, _objects, _operations, _pixels, _prepared, _recipes, _things):
    __all__ += _module.__all__


if TYPE_CHECKING:
    from . import batch, results, samples
else:
    def __getattr__(name: str) -> Any:
        """The modules that few programs need are loaded when they are asked for."""
        if name not in ("batch", "results", "samples"):
            raise AttributeError(f"module 'quillon' has no attribute {name!r}")
        import importlib
        return importlib.import_module(f"quillon.{name}")


def _watch_a_process_that_reads_its_script() -> None:
    import sys
    process = sys.modules.get("multiprocessing.process")
    if process is not None and getattr(process.current_process(), "_inheriting", False):
        from . import _guard
        _guard.watch()


_watch_a_process_that_reads_its_script()
