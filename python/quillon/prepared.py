"""Operations made ready: what their arguments ask for is done once."""

from __future__ import annotations

from typing import Any, Dict, Optional, Sequence, Tuple, Type, Union

import numpy as np
from numpy.typing import NDArray

from . import _quillon, operations
from ._checks import refuse
from ._types import Image, Layout, Source
from .things import Things

__all__ = ["BoardInspector", "Finder", "Prepared"]

_IMAGES = ("image", "a", "b")


def _kept(value: Any) -> Any:
    """The value as it is now, whatever the caller does with an array later."""
    if isinstance(value, np.ndarray):
        return value.copy()
    if isinstance(value, list) and any(isinstance(item, np.ndarray) for item in value):
        return [_kept(item) for item in value]
    return value


class Prepared:
    """An operation with its arguments, for many images.

        find = quillon.Prepared("match", template, min_score=0.8)
        for image in images:
            print(find(image))

    `name` is that of the operation, what follows are its arguments without the images. What they
    ask for, such as a template that is taught, is done once. One object serves one call at a time.
    Pickled, it carries its arguments, and is made ready again where it arrives: pictures go along,
    files are read there.
    """

    def __init__(self, name: str, *args: Any, **kwargs: Any) -> None:
        import inspect
        if not isinstance(name, str):
            raise refuse("name", "the name of an operation", name)
        if name not in _quillon.OPERATIONS:
            raise ValueError("name: the name of an operation is wanted, this is "
                             f"{_quillon.shown(name)}")
        signature = inspect.signature(getattr(operations, name))
        rows = [row for row in signature.parameters.values()
                if row.name not in (*_IMAGES, "out", "layout")]
        try:
            given = signature.replace(parameters=rows).bind(*args, **kwargs).arguments
        except TypeError as error:
            raise TypeError(f"{name}: {error}") from None
        self._make(name, {key: _kept(value) for key, value in given.items()})

    def _make(self, name: str, values: Dict[str, Any]) -> None:
        self._name, self._values = name, values
        code = getattr(operations, name).__code__
        self._images = [row for row in code.co_varnames[:code.co_argcount] if row in _IMAGES]
        self._native = _quillon.Prepared(name, values)

    def __reduce__(self) -> Tuple[Any, ...]:
        return _made_again, (type(self), self._name, self._values)

    def __call__(self, *images: Image, out: Optional[Image] = None,
                 layout: Layout = "contiguous", **named: Image) -> NDArray[Any]:
        """What the operation gives for its images."""
        given = {**dict(zip(self._images, images)), **named}
        if len(images) + len(named) != len(given) or set(given) != set(self._images):
            takes = " and ".join(self._images)
            given_names = ", ".join([*("an image" for _ in images), *named]) or "nothing"
            raise TypeError(f"{self._name}: {takes} {'are' if len(self._images) > 1 else 'is'} "
                            f"wanted, this is {given_names}")
        pictures = tuple(given[name] for name in self._images)
        result = self._native.run(pictures, out, layout)
        return Things.of(result, pictures[0]) if result.dtype.names else result

    @property
    def details(self) -> Dict[str, float]:
        """What the operation tells besides, by names: what it has learned."""
        return self._native.details()


def _made_again(kind: Type[Prepared], name: str, values: Dict[str, Any]) -> Prepared:
    prepared = kind.__new__(kind)
    prepared._make(name, values)
    return prepared


class Finder(Prepared):
    """A part that is taught once and found in many images.

        finder = quillon.Finder(template, angle=(-20, 20))
        for image in images:
            print(finder.find(image))

    The arguments are those of quillon.find(), without the image.
    """

    _operation = _quillon.CLASSES["Finder"]

    def __init__(self, template: Source, **query: Any) -> None:
        super().__init__(self._operation, template, **query)

    def find(self, image: Image) -> Things:
        """The matches, the best first."""
        return Things.of(self._native.run((image,), None, "contiguous"), image)


class BoardInspector(Prepared):
    """Finds missing and extra material on boards.

        inspector = quillon.BoardInspector([good, another])
        for defect in inspector.inspect(tested):
            print(defect["left"], defect["top"], defect["missing"], defect["extra"])

    `good` is one gray picture or several, the first of them the reference; the other arguments are
    those of quillon.inspect().
    """

    _operation = _quillon.CLASSES["BoardInspector"]

    def __init__(self, good: Union[Source, Sequence[Source]], **rules: Any) -> None:
        super().__init__(self._operation, good, **rules)

    @property
    def tolerance(self) -> int:
        """How far edges may wander, in pixels: as it was given, or learned."""
        return int(self.details["tolerance"])

    def inspect(self, image: Image) -> Things:
        """The defects as a structured array, from the top of the picture."""
        return Things.of(self._native.run((image,), None, "contiguous"), image)


# inspect.signature shows the operation's arguments, without the first: there the image, here self.
for _name, _operation in _quillon.CLASSES.items():
    setattr(globals()[_name].__init__, "__wrapped__", getattr(operations, _operation))
