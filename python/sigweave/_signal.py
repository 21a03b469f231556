"""Signals as arrays."""

from __future__ import annotations

from typing import TYPE_CHECKING, Any, NamedTuple

import numpy as np
import numpy.typing as npt

from sigweave._values import check_key, numbers

if TYPE_CHECKING:
    import pandas
    import xarray

FIRST, COUNT, START, RATE = range(4)  # columns of the table of blocks
FIELDS = ("name", "unit", "stored_unit", "range", "is_spectrum", "_marks")
CLOCK = 1e-6  # seconds; differences below are the rounding of timestamps


class Gap(NamedTuple):
    """A place where a signal does not go on in time."""

    position: int  # of the first value after it
    at: float  # the moment at which it begins, in seconds since 1970
    seconds: float  # its length; negative where the signal goes back


class Signal(np.ndarray[Any, np.dtype[Any]]):
    """The values of an output, read-only, with what the signal says of itself.

    One dimension: values in time. Two: spectra, or other blocks of equal length, a row each. A slice is a signal
    too, and so is `copy()`, which may be written, `astype` and what pickle brings back; what NumPy computes from a signal is
    an ordinary array.
    """

    name: str = ""  # that the signal has
    unit: str = ""  # as people write it: "mV"; empty: none
    stored_unit: str = ""  # as files have it: "V * 1e-003"
    rate: float = 0.0  # values a second, of spectra a hertz; 0: not known
    is_spectrum: bool = False
    range: tuple[float, float] = (0.0, 0.0)  # that the values are said to keep
    _marks: npt.NDArray[np.float64] = np.zeros((0, 5))
    _first: int = 0
    _step: int = 1

    @classmethod
    def _of(cls, part: dict[str, Any]) -> Signal:
        signal: Signal = part["values"].view(cls)
        info = part["info"]
        signal.name, signal.unit, signal.stored_unit = info["name"], info["unit"], info["stored_unit"]
        signal.rate, signal.range = info["rate"], (info["low"], info["high"])
        signal.is_spectrum = part["spectrum"]
        signal._marks = part["marks"]
        return signal

    @classmethod
    def _empty(cls) -> Signal:
        empty: Signal = np.zeros(0).view(cls)
        empty.flags.writeable = False
        return empty

    def _like(self, other: Signal, first: int = 0, step: int = 1) -> Signal:
        for field in FIELDS:
            setattr(self, field, getattr(other, field))
        self.rate = other.rate if other.is_spectrum else other.rate / step
        self._first = other._first + first * other._step
        self._step = other._step * step
        return self

    def __getitem__(self, key: Any) -> Any:
        check_key(key)
        found = super().__getitem__(key)
        if not isinstance(found, Signal):
            return found
        if isinstance(key, slice) and (key.step is None or key.step > 0):
            first, _, step = key.indices(len(self))
            return found._like(self, first, step)
        return found.view(np.ndarray)

    def __array_ufunc__(self, ufunc: np.ufunc, method: str, *inputs: Any, **kwargs: Any) -> Any:
        plain = [value.view(np.ndarray) if isinstance(value, Signal) else value for value in inputs]
        if "out" in kwargs:
            kwargs["out"] = tuple(
                value.view(np.ndarray) if isinstance(value, Signal) else value for value in kwargs["out"]
            )
        return getattr(ufunc, method)(*plain, **kwargs)

    def __array_function__(self, func: Any, types: Any, args: Any, kwargs: Any) -> Any:
        found = super().__array_function__(func, types, args, kwargs)
        return found.view(np.ndarray) if isinstance(found, Signal) else found

    def copy(self, order: Any = "C") -> Signal:
        """One of its own, which may be written."""
        return np.array(self, order=order).view(Signal)._like(self)

    def astype(self, dtype: Any, *args: Any, **kwargs: Any) -> Any:
        """A copy with values of another type."""
        return self.view(np.ndarray).astype(dtype, *args, **kwargs).view(Signal)._like(self)

    def __copy__(self) -> Signal:
        return self.copy()

    def __deepcopy__(self, memo: Any, /) -> Signal:
        return self.copy()

    def __reduce__(self) -> Any:
        said = {field: getattr(self, field) for field in (*FIELDS, "rate", "_first", "_step")}
        return _restored, (np.array(self), said)

    @property
    def blocks(self) -> npt.NDArray[np.float64]:
        """A row for each block of the whole signal: first value, number of values, start in seconds since 1970,
        rate, state (0 START, 1 BUSY, 2 STOP, 3 COMPLETE, -1 none)."""
        return self._marks

    @property
    def start(self) -> float:
        """The moment of the first value, in seconds since 1970-01-01 00:00 UTC; 0 when nothing says it."""
        if not len(self._marks):
            return 0.0
        if self.is_spectrum or self.ndim > 1:
            return float(self._marks[min(self._first, len(self._marks) - 1), START])
        return float(self._moments(np.array([self._first]))[0] + self._marks[0, START])

    def _moments(self, indices: npt.NDArray[Any]) -> npt.NDArray[np.float64]:
        """Of values of the whole signal, in seconds after its start."""
        marks = self._marks[self._marks[:, COUNT] > 0]
        rate = self.rate * self._step
        if not len(marks) or not rate > 0:
            return np.asarray(indices, dtype=np.float64)
        if not self._whole_gaps():
            return np.asarray(indices / rate, dtype=np.float64)
        block = np.searchsorted(marks[:, FIRST], indices, side="right") - 1
        begins = marks[block, START] - marks[0, START]
        return np.asarray(begins + (indices - marks[block, FIRST]) / marks[block, RATE], dtype=np.float64)

    def time(self) -> npt.NDArray[np.float64]:
        """Seconds after the start, one for each value, with the gaps; without a rate the numbers of the values.
        Of spectra the frequencies of a row, in hertz."""
        if self.is_spectrum:
            count = self.shape[-1] if self.ndim else 0
            return np.arange(count) / self.rate if self.rate > 0 else np.arange(count, dtype=np.float64)
        moments = self._moments(self._first + np.arange(len(self)) * self._step)
        return np.asarray(moments - moments[0], dtype=np.float64) if len(moments) else moments

    def frequency(self) -> npt.NDArray[np.float64]:
        """Of spectra, the frequencies of a row, in hertz. ValueError for other signals."""
        if not self.is_spectrum:
            raise ValueError("the signal is no spectrum; time() has the moments of its values")
        return self.time()

    def _whole_gaps(self) -> list[Gap]:
        marks = self._marks[self._marks[:, COUNT] > 0]
        if self.is_spectrum or len(marks) < 2 or not np.all(marks[:, RATE] > 0):
            return []
        ends = marks[:-1, START] + marks[:-1, COUNT] / marks[:-1, RATE]
        missing = marks[1:, START] - ends
        found = np.nonzero(np.abs(missing) > np.maximum(0.5 / marks[1:, RATE], CLOCK))[0]
        return [Gap(int(marks[i + 1, FIRST]), float(ends[i]), float(missing[i])) for i in found]

    @property
    def gaps(self) -> list[Gap]:
        """Where the whole signal does not go on in time, by the times of its blocks."""
        return self._whole_gaps()

    def between(self, begin: float, end: float) -> Signal:
        """The values from `begin` up to and without `end`, in seconds after the start. ValueError for spectra."""
        if self.is_spectrum:
            raise ValueError("a spectrum has no time; take its rows by their number")
        first, last = np.searchsorted(self.time(), numbers(begin, end))
        part: Signal = self[int(first) : int(last)]
        return part

    def _label(self) -> str:
        name = self.name or "values"
        return f"{name} in {self.unit}" if self.unit else name

    def to_pandas(self) -> pandas.Series[Any] | pandas.DataFrame:
        """A series over the moments in UTC; of spectra a table with a column for each frequency. ImportError
        without pandas."""
        import pandas

        values = self.view(np.ndarray)
        if self.is_spectrum or self.ndim > 1:
            return pandas.DataFrame(np.atleast_2d(values), columns=self.time() if self.is_spectrum else None)
        if self.rate > 0 and self.start > 0:
            offsets = pandas.to_timedelta(np.round(self.time() * 1e9).astype(np.int64))
            index: Any = pandas.to_datetime(round(self.start * 1e6), unit="us", utc=True) + offsets
        else:
            index = self.time()
        return pandas.Series(values, index=index, name=self._label())

    def to_xarray(self) -> xarray.DataArray:
        """The values with their axis and what the signal says of itself as attributes. ImportError without
        xarray."""
        import xarray

        values = self.view(np.ndarray)
        attributes = {"units": self.unit, "rate": self.rate, "start": self.start}
        axis = "frequency" if self.is_spectrum else "time"
        names = {1: [axis], 2: ["block", axis], 3: ["block", "row", "column"]}[max(self.ndim, 1)]
        axes = {axis: self.time()} if self.is_spectrum or self.ndim == 1 else {}
        return xarray.DataArray(values, dims=names, coords=axes, attrs=attributes, name=self.name or None)

    def __repr__(self) -> str:
        shape = " x ".join(str(extent) for extent in self.shape)
        rate = f", {self.rate:g} {'per Hz' if self.is_spectrum else '/s'}" if self.rate else ""
        return f"<Signal {self._label()}: {shape}{rate}>\n{self.view(np.ndarray)!r}"


def _restored(values: npt.NDArray[Any], said: dict[str, Any]) -> Signal:
    signal = values.view(Signal)
    for field, value in said.items():
        setattr(signal, field, value)
    return signal


def signals_of(parts: list[dict[str, Any]]) -> Signal | dict[str, Signal]:
    """The signal of a plain output; else those of its channels or parts, by their names."""
    if len(parts) == 1 and parts[0]["name"] == "":
        return Signal._of(parts[0])
    if not parts:
        return Signal._empty()
    return {part["name"]: Signal._of(part) for part in parts}
