"""How clipping a tone makes harmonics: a graph with a module in Python, evaluated with NumPy."""

import sys
from pathlib import Path

import numpy as np

import sigweave

graph = sigweave.Graph(module_path=[Path(__file__).parent, ""])  # this folder has clip.py
graph.add("Generator", "tone", frequency=1000, amplitude=2, rate=48000, duration=1, unit="V")
graph.add("Clip", "clip", limit=1)
graph.add("Spectrum", "spectrum", length=4800, scale="amplitude", window="rectangular")
graph.add("Plot", "picture", file=sys.argv[1] if len(sys.argv) > 1 else "harmonics.svg")
for source, target in [("tone", "clip"), ("clip", "spectrum"), ("spectrum", "picture")]:
    graph.connect(f"{source}.Signal", f"{target}.Signal")

report = graph.run(keep=["clip.Signal", "spectrum.Signal"])
clipped, spectrum = report["clip.Signal"], report["spectrum.Signal"]
print(f"{np.mean(np.abs(clipped) == 1):.0%} of the values are clipped")
for harmonic in (1, 3, 5):
    row = np.asarray(spectrum)[0]
    print(f"{harmonic} kHz: {row[np.searchsorted(spectrum.frequency(), 1000 * harmonic - 1)]:.4f} {spectrum.unit}")
