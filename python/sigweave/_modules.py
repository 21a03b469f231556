"""The modules that graphs may name."""

from __future__ import annotations

import json
import os
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Union

from sigweave import _core

ModulePath = Union[str, "os.PathLike[str]", Sequence[Union[str, "os.PathLike[str]"]], None]

_here = Path(__file__).resolve().parent
# Beside the package (a wheel), in the build folder, where Debian and an ordinary prefix put them.
_PLACES = [
    _here / "modules",
    _here.parent.parent / "lib" / "sigweave" / "modules",
    _here.parents[2] / "sigweave" / "modules",
    _here.parents[2] / "lib" / "sigweave" / "modules",
    Path("/usr/lib/sigweave/modules"),
]
_declared: dict[tuple[str, ...], dict[str, dict[str, Any]]] = {}


def default_folder() -> str:
    return str(next((place for place in _PLACES if place.is_dir()), _PLACES[-1]))


_core.set_python_loader(str(Path(default_folder()).parent / "python" / "loader.so"))


def folders_of(module_path: ModulePath) -> list[str]:
    """The folders of a module path: of None those of SIGWEAVE_MODULE_PATH, else the modules that came along. In a
    text the folders are separated by colons, and an empty one means the modules that came along."""
    if module_path is None:
        module_path = os.environ.get("SIGWEAVE_MODULE_PATH", "")
    if isinstance(module_path, (str, os.PathLike)):
        parts = os.fspath(module_path).split(":")
    else:
        parts = [os.fspath(part) for part in module_path]
    return [part or default_folder() for part in parts]


def modules(module_path: ModulePath = None) -> dict[str, dict[str, Any]]:
    """The declarations of all modules by their ids: description, ports with their types, parameters with kind,
    default, unit, limits and help. Libraries that cannot be used are left out."""
    key = tuple(folders_of(module_path))
    if key not in _declared:
        texts, _ = _core.list_modules(list(key))
        _declared[key] = {one["id"]: one for one in map(json.loads, texts)}
    return _declared[key]
