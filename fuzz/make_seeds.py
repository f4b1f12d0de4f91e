"""Writes a small seed corpus for each fuzzer: well-formed frames of each kind."""
import os
import sys


def frame(cmd, data):
    body = bytes([(len(data) + 8) >> 8, (len(data) + 8) & 0xFF, cmd]) + bytes(data)
    x = 0
    for b in body:
        x ^= b
    return b"\xa5\x5a" + body + bytes([x, 0x0D, 0x0A])


uii = [0x30, 0x00] + list(range(1, 13))
report = uii + [0xFD, 0x7A, 0x01]
seeds = {
    "search": [frame(0x83, report), b"\x00\xa5" + frame(0x03, [1, 2, 3])],
    "inventory": [frame(0x83, report) * 3, frame(0xEC, [2, len(report)] + report + [len(report)] + report),
                  frame(0x7F, uii + [0x01, 0x9A, 0xFD, 0x7A, 0x01])],
    "cells": [bytes([0x83] + report + [0xE2, 0x00] * 6), bytes([0xEC, 1, len(report)] + report)],
    "exchange": [frame(0x11, [0x01]), frame(0x55, [0x01]) + frame(0x11, [0x01, 0x02])],
    "package": [b"\xa5\x03\x00\x09\xab\x52\x05\x00\x03\x00\x10\x20\x30\x54\x03", b"\x7e\x01\x02\x7d\x01\x7e"],
    # Reports of 64, 20 and 3 bytes carrying one frame, then two frames.
    "usb": [bytes([63]) + frame(0x83, report), bytes([19]) + frame(0x13, [0x01, 30, 30]) + frame(0x83, report),
            bytes([2]) + frame(0xEC, [1, len(report)] + report)],
    "escaped": [b"\x01\x08\xaa\x11\x04\x01\x02\x03\xff\x55\x55", b"\x00\x04\xaa\x26\x02\x00\x55"],
}
out = sys.argv[1]
for name, items in seeds.items():
    os.makedirs(os.path.join(out, name), exist_ok=True)
    for i, data in enumerate(items):
        with open(os.path.join(out, name, "seed%d" % i), "wb") as f:
            f.write(data)
