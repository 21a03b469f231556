#!/usr/bin/env python3
"""Prints the tables of FilterTest.cpp: what SciPy's designs, sosfreqz, sosfilt and sosfiltfilt make of the same
filters."""
import numpy
from scipy import signal

RATE = 48000
BUTTERWORTH = [
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
OTHERS = [
    ("chebyshev1", "ripple", 1, "lowpass", 1, [1000]),
    ("chebyshev1", "ripple", 0.1, "lowpass", 6, [1000]),
    ("chebyshev1", "ripple", 3, "highpass", 7, [480]),
    ("chebyshev1", "ripple", 0.5, "bandpass", 4, [3000, 6000]),
    ("chebyshev1", "ripple", 1, "bandstop", 5, [4800, 14400]),
    ("chebyshev2", "attenuation", 40, "lowpass", 4, [1000]),
    ("chebyshev2", "attenuation", 60, "lowpass", 7, [5000]),
    ("chebyshev2", "attenuation", 80, "highpass", 12, [480]),
    ("chebyshev2", "attenuation", 40, "bandpass", 5, [2400, 9600]),
    ("chebyshev2", "attenuation", 30, "bandstop", 4, [3000, 6000]),
    ("chebyshev2", "attenuation", 50, "bandstop", 3, [4800, 5760]),
    ("bessel", None, None, "lowpass", 1, [1000]),
    ("bessel", None, None, "lowpass", 4, [1000]),
    ("bessel", None, None, "lowpass", 12, [4800]),
    ("bessel", None, None, "highpass", 7, [480]),
    ("bessel", None, None, "bandpass", 5, [2400, 9600]),
    ("bessel", None, None, "bandstop", 3, [3000, 6000]),
]
NOTCHES = [(1000, 5), (6000, 2), (23000, 3)]


def noise(count):
    values, state = [], 1
    for _ in range(count):
        state = (state * 1664525 + 1013904223) % 2**32
        values.append(state / 2**31 - 1)
    return numpy.array(values)


def design(name, value, kind, order, corners):
    form = {"btype": kind, "fs": RATE, "output": "sos"}
    if name == "chebyshev1":
        return signal.cheby1(order, value, corners, **form)
    if name == "chebyshev2":
        return signal.cheby2(order, value, corners, **form)
    if name == "bessel":
        return signal.bessel(order, corners, norm="mag", **form)
    return signal.butter(order, corners, **form)


def settings(name, parameter, value, kind, order, corners):
    text = f"type={kind}\\norder={order}\\ncorner={corners[0]}"
    text += f"\\nupper_corner={corners[1]}" if len(corners) > 1 else ""
    text += f"\\ndesign={name}" if name != "butterworth" else ""
    return text + (f"\\n{parameter}={value}" if parameter else "")


def row(text, sos, frequencies):
    response = signal.sosfreqz(sos, frequencies, fs=RATE)[1]
    output = signal.sosfilt(sos, noise(3000))
    print(f'    {{"{text}",')
    points = [f"{{{f!r}, {{{h.real!r}, {h.imag!r}}}}}" for f, h in zip(frequencies, response)]
    print("     {" + ", ".join(points) + "},")
    print("     {" + ", ".join(repr(float(output[i])) for i in (40, 2999)) + f"}}, {float(max(abs(output)))!r}}},")


def course(text, output):
    values = ", ".join(repr(float(output[i])) for i in (0, 40, 2999))
    print(f'    {{"{text}", {{{values}}}, {float(max(abs(output)))!r}}},')


ALL = [("butterworth", None, None, *f) for f in BUTTERWORTH] + OTHERS
for name, parameter, value, kind, order, corners in ALL:
    row(settings(name, parameter, value, kind, order, corners), design(name, value, kind, order, corners),
        [0.8 * corners[0], 1.1 * corners[-1]])
for centre, quality in NOTCHES:
    row(f"type=notch\\ncorner={centre}\\nquality={quality}",
        signal.tf2sos(*signal.iirnotch(centre, quality, fs=RATE)), [0.8 * centre, 1.02 * centre])
print()
values = 3 + noise(3000)
for case in (ALL[1], ALL[3], ALL[6], ALL[9], OTHERS[6], OTHERS[14]):
    name, parameter, value, kind, order, corners = case
    sos = design(name, value, kind, order, corners)
    start = signal.sosfilt_zi(sos) * values[0]
    course(settings(*case) + "\\ninitial=settled", signal.sosfilt(sos, values, zi=start)[0])
    course(settings(*case) + "\\nzero_phase=yes", signal.sosfiltfilt(sos, values))
b, a = signal.iirnotch(6000, 2, fs=RATE)
course("type=notch\\ncorner=6000\\nquality=2\\ninitial=settled",
       signal.lfilter(b, a, values, zi=signal.lfilter_zi(b, a) * values[0])[0])
course("type=notch\\ncorner=6000\\nquality=2\\nzero_phase=yes", signal.filtfilt(b, a, values))
