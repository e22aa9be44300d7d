#!/usr/bin/env bash
# Runs a command in a virtual X display of its own (Xvfb through xvfb-run), for the test programs
# that open real windows: under Wine without a display no window can be created and a property
# frame returns at once without showing anything. CTest runs such a program as
#   with-display.sh wine.sh run PREFIX PROGRAM ARGS...
# Every Wine process started inside takes its display from DISPLAY; the prefix's wineserver has
# none of its own. The programs themselves keep to a desktop of their own, because a Wine desktop
# keeps the display of the process that opened it first (tests/DShowCapture/DisplaySupport.h).
set -euo pipefail

if ! command -v xvfb-run >/dev/null 2>&1; then
    echo "with-display.sh: xvfb-run is missing (Debian packages xvfb and xauth; scripts/setup.sh" \
        "installs them)" >&2
    exit 1
fi
# -a: the first free display number, so that runs beside each other do not meet.
exec xvfb-run -a -s "-screen 0 1280x1024x24" "$@"
