"""Packed recordings: arrays that stay in their file."""

import copy
import gc
import os
import pickle
import re
import signal as signals
import subprocess
import threading
import time

import numpy as np
import pytest
from conftest import PROGRAM, START

import sigweave


@pytest.fixture
def recorded(chord):
    """The kept signals of a run, which are in x.mcap as `sum` and `high`."""
    chord["high"].name = "high"
    chord.add("Recorder", "recorder", file="x.mcap")
    chord.connect("lp.Signal", "recorder.Signal 1")
    chord.connect("high.Signal", "recorder.Signal 2")
    report = chord.run(keep=["lp.Signal", "high.Signal"])
    return {report[name].name: report[name] for name in report}


def damaged(tmp_path, position=1000):
    """The same recording with one bit of block 10 of `high` changed, of a value if nothing else is said."""
    content = bytearray((tmp_path / "x.mcap").read_bytes())
    frames = [found.start() for found in re.finditer(b"SWBK", content)]
    content[[at for at in frames if b"high" in content[at : at + 120]][9] + position] ^= 1
    (tmp_path / "y.mcap").write_bytes(content)
    return sigweave.open("y.mcap")


def test_has_every_bit_and_what_the_signals_say(recorded):
    recording = sigweave.open("x.mcap")
    assert list(recording) == ["sum", "high"] and recording.block_count == 96
    assert (recording.missing, recording.gaps, recording.check(), recording.is_being_written) == ("", {}, [], False)
    assert "module=Recorder" in recording.facts["graph"]
    for name, expected in recorded.items():
        signal = recording[name]
        np.testing.assert_array_equal(signal, expected)
        np.testing.assert_array_equal(signal.blocks, expected.blocks)
        np.testing.assert_array_equal(signal.time(), expected.time())
        assert (signal.unit, signal.rate, signal.start, signal.shape) == ("V", 48000.0, START, (48000,))
        assert f"{name} in V: 48000" in repr(signal)
    with pytest.raises(KeyError, match="it has: sum, high"):
        recording["nothing"]


def test_slices_are_those_of_the_array(recorded):
    chooser = np.random.default_rng(3)
    expected = recorded["high"]
    plain = np.asarray(expected)
    for fresh in range(2):  # with and without the table of all blocks
        signal = sigweave.open("x.mcap")["high"]
        if fresh:
            assert len(signal.blocks) == 48
        for _ in range(100):
            begin, end = chooser.integers(-50000, 50000, 2)
            step = int(chooser.choice([1, 1, 1, 7, -3]))
            part = signal[begin:end:step]
            np.testing.assert_array_equal(part, plain[begin:end:step])
            if step > 0 and len(part):
                assert part.start == pytest.approx(expected[begin:end:step].start, abs=1e-6)
                assert part.rate == 48000 / step
            a, b = np.sort(chooser.uniform(-0.1, 1.1, 2))
            np.testing.assert_array_equal(signal.between(a, b), expected.between(a, b))
        assert signal[-1] == plain[-1] and signal[4711] == plain[4711]
        np.testing.assert_array_equal(signal[[5, 47000]], plain[[5, 47000]])
        np.testing.assert_array_equal(list(signal), plain)
        np.testing.assert_array_equal(signal * 2 - np.abs(signal), plain * 2 - np.abs(plain))
        with pytest.raises(IndexError, match="48000 values"):
            signal[48000]
        with pytest.raises(TypeError, match=r"between\(0.1, 0.2\) takes a part by time"):
            signal[0.5:1]
        with pytest.raises(TypeError, match="two numbers"):
            signal.between(None, 1)
        with pytest.raises(AttributeError, match=r"stays in its file and has no 'mean'; .* signal\[:\].mean"):
            signal.mean()


def test_threads_read_one_signal_at_once(recorded):
    plain = np.asarray(recorded["high"])
    recording = sigweave.open("x.mcap")
    wrong = []

    def read(seed):
        chooser = np.random.default_rng(seed)
        for _ in range(100):
            begin, end = np.sort(chooser.integers(0, 48000, 2))
            if not np.array_equal(recording["high"][begin:end], plain[begin:end]) or len(recording["high"].blocks) != 48:
                wrong.append((begin, end))

    threads = [threading.Thread(target=read, args=(seed,)) for seed in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []


def test_is_copied_and_pickled_as_its_file(recorded, monkeypatch, tmp_path):
    recording = sigweave.open("x.mcap")
    stored = pickle.dumps((recording, recording["high"]))
    assert len(stored) < 1000
    monkeypatch.chdir("/")
    again, signal = pickle.loads(stored)
    for one in (again["high"], signal, copy.copy(signal), copy.deepcopy(signal)):
        np.testing.assert_array_equal(one, recorded["high"])
    again.close()
    with pytest.raises(KeyError, match=r"was closed; refresh\(\) opens it again"):
        again["high"]
    assert "closed" in repr(again)
    (tmp_path / "x.mcap").unlink()
    with pytest.raises(FileNotFoundError, match="x.mcap"):
        pickle.loads(pickle.dumps(signal))


def test_a_slice_within_a_block_is_a_view_that_keeps_the_file_mapped(recorded, tmp_path):
    recording = sigweave.open("x.mcap")
    view, again, copy = recording["high"][2100:2900], recording["high"][2100:2900], recording["high"][2100:3200]
    address = [np.asarray(array).__array_interface__["data"][0] for array in (view, again)]
    assert address[0] == address[1] and view.flags.aligned
    for array in (view, copy):
        with pytest.raises(ValueError, match="read-only"):
            array[0] = 1
        with pytest.raises(ValueError, match="WRITEABLE"):
            np.asarray(array).flags.writeable = True
    recording.close()
    del recording, again
    gc.collect()
    (tmp_path / "x.mcap").unlink()
    expected = np.asarray(recorded["high"])
    np.testing.assert_array_equal(view, expected[2100:2900])
    np.testing.assert_array_equal(copy, expected[2100:3200])

    def mapped():
        return "x.mcap" in open("/proc/self/maps").read()

    assert mapped()
    del view, array
    gc.collect()
    assert not mapped()


def test_finds_gaps(recorded, chord, tmp_path):
    del chord["recorder"]
    chord.add("XmlRecorder", "xml", file="x.xml")
    chord.connect("lp.Signal", "xml.Signal")
    expected = chord.run(keep=["lp.Signal"])["lp.Signal"]
    text = (tmp_path / "x.xml").read_text()
    for found in reversed(list(re.finditer(r"<Timestamp>([^<]*)", text))[10:]):
        text = text[: found.start(1)] + (float.fromhex(found[1]) + 500).hex() + text[found.end(1) :]
    (tmp_path / "x.xml").write_text(text)
    graph = sigweave.Graph()
    graph.add("XmlPlayer", "player", file="x.xml")
    graph.add("Recorder", "recorder", file="gap.mcap")
    graph.connect("player.Signal", "recorder.Signal 1")
    graph.run()
    recording = sigweave.open("gap.mcap")
    (signal,) = recording.values()
    ((gap,),) = recording.gaps.values()
    assert gap.position == 10000 and gap.seconds == pytest.approx(0.5, abs=1e-6)
    assert len(signal.between(0.3, 0.6)) == 0
    np.testing.assert_array_equal(signal.between(0.80001, 0.90001), expected[14401:19201])
    whole = signal[:]
    assert whole.gaps == [gap] and signal[9900:10100].gaps[0].seconds == pytest.approx(0.5, abs=1e-6)
    for a, b in np.sort(np.random.default_rng(5).uniform(-0.1, 1.6, (50, 2))):
        np.testing.assert_array_equal(signal.between(a, b), whole.between(a, b))


def test_buses_spectra_and_equal_names(chord):
    chord.add("BusJoin", "bus")
    chord.add("Spectrum", "sp", length=480)
    chord.add("Recorder", "recorder", file="x.mcap")
    chord.connect("low.Signal", "bus.Signal 1")
    chord.connect("high.Signal", "bus.Signal 2")
    chord.connect("high.Signal", "sp.Signal")
    (bus,) = [f"bus.{port['name']}" for port in sigweave.modules()["BusJoin"]["outputs"]]
    for i, source in enumerate([bus, "sp.Signal", "high.Signal"]):
        chord.connect(source, f"recorder.Signal {i + 1}")
    kept = chord.run(keep=[bus, "sp.Signal", "high.Signal"])
    recording = sigweave.open("x.mcap")
    assert list(recording) == ["sine (Signal 1)", "sine 2", "sine (Signal 2)", "sine (Signal 3)"]
    np.testing.assert_array_equal(recording["sine 2"], kept[bus]["sine 2"])
    np.testing.assert_array_equal(recording["sine 2"][900:1100], kept[bus]["sine 2"][900:1100])
    np.testing.assert_array_equal(recording["sine (Signal 3)"], kept["high.Signal"])
    spectrum = recording["sine (Signal 2)"]
    assert spectrum.is_spectrum and spectrum.shape == kept["sp.Signal"].shape
    np.testing.assert_array_equal(spectrum, kept["sp.Signal"])
    np.testing.assert_array_equal(spectrum[0], kept["sp.Signal"][0])
    np.testing.assert_array_equal(spectrum.frequency(), kept["sp.Signal"].frequency())
    with pytest.raises(ValueError, match="no time"):
        spectrum.between(0, 1)


def test_reads_on_while_it_is_written_and_says_what_a_killed_run_left(tmp_path):
    (tmp_path / "a.graph").write_text(
        "[tone]\nmodule=Generator\nrate=48000\nduration=1000\nblock=480\n[r]\nmodule=Recorder\nfile=x.mcap\n"
        "[lines]\ntone.Signal=r.Signal 1\n"
    )
    program = subprocess.Popen([PROGRAM, "run", "a.graph", "--realtime"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        until = time.monotonic() + 30
        while not (tmp_path / "x.mcap").exists() and time.monotonic() < until:
            time.sleep(0.01)
        recording = sigweave.open("x.mcap")
        while recording.block_count < 5 and time.monotonic() < until:
            time.sleep(0.01)
            recording.refresh()
        (signal,) = recording.values()
        before, count = signal[:], len(signal)
        assert recording.is_being_written and "is being written" in recording.missing and count >= 2400
        while recording.block_count <= count // 480 and time.monotonic() < until:
            time.sleep(0.01)
            recording.refresh()
        (later,) = recording.values()
        assert len(later) > count == len(signal)
        np.testing.assert_array_equal(later[:count], before)
    finally:
        program.send_signal(signals.SIGKILL)
        program.wait()
    recording.refresh()
    assert f"x.mcap ends after block {recording.block_count}; it was not closed" in recording.missing
    content = (tmp_path / "x.mcap").read_bytes()
    (tmp_path / "cut.mcap").write_bytes(content[:-17])
    cut = sigweave.open("cut.mcap")
    assert f"ends after block {recording.block_count - 1}" in cut.missing and "bytes behind it are no block" in cut.missing
    np.testing.assert_array_equal(*(np.asarray(next(iter(one.values())))[: 480 * cut.block_count] for one in (cut, recording)))


def test_what_is_damaged_is_left_out_and_said(recorded, tmp_path):
    expected = np.asarray(recorded["high"])
    recording = damaged(tmp_path)
    signal = recording["high"]
    assert recording.missing == ""
    with pytest.warns(RuntimeWarning, match="'high' are lost between 8500 and 10500: .*byte [0-9]+ is damaged"):
        part = signal[8500:10500]
    np.testing.assert_array_equal(part, np.delete(expected, slice(9000, 10000))[8500:9500])
    assert part.gaps[0].seconds == pytest.approx(1000 / 48000, abs=1e-6)
    with pytest.warns(RuntimeWarning):
        assert len(signal[9100:9200]) == 0
    with pytest.warns(RuntimeWarning), pytest.raises(sigweave.RecordingError, match="value 9100 of 'high' is lost"):
        signal[9100]
    assert "is damaged" in recording.missing
    (found,) = recording.check()
    assert "block 10 of 'high'" in found and "y.mcap" in found
    np.testing.assert_array_equal(signal[:9000], expected[:9000])
    np.testing.assert_array_equal(recording["sum"], recorded["sum"])


@pytest.mark.filterwarnings("ignore::RuntimeWarning")
@pytest.mark.parametrize("position", [0, 4, 8, 25, 80], ids=["mark", "version", "size", "length of metadata", "name"])
def test_what_a_block_says_of_itself_may_be_damaged(recorded, tmp_path, position):
    expected = np.asarray(recorded["high"])
    for read in (lambda signal: signal[8990:9500], lambda signal: signal[:]):  # without and with the table of all blocks
        signal = damaged(tmp_path, position)["high"]
        with pytest.warns(RuntimeWarning, match="'high' are lost between [0-9]+ and [0-9]+: y.mcap: .*(block|byte)"):
            part = read(signal)
        begin = 8990 if len(part) < 600 else 0
        np.testing.assert_array_equal(part, np.delete(expected, slice(9000, 10000))[begin : begin + len(part)])


def test_no_damage_ends_the_process(recorded, tmp_path):
    whole = (tmp_path / "x.mcap").read_bytes()[:120000]
    chooser = np.random.default_rng(11)
    opened = 0
    for round in range(150):
        content = bytearray(whole)
        for _ in range(chooser.integers(1, 30)):
            at = int(chooser.integers(len(content)))
            content[at : at + int(chooser.integers(1, 9))] = bytes(chooser.integers(0, 256, 8, dtype=np.uint8))
        (tmp_path / "bad.mcap").write_bytes(content[chooser.integers(0, 200) : chooser.integers(1, len(content))])
        try:
            recording = sigweave.open("bad.mcap")
        except sigweave.RecordingError as error:
            assert "bad.mcap" in str(error)
            continue
        opened += 1
        for signal in recording.values():
            length = len(signal)
            for _ in range(5):
                begin, end = np.sort(chooser.integers(0, length + 1, 2))
                part = np.asarray(signal[begin:end])
                assert len(part) <= max(end - begin, 0) and np.all(np.abs(part) < 4)  # what is given is what was recorded
            assert len(signal.blocks) <= recording.block_count and len(signal.time()) == len(signal)
        recording.check()
    assert opened > 100


def test_a_file_that_became_shorter_is_said_before_it_is_read(recorded):
    recording = sigweave.open("x.mcap")
    view = np.array(recording["high"][100:200])
    os.truncate("x.mcap", 50000)
    for use in (lambda: recording["high"][:], lambda: recording["high"].blocks):
        with pytest.raises(sigweave.RecordingError, match="has become shorter since it was opened; open it again"):
            use()
    recording.refresh()
    np.testing.assert_array_equal(recording["high"][100:200], view)


@pytest.mark.parametrize("content", [b"\x89MCAP0\r\nand nothing that is of use" * 5, b"RIFF" + bytes(1000)])
def test_refuses_what_is_no_recording(tmp_path, content):
    (tmp_path / "z.mcap").write_bytes(content)
    with pytest.raises(sigweave.RecordingError, match="z.mcap is (not a recording|an MCAP file of another program)"):
        sigweave.open("z.mcap")
    with pytest.raises(IsADirectoryError):
        sigweave.open(tmp_path)


def test_one_call_makes_tables(recorded):
    pandas, xarray = pytest.importorskip("pandas"), pytest.importorskip("xarray")
    recording = sigweave.open("x.mcap")
    table = recording.to_pandas()
    assert list(table.columns) == ["sum", "high"] and table.shape == (48000, 2)
    assert table.index[4800] == pandas.Timestamp("2026-03-01T12:00:00.1Z")
    np.testing.assert_array_equal(table["high"], recorded["high"])
    data = recording.to_xarray()
    assert isinstance(data, xarray.Dataset) and data["high"].dims == ("time",) and data["sum"].attrs["units"] == "V"
