"""Recipes over arrays."""

from __future__ import annotations

import os
from typing import TYPE_CHECKING, Any, Dict, Iterable, Iterator, Optional, Union

import numpy as np

from . import _quillon
from ._checks import checked, refuse
from ._types import FileName, Image
from .things import Things

if TYPE_CHECKING:
    from .results import Inspection

__all__ = ["Recipe"]


class Recipe:
    """A recipe, ready for one image after the other.

        recipe = quillon.Recipe("count.json")
        result = recipe.run(image)
        print(result.verdict, result.measurements["coins"], result.objects["coins"]["area"])

    `recipe` is a file, or a dictionary of what would be in it. Files that it names are looked for
    in `folder`; without one, beside the recipe's file, or where the program runs. ValueError tells
    all that is wrong with a recipe. Several threads may use one object at a time.
    """

    @checked
    def __init__(self, recipe: Union[FileName, Dict[str, Any]],
                 folder: Optional[FileName] = None) -> None:
        if not isinstance(recipe, (str, bytes, os.PathLike, dict)):
            raise refuse("recipe", "a path or a dictionary", recipe)
        self._given = (recipe, folder)
        self._native = _quillon.Recipe(recipe, folder)

    def __reduce__(self) -> Any:
        return Recipe, self._given

    @property
    def name(self) -> str:
        """What the recipe calls itself."""
        return self._native.name()

    @checked
    def run(self, image: Image, pictures: bool = False) -> Inspection:
        """Inspects a gray or color image: an Inspection, with every step's picture where asked.

        ValueError names the step that could not be done with this image.
        """
        result = self._native.run(image, pictures)
        things = {name: Things.of(rows) for name, rows in result.objects.items()}
        return result._replace(objects=things)

    def run_all(self, frames: Iterable[Image], threads: Optional[int] = None, *,
                pictures: bool = False, ahead: Optional[int] = None) -> Iterator[Inspection]:
        """Inspects frames on several threads (default: one for each processor), in order.

        `frames` may never end, like those of a camera: at most `ahead` frames (default: two for
        each thread) are taken before their results are. Each must be an array of its own. What
        taking a frame or inspecting it raises is raised in its place, and ends the work.
        """
        from ._threads import in_order
        if isinstance(frames, (str, bytes, dict, np.ndarray)) or not hasattr(frames, "__iter__"):
            raise refuse("frames", "an iterable of images", frames)
        return in_order(lambda frame: self.run(frame, pictures), frames, threads, ahead)
