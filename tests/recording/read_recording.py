#!/usr/bin/env python3
"""Reads a recording by what docs/recordings.md and docs/packed-frames.md say, without a library of this tree.

Prints for each signal its name, unit and rate, then each block: signal, number, time, metadata, and the elements of
its arrays, doubles as the hexadecimal digits of their bits; for each signal of an index how many blocks and samples are
before it, and the time of the last one.
"""
import struct
import sys

K, MASK = 0x9E3779B97F4A7C15, (1 << 64) - 1


def checksum(data):
    sums = [0, 0, 0, 0]
    for i, (word,) in enumerate(struct.iter_unpack("<Q", data)):
        for at, term in enumerate((word, word >> 32, i * word, i * (word >> 32))):
            sums[at] += term
    return (((sums[0] * K + sums[1]) * K + sums[2]) * K + sums[3]) & MASK


class Fields:
    def __init__(self, data, at=0):
        self.data, self.at = data, at

    def take(self, form):
        values = struct.unpack_from("<" + form, self.data, self.at)
        self.at += struct.calcsize("<" + form)
        return values[0] if len(values) == 1 else values

    def text(self):
        length = self.take("I")
        self.at += length
        return self.data[self.at - length:self.at]

    def pairs(self):
        inner, found = Fields(self.text()), {}
        while inner.at < len(inner.data):
            key = inner.text().decode()
            found[key] = inner.text().decode()
        return found


def read_block(frame):
    """The metadata, or None, and the arrays: (name, dimensions, elements)."""
    metadata, arrays = None, []
    if frame.take("?"):
        _, time, rate, factor, *exponents, low, high = frame.take("iddd7bdd")
        metadata = (frame.text(), time, rate, factor, exponents, low, high, frame.take("i"))
    for _ in range(frame.take("i")):
        name, kind = frame.text(), frame.take("i")
        dimensions = [frame.take("i") for _ in range(frame.take("i"))]
        count = 1
        for extent in dimensions:
            count *= extent
        if kind in (1, 2):
            frame.at = (frame.at + 7) // 8 * 8
            elements = list(struct.unpack_from(f"<{count}{'iQ'[kind - 1]}", frame.data, frame.at))
            frame.at += count * (4, 8)[kind - 1]
        else:
            elements = [frame.text() if kind == 3 else read_block(frame) for _ in range(count)]
        arrays.append((name, dimensions, [f"{e:016x}" for e in elements] if kind == 2 else elements))
    return metadata, arrays


def read_index(fields, at, definitions):
    assert fields.take("4sI") == (b"SWIX", 1), "the index is of another version"
    number = fields.take("Q")
    before = [fields.take("Q") for _ in range(fields.take("I"))]
    assert len(before) == (number & -number).bit_length() and all(offset < at for offset in before), "wrong offsets"
    for _ in range(fields.take("I")):
        signal, *counts = fields.take("HQQQ")
        assert [fields.text(), fields.text()] == definitions[signal], "the index defines a signal otherwise"
        print("index", signal, *counts)


def read(data):
    assert data[:8] == b"\x89MCAP0\r\n", "no recording"
    at, definitions = 8, {}
    while data[at:at + 1] != b"\x0f":
        opcode, length = struct.unpack_from("<BQ", data, at)
        end = at + 9 + length
        if opcode == 5:
            channel, number, time, _ = struct.unpack_from("<HIQQ", data, at + 9)
            frame, seal = data[at + 31:end - 9], data[end - 9:end - 1]
            assert checksum(data[at:at + 31] + b"\0") == int.from_bytes(seal, "little"), "a head is damaged"
            assert checksum(frame[24:]) == int.from_bytes(frame[16:24], "little"), "a frame is damaged"
            print("block", channel, number, time, *read_block(Fields(frame, 24)))
        else:
            last = end - 1 if opcode == 1 else end
            assert checksum(data[at:last - 8]) == int.from_bytes(data[last - 8:last], "little"), "a seal is wrong"
        fields = Fields(data, at + 9)
        if opcode in (3, 4):
            definitions.setdefault(struct.unpack_from("<H", data, at + 9)[0], []).append(data[at + 9:end - 8])
        if opcode == 0x80:
            assert struct.unpack_from("<Q", data, end - 16)[0] == at, "the index does not name its own place"
            read_index(fields, at, definitions)
        if opcode == 4:
            channel, _ = fields.take("HH")
            topic, encoding, metadata = fields.text().decode(), fields.text(), fields.pairs()
            print("signal", channel, topic, encoding, metadata)
        at = end


read(open(sys.argv[1], "rb").read())
