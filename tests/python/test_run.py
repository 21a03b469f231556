"""Runs, their reports and their mistakes."""

import copy
import json
import pickle
import subprocess
import sys
import threading

import numpy as np
import pytest
from conftest import PROGRAM, START, endless, interrupt_when, needs_limits
from scipy import signal as scipy_signal

import sigweave
from sigweave import _run


def test_filters_as_scipy_does(chord):
    report = chord.run(keep=["sum.Signal", "lp.Signal"])
    assert report.verdict == "complete" and list(report) == ["sum.Signal", "lp.Signal"]
    k = np.arange(48000)  # turns are reduced before they are rounded
    given = 2 * np.sin(2 * np.pi * (k % 48) / 48) + np.sin(2 * np.pi * (9 * k % 48) / 48)
    sections = scipy_signal.butter(4, 3000, fs=48000, output="sos")
    np.testing.assert_allclose(report["sum.Signal"], given, atol=3e-12)
    np.testing.assert_allclose(
        report["lp.Signal"], scipy_signal.sosfilt(sections, report["sum.Signal"]), atol=3e-12
    )
    rms = np.sqrt(np.mean(np.square(report["lp.Signal"])))
    assert report.results.value("rms") == pytest.approx(rms, rel=1e-12)
    assert repr(report.results).splitlines()[:2] == ["instance  signal  quantity  value            unit", "levels    sum     samples   48000"]


def test_threads_change_no_result(chord):
    results = chord.run().results
    for threads in (2, "auto"):
        assert chord.run(threads=threads).results == results


def test_signals_know_their_unit_rate_and_start(chord):
    kept = chord.run(keep=["lp.Signal"])["lp.Signal"]
    assert (kept.unit, kept.rate, kept.start) == ("V", 48000.0, START)
    assert kept.blocks.shape == (48, 5) and kept.gaps == []
    np.testing.assert_allclose(kept.time(), np.arange(48000) / 48000, atol=1e-12)
    part = kept[4800:9600:2]
    assert part.rate == 24000.0 and part.start == pytest.approx(START + 0.1, abs=1e-6)
    assert part.time()[1] == pytest.approx(2 / 48000)
    assert len(kept.between(0.25, 0.5)) == 12000
    assert type(np.abs(kept)) is np.ndarray and type(kept[[1, 2]]) is np.ndarray
    with pytest.raises(TypeError, match=r"numbered by integers, not 0.1; between\(0.1, 0.2\) takes a part by time"):
        kept[0.1:0.2]
    with pytest.raises(TypeError, match="two numbers, in seconds after the start, not 'a' and 2"):
        kept.between("a", 2)
    with pytest.raises(ValueError, match="read-only"):
        kept[0] = 1
    with pytest.raises(ValueError, match="WRITEABLE"):
        np.asarray(kept).flags.writeable = True


def test_copies_of_signals_know_them_too(chord):
    part = chord.run(keep=["lp.Signal"])["lp.Signal"][4801::2]
    for own in (part.copy(), part.astype(np.float64), copy.copy(part), copy.deepcopy(part), pickle.loads(pickle.dumps(part))):
        np.testing.assert_array_equal(own, part)
        assert (own.unit, own.rate, own.start, own.gaps) == ("V", 24000.0, part.start, [])
        np.testing.assert_array_equal(own.time(), part.time())
        own[0] = 7  # it is one's own
    assert part[0] != 7 and type(np.sort(part)) is type(np.concatenate([part, part])) is np.ndarray


def test_one_call_makes_tables(chord):
    pandas, xarray = pytest.importorskip("pandas"), pytest.importorskip("xarray")
    report = chord.run(keep=["lp.Signal"])
    series = report["lp.Signal"].to_pandas()
    assert series.index[4800] == pandas.Timestamp("2026-03-01T12:00:00.1Z") and series.name.endswith("in V")
    assert list(report.results.to_pandas()["instance"].unique()) == ["levels"]
    data = report["lp.Signal"].to_xarray()
    assert isinstance(data, xarray.DataArray) and data.attrs["units"] == "V" and data.dims == ("time",)


def test_spectra_have_a_row_for_each_segment(chord):
    chord.add("Spectrum", "sp", length=480, average="power", scale="amplitude", window="rectangular")
    chord.connect("sum.Signal", "sp.Signal")
    spectrum = chord.run(keep=["sp.Signal"])["sp.Signal"]
    assert spectrum.shape == (1, 241) and spectrum.is_spectrum
    peaks = np.nonzero(spectrum[0] > 0.5)[0]
    assert list(spectrum.frequency()[peaks]) == [1000.0, 9000.0]
    np.testing.assert_allclose(np.asarray(spectrum)[0, peaks], [2, 1], atol=1e-9)


def test_a_bus_has_its_channels_by_name(chord):
    chord.add("BusJoin", "bus")
    chord["low"].name, chord["high"].name = "deep", "bright"
    chord.connect("low.Signal", "bus.Signal 1")
    chord.connect("high.Signal", "bus.Signal 2")
    (output,) = [port["name"] for port in sigweave.modules()["BusJoin"]["outputs"]]
    kept = chord.run(keep=[f"bus.{output}", "low.Signal"])
    assert list(kept[f"bus.{output}"]) == ["deep", "bright"]
    np.testing.assert_array_equal(kept[f"bus.{output}"]["deep"], kept["low.Signal"])


def test_the_report_is_that_of_the_program(chord, tmp_path):
    chord.save("chord.graph")
    printed = subprocess.run([PROGRAM, "run", "chord.graph", "--report", "json"], capture_output=True, check=True).stdout
    report = sigweave.run("chord.graph", keep=["lp.Signal", "sum.Signal"])
    alike = json.loads(printed)
    del alike["seconds"], report.json["seconds"]
    assert report.json == alike


@pytest.mark.parametrize(
    "set, keep, source, line, words",
    [
        ({"lp.corner": "3 V"}, [], "set={'lp.corner': '3 V'}", 0, "expected Hz"),
        ({"lp.cornr": "3"}, [], "set={'lp.cornr': '3'}", 0, "corner"),
        ({"pl.corner": "3"}, [], "set={'pl.corner': '3'}", 0, "lp"),
        ({}, ["lp.Sinal"], "output 'lp.Sinal'", 0, "Signal"),
        ({}, ["lp"], "output 'lp'", 0, "INSTANCE.OUTPUT"),
    ],
)
def test_mistakes_name_place_and_remedy(chord, set, keep, source, line, words):
    with pytest.raises(sigweave.GraphError) as caught:
        chord.run(set=set, keep=keep)
    (mistake,) = caught.value.mistakes
    assert (mistake.source, mistake.line) == (source, line)
    assert words in mistake.text and str(mistake) in str(caught.value)


def test_all_mistakes_come_at_once_with_their_lines(tmp_path):
    (tmp_path / "bad.graph").write_text("[a]\nmodule=Fliter\n[b]\nmodule=Generator\nrate=-1\n[lines]\na.x=c.y\n")
    with pytest.raises(sigweave.GraphError) as caught:
        sigweave.run("bad.graph")
    assert [mistake.line for mistake in caught.value.mistakes][:2] == [2, 5]
    assert caught.value.line == 2 and "Filter" in caught.value.mistakes[0].text
    with pytest.raises(sigweave.GraphError, match="no such file"):
        sigweave.run("none.graph")


def test_a_failure_has_code_port_line_and_remedy(chord, tmp_path):
    chord.add("CsvWriter", "table", file="out.csv")
    chord.connect("lp.Signal", "table.Signal")
    (tmp_path / "out.csv").write_text("mine")
    with pytest.raises(sigweave.Error, match="out.csv") as caught:
        chord.run(keep=["lp.Signal"])
    assert "overwrite" in str(caught.value) and (tmp_path / "out.csv").read_text() == "mine"

    chord["table"].file = "/dev/full"
    with pytest.raises(sigweave.RunError) as caught:
        chord.run(keep=["lp.Signal"])
    error = caught.value
    assert error.instance == "table" and error.code < 0 and error.report.verdict == "failed"
    assert chord.text.splitlines()[error.line - 1] == "[table]"
    assert "/dev/full" in str(error) and len(error.report["lp.Signal"]) > 0


def test_a_stalled_run_is_an_error(stalling):
    with pytest.raises(sigweave.RunError, match="starved input: bus.Signal 2") as caught:
        stalling.run()
    assert caught.value.report.verdict == "stalled" and caught.value.code == 0


def test_warnings_and_what_was_not_kept(chord):
    report = chord.run(set={"lp.upper_corner": "5 kHz"})
    assert [text for text in report.warnings if "upper_corner" in text]
    with pytest.raises(KeyError, match="keep="):
        report["lp.Signal"]


def test_ctrl_c_ends_the_run_drained():
    before = list(_run._sessions)
    with pytest.raises(KeyboardInterrupt) as caught:
        thread = interrupt_when(lambda: any(one.progress()[0] > 0 for one in list(_run._sessions) if one not in before))
        endless().run(keep=["lp.Signal"])
    thread.join()
    report = caught.value.report
    assert report.verdict == "interrupted"
    made, _, taken = (module for module in report.json["modules"])
    assert made["blocks_out"] == taken["blocks_in"] == len(report["lp.Signal"].blocks)
    assert report["lp.Signal"].blocks[-1, 4] == 2  # STOP


def test_two_runs_at_once_and_python_goes_on(chord):
    chord.add("Spectrum", "sp", length=4096)
    chord.connect("lp.Signal", "sp.Signal")
    expected = np.array(chord.run(keep=["sp.Signal"])["sp.Signal"])
    streams = [endless().stream("lp.Signal") for _ in range(2)]  # go on meanwhile
    results = []

    def work():
        for _ in range(10):
            report = chord.run(keep=["sp.Signal"], set={"lp.upper_corner": 5})
            results.append((np.array_equal(report["sp.Signal"], expected), len(report.warnings)))

    threads = [threading.Thread(target=work) for _ in range(3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for one in streams:
        assert next(one).number == 0
        one.close()
    assert results == [(True, 1)] * 30


def test_the_interpreter_may_end_while_a_run_goes_on():
    code = "import sys; sys.path[:0] = %r\nimport conftest, sigweave\nlive = conftest.endless().stream('lp.Signal')\nnext(live)"
    done = subprocess.run([sys.executable, "-c", code % sys.path], timeout=60, capture_output=True)
    assert (done.returncode, done.stderr) == (0, b"")


@needs_limits
def test_what_does_not_fit_into_memory_ends_the_run_in_order():
    code = (
        "import sys; sys.path[:0] = %r\nimport resource, conftest, sigweave\n"
        "graph = conftest.endless()\ngraph['tone'].block = 65536\nconftest.sigweave.modules()\n"
        "resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))\n"
        "try:\n    graph.run(keep=['lp.Signal'])\nexcept RuntimeError as error:\n    print(error)"
    )
    done = subprocess.run([sys.executable, "-c", code % sys.path], timeout=120, capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "") and "no memory for the blocks of lp.Signal" in done.stdout
