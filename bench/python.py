"""What the Python package costs, as a table for docs/performance.md. Nothing else should run meanwhile.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/python.py

Writes 1 GB into the folder for temporary files. Both sides of a ratio are measured in turn, in this one run; each figure is
the best of its repetitions, for other work only ever adds to it.
"""

import os
import tempfile
import time
from pathlib import Path

import numpy as np
from scipy import signal

import sigweave

REPEATED = 7


def best(*works, calls=1, clock=time.perf_counter):
    """Seconds for each work, taken in turn. Where a difference of two is wanted, those of the processor: it has less of the
    other work on the machine in it."""
    found = [float("inf")] * len(works)
    for _ in range(REPEATED):
        for i, work in enumerate(works):
            begin = clock()
            for _ in range(calls):
                work()
            found[i] = min(found[i], (clock() - begin) / calls)
    return found


def row(what, ours, peer, ratio="", goal=""):
    print(f"| {what} | {ours} | {peer} | {ratio} | {goal} |")


def views():
    for size in (16, 1024, 65536):
        graph = sigweave.Graph()
        graph.add("Generator", "tone", duration=10 * size / 48000, block=size)
        graph.add("Statistics", "levels")
        graph.connect("tone.Signal", "levels.Signal")
        with graph.stream("tone.Signal") as live:
            block = next(live)
            (view,) = best(lambda block=block: block.values, calls=20000)
        row(f"`block.values`, {size:,} doubles, with the call of an empty function", f"{1e9 * view:.0f} ns", "", "", "500 ns")


def modules(folder):
    (folder / "magnitude.py").write_text(
        "import numpy as np\nimport sigweave\n\n\nclass Magnitude(sigweave.Module):\n"
        "    def execute(self, signal):\n        return np.abs(signal)\n"
    )
    blocks = 20000

    def graph(steps):
        made = sigweave.Graph(module_path=[folder, ""])
        made.add("Generator", "level", form="dc", duration=1024 * blocks / 48000, block=1024)
        names = ["level", *(f"m{i}" for i in range(steps)), "levels"]
        for name in names[1:-1]:
            made.add("Magnitude", name)
        made.add("Statistics", "levels")
        for a, b in zip(names, names[1:]):
            made.connect(f"{a}.Signal", f"{b}.Signal")
        return made

    without, one = graph(0), graph(1)
    array = np.zeros(1024)

    def own():
        for _ in range(blocks):
            np.abs(array)

    times = best(without.run, one.run, own, clock=time.process_time)
    beside = (times[1] - times[0] - times[2]) / blocks
    row(
        "a module in Python, 1024 doubles a block, beside its `np.abs`",
        f"{1e6 * beside:.2f} us",
        f"{1e6 * times[2] / blocks:.2f} us",
        goal="2 us",
    )


def recordings(folder):
    path = folder / "long.mcap"
    graph = sigweave.Graph()
    graph.add("Generator", "tone", duration=2750, block=1024, unit="V")
    graph.add("Recorder", "recorder", file=path)
    graph.connect("tone.Signal", "recorder.Signal 1")
    graph.run()
    size = path.stat().st_size
    (opened,) = best(lambda: sigweave.open(path))
    row(f"open a recording of {size / 1e9:.2f} GB", f"{1e3 * opened:.1f} ms", "", "", "50 ms")
    firsts = []
    for i in range(REPEATED):
        sine = sigweave.open(path)["sine"]
        begin = time.perf_counter()
        sine[17_000_000 * i + 10 : 17_000_000 * i + 500]
        firsts.append(time.perf_counter() - begin)
    row("its first slice, 490 values", f"{1e3 * min(firsts):.2f} ms", "", "", "1 ms")
    sine = sigweave.open(path)["sine"]
    len(sine.blocks)
    (view,) = best(lambda: sine[100_000_010:100_000_500], calls=2000)
    row("a later slice within a block", f"{1e6 * view:.1f} us", "", "", "")
    count = 40_000_000  # values
    mapped = np.memmap(path, dtype="<f8", mode="r", offset=8192, shape=(count,))
    copied, bare = best(lambda: sine[1000 : 1000 + count], lambda: np.array(mapped))
    row(f"read {8 * count / 1e6:.0f} MB of it, each block checked, against a bare copy of as many mapped bytes", f"{1e3 * copied:.0f} ms", f"{1e3 * bare:.0f} ms", f"{copied / bare:.2f}", "1.25")
    path = folder / "short.mcap"
    graph.run(set={"tone.duration": 900, "recorder.file": path})
    count = 900 * 48000
    fresh, anew = best(
        lambda: sigweave.open(path)["sine"][:],
        lambda: np.array(np.memmap(path, dtype="<f8", mode="r", offset=8192, shape=(count,))),
        clock=time.process_time,
    )
    what = f"open {8 * count / 1e6:.0f} MB and read them, so that the table of blocks is found first, against a copy of bytes mapped anew"
    row(what, f"{1e3 * fresh:.0f} ms", f"{1e3 * anew:.0f} ms", f"{fresh / anew:.2f}", "")


def filters():
    def graph(*steps):
        made = sigweave.Graph()
        made.add("Generator", "noise", form="noise", duration=60, block=4096)
        made.add("Filter", "low", corner=3000, order=4)
        made.add("Statistics", "levels")
        names = ["noise", *steps, "levels"]
        for a, b in zip(names, names[1:]):
            made.connect(f"{a}.Signal", f"{b}.Signal")
        if not steps:
            del made["low"]
        return made

    plain, filtering = graph(), graph("low")
    noise = np.array(plain.run(keep=["noise.Signal"])["noise.Signal"])
    sections = signal.butter(4, 3000, fs=48000, output="sos")
    with_filter, without, scipy = best(
        lambda: filtering.run(keep=["low.Signal"]),
        lambda: plain.run(keep=["noise.Signal"]),
        lambda: signal.sosfilt(sections, noise),
        clock=time.process_time,
    )
    added = with_filter - without
    row("a low pass of order 4 over 60 s at 48 kHz, by what it adds to a run that keeps its signal, against `scipy.signal.sosfilt`", f"{1e3 * added:.0f} ms", f"{1e3 * scipy:.0f} ms", f"{added / scipy:.2f}", "")


print(f"Load average at the beginning: {os.getloadavg()[0]:.1f}.\n")
print("| work | sigweave | peer | ratio | limit |\n|---|---|---|---|---|")
with tempfile.TemporaryDirectory() as made:
    views()
    modules(Path(made))
    recordings(Path(made))
    filters()
