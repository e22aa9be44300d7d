#!/usr/bin/env bash
# The main job: installs what is missing, builds, registers the default virtual camera, and asks
# the real query server, through the client tool, for the devices and their modes.
set -euo pipefail
source "$(dirname "$0")/common.sh"
# Only what the job runs: the tool, the server and the virtual camera.
prepare_quietly MainJob
start_prefix
register_default_camera

echo "== Video capture devices and their modes"
wine_run "$build/bin/QueryTool.exe" list
echo
echo "== Analog capture devices"
wine_run "$build/bin/QueryTool.exe" analog
