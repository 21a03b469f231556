"""Modules that are written in Python.

    import numpy as np
    import sigweave


    class Clip(sigweave.Module):
        \"\"\"Cuts off values beyond a limit\"\"\"

        limit = sigweave.Number(1.0, unit="V", minimum=0.0, help="the largest value")

        def execute(self, signal):
            return np.clip(signal, -self.limit, self.limit)

In a file `clip.py` in a folder of the module path it is listed, set, checked and run like any other module, under
the name of its class.
"""

from __future__ import annotations

import sys
from collections.abc import Sequence
from dataclasses import dataclass, replace
from operator import attrgetter
from typing import TYPE_CHECKING, Any, ClassVar, Generic, TypeVar, overload

import numpy as np
import numpy.typing as npt

Value = TypeVar("Value")
LARGEST = sys.float_info.max


def _refuse(name: str) -> Any:
    def refuse(module: Module, value: Any) -> None:
        raise AttributeError(f"{name} is a setting, which the graph gives; keep values of your own elsewhere")

    return refuse


if TYPE_CHECKING:

    class _Property: ...

else:
    # Its value comes from the instance without a call of Python: modules read their settings in each step.
    _Property = property


class _Parameter(_Property, Generic[Value]):
    """A declared parameter; read as an attribute of the module, it is the value of the setting."""

    kind = ""

    def __init__(
        self,
        default: Value | None,
        *,
        unit: str = "",
        help: str = "",
        minimum: float = -LARGEST,
        maximum: float = LARGEST,
        choices: tuple[str, ...] = (),
        live: bool = False,
    ) -> None:
        self.default, self.unit, self.help = default, unit, help
        self.minimum, self.maximum, self.choices, self.live = minimum, maximum, choices, live
        self.name = ""

    def __set_name__(self, owner: type, name: str) -> None:
        self.name = name
        if not TYPE_CHECKING:
            super().__init__(attrgetter(f"_set_{name}"), _refuse(name))

    if TYPE_CHECKING:

        @overload
        def __get__(self, module: None, owner: type) -> _Parameter[Value]: ...
        @overload
        def __get__(self, module: Module, owner: type) -> Value: ...
        def __get__(self, module: Module | None, owner: type) -> Any: ...
        def __set__(self, module: Module, value: Value) -> None: ...

    def _text(self) -> str | None:
        from sigweave._values import text_of

        return None if self.default is None else text_of(self.default)

    def _declared(self) -> tuple[str, str, str | None, str, str, float, float, str, bool]:
        limits = self.minimum, self.maximum, "|".join(self.choices), self.live
        return self.name, self.kind, self._text(), self.unit, self.help, *limits


class _Ranged(_Parameter[Value]):
    def __init__(
        self,
        default: Value | None = None,
        *,
        unit: str = "",
        help: str = "",
        minimum: float = -LARGEST,
        maximum: float = LARGEST,
        live: bool = False,
    ) -> None:
        super().__init__(default, unit=unit, help=help, minimum=minimum, maximum=maximum, live=live)


class Number(_Ranged[float]):
    """A finite number, in `unit` when there is one. Without a default it must be given."""

    kind = "NUMBER"


class Integer(_Ranged[int]):
    """An integer of 32 bits. Without a default it must be given."""

    kind = "INTEGER"


class Text(_Parameter[str]):
    """A text. Without a default it must be given."""

    kind = "TEXT"

    def __init__(self, default: str | None = None, *, help: str = "", live: bool = False) -> None:
        super().__init__(default, help=help, live=live)


class File(_Parameter[str]):
    """The path of a file that is read. Without a default it must be given."""

    kind = "FILE"

    def __init__(self, default: str | None = None, *, help: str = "", live: bool = False) -> None:
        super().__init__(default, help=help, live=live)


class Switch(_Parameter[bool]):
    """yes or no. Without a default it must be given."""

    kind = "SWITCH"

    def __init__(self, default: bool | None = None, *, help: str = "", live: bool = False) -> None:
        super().__init__(default, help=help, live=live)


class Choice(_Parameter[str]):
    """One of some words; without a default the first."""

    kind = "CHOICE"

    def __init__(self, *choices: str, default: str | None = None, help: str = "", live: bool = False) -> None:
        if not choices or not all(isinstance(one, str) for one in choices):
            raise TypeError("a Choice is between words, as Choice('low', 'high')")
        super().__init__(choices[0] if default is None else default, choices=choices, help=help, live=live)


@dataclass(frozen=True)
class Info:
    """What a block says of itself."""

    name: str = ""
    unit: str = ""  # as it is stored: "V * 1e-003"; "mV" is understood too
    rate: float = 0.0  # values a second
    low: float = 0.0  # the range that the values keep
    high: float = 0.0

    def replace(self, **changes: Any) -> Info:
        """The same with other fields."""
        return replace(self, **changes)


class Module:
    """The base of modules in Python. The first line of the docstring describes it.

    One signal in, one out, unless it names its ports: `inputs = ("Voltage", "Current")`, `outputs = ()`. A class with
    `fetch` instead of `execute` is a source, and has no inputs.

    An exception in one of these ends the run; its traceback goes to the log, its last line to the user.
    """

    inputs: ClassVar[Sequence[str]] = ("Signal",)
    outputs: ClassVar[Sequence[str]] = ("Signal",)
    info: Info  # of the block that execute gets, at the first input
    infos: tuple[Info, ...]  # at each input
    start: float  # of that block, in seconds since 1970; a source may set it in begin

    def __init__(self) -> None:
        self.info, self.infos, self.start = Info(), (), 0.0

    @classmethod
    def _is_abstract(cls) -> bool:
        return cls.execute is Module.execute and cls.fetch is Module.fetch

    def begin(self) -> None:
        """A run begins; all settings are there."""

    def execute(self, *signals: Any, **none: Any) -> Any:
        """One step: the values of a block of each input, copies of your own, to the values of the block that is sent on
        (None: none is); with several outputs a tuple of them. Blocks of several inputs have the same number of
        values. A block keeps the name, time, unit and range of that of the first input; with fewer or more values
        its rate becomes less or more."""
        raise NotImplementedError

    def fetch(self) -> Any:
        """Of a source, the values of the next block; None ends its signal. With several outputs a tuple. Its rate, unit
        and name are those of `describe`; its signal begins at `start`, or with the run."""
        raise NotImplementedError

    def describe(self, *infos: Any, **none: Any) -> Any:
        """What the blocks that are sent say of themselves, from what those that come say, one `Info` for each input:
        for another unit, say. One for all outputs, or a tuple. Asked again whenever that changes."""
        return infos[0] if infos else Info()

    def changed(self) -> None:
        """Live parameters have new values, which hold from the next block on. An exception refuses them, and the module
        has the old ones again."""

    def end(self) -> None:
        """A run ends, also one that failed."""

    def result(self, quantity: str, value: float, unit: str = "") -> None:
        """Adds a figure to the table and the report of the run, in `end` or before."""
        if not isinstance(quantity, str) or not isinstance(unit, str):
            raise TypeError("result takes a name, a number and a unit, as result('peak', 1.5, 'V')")
        self._results.append((quantity, float(value), unit))

    @property
    def _results(self) -> list[tuple[str, float, str]]:
        results: list[tuple[str, float, str]] = self.__dict__.setdefault("_found", [])
        return results

    def _set(self, values: dict[str, Any]) -> None:
        self.__dict__.update({f"_set_{name}": value for name, value in values.items()})

    @classmethod
    def _parameters(cls) -> list[tuple[str, str, str | None, str, str, float, float, str, bool]]:
        found: dict[str, _Parameter[Any]] = {}
        for base in reversed(cls.__mro__):
            found.update({k: v for k, v in vars(base).items() if isinstance(v, _Parameter)})
        return [one._declared() for one in found.values()]

    @classmethod
    def _description(cls) -> str:
        return (cls.__doc__ or "").strip().partition("\n")[0]
