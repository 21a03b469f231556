"""Graphs, runs, streams, recordings, blocks and views are made, used and dropped in any order, with garbage collected
in between: nothing crashes, nothing stays behind.

The suite runs some of the sequences; all of them:

    SIGWEAVE_SEQUENCES=10000 ctest --preset release -R Python.sequences --timeout 7200
"""

import gc
import os
import threading

import numpy as np
import pytest
from conftest import IS_SANITIZED, endless

import sigweave

SEQUENCES = int(os.environ.get("SIGWEAVE_SEQUENCES", "150"))
CALLS = 14


class World:
    """What is alive in one sequence, and what each view must still be the sum of."""

    def __init__(self, chooser, chord):
        self.chooser, self.chord = chooser, chord
        self.things, self.views = [], []

    def pick(self, *kinds):
        found = [thing for thing in self.things if isinstance(thing, kinds)]
        return found[self.chooser.integers(len(found))] if found else None

    def see(self, array):
        self.views.append((array, float(np.sum(array))))

    def run(self):
        short = {"low.duration": 0.01, "high.duration": 0.01}
        self.things.append(self.chord.run(keep=["lp.Signal"], set=short))

    def build(self):
        graph = sigweave.Graph.parse(self.chord.text)
        del graph["levels"]
        graph.connect("low.Signal", "lp.Signal")
        assert graph.check() and graph._repr_svg_()
        self.things.append(graph)

    def cut(self):
        report = self.pick(sigweave.Report)
        if report is not None:
            self.see(report["lp.Signal"][self.chooser.integers(200) :])

    def stream(self):
        self.things.append(endless().stream("lp.Signal", "tone.Signal", capacity=int(self.chooser.integers(1, 5))))

    def take(self):
        live = self.pick(sigweave.Stream)
        if live is not None and live.report is None:
            block = next(live, None)
            if block is not None:
                self.things.append(block)

    def values(self):
        block = self.pick(sigweave.Block)
        if block is not None:
            self.see(block.values)

    def open(self):
        self.things.append(sigweave.open(self.chooser.choice(["x.mcap", "x.xml"])))

    def signal(self):
        recording = self.pick(sigweave.Recording)
        if recording is not None and len(recording):
            self.things.append(recording[str(self.chooser.choice(list(recording)))])

    def slice(self):
        signal = self.pick(sigweave.RecordedSignal, sigweave.Signal)
        if signal is not None and len(signal):
            begin, end = np.sort(self.chooser.integers(0, len(signal), 2))
            self.see(signal[begin:end])
            self.see(signal.between(*np.sort(self.chooser.uniform(-0.1, 1.1, 2))))
            assert len(signal.blocks) and signal.gaps == []

    def refresh(self):
        recording = self.pick(sigweave.Recording)
        if recording is not None:
            recording.refresh()

    def close(self):
        thing = self.pick(sigweave.Recording, sigweave.Stream)
        if thing is not None:
            thing.close()

    def drop(self):
        if self.things:
            self.things.pop(self.chooser.integers(len(self.things)))
        if self.views:
            array, expected = self.views.pop(self.chooser.integers(len(self.views)))
            assert float(np.sum(array)) == expected

    def end(self):
        while self.things or self.views:
            self.drop()


ACTIONS = (
    *(World.run, World.build, World.cut, World.cut, World.stream, World.take, World.take, World.values, World.values),
    *(World.open, World.open, World.signal, World.signal, World.slice, World.slice, World.slice),
    *(World.refresh, World.close, World.drop, World.drop),
)


def memory():
    """In MB, that the process has."""
    return int(open("/proc/self/statm").read().split()[1]) * 4096 / 1e6


@pytest.fixture
def recorded(chord):
    chord.add("Recorder", "packed", file="x.mcap")
    chord.add("XmlRecorder", "xml", file="x.xml")
    chord.connect("lp.Signal", "packed.Signal 1")
    chord.connect("high.Signal", "packed.Signal 2")
    chord.connect("high.Signal", "xml.Signal")
    chord.run(set={"low.duration": 0.2, "high.duration": 0.2})
    del chord["packed"], chord["xml"]
    return chord


def test_random_sequences_of_calls_neither_crash_nor_leak(recorded):
    files, threads, settled = len(os.listdir("/proc/self/fd")), threading.active_count(), 0.0
    for sequence in range(SEQUENCES):
        chooser = np.random.default_rng(sequence)
        world = World(chooser, recorded)
        for _ in range(CALLS):
            ACTIONS[chooser.integers(len(ACTIONS))](world)
            if chooser.integers(3) == 0:
                gc.collect(int(chooser.integers(3)))
        world.end()
        if sequence % 50 == 49:
            gc.collect()
            assert len(os.listdir("/proc/self/fd")) <= files and threading.active_count() == threads, sequence
            assert "x.mcap" not in open("/proc/self/maps").read(), sequence
            assert len(os.listdir("/proc/self/task")) <= threads + 1, sequence
        if sequence == SEQUENCES // 2:
            settled = memory()
    grown = memory() - settled
    print(SEQUENCES, "sequences; MB more than half-way:", round(grown, 1))
    # A recording or a run has some 100 kB, so that one lost in each sequence is more.
    assert grown < 5 + 0.002 * SEQUENCES or IS_SANITIZED  # which keeps what was freed
