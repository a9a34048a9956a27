#!/usr/bin/env python3
"""Prints the PSNR in dB between two 8-bit images of the same size (PGM/PPM,
or PNG grey/RGB without interlace); 'inf' when they are identical.

usage: psnr.py A B [MIN_DB]          (with MIN_DB: exit 1 when below it)
       psnr.py --pairs LIST MIN_DB   (LIST: lines "A B [MIN_DB]"; checks every pair)
"""
import math
import struct
import sys
import zlib


def read_pnm(data):
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace():
            pos += 1
        if data[pos:pos + 1] == b"#":
            while data[pos:pos + 1] not in (b"\n", b""):
                pos += 1
            continue
        start = pos
        while not data[pos:pos + 1].isspace():
            pos += 1
        fields.append(data[start:pos])
    magic, w, h, maxval = fields[0], int(fields[1]), int(fields[2]), int(fields[3])
    if maxval != 255:
        raise SystemExit("only 8-bit PNM")
    ch = 3 if magic == b"P6" else 1
    return w, h, ch, data[pos + 1:pos + 1 + w * h * ch]


def read_png(data):
    pos, idat = 8, b""
    while pos < len(data):
        n, kind = struct.unpack(">I4s", data[pos:pos + 8])
        body = data[pos + 8:pos + 8 + n]
        if kind == b"IHDR":
            w, h, depth, ctype, _, _, interlace = struct.unpack(">IIBBBBB", body)
        elif kind == b"IDAT":
            idat += body
        pos += 12 + n
    if depth != 8 or ctype not in (0, 2) or interlace:
        raise SystemExit("only 8-bit grey or RGB PNG without interlace")
    ch = 3 if ctype == 2 else 1
    raw = zlib.decompress(idat)
    stride = w * ch
    out = bytearray(stride * h)
    prev = bytearray(stride)
    for y in range(h):
        f = raw[y * (stride + 1)]
        line = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        for i in range(stride):
            a = line[i - ch] if i >= ch else 0
            b = prev[i]
            if f == 1:
                line[i] = (line[i] + a) & 255
            elif f == 2:
                line[i] = (line[i] + b) & 255
            elif f == 3:
                line[i] = (line[i] + ((a + b) >> 1)) & 255
            elif f == 4:
                c = prev[i - ch] if i >= ch else 0
                p = a + b - c
                pa, pb, pc = abs(p - a), abs(p - b), abs(p - c)
                line[i] = (line[i] + (a if pa <= pb and pa <= pc else b if pb <= pc else c)) & 255
        out[y * stride:(y + 1) * stride] = line
        prev = line
    return w, h, ch, bytes(out)


def read(path):
    data = open(path, "rb").read()
    return read_png(data) if data[:8] == b"\x89PNG\r\n\x1a\n" else read_pnm(data)


def psnr(a, b):
    wa, ha, ca, pa = read(a)
    wb, hb, cb, pb = read(b)
    if (wa, ha, ca) != (wb, hb, cb):
        raise SystemExit("%s and %s differ in size" % (a, b))
    se = sum((x - y) * (x - y) for x, y in zip(pa, pb))
    if se == 0:
        return math.inf
    return 10 * math.log10(255.0 * 255.0 * len(pa) / se)


def check_pairs(listing, default_min):
    worst, bad = math.inf, 0
    for line in open(listing):
        parts = line.split()
        if not parts:
            continue
        least = float(parts[2]) if len(parts) > 2 else default_min
        value = psnr(parts[0], parts[1])
        worst = min(worst, value)
        if value < least:
            print("PSNR of %s against %s is %.2f dB, below %g" % (parts[0], parts[1], value, least), file=sys.stderr)
            bad += 1
    print("%.2f" % worst)
    return bad == 0


if __name__ == "__main__":
    if sys.argv[1] == "--pairs":
        sys.exit(0 if check_pairs(sys.argv[2], float(sys.argv[3])) else 1)
    value = psnr(sys.argv[1], sys.argv[2])
    print("%.2f" % value)
    if len(sys.argv) > 3 and value < float(sys.argv[3]):
        print("PSNR of %s against %s is %.2f dB, below %s" % (sys.argv[1], sys.argv[2], value, sys.argv[3]),
              file=sys.stderr)
        sys.exit(1)
