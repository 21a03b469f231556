"""A typical use, for the type checker; never run."""

from typing import Any

import numpy as np
import numpy.typing as npt

import sigweave


class Clip(sigweave.Module):
    """Cuts off values beyond a limit"""

    limit = sigweave.Number(1.0, unit="V", minimum=0.0)
    other = sigweave.Number(1.0, mininum=0.0)  # type: ignore[call-arg]  # a wrong name is found

    def execute(self, signal: npt.NDArray[np.float64]) -> Any:
        limit: float = self.limit
        return np.clip(signal, -limit, limit)


class Power(sigweave.Module):
    """The product of two signals, and its mean"""

    inputs = ("Voltage", "Current")
    outputs = ("Power", "Mean")
    smooth = sigweave.Number(0.5, live=True)

    def describe(self, voltage: sigweave.Info, current: sigweave.Info) -> sigweave.Info:
        return voltage.replace(unit="W")

    def execute(self, voltage: npt.NDArray[np.float64], current: npt.NDArray[np.float64]) -> Any:
        power = voltage * current
        return power, [power.mean() * self.smooth]


class Ramp(sigweave.Module):
    """A source"""

    def fetch(self) -> npt.NDArray[np.float64]:
        return np.arange(10.0)


def evaluate(path: str) -> float:
    report = sigweave.run(path, set={"lp.corner": 3000}, keep=["lp.Signal"], progress=True)
    for result in report.results:
        unit: str = result.unit
        print(unit)
    for block in sigweave.stream(path, "lp.Signal", capacity=4):
        values: npt.NDArray[Any] = block.values
        print(values.max(), block.state)
    graph = sigweave.Graph(path)
    graph["lp"].corner = 3.5
    graph.save()
    mistakes: list[str] = [mistake.remedy for mistake in graph.check()]
    recording = sigweave.open("x.xml")
    time: npt.NDArray[np.float64] = recording["mic"].time()
    return float(time[0]) + report.results.value("rms") + len(mistakes)
