#!/usr/bin/env bash
# Configures build/ and builds the targets given (everything when none; binaries in build/bin).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
cmake -S "$root" -B "$build" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" >/dev/null
targets=()
for target in "$@"; do targets+=(--target "$target"); done
cmake --build "$build" -j"$(nproc)" "${targets[@]}"
