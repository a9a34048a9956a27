#!/usr/bin/env bash
# JPEG 2000 side by side: the bundled photograph through zebj2k and through
# OpenJPEG's tools, lossless and at 1 bit per pixel: sizes, PSNR, wall time.
# usage: j2k_demo.sh BUILD_DIR
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
tool=$(cd "$1" && pwd)/examples/zebj2k
command -v opj_compress >/dev/null || { echo "j2k demo: OpenJPEG tools missing, skipped"; exit 0; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$tool" encode "$root/data/astronaut.png" src.j2k
"$tool" decode src.j2k src.ppm
ms() { local s=$(date +%s%N); "$@" >/dev/null 2>&1; echo $(( ($(date +%s%N) - s) / 1000000 )); }
printf '%-26s %10s %8s %10s %10s\n' "astronaut 512x512 RGB" bytes "PSNR dB" "enc ms" "dec ms"
for mode in lossless 1bpp; do
  if [ $mode = lossless ]; then ours=""; theirs=""; else ours="-r 1"; theirs="-I -r 24"; fi
  e=$(ms "$tool" encode $ours src.ppm o.j2k); d=$(ms "$tool" decode o.j2k o.ppm)
  printf '%-26s %10d %8s %10d %10d\n' "zebj2k $mode" "$(stat -c %s o.j2k)" "$(python3 "$root/tests/examples/psnr.py" src.ppm o.ppm)" "$e" "$d"
  e=$(ms opj_compress $theirs -i src.ppm -o t.j2k); d=$(ms opj_decompress -i t.j2k -o t.ppm)
  printf '%-26s %10d %8s %10d %10d\n' "OpenJPEG $mode" "$(stat -c %s t.j2k)" "$(python3 "$root/tests/examples/psnr.py" src.ppm t.ppm)" "$e" "$d"
done
