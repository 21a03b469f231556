"""What wrong calls say, and messages of the C++ side that no other test reads."""

import pickle
import subprocess
import sys

import numpy as np
import pytest
from conftest import needs_limits

import sigweave
from sigweave import _core


@pytest.mark.parametrize(
    "call, error, words",
    [
        (lambda g: g.connect(g["low"], g["lp"]), TypeError, "a line goes from INSTANCE.OUTPUT to INSTANCE.INPUT"),
        (lambda g: g.disconnect("low.Signal", 3), TypeError, "of type int: 3"),
        (lambda g: g.add(1, 2), TypeError, r"add\('Filter', 'lp'"),
        (lambda g: g.__setitem__("lp", 3), TypeError, r"added with add\('Module', 'lp'\)"),
        (lambda g: setattr(g["lp"], "corner", None), TypeError, "cannot be None; leave it out"),
        (lambda g: setattr(g["lp"], "corner", 3j), TypeError, "cannot be of type complex; give a number"),
        (lambda g: sigweave.Graph(3), TypeError, "named by its path.* not by a int"),
        (lambda g: sigweave.Graph.parse(3), TypeError, "parse takes the text of a graph"),
        (lambda g: sigweave.run(g["lp"]), TypeError, "a graph is a Graph, or the path of a graph file, not a Instance"),
        (lambda g: g.run(set=["lp.corner=3"]), TypeError, "set is a dict of settings, .* not a list"),
        (lambda g: g.run(keep=None), TypeError, r"named as texts, INSTANCE.OUTPUT: keep=\['lp.Signal'\]"),
        (lambda g: g.run(keep="lp.Signal"), TypeError, r"keep=\['lp.Signal'\]"),
        (lambda g: g.run(keep=[3]), TypeError, "INSTANCE.OUTPUT; this is of type int: 3"),
        (lambda g: g.run(realtime="yes"), TypeError, "realtime is True or False, not 'yes'"),
        (lambda g: g.run(threads=0), ValueError, 'threads is a number from 1 to 256, or "auto"'),
        (lambda g: g.run(threads="two"), ValueError, 'threads is a number from 1 to 256, or "auto"'),
        (lambda g: g.run(module_path=3), TypeError, "module_path is a folder or a list of folders, not 3"),
        (lambda g: g.run(set={"lp.corner": float("nan")}), ValueError, "give a finite number"),
        (lambda g: g.stream("lp.Signal", capacity="3"), ValueError, "capacity is the number of blocks"),
        (lambda g: g.stream(["lp.Signal"]), TypeError, "INSTANCE.OUTPUT; this is of type list"),
        (lambda g: sigweave.open(3), TypeError, "not by a int"),
        (lambda g: sigweave.modules()["Filtr"], KeyError, "no module 'Filtr'; did you mean Filter"),
        (lambda g: g.run().results.value("rsm"), KeyError, "no result is called 'rsm'; did you mean rms.*quantities are: max"),
        (lambda g: g.run().results.value("rms", "lp"), KeyError, "not a result of that instance and signal, but of: levels of sum"),
    ],
)
def test_wrong_calls_say_what_to_write(chord, call, error, words):
    with pytest.raises(error, match=words):
        call(chord)


def test_errors_come_whole_out_of_worker_processes(stalling):
    def found(call):
        with pytest.raises(sigweave.Error) as caught:
            call()
        return caught.value

    stalled = found(lambda: stalling.run(keep=["lp.Signal"]))
    for error in (found(lambda: stalling.run(keep=["lp"])), stalled, found(lambda: sigweave.open(__file__))):
        again = pickle.loads(pickle.dumps(error))
        assert type(again) is type(error) and str(again) == str(error) and again.remedy == error.remedy != str(error)
    assert again.code == 0 and type(again).__module__ == "sigweave"
    again = pickle.loads(pickle.dumps(sigweave.Interrupted(stalled.report)))
    assert again.report.verdict == "stalled" and again.report["lp.Signal"].unit == "V"


def test_of_modules_that_are_not_found(chord, tmp_path):
    (tmp_path / "mine.py").write_text("import sigweave\n\n\nclass Mine(sigweave.Module)\n    pass\n")
    chord._module_path = [str(tmp_path), ""]
    with pytest.warns(RuntimeWarning, match=r"mine.py: cannot be loaded: SyntaxError: expected ':' \(mine.py, line 4\)"):
        dir(chord.add("Mine", "mine"))
    with pytest.raises(sigweave.GraphError) as caught:
        chord.run()
    unknown, reason = caught.value.mistakes
    assert "there is no module 'Mine'; known are" in unknown.text and "leaves out" not in unknown.text
    assert reason.source == "module path" and "mine.py, line 4" in reason.text
    with pytest.raises(sigweave.GraphError, match=r"with module_path \(the module path leaves out the modules") as caught:
        chord.run(module_path=[tmp_path / "none"])
    assert caught.value.remedy.startswith("name the folder of its library")


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
        with pytest.raises(TypeError, match=r"by number they are block.values\[0\]"):
            block[0]
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


@needs_limits
def test_of_a_recording_that_does_not_fit_into_the_address_space(chord, tmp_path):
    chord.add("Recorder", "recorder", file="x.mcap")
    chord.connect("lp.Signal", "recorder.Signal 1")
    chord.run(set={"low.duration": 20, "high.duration": 20})
    code = (
        "import resource, sigweave\nused = int(open('/proc/self/statm').read().split()[0]) * resource.getpagesize()\n"
        "resource.setrlimit(resource.RLIMIT_AS, (used + (4 << 20),) * 2)\n"
        "try:\n    sigweave.open('x.mcap')\nexcept sigweave.RecordingError as error:\n    print(error.remedy)"
    )
    assert (tmp_path / "x.mcap").stat().st_size > 7 << 20
    done = subprocess.run([sys.executable, "-c", code], timeout=60, capture_output=True, text=True)
    assert (done.stdout, done.stderr) == ("copy it to a local disk\n", "")


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
