#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test under Wine in the build's own prefix.
# Arguments go to ctest (for example -R Pipe).
set -euo pipefail
source "$(dirname "$0")/common.sh"
prepare
# Started before ctest, so that Wine's services do not hold ctest's output pipes.
start_prefix
cd "$build"
ctest --output-on-failure --timeout 300 "$@"
