"""What functions hold their arguments to."""

from __future__ import annotations

import functools
import math
import operator
import os
from typing import Any, Callable, Dict, TypeVar, cast

import numpy as np

from . import _quillon

Function = TypeVar("Function", bound=Callable[..., Any])


def refuse(name: str, wanted: str, value: object) -> TypeError:
    return TypeError(f"{name}: {wanted} is wanted, this is {_quillon.shown(value)}")


def check_image(name: str, value: object) -> None:
    """Refuses what is no gray or color image."""
    if not isinstance(value, np.ndarray) or value.dtype != np.uint8:
        raise refuse(name, "an array of uint8", value)
    if value.ndim not in (2, 3) or value.shape[2:] not in ((), (3,)) or not value.size:
        raise ValueError(f"{name}: an array of shape (height, width) or (height, width, 3) is "
                         f"wanted, this is {_quillon.shown(value)}")


def within(name: str, value: float, least: float, most: float) -> None:
    """Refuses a number outside these bounds."""
    if not least <= value <= most:
        raise ValueError(f"{name}: a number from {least:g} to {most:g} is wanted, this is {value}")


def _whole(name: str, value: object) -> None:
    if isinstance(value, bool):
        raise refuse(name, "a whole number", value)
    try:
        number = operator.index(cast(int, value))
    except TypeError:
        raise refuse(name, "a whole number", value) from None
    if not -2**31 <= number < 2**31:
        raise ValueError(f"{name}: a whole number of 32 bits is wanted, this is {number}")


def _number(name: str, value: object) -> None:
    if isinstance(value, (bool, str, bytes)):
        raise refuse(name, "a number", value)
    try:
        number = float(cast(float, value))
    except (TypeError, ValueError):
        raise refuse(name, "a number", value) from None
    except OverflowError:
        number = math.inf
    if not math.isfinite(number):
        raise ValueError(f"{name}: a finite number is wanted, this is {_quillon.shown(value)}")


def _flag(name: str, value: object) -> None:
    if not isinstance(value, bool):
        raise refuse(name, "True or False", value)


def _whole_or_none(name: str, value: object) -> None:
    if value is not None:
        _whole(name, value)


def _flag_or_none(name: str, value: object) -> None:
    if value is not None:
        _flag(name, value)


def _pair(name: str, value: object) -> None:
    if not isinstance(value, (tuple, list)) or len(value) != 2:
        raise refuse(name, "a pair of whole numbers", value)
    for number in value:
        _whole(name, number)


def _pair_or_none(name: str, value: object) -> None:
    if value is not None:
        _pair(name, value)


def _text(name: str, value: object) -> None:
    if not isinstance(value, str):
        raise refuse(name, "a text", value)


def _file(name: str, value: object) -> None:
    if not isinstance(value, (str, bytes, os.PathLike)):
        raise refuse(name, "a path", value)


def _file_or_none(name: str, value: object) -> None:
    if value is not None:
        _file(name, value)


_KINDS: Dict[str, Callable[[str, object], None]] = {
    "int": _whole, "float": _number, "bool": _flag,
    "Optional[int]": _whole_or_none, "Optional[bool]": _flag_or_none, "Tuple[int, int]": _pair,
    "Optional[Tuple[int, int]]": _pair_or_none, "str": _text, "FileName": _file, "Optional[FileName]": _file_or_none}


def checked(function: Function) -> Function:
    """Refuses arguments that are not what the function's annotations say, by their names."""
    count = function.__code__.co_argcount + function.__code__.co_kwonlyargcount
    names = function.__code__.co_varnames[:count]
    kinds = {name: _KINDS[text] for name, text in function.__annotations__.items()
             if text in _KINDS and name != "return"}

    @functools.wraps(function)
    def call(*values: Any, **named: Any) -> Any:
        for name, value in (*zip(names, values), *named.items()):
            if name in kinds:
                kinds[name](name, value)
        return function(*values, **named)

    return cast(Function, call)
