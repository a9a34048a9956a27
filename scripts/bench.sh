#!/usr/bin/env bash
# Builds in Release and runs every benchmark program; extra arguments go to
# each program (for example --benchmark_filter=Add128).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$(nproc)"
for b in build/bench/*_bench; do
  echo "== $(basename "$b")"
  "$b" --benchmark_min_time=0.2 "$@"
done
