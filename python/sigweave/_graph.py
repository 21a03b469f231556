"""Graphs that are built in Python."""

from __future__ import annotations

import difflib
import html
import os
from collections.abc import Iterator, Mapping
from typing import Any, Union

from sigweave import _core
from sigweave._drawing import draw
from sigweave._errors import GraphError, Mistake, mistakes_of
from sigweave._modules import ModulePath, modules
from sigweave._run import Report, Stream, _open_session, run, stream
from sigweave._tables import table_of
from sigweave._values import path_of, text_of, texts


NEEDED = "must be given"
UNNAMED = "graph"  # where a graph that was not read from a file has its mistakes
LINE = "a line goes from INSTANCE.OUTPUT to INSTANCE.INPUT, as 'tone.Signal', 'lp.Signal'"


class Instance:
    """One module of a graph. Its attributes are its parameters: `g["lp"].corner = "3 kHz"`, and `del
    g["lp"].corner` brings the default back. What is read is the text of the setting, or of the default; None
    when it must be given and was not. Parameters with odd names are items: `g["lp"]["corner"]`.

    AttributeError (KeyError for items) for a parameter that the module does not declare.
    """

    __slots__ = ("_graph", "_name")
    _graph: Graph
    _name: str

    def __init__(self, graph: Graph, name: str) -> None:
        object.__setattr__(self, "_graph", graph)
        object.__setattr__(self, "_name", name)

    def _module(self) -> str:
        return dict(self._graph._file.instances())[self._name]

    def _declared(self) -> dict[str, dict[str, Any]] | None:
        """By name; None when the module is not known."""
        module = modules(self._graph._module_path).get(self._module())
        return None if module is None else {one["name"]: one for one in module["parameters"]}

    def _why_not(self, name: str) -> str:
        declared = self._declared()
        if declared is None or name in declared:
            return ""
        near = difflib.get_close_matches(name, declared) or list(declared)
        return f"'{self._name}' ({self._module()}) has no parameter '{name}'; did you mean {', '.join(near)}?"

    def __getitem__(self, name: str) -> str | None:
        settings = self._graph._file.settings(self._name)
        if name in settings:
            return settings[name]
        if why := self._why_not(name):
            raise KeyError(why)
        default = (self._declared() or {}).get(name, {}).get("default")
        return None if default is None else str(default)

    def __setitem__(self, name: str, value: Any) -> None:
        if why := self._why_not(name):
            raise KeyError(why)
        self._graph._file.set(self._name, name, text_of(value))

    def __delitem__(self, name: str) -> None:
        self._graph._file.unset(self._name, name)

    def __getattr__(self, name: str) -> str | None:
        if name.startswith("_"):  # of Python and of notebooks
            raise AttributeError(f"'Instance' object has no attribute '{name}'")
        try:
            return self[name]
        except KeyError as error:
            raise AttributeError(error.args[0]) from None

    def __setattr__(self, name: str, value: Any) -> None:
        try:
            self[name] = value
        except KeyError as error:
            raise AttributeError(error.args[0]) from None

    def __delattr__(self, name: str) -> None:
        del self[name]

    def __dir__(self) -> list[str]:
        return list(self._declared() or {})

    def __reduce__(self) -> Any:
        return Instance, (self._graph, self._name)

    def _ipython_key_completions_(self) -> list[str]:
        return dir(self)

    def _repr_html_(self) -> str:
        """Its parameters, with what is set and what they mean."""
        settings = self._shown()
        rows = [
            (name, settings.get(name, ""), one.get("default", NEEDED if one["required"] else ""), one["unit"], one["help"])
            for name, one in (self._declared() or {}).items()
        ]
        return f"<p><b>{html.escape(self._name)}</b> {html.escape(self._module())}</p>" + table_of(
            ("parameter", "set", "default", "unit", "help"), rows
        )

    def _shown(self) -> dict[str, str]:
        """The settings, without secrets."""
        declared = self._declared() or {}
        settings = self._graph._file.settings(self._name)
        return {k: "***" if declared.get(k, {}).get("secret") else v for k, v in settings.items()}

    def __repr__(self) -> str:
        settings = "".join(f" {k}={v}" for k, v in self._shown().items())
        return f"<{self._name}: {self._module()}{settings}>"


class Graph(Mapping[str, Instance]):
    """Modules, their settings and the lines between them; as a mapping the instances by their names.

        g = sigweave.Graph()
        g.add("Generator", "tone", frequency=440)
        g.add("Filter", "lp", corner="3 kHz")
        g.connect("tone.Signal", "lp.Signal")
        report = g.run(keep=["lp.Signal"])

    `Graph("a.graph")` reads a file (text or XML; GraphError when it is not well formed), with its comments.
    """

    def __init__(
        self, path: Union[str, os.PathLike[str], None] = None, *, module_path: ModulePath = None
    ) -> None:
        self._path = UNNAMED if path is None else path_of(path)
        self._module_path = module_path
        self._file = _core.GraphFile()
        if path is not None:
            self._read(None)

    def _read(self, text: str | None) -> None:
        self._file, found = _core.GraphFile.read(self._path, text)
        if found:
            raise GraphError(mistakes_of(found))

    @classmethod
    def parse(cls, text: str, *, module_path: ModulePath = None) -> Graph:
        """A graph from the text of a graph file. GraphError when it is not well formed."""
        texts("parse takes the text of a graph; Graph(path) reads a file", text)
        graph = cls(module_path=module_path)
        graph._read(text)
        return graph

    def add(self, module: str, name: str, /, **settings: Any) -> Instance:
        """Adds an instance of a module with its settings. ValueError for a name that is there; AttributeError
        for a parameter that the module does not declare, and then nothing was added."""
        texts("add takes the module and a name for it, as add('Filter', 'lp', corner='3 kHz')", module, name)
        self._file.add(name, module)
        instance = Instance(self, name)
        try:
            for parameter, value in settings.items():
                setattr(instance, parameter, value)
        except BaseException:
            self._file.remove(name)
            raise
        return instance

    def connect(self, source: str, target: str) -> None:
        """Draws a line from INSTANCE.OUTPUT to INSTANCE.INPUT. ValueError for a text that is not of that form;
        whether the ports are there is found by `check`."""
        texts(LINE, source, target)
        self._file.connect(source, target)

    def disconnect(self, source: str, target: str) -> None:
        """Takes a line away. KeyError when there is none."""
        texts(LINE, source, target)
        if not self._file.disconnect(source, target):
            raise KeyError(f"there is no line from {source} to {target}")

    @property
    def lines(self) -> list[tuple[str, str]]:
        """Each line as (INSTANCE.OUTPUT, INSTANCE.INPUT)."""
        return self._file.lines()

    @property
    def accepts_differences(self) -> bool:
        """Whether lines between ports of different meaning are accepted."""
        return self._file.accepts_differences

    @accepts_differences.setter
    def accepts_differences(self, accept: bool) -> None:
        self._file.accepts_differences = accept

    def check(self) -> list[Mistake]:
        """All mistakes, with the lines of `text`; an empty list when the graph can be run. Runs nothing."""
        session, path = _open_session(self, None, [], self._module_path, check=True)
        session.start()
        while not session.wait(100):
            pass
        return mistakes_of(session.report(path)["mistakes"])

    @property
    def text(self) -> str:
        """The graph as the text of a graph file. ValueError when a name cannot be said in one."""
        return self._file.text(False)

    def save(self, path: Union[str, os.PathLike[str], None] = None) -> None:
        """Writes the graph file, whole or not at all: as XML when the name ends in .xml, else as text. Without a
        path to where it was read from. OSError when it cannot be written."""
        if path is None and self._path == UNNAMED:
            raise ValueError("the graph was not read from a file; name one: save('a.graph')")
        target = self._path if path is None else path_of(path)
        _core.write_file(target, self._file.text(target.endswith(".xml")))
        self._path = target

    def run(self, **options: Any) -> Report:
        """See `sigweave.run`."""
        return run(self, **options)

    def stream(self, *outputs: str, **options: Any) -> Stream:
        """See `sigweave.stream`."""
        return stream(self, *outputs, **options)

    def __getitem__(self, name: str) -> Instance:
        if name not in dict(self._file.instances()):
            near = difflib.get_close_matches(name, list(self)) or list(self)
            raise KeyError(f"there is no instance '{name}'; there are: {', '.join(near)}")
        return Instance(self, name)

    def __delitem__(self, name: str) -> None:
        """Removes an instance with its lines."""
        self._file.remove(self[name]._name)

    def __setitem__(self, name: str, value: Any) -> None:
        raise TypeError(f"instances are added with add('Module', {name!r}), and set by g[{name!r}].parameter = value")

    def copy(self) -> Graph:
        """One of its own, with the same comments."""
        return _restored(*self._state())

    def _state(self) -> tuple[str, str, ModulePath]:
        return self._path, self.text, self._module_path

    def __reduce__(self) -> Any:
        return _restored, self._state()

    def __copy__(self) -> Graph:
        return self.copy()

    def __deepcopy__(self, memo: dict[int, Any]) -> Graph:
        return self.copy()

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Graph) and self._file_parts() == other._file_parts()

    __hash__ = None  # type: ignore[assignment]  # it changes

    def _file_parts(self) -> tuple[Any, ...]:
        instances = self._file.instances()
        return instances, [self._file.settings(name) for name, _ in instances], self.lines, self.accepts_differences

    def _ipython_key_completions_(self) -> list[str]:
        return list(self)

    def __iter__(self) -> Iterator[str]:
        return iter(name for name, _ in self._file.instances())

    def __len__(self) -> int:
        return len(self._file.instances())

    def __str__(self) -> str:
        return self.text

    def __repr__(self) -> str:
        return f"<Graph {self._path}: {', '.join(self) or 'empty'}>"

    def _repr_svg_(self) -> str:
        return draw(self._file.instances(), self.lines)


def _restored(path: str, text: str, module_path: ModulePath) -> Graph:
    graph = Graph.parse(text, module_path=module_path)
    graph._path = path
    return graph
