"""Recordings as arrays."""

from __future__ import annotations

import builtins
import os
from collections.abc import Iterator, Mapping
from types import TracebackType
from typing import TYPE_CHECKING, Any, Union

from sigweave import _core
from sigweave._errors import RecordingError
from sigweave._recorded import RecordedSignal, signals_in
from sigweave._signal import Gap, Signal
from sigweave._tables import AnySignal, dataset_of, frame_of
from sigweave._values import path_of

if TYPE_CHECKING:
    import pandas
    import xarray


class Recording(Mapping[str, Union[Signal, RecordedSignal]]):
    """The signals of a recording by their names, the channels of a bus by theirs. Made by `open`.

    Closing it is harmless while signals and arrays of it live: they keep what they show.
    """

    path: str

    def __init__(self, path: str) -> None:
        self.path = path
        self._packed: _core.PackedRecording | None = None
        self._signals: dict[str, AnySignal] = {}
        self._missing = ""
        self._blocks = 0
        self._is_closed = False
        self.refresh()

    def refresh(self) -> None:
        """Opens the file again, to see what was recorded meanwhile. What was taken from it before stays as it is.
        Errors are those of `open`."""
        with builtins.open(self.path, "rb") as file:
            is_text = file.read(256).lstrip(b"\xef\xbb\xbf \t\r\n").startswith(b"<")
        if is_text:
            parts, self._missing, error, self._blocks = _core.read_recording(self.path)
            signals: dict[str, AnySignal] = {part["name"]: Signal._of(part) for part in parts}
        else:
            self._packed, error = _core.open_packed(self.path)
            signals = {**signals_in(self.path, self._packed)} if self._packed is not None else {}
        if error:
            raise RecordingError(error)
        self._signals, self._is_closed = signals, False

    @property
    def missing(self) -> str:
        """What the end of the file lacks, and what was found to be lost or damaged so far, in words; empty:
        nothing."""
        return self._missing if self._packed is None else self._packed.missing()

    @property
    def block_count(self) -> int:
        """The blocks of all signals together."""
        return self._blocks if self._packed is None else self._packed.block_count()

    @property
    def facts(self) -> dict[str, str]:
        """What the recording says of its run: graph, settings, start, machine; empty for an XML recording."""
        return {} if self._packed is None else self._packed.facts()

    @property
    def is_being_written(self) -> bool:
        """Whether a program is still recording; False for an XML recording, whose `missing` says it."""
        return self._packed is not None and self._packed.is_being_written()

    def check(self) -> list[str]:
        """Reads every block and compares it with its checksum: what is lost or damaged, in words. RecordingError
        when it cannot be read any more."""
        if self._packed is None:
            return [self._missing] if self._missing else []
        found, error = _core.check_packed(self.path)
        if error:
            raise RecordingError(error)
        return found

    def __reduce__(self) -> Any:
        return open, (os.path.abspath(self.path),)

    def _ipython_key_completions_(self) -> list[str]:
        return list(self)

    def __getitem__(self, name: str) -> AnySignal:
        if self._is_closed:
            raise KeyError(f"{self.path} was closed; refresh() opens it again")
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
        return {name: gaps for name, signal in self._signals.items() if (gaps := signal.gaps)}

    def to_pandas(self) -> pandas.DataFrame:
        """A column for each signal, over the moments of all in UTC; NaN where a signal has none. ValueError for
        spectra, ImportError without pandas."""
        return frame_of(self.items())

    def to_xarray(self) -> xarray.Dataset:
        """An array for each signal, with its axes. ImportError without xarray."""
        return dataset_of(self.items())

    def close(self) -> None:
        """Forgets the signals. Harmless when repeated."""
        self._signals, self._is_closed = {}, True

    def __enter__(self) -> Recording:
        return self

    def __exit__(
        self, kind: type[BaseException] | None, error: BaseException | None, trace: TracebackType | None
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<Recording {self.path}: {'closed' if self._is_closed else ', '.join(self._signals) or 'no signal'}>"


def open(path: Union[str, "os.PathLike[str]"]) -> Recording:
    """Opens a recording, packed (as Recorder writes it) or an XML document (XmlRecorder), also one that is still being
    written or was broken off: what is there can be used, and `missing` says what is not.

    A packed recording stays in its file, of whatever size it is; an XML document is read as a whole.

    FileNotFoundError, PermissionError, IsADirectoryError: as Python's open. RecordingError: the file is no recording.
    """
    return Recording(path_of(path))
