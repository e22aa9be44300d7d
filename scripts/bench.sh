#!/usr/bin/env bash
# Installs what is missing, builds, registers the default virtual camera, and runs the
# benchmarks. Arguments: queries per measurement (default 30).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
queries=${1:-30}
"$root/scripts/setup.sh"
BUILD_DIR=$build "$root/scripts/build.sh" >/dev/null

prefix=$build/wineprefix
wine_run() { "$root/scripts/wine.sh" run "$prefix" "$@"; }
"$root/scripts/wine.sh" start "$prefix"
trap '"$root/scripts/wine.sh" stop "$prefix"' EXIT
wine_run "$build/bin/VirtualCameraTool.exe" register
wine_run "$build/bin/VirtualCameraTool.exe" clear
wine_run "$build/bin/VirtualCameraTool.exe" add-default

wine_run "$build/bin/QueryBench.exe" "$queries"
echo
wine_run "$build/bin/ConnectPauseBench.exe" "$queries"
