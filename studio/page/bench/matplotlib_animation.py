"""Pictures a second, and the processor time of each, of one trace of 1000 columns in an animation of matplotlib."""

import time

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plot  # noqa: E402
import numpy  # noqa: E402

COLUMNS = 1000
SECONDS = 5.0

figure, axes = plot.subplots(figsize=(7.65, 1.9), dpi=100)
axes.set_ylim(-1.1, 1.1)
times = numpy.arange(COLUMNS) / 10000.0
low, high = axes.plot(times, times, times, times)
count = 0
begin = time.perf_counter()
busy = time.process_time()
while time.perf_counter() - begin < SECONDS:
    shift = count / 60.0
    values = numpy.sin(2 * numpy.pi * 50 * (times + shift))
    low.set_data(times + shift, values)
    high.set_data(times + shift, values + 0.01)
    axes.set_xlim(shift, shift + COLUMNS / 10000.0)
    figure.canvas.draw()
    count += 1
print(f"{count / (time.perf_counter() - begin):.1f} {1000 * (time.process_time() - busy) / count:.1f}")
