"""How the host gets modules out of a file in Python. Called by the loader library alone."""

from __future__ import annotations

import importlib.util
import inspect
import numbers
import re
import sys
import sysconfig
import traceback
from pathlib import Path
from typing import Any

import numpy as np

from sigweave.module import Info, Module

_count = 0
# What is in there is not the author's.
LIBRARIES = (str(Path(__file__).parent), str(Path(np.__file__).parents[1]), sysconfig.get_path("stdlib"), "<frozen")


Kind = tuple[str, type[Module], str, list[Any], list[str], list[str], bool]


def load(file: str) -> list[Kind]:
    """The modules that the file defines: id, class, description, parameters, names of inputs and outputs, and whether
    it is a source."""
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
        if isinstance(one, type) and issubclass(one, Module) and one.__module__ == name and not one._is_abstract()
    ]
    if not found:
        raise ImportError(
            "the file defines no module; derive a class from sigweave.Module and give it execute(self, signal)"
        )
    return [_kind(one) for one in found]


def _kind(kind: type[Module]) -> Kind:
    is_source = kind.fetch is not Module.fetch
    if is_source and kind.execute is not Module.execute:
        raise TypeError(f"{kind.__name__} has both execute and fetch; a source has fetch alone, others have execute")
    ports = {"inputs": [] if is_source else list(kind.inputs), "outputs": list(kind.outputs)}
    for which, names in ports.items():
        if isinstance(getattr(kind, which), str):
            raise TypeError(f"{kind.__name__}.{which} is a text; write a tuple of names, as ('Signal',)")
        if not all(isinstance(name, str) and name for name in names) or len(set(names)) < len(names):
            raise TypeError(f"{kind.__name__}.{which} must be names that differ, as ('Voltage', 'Current')")
    if not is_source and not ports["inputs"]:
        raise TypeError(f"{kind.__name__} has no input; give it fetch(self) instead of execute, or name its inputs")
    if is_source and not ports["outputs"]:
        raise TypeError(f"{kind.__name__} is a source without an output; name its outputs")
    _check_step(kind, "fetch" if is_source else "execute", ports["inputs"])
    for name, *_ in kind._parameters():
        if hasattr(Module, name) or name in Module.__annotations__:
            raise TypeError(f"{kind.__name__}.{name} has another meaning in modules; give the parameter another name")
    description = kind._description() or kind.__name__
    return kind.__name__, kind, description, kind._parameters(), ports["inputs"], ports["outputs"], is_source


def _check_step(kind: type[Module], step: str, inputs: list[str]) -> None:
    """TypeError when it cannot be called with a signal for each input."""
    found = inspect.getattr_static(kind, step)
    if not inspect.isfunction(found):
        return
    try:
        inspect.signature(found).bind(None, *inputs)
    except TypeError:
        names = ", ".join(["self", *(_argument(name) for name in inputs)])
        raise TypeError(f"{kind.__name__}.{step} must take a signal for each input: {step}({names})") from None


def _argument(port: str) -> str:
    return re.sub(r"\W", "_", port.lower())


def make(kind: type[Module], values: dict[str, Any]) -> Module:
    """An instance of the module with its settings, at the begin of a run."""
    module = kind()
    module._set(values)
    module._results.clear()
    module.begin()
    return module


def change(module: Module, values: dict[str, Any]) -> None:
    """New values of live parameters; where the module refuses them, it has the old ones again."""
    before = {name: getattr(module, name) for name in values}
    module._set(values)
    try:
        module.changed()
    except BaseException:
        module._set(before)
        raise


def describe(module: Module, arrived: list[tuple[str, str, float, float, float]], outputs: int) -> list[tuple[Any, ...]]:
    """What the module's blocks say of themselves, for each output: name, unit, rate, low, high."""
    module.infos = tuple(Info(*fields) for fields in arrived)
    module.info = module.infos[0] if module.infos else Info()
    found = module.describe(*module.infos)
    said = [found] * outputs if isinstance(found, Info) else found
    if not isinstance(said, (tuple, list)) or len(said) != outputs or not all(isinstance(one, Info) for one in said):
        raise TypeError(f"describe must return an Info, or a tuple of {outputs}, one for each output")
    return [_fields(one) for one in said]


def _fields(info: Info) -> tuple[str, str, float, float, float]:
    for name in ("name", "unit"):
        if not isinstance(getattr(info, name), str):
            raise TypeError(f"describe: the {name} of an Info is a text, not {getattr(info, name)!r}")
    for name in ("rate", "low", "high"):
        if not isinstance(getattr(info, name), numbers.Real):
            raise TypeError(f"describe: {name} of an Info is a number, not {getattr(info, name)!r}")
    return info.name, info.unit, float(info.rate), float(info.low), float(info.high)


def explain(error: BaseException) -> tuple[str, str]:
    """One line, with the place in the module's file, and the traceback."""
    frames = traceback.extract_tb(error.__traceback__)
    own = [frame for frame in frames if not frame.filename.startswith(LIBRARIES)]
    place = f" ({Path(own[-1].filename).name}, line {own[-1].lineno})" if own else ""
    if isinstance(error, SyntaxError) and error.filename:
        place = f" ({Path(error.filename).name}, line {error.lineno})"
    text = " ".join(traceback.format_exception_only(type(error), error)[-1].split())
    return text + place, "".join(traceback.format_exception(type(error), error, error.__traceback__))
