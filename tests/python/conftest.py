import os
import signal
import threading
import time

import pytest

import sigweave

PROGRAM = os.environ["SIGWEAVE_PROGRAM"]
IS_SANITIZED = "libasan" in os.environ.get("LD_PRELOAD", "")
needs_limits = pytest.mark.skipif(IS_SANITIZED, reason="the sanitizer takes more address space than any limit")
START = 1772366400.0  # 2026-03-01 12:00 UTC


@pytest.fixture(autouse=True)
def own_folder(tmp_path, monkeypatch):
    """Each test works in a folder of its own, with a settings profile of its own."""
    monkeypatch.chdir(tmp_path)
    for hive in ("USER", "MACHINE"):
        monkeypatch.setenv(f"SIGWEAVE_{hive}_HIVE", str(tmp_path / f"{hive}.db"))
    monkeypatch.delenv("SIGWEAVE_MODULE_PATH", raising=False)
    return tmp_path


@pytest.fixture
def chord():
    """1 and 9 kHz in volts, through a low pass of 3 kHz: one second at 48 kHz in blocks of 1000."""
    graph = sigweave.Graph()
    common = dict(rate=48000, duration=1, unit="V", start="2026-03-01T12:00:00Z", block=1000)
    graph.add("Generator", "low", frequency=1000, amplitude=2, **common)
    graph.add("Generator", "high", frequency="9 kHz", amplitude=1, **common)
    graph.add("Math", "sum")
    graph.add("Filter", "lp", corner="3 kHz", order=4)
    graph.add("Statistics", "levels")
    graph.connect("low.Signal", "sum.Signal 1")
    graph.connect("high.Signal", "sum.Signal 2")
    graph.connect("sum.Signal", "lp.Signal")
    graph.connect("lp.Signal", "levels.Signal")
    return graph


@pytest.fixture
def stalling(chord):
    """One of two signals that are joined is shorter."""
    chord["high"].duration = 0.2
    chord.add("BusJoin", "bus")
    chord.connect("low.Signal", "bus.Signal 1")
    chord.connect("high.Signal", "bus.Signal 2")
    return chord


def interrupt_when(is_so):
    """Sends Ctrl-C as soon as that is so; the thread that does it."""

    def wait():
        while not is_so():
            time.sleep(0.01)
        os.kill(os.getpid(), signal.SIGINT)

    thread = threading.Thread(target=wait, daemon=True)
    thread.start()
    return thread


def endless():
    """A source that only an interrupt ends, and a chain behind it."""
    graph = sigweave.Graph()
    graph.add("Generator", "tone", duration=1e6, block=256)
    graph.add("Filter", "lp", corner=3000)
    graph.add("Statistics", "levels")
    graph.connect("tone.Signal", "lp.Signal")
    graph.connect("lp.Signal", "levels.Signal")
    return graph
