#!/usr/bin/env bash
# Installs the built library into a scratch prefix and builds a small program
# against it twice: through pkg-config and through find_package(zebjp).
set -euo pipefail
src=$1 build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name 'libzebjp.so' | head -n 1)")
export LD_LIBRARY_PATH=$libdir

PKG_CONFIG_PATH=$libdir/pkgconfig
export PKG_CONFIG_PATH
cc -o "$work/pc" "$src/tests/install/consumer/main.c" $(pkg-config --cflags --libs zebjp)
"$work/pc" | grep -q '^7.1.1 (r37466) 0$'

cmake -S "$src/tests/install/consumer" -B "$work/cm" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cm" >/dev/null
"$work/cm/consumer" | grep -q '^7.1.1 (r37466) 0$'
echo "install check: pkg-config and find_package consumers run"
