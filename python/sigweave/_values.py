"""What users give: values of settings, names and paths."""

from __future__ import annotations

import math
import os
from typing import Any

import numpy as np


def text_of(value: Any) -> str:
    """Of a setting as graph files write it: yes or no for truth values; numbers with all digits that they need; texts and
    paths as they are. TypeError for others, ValueError for numbers that are not finite."""
    if isinstance(value, np.ndarray) and value.ndim == 0:
        value = value.item()
    if isinstance(value, (bool, np.bool_)):
        return "yes" if value else "no"
    if isinstance(value, (int, np.integer)):
        return str(int(value))
    if isinstance(value, (float, np.floating)):
        if not math.isfinite(value):
            raise ValueError(f"a setting cannot be {value}; give a finite number")
        return repr(float(value))
    if isinstance(value, str):
        return value
    if isinstance(value, os.PathLike):
        return os.fsdecode(value)
    if value is None:
        raise TypeError("a setting cannot be None; leave it out, or take it away with del, and it has its default")
    raise TypeError(f"a setting cannot be of type {type(value).__name__}; give a number, a text, a path or a bool")


def texts(remedy: str, *values: Any) -> None:
    """TypeError with the remedy unless all of them are texts."""
    for value in values:
        if not isinstance(value, str):
            raise TypeError(f"{remedy}; this is of type {type(value).__name__}: {value!r}")


def path_of(path: str | bytes | os.PathLike[Any]) -> str:
    """TypeError for what is no path."""
    if not isinstance(path, (str, bytes, os.PathLike)):
        raise TypeError(f"a file is named by its path, a text or pathlib.Path, not by a {type(path).__name__}")
    return os.fsdecode(path)


def numbers(begin: Any, end: Any) -> tuple[float, float]:
    """Of a part of a signal by time. TypeError for what are no numbers."""
    try:
        return float(begin), float(end)
    except (TypeError, ValueError):
        raise TypeError(f"between takes two numbers, in seconds after the start, not {begin!r} and {end!r}") from None


def check_key(key: Any) -> None:
    """TypeError for a slice of a signal that is not by the numbers of its values."""
    if not isinstance(key, slice):
        return
    for bound in (key.start, key.stop, key.step):
        if bound is not None and not hasattr(type(bound), "__index__"):
            raise TypeError(f"values are numbered by integers, not {bound!r}; between(0.1, 0.2) takes a part by time")
