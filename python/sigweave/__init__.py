"""Graphs of signal-processing modules: built, checked and run, with their signals as NumPy arrays.

    report = sigweave.run("voice.graph", set={"low.corner": "3 kHz"}, keep=["low.Signal"])
    report.results                    # what the modules measured
    report["low.Signal"].unit         # an array that knows its unit, rate and start

    recording = sigweave.open("take.mcap")
    recording["voice"][48000:96000]   # a part of a recorded signal, where it lies in the file

Times are seconds; moments are seconds since 1970-01-01 00:00 UTC; rates are values a second (of spectra, values
a hertz). Arrays that come from here are read-only views: they keep what they show alive, and ``.copy()`` gives
one of your own. Everything that goes wrong is a `GraphError`, a `RunError` or a `RecordingError`.
"""

from sigweave._core import VERSION as __version__
from sigweave._core import Block
from sigweave._errors import Error, Failure, GraphError, Interrupted, Mistake, RecordingError, RunError
from sigweave._graph import Graph, Instance
from sigweave._modules import modules
from sigweave._recorded import RecordedSignal
from sigweave._recording import Recording, open
from sigweave._run import Message, Report, Result, Results, Stream, run, stream
from sigweave._signal import Gap, Signal
from sigweave.module import Choice, File, Info, Integer, Module, Number, Switch, Text

__all__ = [
    "Block",
    "Choice",
    "Error",
    "Failure",
    "File",
    "Gap",
    "Graph",
    "GraphError",
    "Info",
    "Instance",
    "Integer",
    "Interrupted",
    "Message",
    "Mistake",
    "Module",
    "Number",
    "RecordedSignal",
    "Recording",
    "RecordingError",
    "Report",
    "Result",
    "Results",
    "RunError",
    "Signal",
    "Stream",
    "Switch",
    "Text",
    "__version__",
    "modules",
    "open",
    "run",
    "stream",
]

for _name in __all__:  # messages and help() say where users find them
    if isinstance(globals()[_name], type) and _name != "Block":
        globals()[_name].__module__ = "sigweave"
del _name
