#!/usr/bin/env python3
"""Writes a synthetic photograph-like test image as PGM/PPM: smooth gradients,
a few hard-edged shapes, flat areas and mild noise, so that coders meet runs,
edges and texture alike.

usage: make_test_image.py WIDTH HEIGHT CHANNELS(1|3) BITS(8|16) OUT [SEED]
"""
import math
import random
import sys


def main():
    w, h, ch, bits = (int(a) for a in sys.argv[1:5])
    out = sys.argv[5]
    rnd = random.Random(int(sys.argv[6]) if len(sys.argv) > 6 else 1)
    maxval = 255 if bits == 8 else 65535
    data = bytearray()
    for y in range(h):
        for x in range(w):
            fx, fy = x / max(1, w - 1), y / max(1, h - 1)
            base = [
                0.5 + 0.4 * math.sin(6.0 * fx + 2.0 * fy),
                0.5 + 0.4 * math.cos(4.0 * fy - 3.0 * fx),
                0.3 + 0.6 * fx * fy,
            ]
            # a flat disc, a flat band and a checker patch
            if (fx - 0.3) ** 2 + (fy - 0.4) ** 2 < 0.03:
                base = [0.9, 0.2, 0.1]
            elif 0.7 < fy < 0.78:
                base = [0.1, 0.1, 0.1]
            elif 0.6 < fx < 0.8 and 0.1 < fy < 0.3 and ((x // 4) + (y // 4)) % 2:
                base = [0.95, 0.95, 0.95]
            else:
                base = [v + rnd.uniform(-0.02, 0.02) for v in base]
            vals = base[:ch] if ch == 3 else [0.3 * base[0] + 0.59 * base[1] + 0.11 * base[2]]
            for v in vals:
                q = int(round(min(1.0, max(0.0, v)) * maxval))
                if bits == 8:
                    data.append(q)
                else:
                    data += bytes((q >> 8, q & 0xFF))
    with open(out, "wb") as f:
        f.write(b"%s\n%d %d\n%d\n" % (b"P5" if ch == 1 else b"P6", w, h, maxval))
        f.write(data)


if __name__ == "__main__":
    main()
