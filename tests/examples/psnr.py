#!/usr/bin/env python3
"""PSNR in dB between two 8-bit PNM images of the same size: psnr.py A B"""
import sys, math
def pnm(path):
    d = open(path, 'rb').read()
    fields, pos = [], 2
    while len(fields) < 3:
        while d[pos:pos+1].isspace(): pos += 1
        if d[pos:pos+1] == b'#':
            while d[pos:pos+1] not in (b'\n', b''): pos += 1
            continue
        s = pos
        while not d[pos:pos+1].isspace(): pos += 1
        fields.append(int(d[s:pos]))
    return d[pos+1:]
a, b = pnm(sys.argv[1]), pnm(sys.argv[2])
mse = sum((x-y)**2 for x, y in zip(a, b)) / len(a)
print('%.2f' % (10*math.log10(255*255/mse)) if mse else 'inf')
