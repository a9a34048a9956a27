#!/usr/bin/env bash
# The demo: builds the library in Release and runs the demonstration tool.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$(nproc)" --target zebjp_demo
./build/examples/zebjp_demo "$@"
# JPEG 2000: zebj2k beside OpenJPEG on the bundled photograph.
cmake --build build -j "$(nproc)" --target zebj2k
bash scripts/j2k_demo.sh build
