#!/usr/bin/env bash
# The demo: builds the library and the JPEG tool's pipeline in Release, then
# encodes and decodes the bundled photograph with our pipeline and with
# libjpeg-turbo side by side (sizes, PSNR, throughput), and times the level
# shift pair. An argument names another 8-bit RGB image (PNG or PPM).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$(nproc)" --target zebjp_demo zebjpeg
./build/examples/zebjp_demo "$@"
# JPEG 2000: zebj2k beside OpenJPEG on the bundled photograph.
cmake --build build -j "$(nproc)" --target zebj2k
bash scripts/j2k_demo.sh build
