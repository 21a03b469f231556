"""Runs of graphs."""

from __future__ import annotations

import atexit
import difflib
import html
import json
import os
import sys
import warnings
import weakref
from collections.abc import Iterable, Iterator, Mapping
from types import TracebackType
from typing import TYPE_CHECKING, Any, NamedTuple, Union

import numpy as np

from sigweave import _core
from sigweave._errors import Error, Failure, GraphError, Interrupted, RunError, mistakes_of
from sigweave._modules import ModulePath, folders_of
from sigweave._signal import Gap, Signal, signals_of
from sigweave._tables import dataset_of, frame_of, table_of, text_of_table
from sigweave._values import path_of, text_of, texts

if TYPE_CHECKING:
    import pandas
    import xarray

    from sigweave._graph import Graph

Source = Union[str, bytes, "os.PathLike[str]", "Graph"]
POLL = 100  # milliseconds between two looks for Ctrl-C
MOST_THREADS = 256
OUTPUTS = "outputs are named as texts, INSTANCE.OUTPUT"
MANY_BLOCKS = 64  # held beyond those that wait; more is worth a word

_sessions: weakref.WeakSet[_core.Session] = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    for session in list(_sessions):
        session.close()


class Result(NamedTuple):
    """One figure that a module found."""

    instance: str
    signal: str
    quantity: str
    value: float
    unit: str  # as people write it: "mV"


class Results(list[Result]):
    """The figures of a run, in the order of the graph."""

    def value(self, quantity: str, instance: str | None = None, signal: str | None = None) -> float:
        """The only figure of that quantity (of that instance and signal). KeyError when there is none, or
        several."""
        named = [one for one in self if one.quantity == quantity]
        found = [one for one in named if instance in (None, one.instance) and signal in (None, one.signal)]
        if len(found) == 1:
            return found[0].value
        if not named:
            known = sorted({one.quantity for one in self})
            near = difflib.get_close_matches(str(quantity), known)
            hint = f"; did you mean {', '.join(near)}?" if near else ""
            raise KeyError(f"no result is called '{quantity}'{hint}; quantities are: {', '.join(known) or 'none'}")
        places = ", ".join(f"{one.instance} of {one.signal}" for one in found or named)
        if not found:
            raise KeyError(f"'{quantity}' is not a result of that instance and signal, but of: {places}")
        raise KeyError(f"{len(found)} results are called '{quantity}'; choose by instance and signal: {places}")

    def to_pandas(self) -> pandas.DataFrame:
        """A table with the columns instance, signal, quantity, value and unit. ImportError without pandas."""
        import pandas

        return pandas.DataFrame(self, columns=list(Result._fields))

    def _repr_html_(self) -> str:
        return table_of(Result._fields, self._shown())

    def __repr__(self) -> str:
        return text_of_table(Result._fields, self._shown()) if self else "[]"

    def _shown(self) -> list[tuple[str, ...]]:
        return [(*one[:3], f"{one.value:.10g}", one.unit) for one in self]


class Message(NamedTuple):
    """What a module or the host said in a run."""

    severity: str  # error, warning or note
    instance: str  # empty: of the run as a whole
    text: str
    times: int


class Report(Mapping[str, Any]):
    """What came of a run. As a mapping it has the kept signals: `report["low.Signal"]` is a `Signal`, or of a bus
    a dict of them by the names of its channels."""

    verdict: str  # complete, interrupted, stalled or failed
    explanation: str  # what went wrong; empty for a complete run
    seconds: float  # that the run took
    signal_seconds: float  # the longest signal of a source; -1: not known
    results: Results
    messages: list[Message]
    json: dict[str, Any]  # the whole report, as the program's --json writes it

    def __init__(self, found: dict[str, Any], signals: dict[str, Any]) -> None:
        self.verdict, self.explanation = found["verdict"], found["explanation"]
        self.seconds, self.signal_seconds = found["seconds"], found["signal_seconds"]
        self.results = Results(Result(*one) for one in found["results"])
        self.messages = [Message(**one) for one in found["messages"]]
        self.json = json.loads(found["json"])
        self.signals = signals
        self._text = found["text"]

    @property
    def warnings(self) -> list[str]:
        """The texts of the warnings."""
        return [message.text for message in self.messages if message.severity == "warning"]

    @property
    def gaps(self) -> dict[str, list[Gap]]:
        """The gaps of the kept signals that have any, by the names of their outputs."""
        return {name: signal.gaps for name, signal in self._each() if signal.gaps}

    def _each(self) -> Iterator[tuple[str, Signal]]:
        for name, kept in self.signals.items():
            if not isinstance(kept, dict):
                yield name, kept
            else:
                yield from ((f"{name}.{channel}", signal) for channel, signal in kept.items())

    def to_pandas(self) -> pandas.DataFrame:
        """A column for each kept signal, over the moments of all in UTC; NaN where a signal has none. ValueError for
        spectra, ImportError without pandas. The figures are in `results.to_pandas()`."""
        return frame_of(self._each())

    def to_xarray(self) -> xarray.Dataset:
        """An array for each kept signal, with its axes. ImportError without xarray."""
        return dataset_of(self._each())

    def __getitem__(self, name: str) -> Any:
        if name not in self.signals:
            kept = ", ".join(self.signals) or "nothing"
            raise KeyError(f"'{name}' was not kept; keep=[...] names the outputs; kept: {kept}")
        return self.signals[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self.signals)

    def __len__(self) -> int:
        return len(self.signals)

    def __str__(self) -> str:
        return str(self._text)

    def _ipython_key_completions_(self) -> list[str]:
        return list(self)

    def __repr__(self) -> str:
        return f"<Report {self.verdict}: results {len(self.results)}, signals {list(self.signals)}>"

    def _repr_html_(self) -> str:
        notes = "".join(f"<p>{html.escape(one.text)}</p>" for one in self.messages)
        why = f"<p>{html.escape(self.explanation)}</p>" if self.explanation else ""
        return f"<p><b>{self.verdict}</b></p>{why}{self.results._repr_html_()}{notes}"


def _open_session(
    graph: Source,
    set: Mapping[str, Any] | None,
    outputs: list[str],
    module_path: ModulePath,
    realtime: bool = False,
    check: bool = False,
    threads: int = 1,
    capacity: int = 0,
) -> tuple[_core.Session, str]:
    from sigweave._graph import Graph  # which is run by what is here

    texts(OUTPUTS, *outputs)
    if not isinstance(set or {}, Mapping):
        raise TypeError(f"set is a dict of settings, as set={{'lp.corner': '3 kHz'}}, not a {type(set).__name__}")
    if realtime not in (True, False):
        raise TypeError(f"realtime is True or False, not {realtime!r}")
    settings = [f"{name}={text_of(value)}" for name, value in (set or {}).items()]
    if isinstance(graph, (str, bytes, os.PathLike)):
        path, text = path_of(graph), None
    elif isinstance(graph, Graph):
        path, text = graph._path, graph.text
        module_path = graph._module_path if module_path is None else module_path
    else:
        raise TypeError(f"a graph is a Graph, or the path of a graph file, not a {type(graph).__name__}")
    session = _core.Session(path, text, settings, folders_of(module_path), outputs, bool(realtime), check, threads, capacity)
    _sessions.add(session)
    return session, path


def _report_of(session: _core.Session, path: str, outputs: list[str], keep: bool = True) -> Report:
    """The report of a session that is over, or the exception that it deserves."""
    found = session.report(path)
    if found["trouble"]:
        raise RuntimeError(found["trouble"])
    if found["mistakes"]:
        raise GraphError(mistakes_of(found["mistakes"]))
    kept = dict(zip(outputs, session.kept())) if keep else {}
    report = Report(found, {name: signals_of(parts) for name, parts in kept.items()})
    if report.verdict in ("failed", "stalled"):
        failures = [Failure(*one) for one in found["failures"]]
        raise RunError(report.explanation, report, failures)
    return report


class _ProgressLine:
    def __init__(self, wanted: bool | None) -> None:
        self.wanted = sys.stderr.isatty() if wanted is None else wanted
        self.width = 0

    def show(self, text: str) -> None:
        if not self.wanted or not (text or self.width):
            return
        print("\r" + text.ljust(self.width), end="" if text else "\r", file=sys.stderr, flush=True)
        self.width = len(text)


def _count_of(threads: int | str) -> int:
    if isinstance(threads, str) and threads == "auto":
        return 0
    if isinstance(threads, (int, np.integer)) and not isinstance(threads, bool) and 1 <= threads <= MOST_THREADS:
        return int(threads)
    raise ValueError(f'threads is a number from 1 to {MOST_THREADS}, or "auto"')


def run(
    graph: Source,
    *,
    set: Mapping[str, Any] | None = None,
    keep: Iterable[str] = (),
    threads: int | str = 1,
    realtime: bool = False,
    progress: bool | None = None,
    module_path: ModulePath = None,
) -> Report:
    """Runs a graph to its end and answers the report.

    graph        the path of a graph file, or a `Graph`
    set          settings that replace those of the graph: {"low.corner": "3 kHz", "voice.block": 512}
    keep         outputs whose signals the report has, as INSTANCE.OUTPUT
    threads      how many may run the graph, or "auto", as `sigweave run --threads`; where outputs are kept it is
                 one, and the results are always the same. Other threads of Python go on meanwhile
    realtime     whether sources make their blocks no faster than at their rate
    progress     whether a line on standard error says how far the run is; None: on a terminal
    module_path  see `modules`

    GraphError: the graph, a setting or an output is wrong, and nothing was run. RunError: a module failed, or the
    run stalled. Interrupted: Ctrl-C or the stop button ended it in an orderly way; it has the report too.
    """
    count = _count_of(threads)
    if isinstance(keep, str) or not isinstance(keep, Iterable):
        raise TypeError(f"{OUTPUTS}: keep={[str(keep or 'lp.Signal')]}")
    outputs = list(dict.fromkeys(keep))
    session, path = _open_session(graph, set, outputs, module_path, realtime, threads=count)
    line = _ProgressLine(progress)
    stopped = False
    session.start()
    while True:
        try:
            if session.wait(POLL):
                break
            line.show(session.progress()[4])
        except KeyboardInterrupt:
            stopped = True
            session.interrupt()
    line.show("")
    report = _report_of(session, path, outputs)
    if stopped:
        raise Interrupted(report)
    return report


class Stream:
    """The blocks of outputs while their run goes on, in its order. Made by `stream`.

    It ends when the run does; then `report` is there, and a failure is raised. Leaving the loop early leaves the
    run waiting: `close`, or a with statement, ends it. For one thread.
    """

    def __init__(self, session: _core.Session, path: str, outputs: list[str], capacity: int) -> None:
        self._session, self._path, self._outputs = session, path, outputs
        self._most = capacity + MANY_BLOCKS
        self.report: Report | None = None
        session.start()

    @property
    def held(self) -> int:
        """Blocks in memory: those that wait, and those that you keep, by themselves or by arrays of them."""
        return self._session.held()

    def __iter__(self) -> Stream:
        return self

    def __next__(self) -> _core.Block:
        while self.report is None:
            try:
                block = self._session.next(POLL)
            except KeyboardInterrupt:
                self.close()
                if self.report is None:
                    raise
                raise Interrupted(self.report) from None
            if block is False:
                self.report = _report_of(self._session, self._path, self._outputs, keep=False)
            elif block is not None:
                if self._session.held() > self._most:
                    self._warn()
                return block
        raise StopIteration

    def _warn(self) -> None:
        count = self._session.held()
        self._most = 2 * count
        warnings.warn(
            f"{count} blocks of {', '.join(self._outputs)} are held, and memory grows with each; copy what you "
            "keep, or keep whole signals with sigweave.run(keep=[...])",
            RuntimeWarning,
            stacklevel=3,
        )

    def close(self) -> None:
        """Ends the run in an orderly way and waits for that; then `report` is there, but for a graph with mistakes. What was
        kept stays. Harmless when repeated."""
        self._session.close()
        if self.report is None:
            try:
                self.report = _report_of(self._session, self._path, self._outputs, keep=False)
            except (Error, RuntimeError) as error:
                self.report = getattr(error, "report", None)

    def __repr__(self) -> str:
        state = f"{self.held} blocks held" if self.report is None else self.report.verdict
        return f"<Stream of {', '.join(self._outputs)}: {state}>"

    def __enter__(self) -> Stream:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()


def stream(
    graph: Source,
    *outputs: str,
    set: Mapping[str, Any] | None = None,
    realtime: bool = False,
    capacity: int = 16,
    module_path: ModulePath = None,
) -> Stream:
    """Runs a graph and hands on each block of the outputs (INSTANCE.OUTPUT), in the order of the run.

    At most `capacity` blocks wait; then the run does. Errors are those of `run`, raised by the loop.

        for block in sigweave.stream("voice.graph", "low.Signal"):
            print(block.start, np.abs(block.values).max(), block.unit)
    """
    if not outputs:
        raise TypeError("name the outputs to follow, as in stream('a.graph', 'low.Signal')")
    if not isinstance(capacity, (int, np.integer)) or capacity < 1:
        raise ValueError("capacity is the number of blocks that may wait, at least 1")
    session, path = _open_session(graph, set, list(outputs), module_path, realtime, capacity=int(capacity))
    return Stream(session, path, list(outputs), capacity)
