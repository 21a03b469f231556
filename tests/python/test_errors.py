"""Messages of the C++ side that no other test reads."""

import numpy as np
import pytest

import sigweave
from sigweave import _core


def test_of_blocks_and_instances(chord):
    chord.add("BusJoin", "bus")
    chord.connect("low.Signal", "bus.Signal 1")
    chord.connect("high.Signal", "bus.Signal 2")
    (output,) = [port["name"] for port in sigweave.modules()["BusJoin"]["outputs"]]
    with chord.stream(f"bus.{output}") as live:
        block = next(live)
        assert block.channels == ["sine", "sine 2"]
        assert np.max(block["sine"]) == pytest.approx(2) and np.max(block["sine 2"]) == pytest.approx(1)
        with pytest.raises(KeyError, match="the block has no channel 'middle'; it has: sine, sine 2"):
            block["middle"]
    gone = chord["bus"]
    del chord["bus"]
    with pytest.raises(AttributeError, match="there is no instance .bus."):
        gone.x
    with pytest.raises(KeyError, match="there is no instance 'bus'"):
        chord._file.set("bus", "a", "b")
    with pytest.raises(OSError, match="no/such/folder/a.graph"):
        chord.save("no/such/folder/a.graph")


def test_of_signals_that_do_not_fit_together(chord, tmp_path):
    (tmp_path / "two.py").write_text(
        "import sigweave\n\n\nclass Two(sigweave.Module):\n    inputs = ('A', 'B')\n"
        "    def execute(self, a, b):\n        return a + b\n"
    )
    chord._module_path = [str(tmp_path), ""]
    chord.add("Two", "two")
    chord.connect("low.Signal", "two.A")
    chord.connect("high.Signal", "two.B")
    assert chord.run().verdict == "complete"
    with pytest.raises(sigweave.RunError, match="'A' and 'B' have different samplerates; put Resample before"):
        _two(tmp_path, rate=24000, duration=2)
    with pytest.raises(sigweave.RunError, match="'A' and 'B' do not begin and end together; put Align before them"):
        _two(tmp_path, duration=2)


def _two(folder, **other):
    graph = sigweave.Graph(module_path=[str(folder), ""])
    graph.add("Generator", "a", rate=48000, block=1000)
    graph.add("Generator", "b", **{"rate": 48000, "block": 1000, **other})
    graph.add("Two", "two")
    graph.connect("a.Signal", "two.A")
    graph.connect("b.Signal", "two.B")
    return graph.run()


def test_of_recordings_that_go_away(chord, tmp_path):
    chord.add("Recorder", "recorder", file="x.mcap")
    chord.connect("lp.Signal", "recorder.Signal 1")
    chord.run()
    recording = sigweave.open("x.mcap")
    (tmp_path / "x.mcap").rename(tmp_path / "y.mcap")
    with pytest.raises(sigweave.RecordingError, match="x.mcap cannot be read: "):
        recording.check()
    with pytest.raises(FileNotFoundError, match="x.mcap"):
        recording.refresh()
    assert len(recording["sum"][:]) == 48000
    assert "x.mcap cannot be read" in _core.decode_packed("x.mcap", 0)[1]


def test_texts_that_were_recorded_are_read_as_a_whole(chord, tmp_path):
    chord.add("XmlRecorder", "recorder", file="x.xml")
    chord.connect("lp.Signal", "recorder.Signal")
    chord.run(set={"low.duration": 0.01, "high.duration": 0.01})
    text = (tmp_path / "x.xml").read_text()
    begin, end = text.index("<Segments>"), text.index("</Segments>")
    segment = (
        "<Segments><Segment><Name/><DataType Value=\"3\">STRING</DataType><Length>2</Length>"
        "<Values><String>low</String><String>high</String></Values></Segment>"
    )
    (tmp_path / "x.xml").write_text((text[:begin] + segment + text[end:]).replace("DOUBLE[]{TIME_DOMAIN}", "TEXT[]{TEXT}"))
    graph = sigweave.Graph()
    graph.add("XmlPlayer", "player", file="x.xml")
    graph.add("Recorder", "recorder", file="t.mcap")
    graph.connect("player.Signal", "recorder.Signal 1")
    graph.run()
    (signal,) = sigweave.open("t.mcap").values()
    assert signal.dtype == object and len(signal) == 2 and list(signal[:]) == ["low", "high"] and signal[1] == "high"
    assert signal.blocks.shape == (1, 5) and np.asarray(signal).shape == (2,)
