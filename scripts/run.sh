#!/usr/bin/env bash
# The main job: installs what is missing, builds, and asks the real query server, through the
# client tool, for the devices and their modes.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
"$root/scripts/setup.sh"
BUILD_DIR=$build "$root/scripts/build.sh" >/dev/null

prefix=$build/wineprefix
wine_run() { "$root/scripts/wine.sh" run "$prefix" "$@"; }
"$root/scripts/wine.sh" start "$prefix"
trap '"$root/scripts/wine.sh" stop "$prefix"' EXIT

# The build's prefix has no camera of its own: register the default virtual camera.
wine_run "$build/bin/VirtualCameraTool.exe" register
wine_run "$build/bin/VirtualCameraTool.exe" add-default

echo "== Video capture devices and their modes"
wine_run "$build/bin/QueryTool.exe" list
echo
echo "== Analog capture devices"
wine_run "$build/bin/QueryTool.exe" analog
