"""The modules that graphs may name."""

from __future__ import annotations

import difflib
import json
import os
import warnings
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Union

from sigweave import _core
from sigweave._errors import in_python
from sigweave._tables import table_of

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


class Modules(dict[str, dict[str, Any]]):
    """The declarations of modules by their ids."""

    def __missing__(self, name: str) -> dict[str, Any]:
        near = difflib.get_close_matches(str(name), self)
        raise KeyError(f"there is no module '{name}'; " + (f"did you mean {', '.join(near)}?" if near else f"known are {', '.join(self)}"))

    def _repr_html_(self) -> str:
        return table_of(("module", "description"), [(name, one["description"]) for name, one in self.items()])


_State = list[tuple[str, int, int]]
_declared: dict[tuple[str, ...], tuple[_State, Modules]] = {}


def default_folder() -> str:
    return str(next((place for place in _PLACES if place.is_dir()), _PLACES[-1]))


_core.set_default_folder(default_folder())
_core.set_python_loader(str(Path(default_folder()).parent / "python" / "loader.so"))


def folders_of(module_path: ModulePath) -> list[str]:
    """The folders of a module path: of None those of SIGWEAVE_MODULE_PATH, else the modules that came along. In a
    text the folders are separated by colons, and an empty one means the modules that came along. TypeError for what is no
    path."""
    if module_path is None:
        module_path = os.environ.get("SIGWEAVE_MODULE_PATH", "")
    if isinstance(module_path, (str, os.PathLike)):
        parts = os.fspath(module_path).split(":")
    else:
        try:
            parts = [os.fspath(part) for part in module_path]
        except TypeError:
            raise TypeError(f"module_path is a folder or a list of folders, not {module_path!r}") from None
    return [part or default_folder() for part in parts]


def _state(folders: tuple[str, ...]) -> _State:
    """What changes when a library or a file of modules does."""
    found = []
    for folder in folders:
        try:
            files = [one for one in os.scandir(folder) if one.name.endswith((".py", ".so"))]
            found += [(one.path, one.stat().st_mtime_ns, one.stat().st_size) for one in files]
        except OSError:
            found.append((folder, 0, 0))
    return sorted(found)


def modules(module_path: ModulePath = None) -> Modules:
    """The declarations of all modules by their ids: description, ports with their types, parameters with kind, default, unit,
    limits and help. Files that were changed are read again. Those that cannot be used are left out, and a RuntimeWarning says
    why."""
    key = tuple(folders_of(module_path))
    state = _state(key)
    if key not in _declared or _declared[key][0] != state:
        texts, problems = _core.list_modules(list(key))
        _declared[key] = state, Modules((one["id"], one) for one in map(json.loads, texts))
        for problem in problems:
            warnings.warn(in_python(problem), RuntimeWarning, 2)
    return _declared[key][1]
