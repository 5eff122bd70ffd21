"""Image processing for machine vision, on NumPy arrays.

Gray images are uint8 arrays of shape (height, width), color images uint8 arrays of shape
(height, width, 3) in the order blue, green, red. Functions that make an image return a new array,
or, given `out=array`, fill that one, which may be an input; functions that find things return a
structured array, a row for each. Wrong arrays and numbers raise TypeError or ValueError, naming
the argument, what it is and what is wanted; calls run without the interpreter lock.

`python3 -m quillon --help` lists the functions.
"""

from . import _quillon
from ._quillon import *  # noqa: F403 - everything native is public
from .boards import BoardInspector
from .exports import EXPORTS
from .version import __version__

__all__ = ["BoardInspector", "EXPORTS", "__version__",
           *(name for name in vars(_quillon) if name[0] != "_")]
