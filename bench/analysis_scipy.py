#!/usr/bin/env python3
"""analysis_scipy.py WORK SAMPLES: prints the seconds of processor time that SciPy takes for what bench/analysis.cpp
measures."""
import os
import sys

os.environ.update(OMP_NUM_THREADS="1", OPENBLAS_NUM_THREADS="1")

import time  # noqa: E402

import numpy  # noqa: E402
from scipy import signal  # noqa: E402

RATE = 48000


def spectrum(values):
    signal.welch(values, RATE, "hann", 4096, 2048)


def low_pass(values):
    signal.sosfilt(signal.butter(4, 4800, fs=RATE, output="sos"), values)


def thirds(values):
    for band in range(-17, 14):
        middle = 1000 * 10 ** (band / 10)
        edges = [middle * 10**-0.05, min(middle * 10**0.05, 0.499 * RATE)]
        output = signal.sosfilt(signal.butter(4, edges, "bandpass", fs=RATE, output="sos"), values)
        numpy.mean(output[: len(output) // 6000 * 6000].reshape(-1, 6000) ** 2, axis=1)


values = numpy.random.default_rng(1).uniform(-1, 1, int(sys.argv[2]))
begin = time.process_time()
{"spectrum": spectrum, "filter": low_pass, "thirds": thirds}[sys.argv[1]](values)
print(time.process_time() - begin)
