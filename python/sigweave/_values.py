"""Values of settings as graph files write them."""

from __future__ import annotations

import math
import os
from typing import Any

import numpy as np


def text_of(value: Any) -> str:
    """yes or no for truth values; numbers with all digits that they need; texts and paths as they are. TypeError
    for others, ValueError for numbers that are not finite."""
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
    raise TypeError(f"a setting cannot be a {type(value).__name__}; give a number, a text, a path or a bool")
