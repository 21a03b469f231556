"""Modules that are written in Python, in the program and in Python itself."""

import math
import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
from conftest import PROGRAM

import sigweave

EXAMPLES = Path(__file__).resolve().parents[2] / "examples" / "python"
HEAD = "import numpy as np\nimport sigweave\n\n\nclass Mine(sigweave.Module):\n    '''Mine'''\n\n"


@pytest.fixture
def mine(chord, tmp_path):
    """The chord through a module with that body; what the run reports."""

    def make(body):
        (tmp_path / "mine.py").write_text(HEAD + "".join(f"    {line}\n" for line in body.splitlines()))
        chord._module_path = [str(tmp_path), ""]
        chord.add("Mine", "mine")
        chord.connect("lp.Signal", "mine.Signal")
        return chord

    return make


def program(*arguments, path):
    return subprocess.run(
        [PROGRAM, *arguments, "--module-path", f"{path}:"], capture_output=True, text=True, timeout=120
    )


def test_is_listed_set_checked_and_run_like_others(chord):
    listed = program("modules", path=EXAMPLES)
    assert "Cuts off values beyond a limit" in listed.stdout and listed.returncode == 0
    shown = program("modules", "Clip", path=EXAMPLES).stdout
    assert "limit" in shown and "a number of at least 0 (in V)" in shown and "clip.py" in shown
    chord._module_path = [str(EXAMPLES), ""]
    chord.add("Clip", "clip", limit="500 mV")
    chord.add("Statistics", "peaks")
    chord.connect("lp.Signal", "clip.Signal")
    chord.connect("clip.Signal", "peaks.Signal")
    chord.save("a.graph")
    ran = program("run", "a.graph", path=EXAMPLES)
    assert (ran.returncode, ran.stderr) == (0, "")
    assert "peaks" in ran.stdout and " 0.5  V" in ran.stdout
    assert program("run", "a.graph", "--language", "de", path=EXAMPLES).stdout.startswith("Instanz")
    kept = chord.run(keep=["clip.Signal", "lp.Signal"])
    np.testing.assert_array_equal(kept["clip.Signal"], np.clip(kept["lp.Signal"], -0.5, 0.5))
    assert (kept["clip.Signal"].unit, kept["clip.Signal"].start) == ("V", kept["lp.Signal"].start)
    assert [mistake.line for mistake in sigweave.Graph.parse(chord.text.replace("500 mV", "-1"), module_path=chord._module_path).check()] == [
        chord.text.splitlines().index("limit=500 mV") + 1
    ]


def test_metadata_and_results_follow(mine):
    graph = mine(
        "def begin(self):\n    self.seen = []\n"
        "def describe(self, info):\n    return info.replace(unit='V^2', name='power', high=9.0)\n"
        "def execute(self, signal):\n    self.seen.append((self.start, self.info.unit, len(signal)))\n"
        "    return signal[::4] ** 2\n"
        "def end(self):\n    self.result('blocks', len(self.seen))\n    self.result('first', self.seen[0][0], 's')\n"
        "    self.result('peak', 1500, 'mV')\n"
    )
    report = graph.run(keep=["mine.Signal", "lp.Signal"])
    power, voltage = report["mine.Signal"], report["lp.Signal"]
    np.testing.assert_array_equal(power, np.asarray(voltage)[::4] ** 2)
    assert (power.name, power.unit, power.rate, power.range[1]) == ("power", "V²", 12000.0, 9.0)
    assert power.gaps == [] and power.start == voltage.start
    assert report.results[-1] == ("mine", "power", "peak", 1500.0, "mV")
    assert report.results.value("blocks", "mine") == 48 and report.results.value("first") == voltage.start


def test_may_hold_blocks_back(mine):
    graph = mine(
        "def begin(self):\n    self.parts = []\n"
        "def execute(self, signal):\n    self.parts.append(signal)\n"
        "    if len(self.parts) < 4:\n        return None\n"
        "    whole, self.parts = np.concatenate(self.parts), []\n    return whole\n"
    )
    kept = graph.run(keep=["mine.Signal", "lp.Signal"])
    np.testing.assert_array_equal(kept["mine.Signal"], kept["lp.Signal"])
    assert list(kept["mine.Signal"].blocks[:, 4]) == [0] + [1] * 10 + [2]


@pytest.mark.parametrize(
    "body, words",
    [
        ("def execute(self, signal):\n    return 1 / 0", "ZeroDivisionError: division by zero (mine.py, line 9)"),
        ("def execute(self, signal):\n    return 'much'", "must return numbers"),
        ("def execute(self, signal):\n    return signal * 1j", "returned complex numbers; return their magnitude"),
        ("def execute(self, signal):\n    self.result(1, 1)\n    return signal", "as result('peak', 1.5, 'V') (mine.py, line 9)"),
        ("def describe(self, info):\n    return info.replace(rate='x')\ndef execute(self, signal):\n    return signal", "rate of an Info is a number, not 'x'"),
        ("def execute(self, signal):\n    return signal.reshape(2, -1)", "one dimension"),
        ("def execute(self, signal):\n    return []", "at least one value"),
        ("outputs = 'A', 'B'\ndef execute(self, signal):\n    return signal", "a tuple of 2 arrays, one for each output: A, B"),
        ("def describe(self, info):\n    return 'V'\ndef execute(self, signal):\n    return signal", "describe must return an Info"),
        ("def begin(self):\n    self.x = {}['no']\ndef execute(self, signal):\n    return signal", "KeyError: 'no'"),
        ("def describe(self, info):\n    return info.replace(unit='Flup')\ndef execute(self, signal):\n    return signal", "Flup"),
    ],
)
def test_an_exception_ends_the_run_in_one_line_with_its_traceback_in_the_log(mine, body, words):
    graph = mine(body)
    with pytest.raises(sigweave.RunError) as caught:
        graph.run()
    assert words in str(caught.value) and "\n" not in str(caught.value)
    assert caught.value.instance == "mine" and caught.value.code < 0
    graph.save("a.graph")
    ran = program("run", "a.graph", "--log", "run.log", path=os.getcwd())
    assert ran.returncode == 1 and "Traceback" not in ran.stdout + ran.stderr and words in ran.stdout + ran.stderr
    if "Error" in words:
        assert "Traceback" in Path("run.log").read_text()


@pytest.mark.parametrize(
    "text, words",
    [
        ("# sigweave.Module\ndef broken(:\n", "SyntaxError"),
        ("from sigweave import Module\nimport no_such_package\n", "no_such_package"),
        ("# of sigweave, but no Module\n", "derive a class from sigweave.Module"),
        (HEAD + "    n = sigweave.Number(-1, minimum=0)\n    def execute(self, s): return s\n", "n: '-1"),
        (HEAD + "    n = sigweave.Number(1, unit='Flup')\n    def execute(self, s): return s\n", "n: 'Flup' is no unit"),
        (HEAD + "    n = sigweave.Number(1, mininum=0)\n    def execute(self, s): return s\n", "argument 'mininum' (bad.py, line 8)"),
        (HEAD + "    n = sigweave.Choice()\n    def execute(self, s): return s\n", "a Choice is between words"),
        (HEAD + "    start = sigweave.Number(1)\n    def execute(self, s): return s\n", "give the parameter another name"),
        (HEAD + "    def execute(self): return 1\n", "Mine.execute must take a signal for each input: execute(self, signal)"),
        (HEAD + "    inputs = 'AB'\n    def execute(self, s): return s\n", "Mine.inputs is a text"),
        (HEAD + "    outputs = ('A', 'A')\n    def execute(self, s): return s\n", "names that differ"),
        (HEAD + "    inputs = ()\n    def execute(self): return 1\n", "has no input; give it fetch"),
        (HEAD + "    outputs = ()\n    def fetch(self): return 1\n", "a source without an output"),
        (HEAD + "    def fetch(self): return 1\n    def execute(self, s): return s\n", "both execute and fetch"),
    ],
)
def test_a_file_that_cannot_be_used_is_named_and_leaves_others_alone(tmp_path, text, words):
    (tmp_path / "bad.py").write_text(text)
    listed = program("modules", path=tmp_path)
    assert "bad.py" in listed.stderr and words in listed.stderr and "Statistics" in listed.stdout
    with pytest.warns(RuntimeWarning, match=f"bad.py: .*{re.escape(words)}"):
        assert "Statistics" in sigweave.modules([tmp_path, ""])


@pytest.mark.parametrize("example", ["clip.py", "steps.py"])
def test_passes_the_checks_for_modules(example):
    checked = subprocess.run([PROGRAM, "check-module", EXAMPLES / example], capture_output=True, text=True, timeout=280)
    assert checked.returncode == 0, checked.stdout


def test_what_the_document_shows_runs():
    done = subprocess.run([sys.executable, EXAMPLES / "tour.py"], capture_output=True, text=True, timeout=120)
    assert done.returncode == 0, done.stderr
    assert "V 48000.0 complete" in done.stdout and "<Recording x.mcap: sine>" in done.stdout


def test_the_example_ends_in_a_picture(tmp_path):
    done = subprocess.run(
        [sys.executable, EXAMPLES / "harmonics.py", "picture.svg"], capture_output=True, text=True, timeout=120
    )
    assert done.returncode == 0, done.stderr
    assert "<svg" in (tmp_path / "picture.svg").read_text()
    # A sine of amplitude 2 that is cut at 1 reaches it at 30 degrees: the Fourier coefficients of that.
    a = math.pi / 6
    first = 4 / math.pi * (2 * (a / 2 - math.sin(2 * a) / 4) + math.cos(a))
    printed = dict(line.split(": ") for line in done.stdout.splitlines() if ": " in line)
    assert float(printed["1 kHz"].split()[0]) == pytest.approx(first, abs=5e-3)  # sampled
    assert printed["1 kHz"].endswith(" V")


def test_sources_several_ports_and_sinks(tmp_path):
    (tmp_path / "mine.py").write_text(
        "import numpy as np\nimport sigweave\n\n\n"
        "class Ramp(sigweave.Module):\n    '''Counts'''\n    step = sigweave.Number(1.0)\n"
        "    def begin(self):\n        self.at = 0\n        self.start = 1772366400.0\n"
        "    def describe(self):\n        return sigweave.Info(name='ramp', unit='V', rate=1000.0, high=1e3)\n"
        "    def fetch(self):\n        if self.at == 5:\n            return None\n        self.at += 1\n"
        "        return self.step * (np.arange(100.0) + 100 * (self.at - 1))\n\n\n"
        "class Power(sigweave.Module):\n    '''Multiplies'''\n    inputs = ('Voltage', 'Current')\n    outputs = ('Power', 'Means')\n"
        "    def describe(self, voltage, current):\n        return voltage.replace(name='P', unit='W'), current\n"
        "    def execute(self, voltage, current):\n        return voltage * current, [current.mean()]\n\n\n"
        "class Count(sigweave.Module):\n    '''Counts values'''\n    outputs = ()\n    seen = 0\n"
        "    def execute(self, signal):\n        self.seen += len(signal)\n"
        "    def end(self):\n        self.result('seen', self.seen)\n"
    )
    graph = sigweave.Graph(module_path=[str(tmp_path), ""])
    graph.add("Ramp", "u")
    graph.add("Ramp", "i", step=2)
    graph.add("Power", "power")
    graph.add("Count", "count")
    for source, target in [("u.Signal", "power.Voltage"), ("i.Signal", "power.Current"), ("power.Power", "count.Signal")]:
        graph.connect(source, target)
    report = graph.run(keep=["u.Signal", "power.Power", "power.Means"])
    k = np.arange(500.0)
    ramp, power, means = (report[name] for name in report)
    np.testing.assert_array_equal(ramp, k)
    np.testing.assert_array_equal(power, 2 * k * k)
    np.testing.assert_array_equal(means, [99, 299, 499, 699, 899])
    assert (ramp.name, ramp.unit, ramp.rate, ramp.start) == ("ramp", "V", 1000.0, 1772366400.0)
    assert (power.name, power.unit, means.unit, means.rate) == ("P", "W", "V", 10.0)
    assert list(ramp.blocks[:, 4]) == [0, 1, 1, 1, 1, 2] and ramp.gaps == []
    assert list(power.blocks[:, 4]) == [0, 1, 1, 1, 1, 2] and report.results.value("seen") == 500
    graph.add("Reblock", "shorter", size=50)
    graph.disconnect("i.Signal", "power.Current")
    graph.connect("i.Signal", "shorter.Signal")
    graph.connect("shorter.Signal", "power.Current")
    with pytest.raises(sigweave.RunError, match="blocks of 'Voltage' have other lengths than those of 'Current'; put Reblock before both"):
        graph.run()


def test_an_endless_source_ends_with_an_interrupt(tmp_path):
    (tmp_path / "mine.py").write_text(HEAD + "    def fetch(self):\n        return np.ones(64)\n")
    graph = sigweave.Graph(module_path=[str(tmp_path), ""])
    graph.add("Mine", "mine")
    graph.add("Statistics", "levels")
    graph.connect("mine.Signal", "levels.Signal")
    with graph.stream("mine.Signal") as live:
        assert np.all(next(live).values == 1)
    body = "    def fetch(self):\n        return 1 / 0\n"
    (tmp_path / "mine.py").write_text(HEAD + body)
    graph = sigweave.Graph.parse(graph.text, module_path=[str(tmp_path), ""])
    with pytest.raises(sigweave.RunError, match=r"ZeroDivisionError: division by zero \(mine.py, line 9\)"):
        graph.run()


def test_live_parameters_change_in_a_run(chord, tmp_path):
    (tmp_path / "mine.py").write_text(
        HEAD + "    gain = sigweave.Number(1.0, live=True)\n    told = 0\n"
        "    def changed(self):\n        self.told += 1\n        if self.gain > 5:\n            raise ValueError('too loud')\n"
        "    def execute(self, signal):\n        return signal * 0 + self.gain\n"
        "    def end(self):\n        self.result('told', self.told)\n"
    )
    chord._module_path = [str(tmp_path), ""]
    chord.add("Mine", "mine")
    chord.add("Generator", "slow", form="dc", amplitude=3, rate=48, duration=1, block=1, start="2026-03-01T12:00:00Z")
    chord.connect("lp.Signal", "mine.Signal")
    chord.connect("slow.Signal", "mine.gain")
    report = chord.run(keep=["mine.Signal"])
    assert set(np.unique(report["mine.Signal"])) <= {1.0, 3.0} and report["mine.Signal"][-1] == 3
    assert report.results.value("told") >= 1
    chord["slow"].amplitude = 7
    report = chord.run(keep=["mine.Signal"])
    assert any("too loud" in text for text in report.warnings), report.messages
    assert np.all(np.asarray(report["mine.Signal"]) == 1)


def test_a_long_step_holds_up_no_other_thread(tmp_path):
    """In each step the interpreter is held until the other thread has written what was sent to it before."""
    (tmp_path / "mine.py").write_text(
        "import ctypes\nimport sys\nimport time\n\nimport numpy as np\nimport sigweave\n\n"
        "libc = ctypes.PyDLL(None)  # its calls do not let go of the interpreter\n\n\n"
        "class Mine(sigweave.Module):\n    steps = behind = 0\n"
        "    def begin(self):\n        self.usual = sys.getswitchinterval()\n        sys.setswitchinterval(1000)\n"
        "        self.file = open('table.csv.part', 'rb')\n"
        "    def execute(self, signal):\n"
        "        wanted, until = (self.steps - 1) * len(signal) * 6, time.monotonic() + 20\n"
        "        self.steps += 1\n        written = libc.lseek(self.file.fileno(), 0, 2)\n        self.behind += written < wanted\n"
        "        while written < wanted:\n            if time.monotonic() > until:\n"
        "                raise TimeoutError(f'{written} bytes of {wanted} in step {self.steps}')\n"
        "            written = libc.lseek(self.file.fileno(), 0, 2)\n        return signal\n"
        "    def end(self):\n        self.file.close()\n        sys.setswitchinterval(self.usual)\n"
        "        self.result('steps', self.steps)\n        self.result('behind', self.behind)\n"
    )
    graph = sigweave.Graph(module_path=[tmp_path, ""])
    graph.add("Generator", "noise", form="noise", duration=10, block=16384)
    graph.add("CsvWriter", "table", file="table.csv")
    graph.add("Mine", "mine")
    graph.connect("noise.Signal", "mine.Signal")
    graph.connect("noise.Signal", "table.Signal")
    results = graph.run(threads=2).results
    assert results.value("steps") == 30 and results.value("behind") > 0


def test_what_a_module_keeps_is_its_own(mine):
    graph = mine(
        "limit = sigweave.Number(2.0)\n"
        "def begin(self):\n    self.kept = []\n"
        "def execute(self, signal):\n    self.kept.append(signal)\n    signal += 0\n    return signal\n"
        "def end(self):\n    self.result('sum', float(np.sum(np.concatenate(self.kept))))\n"
        "    try:\n        self.limit = 3\n    except AttributeError as error:\n        assert 'is a setting' in str(error)\n"
        "        self.result('limit', self.limit)\n"
    )
    report = graph.run(keep=["lp.Signal", "mine.Signal"])
    assert report.results.value("sum") == pytest.approx(float(np.sum(report["lp.Signal"])), abs=1e-9)
    assert report.results.value("limit") == 2
    np.testing.assert_array_equal(report["mine.Signal"], report["lp.Signal"])
