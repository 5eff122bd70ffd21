"""Boards against a good one."""

from typing import Any, Sequence, Union

import numpy as np
from numpy.typing import NDArray

from . import _quillon

_Image = NDArray[np.uint8]


class BoardInspector:
    """Finds missing and extra material on boards.

        inspector = quillon.BoardInspector([good, another])
        for defect in inspector.inspect(tested):
            print(defect["left"], defect["top"], defect["missing"], defect["extra"])

    `good` is one gray picture or several, the first of them the reference; the other arguments are
    those of quillon.inspect().
    """

    def __init__(self, good: Union[_Image, Sequence[_Image]], **rules: Any) -> None:
        self._prepared = _quillon.Prepared("inspect", good, **rules)

    @property
    def tolerance(self) -> int:
        """How far edges may wander, in pixels: as it was given, or learned."""
        return int(self._prepared.details["tolerance"])

    def inspect(self, image: _Image) -> NDArray[np.void]:
        """The defects as a structured array, from the top of the picture."""
        return self._prepared(image)
