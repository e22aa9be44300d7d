#!/usr/bin/env bash
# Installs what is missing, checks the formatting, builds everything, and runs every test under
# Wine in the build's own prefix: one ctest test per GoogleTest suite. Arguments go to ctest (for
# example -R Pipe).
set -euo pipefail
source "$(dirname "$0")/common.sh"
"$root/scripts/setup.sh"
"$root/scripts/check-format.sh"
prepare
# Started before ctest, so that Wine's services do not hold ctest's output pipes. Its failure is
# told on standard output too, where a log that keeps only that stream still shows it.
echo "== Starting the build's Wine prefix"
start_prefix 2>&1
cd "$build"
ctest --output-on-failure "$@"
