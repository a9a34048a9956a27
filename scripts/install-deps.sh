#!/usr/bin/env bash
# Installs the Debian packages that the build, tests, benchmarks and examples
# need. Idempotent: does nothing when everything is present.
set -euo pipefail

PACKAGES=(
  build-essential cmake ninja-build pkg-config binutils
  libgtest-dev libgmock-dev googletest libbenchmark-dev
  libpng-dev zlib1g-dev
  libjpeg62-turbo-dev libjpeg-turbo-progs
  libopenjp2-7-dev libopenjp2-tools
  libtiff-dev libtiff-tools
  python3
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
