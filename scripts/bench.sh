#!/usr/bin/env bash
# Installs what is missing, builds, registers the default virtual camera, and runs the
# benchmarks. Argument: queries per measurement (default 30). CopyBench and PipeBench need no
# camera and take their own defaults. CaptureBench registers a camera of its own and captures for
# CAPTURE_SECONDS per case (default 3); it needs no sound, so Wine's ALSA driver, which only
# complains about the missing sound card when the codecs load, stays off for it.
set -euo pipefail
source "$(dirname "$0")/common.sh"
queries=${1:-30}
prepare_quietly
start_prefix
register_default_camera

wine_run "$build/bin/QueryBench.exe" "$queries"
echo
wine_run "$build/bin/ConnectPauseBench.exe" "$queries"
echo
wine_run "$build/bin/CopyBench.exe"
echo
WINEDLLOVERRIDES="winealsa.drv=d" wine_run "$build/bin/CaptureBench.exe" "${CAPTURE_SECONDS:-3}"
echo
wine_run "$build/bin/PipeBench.exe"
