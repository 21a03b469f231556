"""Graphs that are built in Python."""

import copy
import pickle
import subprocess
import xml.etree.ElementTree as tree

import pytest
from conftest import PROGRAM

import sigweave


def test_is_saved_as_the_text_that_the_program_reads(chord, tmp_path):
    chord.save("a.graph")
    chord.save("a.xml")
    assert sigweave.Graph("a.graph").text == sigweave.Graph("a.xml").text == chord.text
    for name in ("a.graph", "a.xml"):
        assert subprocess.run([PROGRAM, "check", name], capture_output=True).returncode == 0
    text = "# mine\n[tone]\nmodule=Generator\n# low enough\nrate=8000\n\n[levels]\nmodule=Statistics\n\n[lines]\ntone.Signal=levels.Signal\n"
    (tmp_path / "mine.graph").write_text(text)
    graph = sigweave.Graph("mine.graph")
    graph["tone"].rate = 16000
    graph.save()
    assert (tmp_path / "mine.graph").read_text() == text.replace("8000", "16000")


def test_parameters_are_attributes(chord):
    lp = chord["lp"]
    assert (lp.corner, lp.order, lp["type"], lp.upper_corner) == ("3 kHz", "4", "lowpass", "0")
    lp.corner = 2500.5
    assert lp.corner == "2500.5" and chord.run().verdict == "complete"
    del lp.corner
    assert lp.corner is None
    with pytest.raises(AttributeError, match="did you mean corner"):
        lp.cornr = 1
    with pytest.raises(AttributeError, match="no parameter"):
        chord.add("Filter", "other", cornr=1)
    with pytest.raises(ValueError, match="already"):
        chord.add("Filter", "lp")
    with pytest.raises(TypeError, match="list"):
        lp.corner = [1]
    assert "other" not in chord and "corner" in dir(lp)


def test_check_lists_all_mistakes_at_the_lines_of_the_text(chord):
    assert chord.check() == []
    chord["lp"].corner = "high"
    chord.add("Fliter", "x")
    chord.connect("x.Signal", "nobody.Signal")
    found = chord.check()
    lines = chord.text.splitlines()
    assert {lines[one.line - 1] for one in found} == {"corner=high", "module=Fliter", "x.Signal=nobody.Signal"}
    assert all(one.remedy for one in found if "corner" in one.text)
    with pytest.raises(sigweave.GraphError):
        chord.run()


def test_lines_and_instances_come_and_go(chord):
    chord.disconnect("lp.Signal", "levels.Signal")
    with pytest.raises(KeyError):
        chord.disconnect("lp.Signal", "levels.Signal")
    del chord["sum"]
    assert chord.lines == [] and list(chord) == ["low", "high", "lp", "levels"]
    for wrong in ("lp", ".Signal", "lp."):
        with pytest.raises(ValueError, match="INSTANCE.PORT"):
            chord.connect(wrong, "levels.Signal")
    with pytest.raises(KeyError, match="there are: low"):
        chord["lwo"]
    chord.add("Filter", "a]b")
    with pytest.raises(ValueError, match="simpler name"):
        chord.text
    with pytest.raises(OSError):
        sigweave.Graph.parse("[a]\nmodule=Math\n").save("no/such/folder/a.graph")
    with pytest.raises(sigweave.GraphError):
        sigweave.Graph.parse("[a\n")


def test_is_copied_pickled_and_compared(chord):
    copies = [chord.copy(), copy.copy(chord), copy.deepcopy(chord), pickle.loads(pickle.dumps(chord))]
    assert all(one == chord and one.run().results == chord.run().results for one in copies)
    copies[1]["lp"].corner = 4000
    assert copies[1] != chord and chord["lp"].corner == copy.copy(chord["lp"]).corner == "3 kHz"


def test_is_shown_in_notebooks(chord):
    shown = chord["lp"]._repr_html_()
    assert "<td>corner</td><td>3 kHz</td><td>must be given</td><td>Hz</td>" in shown and "lowpass" in shown
    assert "<td>Filter</td>" in sigweave.modules()._repr_html_()
    assert "<td>rms</td>" in chord.run()._repr_html_()
    assert chord._ipython_key_completions_() == list(chord)


def test_changed_modules_are_read_again(tmp_path):
    text = "import sigweave\n\n\nclass Mine(sigweave.Module):\n    %s = sigweave.Number(1)\n\n    def execute(self, s):\n        return s\n"
    graph = sigweave.Graph(module_path=[tmp_path, ""])
    for name in ("gain", "offset"):
        (tmp_path / "mine.py").write_text(text % name)
        assert name in dir(graph.add("Mine", name))


def test_is_drawn(chord):
    chord.add("Math", "<odd & name>")
    root = tree.fromstring(chord._repr_svg_())
    space = "{http://www.w3.org/2000/svg}"
    texts = [node.text for node in root.iter(f"{space}text")]
    assert {"low", "lp", "Filter", "Signal 2", "<odd & name>"} <= set(texts)
    assert len(list(root.iter(f"{space}path"))) == 4 and len(list(root.iter(f"{space}rect"))) == 6
    left = {node.text: float(node.get("x")) for node in root.iter(f"{space}text")}
    assert left["low"] < left["sum"] < left["lp"] < left["levels"]
    chord.connect("levels.x", "low.y")  # a cycle, which check refuses, is drawn all the same
    tree.fromstring(chord._repr_svg_())
