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

# Damaged files: exit 1 with a message, never a crash.
cjpeg -quality 80 -sample 2x2 -restart 2 -scans sa.txt -outfile good.jpg rgb.ppm
fails_cleanly() {
  set +e
  "$tool" decode "$1" x.ppm 2> err.txt
  rc=$?
  set -e
  [ $rc -eq 0 ] || { [ $rc -eq 1 ] && grep -q "^zebjpeg: " err.txt; } || { echo "$1: exit $rc"; cat err.txt; exit 1; }
}
python3 - <<'PY'
import random
data = bytearray(open("good.jpg", "rb").read())
rnd = random.Random(7)
for i in range(120):
    d = bytearray(data)
    for _ in range(rnd.randrange(1, 6)):
        end = 700 if rnd.random() < 0.4 else len(d)
        d[rnd.randrange(2, end)] = rnd.randrange(256)
    if i % 3 == 0:
        d = d[:rnd.randrange(2, len(d))]
    open("fuzz%03d.jpg" % i, "wb").write(d)
PY
for f in fuzz*.jpg; do fails_cleanly "$f"; done
echo "zebjpeg progressive interop: all checks passed"
