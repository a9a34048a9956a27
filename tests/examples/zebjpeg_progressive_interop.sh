#!/usr/bin/env bash
# zebjpeg's progressive and lossless paths: cjpeg's progressive files (its
# default script, custom scripts with successive approximation, restarts,
# greyscale, odd sizes) decode here like djpeg's decode; damaged progressive
# and lossless files fail with a message, never a crash.
set -euo pipefail
tool=$1 here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=86
export UBSAN_OPTIONS=${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}halt_on_error=1:exitcode=87
psnr() { python3 "$here/psnr.py" "$@"; }

python3 "$here/make_test_image.py" 173 61 3 8 rgb.ppm
python3 "$here/make_test_image.py" 67 33 1 8 grey.pgm 2
python3 "$here/make_test_image.py" 9 7 3 8 tiny.ppm 3

# Successive approximation on every band, DC in two steps; the chroma AC
# bands split in two.
printf '0 1 2: 0 0 0 1;\n0: 1 5 0 2;\n2: 1 63 0 1;\n1: 1 63 0 1;\n0: 6 63 0 2;\n0: 1 63 2 1;\n0 1 2: 0 0 1 0;\n2: 1 63 1 0;\n1: 1 63 1 0;\n0: 1 63 1 0;\n' > sa.txt
printf '0: 0 0 0 2;\n1: 0 0 0 0;\n2: 0 0 0 0;\n0: 0 0 2 1;\n0: 0 0 1 0;\n0: 1 9 0 0;\n0: 10 63 0 3;\n0: 10 63 3 2;\n0: 10 63 2 1;\n0: 10 63 1 0;\n1: 1 20 0 0;\n1: 21 63 0 0;\n2: 1 63 0 0;\n' > split.txt
printf '0: 0 0 0 1;\n0: 1 63 0 1;\n0: 0 0 1 0;\n0: 1 63 1 0;\n' > grey.txt

m=0
: > pairs.txt
theirs() {  # image, cjpeg options...
  local img=$1 ext=ppm
  shift
  case " $* " in *" -grayscale "*) ext=pgm ;; esac
  [ "${img##*.}" = pgm ] && ext=pgm
  m=$((m + 1))
  cjpeg "$@" -outfile theirs$m.jpg "$img"
  djpeg -outfile tdj$m.$ext theirs$m.jpg
  "$tool" decode theirs$m.jpg tours$m.$ext
  echo "tours$m.$ext tdj$m.$ext 45" >> pairs.txt
}
for img in rgb.ppm tiny.ppm; do
  for samp in 1x1 2x1 2x2; do
    theirs $img -progressive -quality 75 -sample $samp
    theirs $img -progressive -quality 90 -sample $samp -restart 1
    theirs $img -quality 60 -sample $samp -scans sa.txt
    theirs $img -quality 85 -sample $samp -scans sa.txt -restart 2
    theirs $img -quality 95 -sample $samp -scans split.txt -restart 1B
  done
done
theirs grey.pgm -progressive -quality 75
theirs grey.pgm -quality 80 -scans grey.txt -restart 1
theirs rgb.ppm -progressive -grayscale -quality 70 -restart 3
echo "cjpeg's progressive files, our decode against djpeg's: worst $(psnr --pairs pairs.txt 45) dB over $m files"

# Our progressive files -> djpeg and ours, agreeing within 45 dB; ours equal
# to the encoder's reconstruction bit for bit.
n=0
: > pairs.txt
for img in rgb.ppm tiny.ppm grey.pgm; do
  ext=${img##*.}
  for s in 444 422 420; do
    for opts in "-q 75" "-q 50 -r 2" "-q 95 -r 1" "-q 100"; do
      [ $ext = pgm ] && [ $s != 420 ] && continue
      n=$((n + 1))
      "$tool" encode --progressive -s $s $opts --reconstruction prec$n.$ext "$img" pours$n.jpg
      djpeg -outfile pdj$n.$ext pours$n.jpg
      "$tool" decode pours$n.jpg pback$n.$ext
      cmp pback$n.$ext prec$n.$ext
      echo "pback$n.$ext pdj$n.$ext 45" >> pairs.txt
    done
  done
done
echo "our progressive files, our decode against djpeg's: worst $(psnr --pairs pairs.txt 45) dB over $n files"

# Lossless: every predictor at 8, 12 and 16 bits, grey and RGB, gives the
# input back exactly; with a point transform (and restarts every few rows)
# the input without its low bits.
python3 "$here/make_test_image.py" 40 24 3 16 rgb16.ppm 5
python3 "$here/make_test_image.py" 37 21 1 16 grey16.pgm 6
python3 "$here/make_test_image.py" 31 17 3 8 rgb8.ppm 7
python3 - <<'PY'
import random
rnd = random.Random(3)
w, h = 29, 13
# smooth 12-bit ramps with noise, plus the extremes
vals = [min(4095, max(0, (x * 140 + y * 90) % 4096 + rnd.randrange(-30, 30))) for y in range(h) for x in range(w)]
vals[0], vals[1], vals[-1] = 0, 4095, 4095
open("grey12.pgm", "wb").write(b"P5\n%d %d\n4095\n" % (w, h) + b"".join(v.to_bytes(2, "big") for v in vals))
PY
cat > samples.py <<'PY'
import sys
def read(path):
    d = open(path, "rb").read()
    fields, p = [], 2
    while len(fields) < 3:
        while d[p:p + 1].isspace(): p += 1
        q = p
        while d[q:q + 1].isdigit(): q += 1
        fields.append(int(d[p:q])); p = q
    body = d[p + 1:]
    if fields[2] > 255:
        return [int.from_bytes(body[i:i + 2], "big") for i in range(0, len(body), 2)]
    return list(body)
a, b, pt = read(sys.argv[1]), read(sys.argv[2]), int(sys.argv[3])
want = [v >> pt << pt for v in a]
if want != b:
    sys.exit("%s and %s differ" % (sys.argv[1], sys.argv[2]))
PY
l=0
for img in grey.pgm rgb8.ppm grey12.pgm grey16.pgm rgb16.ppm; do
  ext=${img##*.}
  for p in 1 2 3 4 5 6 7; do
    l=$((l + 1))
    "$tool" encode --lossless -p $p $img lossless$l.jpg
    "$tool" decode lossless$l.jpg lback$l.$ext
    python3 samples.py $img lback$l.$ext 0
  done
  for t in 1 3; do
    l=$((l + 1))
    "$tool" encode --lossless -p 6 -t $t -r $((t * 2)) $img lossless$l.jpg
    "$tool" decode lossless$l.jpg lback$l.$ext
    python3 samples.py $img lback$l.$ext $t
  done
done
# 16-bit samples coded at precision 12 must fit; 4095 does, the 16-bit ramp does not.
"$tool" encode --lossless -P 12 -p 4 grey12.pgm p12.jpg
"$tool" decode p12.jpg p12.pgm
python3 samples.py grey12.pgm p12.pgm 0
set +e
"$tool" encode --lossless -P 12 grey16.pgm x.jpg 2> err.txt
rc=$?
set -e
[ $rc -eq 1 ] && grep -q "does not fit the precision" err.txt
# The header says what was asked for: SOF3, precision, predictor, point transform.
python3 - <<'PY'
d = open("p12.jpg", "rb").read()
i = d.index(b"\xff\xc3")
assert d[i + 4] == 12 and d[i + 9] == 1, "frame header"
j = d.index(b"\xff\xda")
ns = d[j + 4]
assert d[j + 5 + 2 * ns] == 4 and d[j + 7 + 2 * ns] == 0, "scan header"
PY
echo "lossless: $l files, every predictor, 8/12/16 bits and point transforms, exact"

# Damaged files: exit 1 with a message, never a crash.
cjpeg -quality 80 -sample 2x2 -restart 2 -scans sa.txt -outfile good.jpg rgb.ppm
fails_cleanly() {
  set +e
  "$tool" decode "$1" x.ppm 2> err.txt
  rc=$?
  set -e
  [ $rc -eq 0 ] || { [ $rc -eq 1 ] && grep -q "^zebjpeg: " err.txt; } || { echo "$1: exit $rc"; cat err.txt; exit 1; }
}
"$tool" encode --lossless -p 7 rgb16.ppm lgood.jpg
python3 - <<'PY'
import random
for name, seed in (("good.jpg", 7), ("lgood.jpg", 8)):
    data = bytearray(open(name, "rb").read())
    rnd = random.Random(seed)
    for i in range(120):
        d = bytearray(data)
        for _ in range(rnd.randrange(1, 6)):
            end = 700 if rnd.random() < 0.4 else len(d)
            d[rnd.randrange(2, end)] = rnd.randrange(256)
        if i % 3 == 0:
            d = d[:rnd.randrange(2, len(d))]
        open("fuzz_%s_%03d.jpg" % (name[0], i), "wb").write(d)
PY
for f in fuzz*.jpg; do fails_cleanly "$f"; done
echo "zebjpeg progressive interop: all checks passed"
