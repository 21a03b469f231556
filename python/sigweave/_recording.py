"""Recordings as arrays."""

from __future__ import annotations

import builtins
import os
from collections.abc import Iterator, Mapping
from types import TracebackType
from typing import Union

from sigweave import _core
from sigweave._errors import RecordingError
from sigweave._signal import Gap, Signal


class Recording(Mapping[str, Signal]):
    """The signals of a recording by their names. Made by `open`.

    Closing it is harmless while arrays of it live: they keep what they show.
    """

    path: str
    missing: str  # what the end of the file lacks, in words; empty: nothing

    def __init__(self, path: str, signals: dict[str, Signal], missing: str, block_count: int) -> None:
        self.path, self.missing, self.block_count = path, missing, block_count
        self._signals = signals

    def __getitem__(self, name: str) -> Signal:
        if name not in self._signals:
            raise KeyError(f"{self.path} has no signal '{name}'; it has: {', '.join(self._signals)}")
        return self._signals[name]

    def __iter__(self) -> Iterator[str]:
        return iter(self._signals)

    def __len__(self) -> int:
        return len(self._signals)

    @property
    def gaps(self) -> dict[str, list[Gap]]:
        """The gaps of the signals that have any."""
        return {name: signal.gaps for name, signal in self._signals.items() if signal.gaps}

    def close(self) -> None:
        """Forgets the signals. Harmless when repeated."""
        self._signals = {}

    def __enter__(self) -> Recording:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<Recording {self.path}: {', '.join(self._signals) or 'no signal'}>"


def open(path: Union[str, "os.PathLike[str]"]) -> Recording:
    """Reads a recording (an XML document, as XmlRecorder writes it), also one that is still being written or was
    broken off: what is there can be used, and `missing` says what is not.

    FileNotFoundError, PermissionError: as Python's open. RecordingError: the file is no recording.
    """
    name = os.fspath(path)
    with builtins.open(name, "rb"):
        pass
    parts, missing, error, blocks = _core.read_recording(name)
    if error:
        raise RecordingError(error)
    return Recording(name, {part["name"]: Signal._of(part) for part in parts}, missing, blocks)

