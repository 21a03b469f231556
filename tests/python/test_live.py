"""Streams, and what views keep alive."""

import gc
import time

import numpy as np
import pytest
from conftest import endless, interrupt_when

import sigweave


def test_hands_on_every_block_in_the_order_of_the_run(chord):
    expected = chord.run(keep=["lp.Signal"])["lp.Signal"]
    live = chord.stream("lp.Signal", "sum.Signal", capacity=2)
    blocks = [(block.output, block.number, block.state, np.array(block.values)) for block in live]
    assert live.report.verdict == "complete" and list(live) == []
    assert [number for output, number, _, _ in blocks if output == "lp.Signal"] == list(range(48))
    order = [output for output, *_ in blocks]
    assert order[:2] == ["sum.Signal", "lp.Signal"], "a block is made before what is made of it"
    states = [state for output, _, state, _ in blocks if output == "lp.Signal"]
    assert states == ["START"] + ["BUSY"] * 46 + ["STOP"]
    np.testing.assert_array_equal(np.concatenate([v for o, *_, v in blocks if o == "lp.Signal"]), expected)


def test_the_run_waits_when_nobody_takes_blocks():
    with endless().stream("lp.Signal", capacity=3) as live:
        first = next(live)
        time.sleep(0.2)
        assert live.held <= 3 + 2  # one in hand, one that the run holds
        assert len(first) == 256 and first.rate == 48000.0
    assert live.report.verdict == "interrupted" and "of lp.Signal: interrupted" in repr(live)
    assert repr(first) == "<Block 0 of lp.Signal: 256 values>"
    np.testing.assert_array_equal(first.time(), np.arange(256) / 48000)
    with pytest.raises(ValueError):
        endless().stream("lp.Signal", capacity=0)
    with pytest.raises(TypeError, match="name the outputs"):
        endless().stream()


def test_views_keep_their_blocks_and_are_counted():
    live = endless().stream("lp.Signal")
    block = next(live)
    view, address = block.values, block.values.__array_interface__["data"][0]
    copy = view.copy()
    assert np.asarray(block).__array_interface__["data"][0] == address, "no copy"
    for attempt in (lambda: view.__setitem__(0, 1), lambda: view.setflags(write=True)):
        with pytest.raises(ValueError):
            attempt()
    del block
    for _ in range(300):
        next(live)
    held = live.held
    live.close()
    gc.collect()
    np.testing.assert_array_equal(view, copy)
    assert held <= 16 + 3 and live.held == 1
    del view
    assert live.held == 0


def test_says_that_kept_blocks_cost_memory():
    with endless().stream("lp.Signal") as live, pytest.warns(RuntimeWarning, match="memory grows"):
        kept = [next(live).values for _ in range(100)]
    assert len(kept) == 100


def test_ctrl_c_in_the_loop_ends_the_run():
    live = endless().stream("lp.Signal")
    blocks = []
    with pytest.raises(KeyboardInterrupt):
        thread = interrupt_when(lambda: len(blocks) > 5)
        for block in live:
            blocks.append(block.number)
    thread.join()
    live.close()
    assert live.report.verdict == "interrupted"


def test_failures_come_out_of_the_loop(chord, stalling):
    live = stalling.stream("lp.Signal")
    with pytest.raises(sigweave.RunError, match="starved"):
        list(live)
    with pytest.raises(sigweave.GraphError):
        next(chord.stream("nobody.Signal"))
