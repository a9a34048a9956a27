#!/usr/bin/env bash
# Builds the library and runs the whole test suite twice: a Release build, and
# a build with AddressSanitizer and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh

jobs=$(nproc)
run() {
  local dir=$1; shift
  cmake -S . -B "$dir" -G Ninja "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
  ctest --test-dir "$dir" -j "$jobs" --output-on-failure
}

echo "== Release build"
run build -DCMAKE_BUILD_TYPE=Release
echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run build-san -DCMAKE_BUILD_TYPE=Release -DZEB_SANITIZE=ON -DZEB_BUILD_BENCH=OFF
