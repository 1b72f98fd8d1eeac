#!/usr/bin/env python3
"""Measures panel pictures from panel-render: how many device pixels thick the
rail's rule and the hero card's edges are, and whether the hero's ticker ends
clear of its amount. Usage: measure.py picture.png scale

Reads the PNG itself (8-bit RGBA/RGB, no interlace), so it needs no imaging
library."""
import struct
import sys
import zlib


def read_png(path):
    data = open(path, "rb").read()
    assert data[:8] == b"\x89PNG\r\n\x1a\n", "not a PNG"
    pos, idat, width = 8, b"", 0
    while pos < len(data):
        size, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + size]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlace = struct.unpack(">IIBBBBB", body)
            assert depth == 8 and colour in (2, 6) and interlace == 0, "unsupported PNG"
            bpp = 4 if colour == 6 else 3
        elif kind == b"IDAT":
            idat += body
        pos += 12 + size
    raw = zlib.decompress(idat)
    stride = width * bpp
    rows, prev = [], bytearray(stride)
    for y in range(height):
        f = raw[y * (stride + 1)]
        line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - bpp] if i >= bpp else 0
            b = prev[i]
            c = prev[i - bpp] if i >= bpp else 0
            if f == 1:
                line[i] = (line[i] + a) & 255
            elif f == 2:
                line[i] = (line[i] + b) & 255
            elif f == 3:
                line[i] = (line[i] + (a + b) // 2) & 255
            elif f == 4:
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        rows.append(line)
        prev = line
    grey = [[(r[x * bpp] * 299 + r[x * bpp + 1] * 587 + r[x * bpp + 2] * 114) // 1000 for x in range(width)]
            for r in rows]
    return width, height, grey


def run_at(values, centre, reach):
    """Length of the run of pixels around `centre` that stand out from the
    pixels `reach` away on either side."""
    base = (values[centre - reach] + values[centre + reach]) / 2
    stands = lambda v: abs(v - base) >= 4
    if not stands(values[centre]):
        for d in range(1, reach):
            if stands(values[centre + d]):
                centre += d
                break
            if stands(values[centre - d]):
                centre -= d
                break
        else:
            return 0
    lo = hi = centre
    while lo - 1 > centre - reach and stands(values[lo - 1]):
        lo -= 1
    while hi + 1 < centre + reach and stands(values[hi + 1]):
        hi += 1
    return hi - lo + 1


def main():
    path, scale = sys.argv[1], int(sys.argv[2])
    w, h, g = read_png(path)
    column = [g[y][w // 2] for y in range(h)]
    # The rail's rule sits under the 46-pt rail, inside the 1-pt edge.
    print(f"{path}: {w}x{h}")
    print(f"  rail rule: {run_at(column, 47 * scale, 3 * scale)} device px")
    # The hero card's upper edge, 12 pt under the rule; its left edge, 13 pt in.
    print(f"  hero card top edge: {run_at(column, 60 * scale, 3 * scale)} device px")
    row = g[(60 + 40) * scale]
    print(f"  hero card left edge: {run_at(row, 13 * scale, 3 * scale)} device px")
    # The figure line (ticker, then amount) runs 98..126 pt down: the widest
    # run of inkless columns between its first and last ink is the gap
    # between the ticker's end and the amount.
    band = range(98 * scale, 126 * scale)
    ink = [any(g[y][x] > 110 for y in band) for x in range(w)]
    marks = [x for x in range(w) if ink[x]]
    gap, at, run = 0, 0, 0
    for x in range(marks[0], marks[-1] + 1):
        run = 0 if ink[x] else run + 1
        if run > gap:
            gap, at = run, x - run + 1
    print(f"  figure line: ink {marks[0]}..{marks[-1]}, widest clear gap {gap} device px at x={at}")


if __name__ == "__main__":
    main()
