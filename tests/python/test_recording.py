"""Recordings as arrays."""

import re

import numpy as np
import pytest
from conftest import START

import sigweave


@pytest.fixture
def recorded(chord, tmp_path):
    chord.add("XmlRecorder", "recorder", file="x.xml")
    chord.connect("lp.Signal", "recorder.Signal")
    return chord.run(keep=["lp.Signal"])["lp.Signal"]


def test_has_every_bit_and_what_the_signal_says(recorded):
    recording = sigweave.open("x.xml")
    (signal,) = recording.values()
    np.testing.assert_array_equal(signal, recorded)
    np.testing.assert_array_equal(signal.blocks, recorded.blocks)
    assert (signal.unit, signal.rate, signal.start) == ("V", 48000.0, START)
    assert (recording.missing, recording.gaps, recording.block_count) == ("", {}, 48)
    with pytest.raises(KeyError, match=f"it has: {signal.name}"):
        recording["nothing"]
    recording.close()
    assert signal[1] == recorded[1]


def test_finds_gaps(recorded, tmp_path):
    text = (tmp_path / "x.xml").read_text()
    stamps = list(re.finditer(r"<Timestamp>([^<]*)", text))[10:]
    for found in reversed(stamps):
        late = (float.fromhex(found[1]) + 500).hex()
        text = text[: found.start(1)] + late + text[found.end(1) :]
    (tmp_path / "x.xml").write_text(text)
    (signal,) = sigweave.open("x.xml").values()
    (gap,) = signal.gaps
    assert gap.position == 10000 and gap.seconds == pytest.approx(0.5, abs=1e-6)
    assert gap.at == pytest.approx(START + 10000 / 48000, abs=1e-6)
    time = signal.time()
    assert time[9999] == pytest.approx(9999 / 48000) and time[10000] == pytest.approx(10000 / 48000 + 0.5)
    assert len(signal.between(0.3, 0.6)) == 0


def test_reads_what_is_there_of_a_recording_that_was_broken_off(recorded, tmp_path):
    text = (tmp_path / "x.xml").read_text()
    at = text.index("<Block>", text.index("<Block>") + 1)
    (tmp_path / "whole.xml").write_text(text[:at] + "</Stream>")
    recording = sigweave.open("whole.xml")
    (signal,) = recording.values()
    np.testing.assert_array_equal(signal, recorded[:1000])
    assert "goes on after its last block" in recording.missing
    (tmp_path / "damaged.xml").write_text(text[: at + 40])
    recording = sigweave.open("damaged.xml")
    assert recording.block_count == 1 and "damaged.xml" in recording.missing


@pytest.mark.parametrize(
    "content, error", [(None, FileNotFoundError), ("", sigweave.RecordingError), ("a,b\n1,2\n", sigweave.RecordingError)]
)
def test_refuses_what_is_no_recording(tmp_path, content, error):
    if content is not None:
        (tmp_path / "y.xml").write_text(content)
    with pytest.raises(error, match="y.xml"):
        sigweave.open(tmp_path / "y.xml")
