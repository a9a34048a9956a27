#!/usr/bin/env bash
# zebjpeg against libjpeg-turbo's cjpeg/djpeg: our files decode there and
# both decodes agree; their files (qualities, samplings, restarts, optimised
# tables, odd sizes, greyscale) decode here like djpeg's; our decoder gives
# our encoder's own reconstruction exactly; bad files fail cleanly.
set -euo pipefail
tool=$1 here=$(cd "$(dirname "$0")" && pwd)
photo=$here/../../data/astronaut.png
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
# Under the sanitizers a report must not pass for the tool's own exit 1.
export ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}exitcode=86
export UBSAN_OPTIONS=${UBSAN_OPTIONS:+$UBSAN_OPTIONS:}halt_on_error=1:exitcode=87
psnr() { python3 "$here/psnr.py" "$@"; }

python3 "$here/make_test_image.py" 173 61 3 8 rgb.ppm
python3 "$here/make_test_image.py" 67 33 1 8 grey.pgm 2
python3 "$here/make_test_image.py" 9 7 3 8 tiny.ppm 3
python3 "$here/make_test_image.py" 1 1 3 8 one.ppm 4
python3 "$here/make_test_image.py" 40 24 3 16 rgb16.ppm 5

# Ours -> djpeg and ours, agreeing within 45 dB (a single pixel has too few
# samples for that measure: 40 dB); ours equal to the encoder's
# reconstruction bit for bit.
n=0
: > pairs.txt
for img in rgb.ppm tiny.ppm one.ppm rgb16.ppm; do
  least=45; [ $img = one.ppm ] && least=40
  for s in 444 422 420; do
    for opts in "-q 75" "-q 50 -r 2 --optimize" "-q 95 -r 1" "-q 20 --optimize"; do
      n=$((n + 1))
      "$tool" encode -s $s $opts --reconstruction rec$n.ppm "$img" ours$n.jpg
      djpeg -outfile dj$n.ppm ours$n.jpg
      "$tool" decode ours$n.jpg back$n.ppm
      cmp back$n.ppm rec$n.ppm
      echo "back$n.ppm dj$n.ppm $least" >> pairs.txt
    done
  done
done
for opts in "-q 75" "-q 90 -r 3 --optimize"; do
  n=$((n + 1))
  "$tool" encode $opts --reconstruction rec$n.pgm grey.pgm ours$n.jpg
  djpeg -outfile dj$n.pgm ours$n.jpg
  "$tool" decode ours$n.jpg back$n.pgm
  cmp back$n.pgm rec$n.pgm
  echo "back$n.pgm dj$n.pgm" >> pairs.txt
done
echo "our files, our decode against djpeg's: worst $(psnr --pairs pairs.txt 45) dB over $n files"

# The photograph at quality 90 comes back close to its source.
"$tool" encode -q 90 "$photo" photo.jpg
djpeg -outfile photo_dj.ppm photo.jpg
"$tool" decode photo.jpg photo.ppm
echo "astronaut q90 4:2:0: $(stat -c %s photo.jpg) bytes, $(psnr photo.ppm "$photo" 36) dB from the source," \
     "$(psnr photo.ppm photo_dj.ppm 45) dB from djpeg's decode"

# cjpeg -> ours, within 45 dB of djpeg (40 for the single pixel).
m=0
: > pairs.txt
theirs() {  # image, least dB, cjpeg options...
  local img=$1 least=$2 ext=ppm
  shift 2
  case " $* " in *" -grayscale "*) ext=pgm ;; esac
  [ "${img##*.}" = pgm ] && ext=pgm
  m=$((m + 1))
  cjpeg "$@" -outfile theirs$m.jpg "$img"
  djpeg -outfile tdj$m.$ext theirs$m.jpg
  "$tool" decode theirs$m.jpg tours$m.$ext
  echo "tours$m.$ext tdj$m.$ext $least" >> pairs.txt
}
for q in 50 75 95; do
  for samp in 1x1 2x1 2x2 1x2; do
    for extra in "" "-restart 2B -optimize" "-restart 1"; do
      theirs rgb.ppm 45 -quality $q -sample $samp $extra
    done
  done
done
for samp in 1x1 2x1 2x2 1x2; do
  theirs tiny.ppm 45 -quality 75 -sample $samp
  theirs tiny.ppm 45 -quality 60 -sample $samp -restart 1
done
theirs one.ppm 40 -quality 75 -sample 2x2
theirs one.ppm 40 -quality 90 -sample 1x1 -optimize
# Sequential files in several scans: one component each, and two
# interleaved then one alone (with restarts).
printf '0: 0 63 0 0;\n1: 0 63 0 0;\n2: 0 63 0 0;\n' > scans1.txt
printf '0 1: 0 63 0 0;\n2: 0 63 0 0;\n' > scans2.txt
theirs rgb.ppm 45 -quality 80 -sample 2x2 -scans scans1.txt
theirs tiny.ppm 45 -quality 80 -sample 2x1 -restart 1 -scans scans2.txt
theirs grey.pgm 45 -quality 60
theirs grey.pgm 45 -quality 90 -restart 1 -optimize
theirs rgb.ppm 45 -quality 70 -grayscale
theirs rgb.ppm 45 -quality 85 -grayscale -restart 2 -optimize
echo "cjpeg's files, our decode against djpeg's: worst $(psnr --pairs pairs.txt 45) dB over $m files"

# Unsupported processes get a message, not a guess.
cjpeg -arithmetic -outfile arith.jpg rgb.ppm
set +e
"$tool" decode arith.jpg x.ppm 2> err.txt
rc=$?
set -e
[ $rc -eq 1 ] && grep -q "arithmetic-coded JPEG is not supported" err.txt

# Damaged files: exit 1 with a message, never a crash.
"$tool" encode -q 80 -s 420 -r 2 rgb.ppm good.jpg
size=$(stat -c %s good.jpg)
for cut in 0 1 2 3 20 200 $((size / 2)) $((size - 3)); do
  head -c $cut good.jpg > cut.jpg
  set +e
  "$tool" decode cut.jpg x.ppm 2> err.txt
  rc=$?
  set -e
  [ $rc -eq 1 ] || { echo "truncated at $cut: exit $rc"; exit 1; }
  grep -q "zebjpeg:" err.txt
done
python3 - <<'PY'
import random
data = bytearray(open("good.jpg", "rb").read())
rnd = random.Random(11)
for i in range(150):
    d = bytearray(data)
    for _ in range(rnd.randrange(1, 6)):
        # half of the damage lands in the headers (the first 640 bytes)
        end = 640 if rnd.random() < 0.5 else len(d)
        d[rnd.randrange(2, end)] = rnd.randrange(256)
    if i % 3 == 0:
        d = d[:rnd.randrange(2, len(d))]
    open("fuzz%03d.jpg" % i, "wb").write(d)
PY
for f in fuzz*.jpg; do
  set +e
  "$tool" decode "$f" x.ppm 2> err.txt
  rc=$?
  set -e
  [ $rc -eq 0 ] || { [ $rc -eq 1 ] && grep -q "^zebjpeg: " err.txt; } || { echo "$f: exit $rc"; cat err.txt; exit 1; }
done
echo "zebjpeg interop: all checks passed"
