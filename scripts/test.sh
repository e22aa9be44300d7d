#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test under Wine in the build's own prefix.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
"$root/scripts/setup.sh"
BUILD_DIR=$build "$root/scripts/build.sh"

prefix=$build/wineprefix
# One persistent wineserver for the whole run, started before ctest so that Wine's services do
# not hold ctest's output pipes; shut down at the end whatever happens.
"$root/scripts/wine.sh" start "$prefix"
trap '"$root/scripts/wine.sh" stop "$prefix"' EXIT
cd "$build"
ctest --output-on-failure --timeout 300 "$@"
