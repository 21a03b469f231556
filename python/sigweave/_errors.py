"""What can go wrong, as exceptions."""

from __future__ import annotations

import re
from typing import TYPE_CHECKING, Any, NamedTuple

if TYPE_CHECKING:
    from sigweave._run import Report


def remedy_of(text: str) -> str:
    """The last part of a message, which says what to do; empty when it has only one part."""
    parts = re.split(r"; (?![^()]*\))", text)
    return parts[-1] if len(parts) > 1 else ""


class Mistake(NamedTuple):
    """One thing to mend in a graph or a call."""

    source: str  # the file, or the argument
    line: int  # counted from 1; 0: the source as a whole
    text: str  # what is wrong, with the remedy

    @property
    def remedy(self) -> str:
        """What to do about it; empty when the text does not say it apart."""
        return remedy_of(self.text)

    def __str__(self) -> str:
        return f"{self.source}:{self.line}: {self.text}" if self.line else f"{self.source}: {self.text}"


class Failure(NamedTuple):
    """A module that ended a run."""

    instance: str
    code: int  # negative, the module's; 0: it threw an exception
    port: str  # INSTANCE.PORT when it is about one, else empty
    reason: str
    line: int  # of the instance in the graph; 0: not known


class Error(Exception):
    """What all errors of this package have in common.

    ``code`` is the module's (0: none), ``port`` INSTANCE.PORT (or empty), ``line`` that of the graph (0: none),
    ``remedy`` what to do (or empty).
    """

    code: int = 0
    port: str = ""
    line: int = 0
    remedy: str = ""


class GraphError(Error, ValueError):
    """A graph, a setting or the name of an output is wrong; nothing was run. ``mistakes`` has all of them."""

    def __init__(self, mistakes: list[Mistake]) -> None:
        super().__init__("\n".join(str(mistake) for mistake in mistakes))
        self.mistakes = mistakes
        self.line = mistakes[0].line if mistakes else 0
        self.remedy = mistakes[0].remedy if mistakes else ""

    def __reduce__(self) -> Any:
        return GraphError, (self.mistakes,)


class RunError(Error, RuntimeError):
    """A run failed or stalled. ``report`` has what came of it, with the signals up to there."""

    def __init__(self, text: str, report: Report, failures: list[Failure]) -> None:
        super().__init__(text)
        self.report = report
        self.failures = failures
        self.remedy = remedy_of(text)
        if failures:
            self.instance, self.code, self.port, _, self.line = failures[0]
        else:
            self.instance = ""

    def __reduce__(self) -> Any:
        return RunError, (self.args[0], self.report, self.failures)


class RecordingError(Error, OSError):
    """A recording cannot be read."""

    def __init__(self, text: str) -> None:
        super().__init__(text)
        self.remedy = remedy_of(text)


class Interrupted(KeyboardInterrupt):
    """The run was ended by Ctrl-C or the stop button: its sources ended their signals, and all blocks that were
    on their way were processed. ``report`` has what came of it."""

    def __init__(self, report: Report) -> None:
        super().__init__("the run was interrupted; the report has what came of it")
        self.report = report

    def __reduce__(self) -> Any:
        return Interrupted, (self.report,)


def in_python(text: str) -> str:
    """A text that names options of the program, with the arguments of this package instead."""
    return text.replace("--module-path", "module_path").replace("--set voice.block=512", "{'voice.block': 512}")


def _place(source: str) -> str:
    setting = re.fullmatch(r"--set (.*?)=(.*)", source, re.DOTALL)
    return f"set={{{setting[1]!r}: {setting[2]!r}}}" if setting else source


def mistakes_of(found: list[dict[str, Any]]) -> list[Mistake]:
    return [Mistake(_place(one["source"]), one["line"], in_python(one["text"])) for one in found]
