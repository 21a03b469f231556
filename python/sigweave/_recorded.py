"""Signals that stay in the file of their recording."""

from __future__ import annotations

import os
import threading
import warnings
from collections.abc import Iterator
from typing import TYPE_CHECKING, Any

import numpy as np
import numpy.typing as npt
from numpy.lib.mixins import NDArrayOperatorsMixin

from sigweave import _core
from sigweave._errors import RecordingError
from sigweave._signal import Gap, Signal
from sigweave._values import check_key, numbers

if TYPE_CHECKING:
    import pandas
    import xarray

AT_ONCE = 1 << 16  # values that an iterator reads in one piece


class RecordedSignal(NDArrayOperatorsMixin):
    """A signal of a packed recording. Its values stay in the file, and a slice of it is a `Signal`: within one block
    a view of the file, over several a copy.

        mic = recording["mic"]
        mic[48000:96000]          # by number
        mic.between(1.0, 2.0)     # by time, in seconds after the start

    One dimension: values in time. Two or three: spectra or matrices, one a block. It may go wherever an array may;
    all of it is read then. The file stays mapped as long as this or a view lives, so closing the recording is
    harmless. Of a block that is lost or damaged nothing is given, and a warning says so. Any thread.
    """

    name: str  # that the signal has; of a bus that of its channel
    port: str  # of the recorder
    unit: str  # as people write it: "mV"; empty: none
    stored_unit: str  # as files have it: "V * 1e-003"
    rate: float  # values a second, of spectra a hertz; 0: not known
    start: float  # the moment of the first value, in seconds since 1970; 0 when nothing says it
    range: tuple[float, float]  # that the values are said to keep
    is_spectrum: bool
    dtype: np.dtype[Any]

    def __init__(self, path: str, recording: _core.PackedRecording, part: int, said: dict[str, Any]) -> None:
        info = said["info"]
        self._path, self._recording, self._part, self._said = path, recording, part, said
        self.name, self.port = said["name"], said["port"]
        self.unit, self.stored_unit, self.rate = info["unit"], info["stored_unit"], info["rate"]
        self.start, self.range = info["start"], (info["low"], info["high"])
        self.is_spectrum, self.dtype = said["spectrum"], np.dtype(said["dtype"])
        self._lock = threading.Lock()
        self._marks: npt.NDArray[np.float64] | None = None
        self._texts: Signal | None = None

    @property
    def shape(self) -> tuple[int, ...]:
        """As of the array of all values."""
        if self.dtype == object:
            return self._decoded().shape
        return self._recording.shape(self._part)

    @property
    def ndim(self) -> int:
        """The number of dimensions."""
        return len(self.shape)

    @property
    def size(self) -> int:
        """The number of values."""
        return int(np.prod(self.shape))

    def __len__(self) -> int:
        return self.shape[0]

    def _decoded(self) -> Signal:
        """Of texts, which have no place that could be mapped: all of them, read once."""
        with self._lock:
            if self._texts is None:
                parts, error = _core.decode_packed(self._path, self._said["signal"])
                if error:
                    raise RecordingError(error)
                found = [part for part in parts if part["name"] == self._said["channel"]]
                self._texts = Signal._of(found[0]) if found else Signal._empty()
            return self._texts

    def _read(self, begin: int, end: int) -> Signal:
        if self.dtype == object:
            part: Signal = self._decoded()[begin:end]
            return part
        try:
            found = self._recording.read(self._part, begin, max(begin, end))
        except ValueError as error:
            raise RecordingError(str(error)) from None
        values, marks, info, skip, is_lossy = found
        if is_lossy:
            text = self._recording.missing()
            warnings.warn(f"values of '{self.name}' are lost between {begin} and {end}: {text}", RuntimeWarning, 3)
        signal = Signal._of({"values": values, "marks": marks, "info": info, "spectrum": self.is_spectrum})
        signal._first = skip
        return signal

    def __getattr__(self, name: str) -> Any:
        if not name.startswith("_") and hasattr(np.ndarray, name):
            raise AttributeError(f"the signal stays in its file and has no '{name}'; read what you need: signal[:].{name}")
        raise AttributeError(f"'RecordedSignal' object has no attribute '{name}'")

    def __reduce__(self) -> Any:
        return _again, (os.path.abspath(self._path), self._part)

    def __copy__(self) -> RecordedSignal:
        return self

    def __deepcopy__(self, memo: Any) -> RecordedSignal:
        return self

    def __getitem__(self, key: Any) -> Any:
        check_key(key)
        if isinstance(key, slice):
            begin, end, step = key.indices(len(self))
            if step == 1:
                return self._read(begin, end)
            if step < 0:
                return self._read(0, len(self))[key]
            return self._read(begin, end)[::step]
        if isinstance(key, (int, np.integer)):
            at = int(key) + len(self) if key < 0 else int(key)
            if not 0 <= at < len(self):
                raise IndexError(f"'{self.name}' has {len(self)} values; there is none of number {key}")
            found = self._read(at, at + 1)
            if not len(found):
                raise RecordingError(f"value {at} of '{self.name}' is lost: {self._recording.missing()}")
            return found[0]
        return self[:][key]

    def __iter__(self) -> Iterator[Any]:
        for begin in range(0, len(self), AT_ONCE):
            yield from self[begin : begin + AT_ONCE]

    def __array__(self, dtype: npt.DTypeLike = None) -> npt.NDArray[Any]:
        values: npt.NDArray[Any] = self[:].view(np.ndarray)
        return values if dtype is None else values.astype(dtype, copy=False)

    def __array_ufunc__(self, ufunc: np.ufunc, method: str, *inputs: Any, **kwargs: Any) -> Any:
        plain = [np.asarray(value) if isinstance(value, RecordedSignal) else value for value in inputs]
        return getattr(ufunc, method)(*plain, **kwargs)

    def _shown(self) -> Signal:
        """The same signal without its values: what its blocks say of time."""
        empty = np.broadcast_to(np.zeros((), self.dtype), self.shape)
        info = self._said["info"]
        return Signal._of({"values": empty, "marks": self.blocks, "info": info, "spectrum": self.is_spectrum})

    @property
    def blocks(self) -> npt.NDArray[np.float64]:
        """A row for each block: first value, number of values, start in seconds since 1970, rate, state (0 START,
        1 BUSY, 2 STOP, 3 COMPLETE, -1 none). Found once, by passing all blocks of the file."""
        if self.dtype == object:
            return self._decoded().blocks
        with self._lock:
            if self._marks is None:
                try:
                    self._marks = self._recording.marks(self._part)
                except ValueError as error:
                    raise RecordingError(str(error)) from None
                self._marks.flags.writeable = False
            return self._marks

    @property
    def gaps(self) -> list[Gap]:
        """Where the signal does not go on in time, by the times of its blocks."""
        return self._shown().gaps

    def time(self) -> npt.NDArray[np.float64]:
        """As `Signal.time`, of all values."""
        return self._shown().time()

    def frequency(self) -> npt.NDArray[np.float64]:
        """Of spectra, the frequencies of a row, in hertz. ValueError for other signals."""
        return self._shown().frequency()

    def between(self, begin: float, end: float) -> Signal:
        """The values from `begin` up to and without `end`, in seconds after the start. ValueError for spectra."""
        if self.is_spectrum:
            raise ValueError("a spectrum has no time; take its rows by their number")
        if self.dtype == object:
            return self._decoded().between(begin, end)
        begin, end = numbers(begin, end)
        first = self._recording.locate(self._part, begin)
        return self._read(first, self._recording.locate(self._part, end))

    def to_pandas(self) -> pandas.Series[Any] | pandas.DataFrame:
        """As `Signal.to_pandas`, of all values. ImportError without pandas."""
        return self._read(0, len(self)).to_pandas()

    def to_xarray(self) -> xarray.DataArray:
        """As `Signal.to_xarray`, of all values. ImportError without xarray."""
        return self._read(0, len(self)).to_xarray()

    def __repr__(self) -> str:
        shape = " x ".join(str(extent) for extent in self.shape)
        unit = f" in {self.unit}" if self.unit else ""
        rate = f", {self.rate:g} {'per Hz' if self.is_spectrum else '/s'}" if self.rate else ""
        return f"<RecordedSignal {self.name}{unit}: {shape}{rate}>"


def _again(path: str, part: int) -> RecordedSignal:
    from sigweave._recording import open  # which makes these

    return [one for one in open(path).values() if isinstance(one, RecordedSignal)][part]


def signals_in(path: str, recording: _core.PackedRecording) -> dict[str, RecordedSignal]:
    """By their names; where several have the same one, with their ports: "sine (Signal 2)"."""
    made = [RecordedSignal(path, recording, i, said) for i, said in enumerate(recording.parts())]
    names = [signal.name for signal in made]
    return {
        signal.name if names.count(signal.name) == 1 else f"{signal.name} ({signal.port})": signal for signal in made
    }
