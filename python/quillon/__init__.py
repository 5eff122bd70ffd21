"""Image processing for machine vision, on NumPy arrays.

Gray images are uint8 arrays of shape (height, width), color images uint8 arrays of shape
(height, width, 3) in the order blue, green, red. Every function returns a new array, or, given
`out=array`, fills that one; `out=image` works in place. Wrong arrays and numbers raise TypeError
or ValueError, naming the argument, what it is and what is wanted; calls run without the
interpreter lock.

`python3 -m quillon --help` lists the functions.
"""

from . import _quillon
from ._quillon import *  # noqa: F403 - everything native is public
from .exports import EXPORTS
from .version import __version__

__all__ = ["EXPORTS", "__version__", *(name for name in vars(_quillon) if name[0] != "_")]
