"""Signals, and what notebooks show, as tables."""

from __future__ import annotations

import html
from collections.abc import Iterable, Sequence
from typing import TYPE_CHECKING, Any, Union

import numpy as np

from sigweave._recorded import RecordedSignal
from sigweave._signal import Signal

if TYPE_CHECKING:
    import pandas
    import xarray

AnySignal = Union[Signal, RecordedSignal]


def table_of(head: Sequence[str], rows: Iterable[Sequence[Any]]) -> str:
    """As HTML, for notebooks."""

    def row(cells: Sequence[Any], tag: str) -> str:
        return "<tr>" + "".join(f"<{tag}>{html.escape(str(cell))}</{tag}>" for cell in cells) + "</tr>"

    return "<table>" + row(head, "th") + "".join(row(cells, "td") for cells in rows) + "</table>"


def text_of_table(head: Sequence[str], rows: Sequence[Sequence[str]]) -> str:
    """For terminals, in columns."""
    lines = [head, *rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(head))]
    return "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip() for line in lines)


def frame_of(signals: Iterable[tuple[str, AnySignal]]) -> pandas.DataFrame:
    """A column for each signal, over the moments of all; NaN where a signal has none. ValueError for spectra and
    matrices, ImportError without pandas."""
    import pandas

    columns: dict[str, Any] = {}
    for name, signal in signals:
        if signal.is_spectrum or signal.ndim > 1:
            raise ValueError(f"'{name}' has rows, not values in time; make a table of its own of it: its to_pandas()")
        columns[name] = signal.to_pandas()
    return pandas.concat(columns, axis=1) if columns else pandas.DataFrame()


def dataset_of(signals: Iterable[tuple[str, AnySignal]]) -> xarray.Dataset:
    """An array for each signal. Those of the same times share their axis; the others have one of their own, that is
    named after them. ImportError without xarray."""
    import xarray

    arrays: dict[str, Any] = {}
    axes: dict[str, Any] = {}
    for name, signal in signals:
        array = signal.to_xarray()
        own: dict[Any, str] = {}
        for axis in array.dims:
            values = array.coords[axis].values if axis in array.coords else np.arange(array.sizes[axis])
            key = str(axis)
            if key in axes and not np.array_equal(axes[key], values):
                own[axis] = key = f"{axis} of {name}"
            axes[key] = values
        arrays[name] = array.rename(own)
    return xarray.Dataset(arrays)
