"""How the host gets modules out of a file in Python. Called by the loader library alone."""

from __future__ import annotations

import importlib.util
import sys
import traceback
from pathlib import Path
from typing import Any

from sigweave.module import Info, Module

_count = 0


def load(file: str) -> list[tuple[str, type[Module], str, list[Any]]]:
    """The modules that the file defines: id, class, description, parameters."""
    global _count
    _count += 1  # a file that was changed is another one
    name = f"sigweave_modules_{Path(file).stem}_{_count}"
    spec = importlib.util.spec_from_file_location(name, file)
    assert spec is not None and spec.loader is not None
    loaded = importlib.util.module_from_spec(spec)
    sys.modules[name] = loaded
    spec.loader.exec_module(loaded)
    found = [
        one
        for one in vars(loaded).values()
        if isinstance(one, type) and issubclass(one, Module) and one.__module__ == name and not one._abstract
    ]
    if not found:
        raise ImportError(
            "the file defines no module; derive a class from sigweave.Module and give it execute(self, signal)"
        )
    return [(one.__name__, one, one._description() or one.__name__, one._parameters()) for one in found]


def make(kind: type[Module], values: dict[str, Any]) -> Module:
    """An instance of the module with its settings, at the begin of a run."""
    module = kind()
    module.__dict__.setdefault("_values", {}).update(values)
    module._results.clear()
    module.begin()
    return module


def describe(module: Module, name: str, unit: str, rate: float, low: float, high: float) -> tuple[Any, ...]:
    """What the module's blocks say of themselves: name, unit, rate, low, high."""
    module.info = Info(name, unit, rate, low, high)
    said = module.describe(module.info)
    return said.name, said.unit, float(said.rate), float(said.low), float(said.high)


def explain(error: BaseException) -> tuple[str, str]:
    """One line, with the place in the module's file, and the traceback."""
    frames = traceback.extract_tb(error.__traceback__)
    own = [frame for frame in frames if Path(frame.filename).name != "_loading.py" and "importlib" not in frame.filename]
    place = f" ({Path(own[-1].filename).name}, line {own[-1].lineno})" if own else ""
    if isinstance(error, SyntaxError) and error.filename:
        place = f" ({Path(error.filename).name}, line {error.lineno})"
    text = " ".join(traceback.format_exception_only(type(error), error)[-1].split())
    return text + place, "".join(traceback.format_exception(type(error), error, error.__traceback__))
