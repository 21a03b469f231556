#!/usr/bin/env python3
"""Prints the table of FilterTest.cpp: what SciPy's butter, sosfreqz and sosfilt make of the same filters."""
import numpy
from scipy import signal

RATE = 48000
FILTERS = [
    ("lowpass", 1, [1000]),
    ("lowpass", 4, [1000]),
    ("lowpass", 12, [480]),
    ("highpass", 5, [9600]),
    ("highpass", 12, [480]),
    ("bandpass", 1, [3000, 6000]),
    ("bandpass", 5, [2400, 19200]),
    ("bandpass", 12, [4800, 5760]),
    ("bandstop", 3, [3000, 6000]),
    ("bandstop", 12, [4800, 14400]),
]


def noise(count):
    values, state = [], 1
    for _ in range(count):
        state = (state * 1664525 + 1013904223) % 2**32
        values.append(state / 2**31 - 1)
    return numpy.array(values)


for kind, order, corners in FILTERS:
    sos = signal.butter(order, corners, kind, fs=RATE, output="sos")
    frequencies = [0.8 * corners[0], 1.1 * corners[-1]]
    response = signal.sosfreqz(sos, frequencies, fs=RATE)[1]
    output = signal.sosfilt(sos, noise(3000))
    upper = f"\\nupper_corner={corners[1]}" if len(corners) > 1 else ""
    print(f'    {{"type={kind}\\norder={order}\\ncorner={corners[0]}{upper}",')
    points = [f"{{{f!r}, {{{h.real!r}, {h.imag!r}}}}}" for f, h in zip(frequencies, response)]
    print("     {" + ", ".join(points) + "},")
    print("     {" + ", ".join(repr(float(output[i])) for i in (40, 2999)) + f"}}, {float(max(abs(output)))!r}}},")
